"""A second implementation of the archive file: a writer that can also write what no good archive holds, and a reader
that takes nothing on trust. It shares no code with the program, and its coder is zlib: the blocks of a stream are
RFC 1951 blocks behind an 8-byte header and a preamble of a few bits.
"""
import struct
import zlib

BLOCK = 65536
HEADER = struct.Struct("<2sIQIqIHH")
STREAM_HEADER = struct.Struct("<IBBBB")
assert HEADER.size == 34


def crc(data):
    """The register of the reflected CRC-32, started at 0 and inverted neither before nor after."""
    return zlib.crc32(data, 0xFFFFFFFF) ^ 0xFFFFFFFF


# --- Writing.

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


# --- Reading.

class Malformed(Exception):
    pass


class Entry:
    """One entry as it stands in the file; `blocks` are pairs of kind and payload."""

    def __init__(self, fields, name, access):
        self.type, self.mode, self.size, self.size_high, self.mtime, self.reserved = fields
        self.name, self.access, self.blocks, self.crc = name, access, [], None

    @property
    def kinds(self):
        return [kind for kind, _ in self.blocks]

    def data(self):
        """The data, every block taken by itself as 2.01 has it."""
        pieces = [payload if kind[:1] == b"U" else inflate(payload) for kind, payload in self.blocks]
        if any(len(piece) != BLOCK for piece in pieces[:-1]) or any(not 0 < len(p) <= BLOCK for p in pieces):
            raise Malformed("blocks of %r" % [len(p) for p in pieces])
        whole = b"".join(pieces)
        if whole and crc(whole) != self.crc:
            raise Malformed("checksum")
        return whole


def inflate(stream):
    length, version, magic1, magic2, level = STREAM_HEADER.unpack_from(stream)
    if (version, magic1, magic2, level) != (0x12, 0x1F, 0x9D, 2) or len(stream) < 10 or stream[-1] != 0:
        raise Malformed("stream %r ... %r" % (stream[:8], stream[-2:]))
    bits = int.from_bytes(stream[8:-1], "little")
    bits >>= 2 + (bits & 3)
    decoder = zlib.decompressobj(-15)
    data = decoder.decompress(bits.to_bytes(len(stream) - 9, "little"))
    if not decoder.eof or len(data) != length or decoder.unused_data.strip(b"\0"):
        raise Malformed("stream of %d bytes: %d" % (length, len(data)))
    return data


def read(path):
    """Version and entries of the archive at `path`."""
    with open(path, "rb") as file:
        return parse(file.read())


def parse(content):
    if content[:4] != b"ORV " or content[4:8] not in (b"2.00", b"2.01"):
        raise Malformed("archive header %r" % content[:8])
    entries, at = [], 8
    while at < len(content):
        *fields, access_length, name_length = HEADER.unpack_from(content, at)
        at += HEADER.size
        name = content[at:at + name_length]
        access = content[at + name_length:at + name_length + access_length]
        if len(name) != name_length or len(access) != access_length or name[-1:] != b"\0" or b"\0" in name[:-1]:
            raise Malformed("name %r" % name)
        at += name_length + access_length
        item = Entry(fields, name[:-1], access)
        if item.type not in (b"RG", b"DR", b"LK", b"SC", b"SM"):
            raise Malformed("type %r" % item.type)
        while content[at:at + 2] in (b"DA", b"ED", b"UD", b"UE"):
            kind, (length,) = content[at:at + 2], struct.unpack_from("<I", content, at + 2)
            payload = content[at + 6:at + 6 + length]
            if len(payload) != length:
                raise Malformed("payload")
            item.blocks.append((kind, payload))
            at += 6 + length
            if kind in (b"ED", b"UE"):
                (item.crc,) = struct.unpack_from("<I", content, at)
                at += 4
                break
        entries.append(item)
    return content[4:8], entries
