"""Reads archives of every kind, written from docs/format.md alone: what it can read, a stranger can. Of the program it
knows nothing; the blocks of RFC 1951 are zlib's work.
"""
import struct
import zlib

HEADER = struct.Struct("<2sIQIqIHH")
STREAM_HEADER = struct.Struct("<IBBBB")
MAX_PAYLOAD, MAX_NAME, MAX_LINE = 131072, 4352, 4096


class Malformed(Exception):
    pass


def need(condition, what):
    if not condition:
        raise Malformed(what)


def crc(data, register=0):
    """The register of the reflected CRC-32, started at 0 and inverted neither before nor after."""
    return zlib.crc32(data, register ^ 0xFFFFFFFF) ^ 0xFFFFFFFF


# --- Streams.

class Lzh:
    """Blocks of RFC 1951 behind a preamble of 2 + r bits."""

    def __init__(self, level):
        need(1 <= level <= 9, "level %d" % level)
        self.bits = self.count = 0
        self.started, self.decoder = False, zlib.decompressobj(-14)

    def feed(self, piece):
        self.bits |= int.from_bytes(piece, "little") << self.count
        self.count += 8 * len(piece)
        if not self.started and self.count:
            noise = 2 + (self.bits & 3)
            self.bits, self.count, self.started = self.bits >> noise, self.count - noise, True
        whole = max(self.count, 0) // 8
        ready = (self.bits & (1 << 8 * whole) - 1).to_bytes(whole, "little")
        self.bits, self.count = self.bits >> 8 * whole, self.count - 8 * whole
        return self.decoder.decompress(ready)

    def ended(self, _):
        if self.decoder.eof:
            # What fills the last byte, and the one behind it, are zeros.
            need(not self.bits and not self.decoder.unused_data.strip(b"\0"), "behind the last block")
        return self.decoder.eof


class Lzc:
    """Codes of 9 bits and more, in groups of eight."""

    def __init__(self, parameter):
        self.widest, self.clear = parameter & 31, 256 if parameter & 128 else None
        need(9 <= self.widest <= 14 and not parameter & 96, "parameter %#x" % parameter)
        self.held, self.at, self.in_group = b"", 0, 0
        self.restart()

    def restart(self):
        self.strings = [bytes([byte]) for byte in range(256)] + [None] * (self.clear is not None)
        self.width, self.last = 9, None

    def leave_group(self, width):
        self.at += -self.in_group % 8 * self.width
        self.in_group, self.width = 0, width

    def feed(self, piece):
        self.held, self.at = self.held[self.at // 8:] + piece, self.at - min(self.at // 8, len(self.held)) * 8
        found = bytearray()
        while True:
            if self.width < self.widest and len(self.strings) > (1 << self.width) - 1:
                self.leave_group(self.width + 1)
            byte, bit = divmod(self.at, 8)
            if 8 * len(self.held) < self.at + self.width:
                return bytes(found)
            code = int.from_bytes(self.held[byte:byte + 3], "little") >> bit & (1 << self.width) - 1
            self.at += self.width
            self.in_group += 1
            found += self.take(code)

    def take(self, code):
        if code == self.clear and self.last is not None:
            self.leave_group(9)
            self.restart()
            return b""
        full = len(self.strings) == 1 << self.widest
        need(code < 256 if self.last is None else code < len(self.strings) + (not full), "code %d" % code)
        if self.last is not None and not full:
            self.strings.append(self.last + (self.last if code == len(self.strings) else self.strings[code])[:1])
        self.last = self.strings[code]
        return self.last

    def ended(self, missing):
        return missing <= 0


class Stream:
    """One compressed stream, given piece by piece; a piece ends it or does not."""

    def __init__(self):
        self.head, self.coder, self.length, self.done = b"", None, 0, 0

    def feed(self, piece):
        if self.coder is None:
            self.head += piece
            need(len(self.head) >= 8, "stream header")
            self.length, algorithm, magic1, magic2, parameter = STREAM_HEADER.unpack_from(self.head)
            need((magic1, magic2) == (0x1F, 0x9D) and self.length < 1 << 31 and algorithm in (0x11, 0x12), "stream header")
            self.coder, piece = (Lzc if algorithm == 0x11 else Lzh)(parameter), self.head[8:]
        data = self.coder.feed(piece)
        if isinstance(self.coder, Lzc):
            data = data[:self.length - self.done]
        self.done += len(data)
        need(self.done <= self.length, "longer than it says")
        return data

    def ended(self):
        ended = self.coder.ended(self.length - self.done)
        need(not ended or self.done == self.length, "shorter than it says")
        return ended


def inflate(stream):
    whole = Stream()
    data = whole.feed(stream)
    need(whole.ended(), "stream cut")
    return data


# --- Archives.

class Entry:
    """One entry as it stands in the file; `blocks` are pairs of kind and payload."""

    def __init__(self, fields, name, access):
        self.type, self.mode, self.size, self.size_high, self.mtime, self.reserved = fields
        self.name, self.access, self.blocks, self.crc = name, access, [], None

    @property
    def kinds(self):
        return [kind for kind, _ in self.blocks]

    def link(self):
        """Path and target of a link."""
        path, bar, target = self.name.partition(b"|")
        need(path and bar and target, "link %r" % self.name)
        return path, target

    def data(self):
        pieces, stream = [], None
        for kind, payload in self.blocks:
            if kind in (b"UD", b"UE"):
                need(stream is None, "raw block inside a stream")
                pieces.append(payload)
            elif payload:
                stream = stream or Stream()
                pieces.append(stream.feed(payload))
                if stream.ended():
                    stream = None
        need(stream is None, "stream cut")
        whole = b"".join(pieces)
        need(self.crc in (None, 0, crc(whole)), "checksum")
        return whole


def read(path):
    """Version and entries of the archive at `path`."""
    with open(path, "rb") as file:
        return parse(file.read())


class Cursor:
    def __init__(self, content):
        self.content, self.at = content, 0

    def take(self, count):
        piece = self.content[self.at:self.at + count]
        need(len(piece) == count, "file cut")
        self.at += count
        return piece

    def unpack(self, layout):
        return struct.unpack(layout, self.take(struct.calcsize(layout)))


def parse(content):
    if content[:4] != b"ORV ":
        return None, parse_old(content)
    need(content[4:8] in (b"2.00", b"2.01"), "version %r" % content[4:8])
    entries, cursor = [], Cursor(content)
    cursor.take(8)
    while cursor.at < len(content):
        *fields, access_length, name_length = HEADER.unpack(cursor.take(HEADER.size))
        need(fields[0] in (b"RG", b"DR", b"LK", b"SC", b"SM") and name_length <= MAX_NAME, "entry %r" % fields[0])
        name = cursor.take(name_length)
        need(name[-1:] == b"\0" and b"\0" not in name[:-1], "name %r" % name)
        entries.append(Entry(fields, name[:-1], cursor.take(access_length)))
        read_blocks(cursor, entries[-1])
    return content[4:8], entries


def read_blocks(cursor, entry):
    while cursor.content[cursor.at:cursor.at + 2] in (b"DA", b"ED", b"UD", b"UE"):
        kind, length = cursor.unpack("<2sI")
        need(length <= MAX_PAYLOAD and entry.crc is None, "block")
        entry.blocks.append((kind, cursor.take(length)))
        if kind in (b"ED", b"UE"):
            entry.crc, = cursor.unpack("<I")
    has_data = entry.type in (b"RG", b"SM") and entry.size + (entry.size_high << 32) > 0
    need((entry.crc is not None) == (has_data or bool(entry.blocks)) and (has_data or not entry.blocks), "data missing")


# --- The older format.

class OldEntry:
    def __init__(self, kind, name, mode, compressed, size, mtime, checksum="0"):
        self.type, self.name = {"F": b"RG", "D": b"DR"}[kind], name.encode("latin-1")
        self.mode = int(mode, 8)
        self.compressed, self.size, self.mtime, self.checksum = map(int, (compressed, size, mtime, checksum))
        self.stream = b""

    def data(self):
        data = inflate(self.stream) if len(self.stream) >= 8 else b""
        need(self.checksum in (0, crc(data)), "checksum")
        return data


def parse_old_line(line):
    need(line[:1] in ("F", "D") and line[1:2].isspace() and "\0" not in line and len(line) <= MAX_LINE, "line")
    words = line[2:].split()
    try:
        return OldEntry(line[0], *words[:6])  # a name of one word
    except (ValueError, TypeError):
        need(len(words) > 5 and all(word.isdecimal() for word in words[-5:]), "line %r" % line)
        name = line[2:]
        for _ in range(5):
            name = name.rstrip().rstrip("0123456789")
        return OldEntry(line[0], name.rstrip(), *words[-5:])


def parse_old(content):
    entries, cursor = [], Cursor(content)
    while True:
        end = content.find(b"\n", cursor.at)
        need(end >= 0, "header not closed")
        line = cursor.take(end + 1 - cursor.at)[:-1].decode("latin-1")
        if not line.startswith("#"):
            entries.append(parse_old_line(line))
        elif entries:
            break
    for entry in entries:
        need(entry.compressed < 8 or entry.type == b"RG", "directory with data")
        entry.stream = cursor.take(entry.compressed)
    first = next((entry for entry in entries if len(entry.stream) >= 8), None)
    if first and int.from_bytes(first.stream[:4], "little") != first.size:
        for entry in entries:
            entry.stream = bytes(byte ^ 255 * (at % 10 == 0) for at, byte in enumerate(entry.stream))
    return entries
