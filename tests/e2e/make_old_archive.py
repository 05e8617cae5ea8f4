#!/usr/bin/env python3
"""Archives of the older format for tests. LZH streams come from zlib, LZC streams from the classic compress command, so
nothing of the program takes part.

    archive = build([directory_entry("d", 0o755, mtime), file_entry("d/x", 0o644, mtime, b"content")])

Started as a program, it writes a small good archive to the path that is given.
"""
import os
import struct
import subprocess
import sys
from dataclasses import dataclass

import archivefile


def lzh_stream(data):
    """As in the newer archives. zlib stores what does not shrink, and the format has no stored blocks: bytes below 144
    take at most 8 bits each with the fixed codes, so data of such bytes is never stored."""
    return archivefile.lzh(data)


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


@dataclass
class Entry:
    line: bytes
    stream: bytes


def entry_line(kind, name, mode, compressed, size, mtime, crc):
    numbers = f" {mode:5o} {compressed:10d} {size:9d} {mtime:10d} {crc:10d}"
    return kind.encode() + b" " + os.fsencode(name) + numbers.encode()


def directory_entry(name, mode, mtime):
    return Entry(entry_line("D", name, mode & 0o7777, 0, 0, mtime, 0), b"")


def file_entry(name, mode, mtime, data, coder=lzh_stream, invert=False):
    stream = coder(data) if data else b""
    if invert:
        stream = invert_every_tenth(stream)
    line = entry_line("F", name, mode & 0o7777, len(stream), len(data), mtime, archivefile.crc(data))
    return Entry(line, stream)


def build(entries):
    header = b"# an archive of the older format\n" + b"".join(entry.line + b"\n" for entry in entries) + b"#\n"
    return header + b"".join(entry.stream for entry in entries)


if __name__ == "__main__":
    sample = [directory_entry("d", 0o755, 1000000000), file_entry("d/text", 0o644, 1000000000, b"some text, " * 30),
              file_entry("d/empty", 0o644, 1000000000, b"")]
    with open(sys.argv[1], "wb") as output:
        output.write(build(sample))
