#!/usr/bin/env python3
"""Makes archives of the older format for tests, from given files and directories.

Independent of the program: LZH streams come from the plain coder below, LZC streams from the classic
compress command, checksums from zlib.

    make_old_archive.py [--lzc] [--invert] [--no-checksum] [-C DIR] ARCHIVE NAME...

A directory is stored with everything below it. As a module:

    archive = build([directory_entry("d", 0o755, mtime), file_entry("d/x", 0o644, mtime, b"content")])
"""

import argparse
import os
import stat
import struct
import subprocess
import sys
import zlib
from dataclasses import dataclass

WINDOW = 16384
MAX_MATCH = 258
LENGTH_BASES = (3, 4, 5, 6, 7, 8, 9, 10, 11, 13, 15, 17, 19, 23, 27, 31, 35, 43, 51, 59,
                67, 83, 99, 115, 131, 163, 195, 227, 258)
DISTANCE_BASES = (1, 2, 3, 4, 5, 7, 9, 13, 17, 25, 33, 49, 65, 97, 129, 193, 257, 385, 513, 769,
                  1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289)


LENGTH_CODES = {}  # length: symbol, rest, bits of the rest
for index, base in enumerate(LENGTH_BASES):
    count = 0 if index < 8 or base == MAX_MATCH else index // 4 - 1
    for rest in range(1 << count):
        LENGTH_CODES[base + rest] = (257 + index, rest, count)


class BitWriter:
    """Bits as RFC 1951 packs them: from the lowest of each byte up."""

    def __init__(self):
        self.out = bytearray()
        self.buffer = 0
        self.count = 0

    def bits(self, value, count):
        self.buffer |= value << self.count
        self.count += count
        while self.count >= 8:
            self.out.append(self.buffer & 0xFF)
            self.buffer >>= 8
            self.count -= 8

    def code(self, value, count):
        """A Huffman code: its highest bit comes first."""
        self.bits(int(format(value, f"0{count}b")[::-1], 2), count)

    def finish(self):
        if self.count:
            self.out.append(self.buffer & 0xFF)
        return bytes(self.out)


def put_symbol(out, symbol):
    if symbol < 144:
        out.code(0x30 + symbol, 8)
    elif symbol < 256:
        out.code(0x190 + symbol - 144, 9)
    elif symbol < 280:
        out.code(symbol - 256, 7)
    else:
        out.code(0xC0 + symbol - 280, 8)


def put_match(out, length, distance):
    symbol, rest, count = LENGTH_CODES[length]
    put_symbol(out, symbol)
    out.bits(rest, count)
    code = max(i for i, base in enumerate(DISTANCE_BASES) if base <= distance)
    out.code(code, 5)
    out.bits(distance - DISTANCE_BASES[code], 0 if code < 4 else code // 2 - 1)


def put_fixed_block(out, data):
    """One final block with the fixed codes, matched greedily. (zlib's Z_FIXED would do, but for data that does
    not compress it stores blocks, which the format does not have.)"""
    out.bits(1 | 1 << 1, 3)
    last = {}
    at = 0
    while at < len(data):
        key = data[at:at + 3]
        seen = last.get(key, -1) if len(key) == 3 else -1
        last[key] = at
        if seen < 0 or at - seen > WINDOW:
            put_symbol(out, data[at])
            at += 1
            continue
        length = 3
        while length < MAX_MATCH and at + length < len(data) and data[seen + length] == data[at + length]:
            length += 1
        put_match(out, length, at - seen)
        at += length
    put_symbol(out, 256)


def lzh_stream(data):
    """Stream header, a preamble of two zero bits, the block, one zero byte."""
    out = BitWriter()
    out.bits(0, 2)
    put_fixed_block(out, data)
    return struct.pack("<I4B", len(data), 0x12, 0x1F, 0x9D, 2) + out.finish() + b"\0"


def lzc_stream(data):
    """What compress writes with 13 bits, its three header bytes (which end ours too) replaced."""
    command = ["compress", "-c", "-f", "-b", "13"]
    coded = subprocess.run(command, input=data, stdout=subprocess.PIPE, check=True).stdout
    if coded[:3] != b"\x1f\x9d\x8d":
        raise ValueError("compress wrote an unknown header")
    return struct.pack("<IB", len(data), 0x11) + coded


def invert_every_tenth(stream):
    """Positions 0, 10, 20 ... of the stream, its header included."""
    return bytes(byte ^ 0xFF if i % 10 == 0 else byte for i, byte in enumerate(stream))


def checksum(data):
    """The CRC-32 register started at 0 and not inverted at the end."""
    return zlib.crc32(data, 0xFFFFFFFF) ^ 0xFFFFFFFF


@dataclass
class Entry:
    line: bytes
    stream: bytes


def entry_line(kind, name, mode, compressed, size, mtime, crc=None):
    """One header line; a `crc` of None leaves the seventh field out."""
    line = f"{kind} ".encode() + os.fsencode(name) + f" {mode:5o} {compressed:10d} {size:9d} {mtime:10d}".encode()
    return line if crc is None else line + f" {crc:10d}".encode()


def directory_entry(name, mode, mtime):
    return Entry(entry_line("D", name, mode & 0o7777, 0, 0, mtime, 0), b"")


def file_entry(name, mode, mtime, data, coder=lzh_stream, invert=False, with_checksum=True):
    stream = coder(data) if data else b""
    if invert:
        stream = invert_every_tenth(stream)
    crc = checksum(data) if with_checksum else None
    return Entry(entry_line("F", name, mode & 0o7777, len(stream), len(data), mtime, crc), stream)


def build(entries, comment=b"# an archive of the older format\n"):
    header = comment + b"".join(entry.line + b"\n" for entry in entries) + b"#\n"
    return header + b"".join(entry.stream for entry in entries)


def walk(name):
    """The name and, for a directory, everything below it, each directory before its contents."""
    yield name
    if os.path.isdir(name) and not os.path.islink(name):
        for child in sorted(os.listdir(name)):
            yield from walk(name + "/" + child)


def entry_from_disk(path, **options):
    status = os.stat(path)
    if stat.S_ISDIR(status.st_mode):
        return directory_entry(path, status.st_mode, int(status.st_mtime))
    with open(path, "rb") as file:
        return file_entry(path, status.st_mode, int(status.st_mtime), file.read(), **options)


def main():
    parser = argparse.ArgumentParser(description="make an archive of the older format")
    parser.add_argument("--lzc", action="store_true", help="code with the compress command instead of LZH")
    parser.add_argument("--invert", action="store_true", help="invert every tenth byte of each stream")
    parser.add_argument("--no-checksum", action="store_true",
                        help="write lines of six fields (a name with blanks needs seven)")
    parser.add_argument("-C", metavar="DIR", help="take the names from this directory")
    parser.add_argument("archive")
    parser.add_argument("names", nargs="+")
    arguments = parser.parse_args()

    archive = os.path.abspath(arguments.archive)
    if arguments.C:
        os.chdir(arguments.C)
    coder = lzc_stream if arguments.lzc else lzh_stream
    entries = [entry_from_disk(path, coder=coder, invert=arguments.invert,
                               with_checksum=not arguments.no_checksum or " " in path)
               for name in arguments.names for path in walk(name.rstrip("/") or "/")]
    with open(archive, "wb") as file:
        file.write(build(entries))
    return 0


if __name__ == "__main__":
    sys.exit(main())
