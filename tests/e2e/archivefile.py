"""A second implementation of the archive file: a writer that can also write what no good archive holds; the reader
beside it takes nothing on trust. It shares no code with the program, and its coder is zlib: the blocks of a stream are
RFC 1951 blocks behind an 8-byte header and a preamble of a few bits.
"""
import struct
import zlib

from format_reader import HEADER, STREAM_HEADER, Malformed, crc, inflate, parse, read  # noqa: F401

BLOCK = 65536


def lzh(data, preamble="00", strategy=zlib.Z_FIXED):
    """One compressed stream. `preamble` is written as bits in file order: two bits r, then r bits of anything."""
    coder = zlib.compressobj(9, zlib.DEFLATED, -14, 9, strategy)
    blocks = coder.compress(data) + coder.flush()
    shift = len(preamble)
    bits = int.from_bytes(blocks, "little") << shift | int(preamble[::-1], 2)
    body = bits.to_bytes(len(blocks) + (shift + 7) // 8, "little")
    return STREAM_HEADER.pack(len(data), 0x12, 0x1F, 0x9D, 2) + body + b"\0"


def block(kind, payload, length=None):
    return kind + struct.pack("<I", len(payload) if length is None else length) + payload


def end(data, zero_crc=False):
    """What follows an end block."""
    return struct.pack("<I", 0 if zero_crc else crc(data))


def raw_blocks(data, zero_crc=False):
    chunks = [data[i:i + BLOCK] for i in range(0, len(data), BLOCK)]
    return blocks_of(chunks, b"UD", b"UE") + end(data, zero_crc)


def lzh_blocks(data, strategy=zlib.Z_FIXED):
    """As version 2.01 has them: every block a stream of its own."""
    chunks = [lzh(data[i:i + BLOCK], strategy=strategy) for i in range(0, len(data), BLOCK)]
    return blocks_of(chunks, b"DA", b"ED") + end(data)


def one_stream_blocks(data, piece, strategy=zlib.Z_DEFAULT_STRATEGY):
    """As version 2.00 has them: one stream, cut into blocks wherever `piece` bytes are full."""
    stream = lzh(data, strategy=strategy)
    return blocks_of([stream[i:i + piece] for i in range(0, len(stream), piece)], b"DA", b"ED") + end(data)


def blocks_of(payloads, more, last):
    return b"".join(block(last if i + 1 == len(payloads) else more, p) for i, p in enumerate(payloads))


def entry(kind, name, mode, size=0, mtime=1000000000, data=b"", size_high=0, access=b"", name_length=None):
    """Header, name, access information and `data`, which is the blocks as they stand in the file."""
    name = name if isinstance(name, bytes) else name.encode()
    length = len(name) + 1 if name_length is None else name_length
    return HEADER.pack(kind, mode, size, size_high, mtime, 0, len(access), length) + name + b"\0" + access + data


def regular(name, content, mode=0o100644, mtime=1000000000, blocks=lzh_blocks):
    return entry(b"RG", name, mode, len(content), mtime, blocks(content) if content else b"")


def directory(name, mode=0o40755, mtime=1000000000):
    return entry(b"DR", name, mode, 0, mtime)


def link(name, target, kind=b"LK"):
    return entry(kind, name + "|" + target, 0o120777)


def archive(*entries, version=b"2.01", magic=b"ORV "):
    return magic + version + b"".join(entries)
