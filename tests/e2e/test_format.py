"""docs/format.md against itself and the program: what its examples say is what is in their bytes, and the program makes
and reads the same. The reader written from the page goes over every archive that the tests extract: see harness.
"""
import os
import re
import subprocess

import format_reader
import harness
import make_old_archive as old
import signing_support as signing
from harness import Directory, File, Link

with open(os.path.join(signing.SOURCE, "docs", "format.md"), encoding="utf-8") as page_file:
    PAGE = page_file.read()
BLOCKS = {name: text for _, name, text in re.findall(r"^```(hex|text) (\w+)\n(.*?)^```$", PAGE, re.M | re.S)}
TEXT = b"abracadabra abracadabra\n"


def section(title):
    return re.search(r"^#+ " + re.escape(title) + r"\n(.*?)(?=^#)", PAGE, re.M | re.S)[1]


def hex_of(name):
    """The bytes of a dump, whose lines may have an offset in front and a comment behind two blanks."""
    found = b""
    for line in BLOCKS[name].splitlines():
        offset, pairs = re.fullmatch(r"(?:([0-9a-f]{4})  )?((?:[0-9a-f]{2} ?)+)(?:  .*)?", line).groups()
        assert offset is None or int(offset, 16) == len(found), line
        found += bytes.fromhex(pairs)
    return found


def behind_preamble(stream):
    bits = int.from_bytes(stream[8:], "little")
    return bits >> 2 + (bits & 3)


class Page(harness.TolvenTest):
    def test_checksums(self):
        rows = re.findall(r"\| `(\w+)` \| `([0-9A-F]{8})` \|", section("Checksum"))
        self.assertEqual([(text, "%08X" % format_reader.crc(text.encode())) for text, _ in rows], rows)
        self.assertEqual(len(rows), 2)

    def test_lzh_bit_by_bit(self):
        rows = re.findall(r"\| `([01 ]+)` \| (.*?) \|", section("LZH"))
        bits = "".join(code for code, _ in rows).replace(" ", "")
        stream = hex_of("lzh")
        self.assertEqual(int(bits[::-1], 2).to_bytes(len(bits) // 8, "little"), stream[8:])
        self.assertEqual(format_reader.inflate(stream), TEXT)
        data = b""
        for code, meaning in rows:
            bits_of, meaning = code.split()[0], meaning.replace("blank", "` `").replace("LF", "`\n`")
            match = re.search(r"(?:(\d+) back. )?`(.+)`$", meaning, re.S)
            if match and match[1]:
                self.assertEqual(data[-int(match[1]):][:len(match[2])], match[2].encode()[:int(match[1])], meaning)
            elif match:
                self.assertEqual(int(bits_of, 2) - 0x30, ord(match[2]), meaning)
            data += match[2].encode() if match else b""
        self.assertEqual(data, TEXT)

    def test_lzc_code_by_code(self):
        stream = hex_of("lzc")
        self.assertEqual(stream, old.lzc_stream(b"abababa"))
        rows = re.findall(r"\| `([01]{9})` \| (\d+) \| `(\w+)` \|", section("LZC"))
        bits = int.from_bytes(stream[8:], "little")
        self.assertEqual([(bits >> 9 * i) & 511 for i in range(len(rows))], [int(bits, 2) for bits, _, _ in rows])
        self.assertEqual([int(bits, 2) for bits, _, _ in rows], [int(code) for _, code, _ in rows])
        self.assertEqual("".join(text for *_, text in rows).encode(), format_reader.inflate(stream))

    def test_small_archive(self):
        harness.build_tree(self.path("t"), {
            "d/text": File(TEXT, 0o644, 10**9), "empty": File(b"", 0o600, 10**9), "link": Link("d/text"),
            "d": Directory(0o755, 10**9 + 3)})
        os.utime(self.path("t/link"), (10**9 + 2,) * 2, follow_symlinks=False)
        self.expect("-crf A d empty link", [], cwd="t")
        self.write("page", hex_of("archive"))
        self.assertEqual(self.run_tolven("-tf", "page").lines[1:], BLOCKS["listing"].splitlines())
        self.assertEqual(harness.read_file(self.extracted("page", count=4) + "/link"), TEXT)
        made, shown = (format_reader.read(self.path(name))[1] for name in ("t/A", "page"))
        shown[0].size = made[0].size
        self.assertEqual(shown[1].blocks, [(b"ED", hex_of("lzh"))])
        for entry in made[1], shown[1]:
            entry.blocks = [(kind, behind_preamble(payload)) for kind, payload in entry.blocks]
        self.assertEqual([vars(entry) for entry in made], [vars(entry) for entry in shown])
        self.expect(["-Sf", "page", "-key", signing.pse("signer")], [])
        signed, _ = signing.split_document(signing.manifest_of(self.path("page")))
        self.assertEqual(signed.decode(), BLOCKS["manifest"])

    def test_older_format(self):
        lines = BLOCKS["header"].encode()
        for data in ("old", "inverted"):
            content = lines + hex_of(data)
            self.write("old", content)
            self.assertEqual(harness.contents(self.extracted("old", count=2)), {"d/a file": b"abababa"})
            self.assertEqual(content, old.build([
                old.directory_entry("d", 0o755, 10**9 + 3),
                old.file_entry("d/a file", 0o644, 10**9, b"abababa", old.lzc_stream, invert=data == "inverted")]))

    def test_lzc_in_all_its_widths(self):
        # Until the table is full, a CLEAR, and strings that a code enters and is at once.
        data = bytes(i * i >> 7 & 255 for i in range(40000)) + b"ab" * 30000 + os.urandom(60000) + bytes(30000)
        for bits in (10, 13, 14):
            coded = subprocess.run(["compress", "-cfb", str(bits)], input=data, stdout=subprocess.PIPE, check=True).stdout
            stream = len(data).to_bytes(4, "little") + b"\x11" + coded
            self.assertEqual(format_reader.inflate(stream), data, bits)
            line = old.entry_line("F", "f", 0o644, len(stream), len(data), 1, format_reader.crc(data))
            self.write("old", old.build([old.Entry(line, stream)]))
            self.extracted("old", count=1)


if __name__ == "__main__":
    harness.main()
