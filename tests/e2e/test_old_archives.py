"""Archives of the older format through the program: the fallback of list, test and extract."""
import os
import struct

import harness
import make_old_archive as old
from archivefile import archive, regular

TEXT = b"".join(b"%d bottles of beer on the wall\n" % number for number in range(9000))
NOISE = bytes(byte & 0x7F for byte in os.urandom(70000))
MTIME = 1000000000


def packed(text_coder=None, **options):
    text_options = {**options, "coder": text_coder} if text_coder else options
    return old.build([
        old.directory_entry("dir", 0o2750, MTIME),
        old.file_entry("dir/text file.txt", 0o640, MTIME + 1, TEXT, **text_options),
        old.file_entry("dir/noise", 0o600, MTIME + 2, NOISE, **options),
        old.file_entry("empty", 0o644, MTIME + 3, b"", **options),
    ])


KINDS = {
    "LZH": packed(),
    "LZC": packed(coder=old.lzc_stream),
    "LZH, every tenth byte inverted": packed(invert=True),
    "LZC, every tenth byte inverted": packed(coder=old.lzc_stream, invert=True),
    "mixed": packed(text_coder=old.lzc_stream),
}


class OldArchives(harness.TolvenTest):
    def test_every_kind_lists_tests_and_extracts(self):
        for kind, content in KINDS.items():
            self.write("old", content)
            with self.subTest(kind):
                self.assertEqual(self.run_tolven("-tf", "old").code, 0)
                self.expect(["-df", "old"], ["TOLVEN: 4 file(s) tested"])
                target = self.extracted("old", count=4)
                self.assertEqual(harness.contents(target),
                                 {"dir/text file.txt": TEXT, "dir/noise": NOISE, "empty": b""})
                found = harness.snapshot(target)
                self.assertEqual(found["dir"][1:], ("0o750", MTIME))
                self.assertEqual(found["dir/text file.txt"][1:3], ("0o640", MTIME + 1))

    def test_listing_lines(self):
        self.write("old", KINDS["LZH"])
        self.expect(["-tf", "old"], [
            "drwxr-s---          0  Sep 09 01:46   dir",
            "-rw-r-----     290890  Sep 09 01:46   dir/text file.txt".replace("290890", str(len(TEXT))),
            "-rw-------      70000  Sep 09 01:46   dir/noise",
            "-rw-r--r--          0  Sep 09 01:46   empty"])

    def test_names_select_and_options_count(self):
        self.write("old", KINDS["LZH"])
        for arguments, files in ((["dir"], {"dir/text file.txt", "dir/noise"}), (["dir/n*"], {"dir/noise"}),
                                 (["empty"], {"empty"}), (["-flat"], {"text file.txt", "noise", "empty"})):
            self.assertEqual(set(harness.contents(self.extracted("old", *arguments))), files, arguments)
        self.fresh("below")
        self.expect(["-xvf", "old", "-R", "below", "empty"], ["x empty", "TOLVEN: 1 file(s) extracted"])
        self.assertEqual(os.listdir(self.path("below")), ["empty"])
        self.expect(["-xf", "old", "-R", "missing"],
                    ["TOLVEN: can not change to dir missing (error 102). No such file or directory"], 102)

    def test_one_among_new_ones(self):
        self.write("old", KINDS["LZC"])
        self.write("new", archive(regular("n", b"new")))
        self.expect(["-df", "old new"], ["TOLVEN: 4 file(s) tested", "TOLVEN: processing archive new (version 2.01)",
                                         "TOLVEN: 1 file(s) tested"])

    def test_hostile_ones_end_with_their_message_and_leave_nothing(self):
        good = old.file_entry("f", 0o644, MTIME, TEXT)
        length = len(good.stream)

        def lying(compressed=length, size=len(TEXT), crc=0, stream=good.stream):
            return old.build([old.Entry(old.entry_line("F", "f", 0o644, compressed, size, MTIME, crc), stream)])

        def changed(at, value):
            return lying(stream=good.stream[:at] + bytes([value]) + good.stream[at + 1:])

        def declaring(size):
            return lying(stream=struct.pack("<I", size) + good.stream[4:])

        form = "TOLVEN: format error in header old (error 12). "
        cut = ("TOLVEN: Archive seems to be corrupt (more bytes requested for decompress than are left in the "
               "archive); archive is old (error 37). ")
        bad = "TOLVEN: can't decompress f (error 13). "
        large = "TOLVEN: file is larger than 2 GB f (error 36). "
        rows = (
            ("zeros", bytes(100), form, 12),
            ("noise", os.urandom(20000), form, 12),
            ("neither format", b"just a text\n", form, 12),
            ("comments alone", b"# a\n# b\n", form, 12),
            ("header not closed", good.line + b"\n", form, 12),
            ("a field that is no number", b"F f 644 12x 5 1 0\n#\n", form, 12),
            ("line too long", b"F " + b"n" * 5000 + b" 644 20 5 1 0\n#\n", form, 12),
            ("time beyond the system's", b"F f 644 0 0 99999999999999999999\n#\n",
             "TOLVEN: timestamp conversion failed! (error 100). ", 100),
            ("more claimed than there is", lying(length + 1), cut, 37),
            ("far more claimed", lying(9999999999), cut, 37),
            ("cut", old.build([good])[:-1], cut, 37),
            ("stream cut, file not", lying(length - 9), bad, 13),
            ("stream header alone", lying(8), bad, 13),
            ("no stream", lying(stream=b"x" * length), bad, 13),
            ("unknown algorithm", changed(4, 0x13), bad, 13),
            ("declares more than it holds", declaring(len(TEXT) + 1), bad, 13),
            ("holds more than it declares", declaring(len(TEXT) - 1), bad, 13),
            ("declares over 2 GB", declaring(0x80000000), large, 36),
            ("line over 2 GB", lying(size=0x80000000), large, 36),
            ("checksum", lying(crc=1), "TOLVEN: checksum error f (error 14). ", 14),
        )
        for situation, content, message, code in rows:
            self.write("old", content)
            with self.subTest(situation):
                incomplete = [] if code in (12, 100) else ["TOLVEN: not all files could be tested"]
                self.expect("-df old", [*incomplete, message], code)
                if code == 14:  # an extraction does not compare
                    continue
                self.expect("-xf old", [line.replace("tested", "extracted") for line in (*incomplete, message)], code)
                self.assertEqual(os.listdir(self.dir), ["old"])

    def test_inversion_is_the_whole_archives(self):
        empty = old.file_entry("empty", 0o644, MTIME, b"")
        inverted = [old.file_entry(name, 0o644, MTIME, TEXT, invert=True) for name in "ab"]
        # The entry that decides need not be selected.
        self.write("old", old.build([empty, *inverted]))
        self.assertEqual(harness.contents(self.extracted("old", "b", count=1)), {"b": TEXT})
        self.write("old", old.build([old.file_entry("plain", 0o644, MTIME, TEXT), *inverted]))
        self.assertEqual(self.run_tolven("-df", "old").code, 13)

    def test_attributes_of_directories(self):
        broken = old.file_entry("new/broken", 0o644, MTIME, TEXT)
        broken.stream = broken.stream[:5] + b"x" + broken.stream[6:]
        entries = [old.directory_entry("../there", 0o700, MTIME), old.directory_entry("new", 0o710, MTIME),
                   old.file_entry("new/a", 0o644, MTIME, b"first")]
        rows = (("-xhf", [], 0, "0o755"), ("-xf", [], 0, "0o700"), ("-xf", [broken], 13, "0o700"))
        for options, end, code, mode in rows:
            self.write("old", old.build(entries + end))
            harness.build_tree(self.fresh("out"), {"there": harness.Directory(0o755)})
            self.assertEqual(self.run_tolven(options, "old", "-R", "out").code, code)
            found = harness.snapshot(self.path("out"))
            self.assertEqual(sorted(found), ["new", "new/a", "there"])
            self.assertEqual((found["there"][1:], found["new"][1:]), ((mode, MTIME), ("0o710", MTIME)))

    def test_many_entries_cost_little(self):
        lines = [b"F dir%d/f%d 644 0 0 1 0\n" % (number % 100, number) for number in range(80000)]
        self.write("old", b"".join(lines) + b"#\n")
        self.write("names", b"".join(b"dir%d/f%d\n" % (number % 100, number) for number in range(0, 80000, 2)))
        self.expect("-df old -A names", ["TOLVEN: 40000 file(s) tested"])
        if not harness.instrumented():
            self.write("old", b"F a 0 0 0 0\n" * 1000000 + b"#\n")
            self.expect("-df old", ["TOLVEN: 1000000 file(s) tested"], preexec=harness.little_memory)

    def test_no_room_while_extracting(self):
        self.write("old", KINDS["LZH"])
        self.fresh("out")
        run = self.run_tolven("-xf", "old", "-R", "out", preexec=harness.size_limit())
        self.assertEqual((run.code, run.lines), (4, [
            "TOLVEN: not all files could be extracted", "TOLVEN: dir/text file.txt: File too large (error 4). "]))
        self.assertEqual(harness.contents(self.path("out")), {})

    def test_paths_stay_inside(self):
        tree = {"outside/keep": "1", "out/real/keep": "2", "out/way": harness.Link("../outside"),
                "out/inner": harness.Link("real"), "out/link": harness.Link("real/keep"), "out/there": "old"}
        broken = old.file_entry("there", 0o644, MTIME, TEXT)
        broken.stream = broken.stream[:5] + b"x" + broken.stream[6:]

        def file(name):
            return old.file_entry(name, 0o644, MTIME, b"data!")

        rows = (
            (file("../outside/f"), 0, "outside/f"), (file("x/../../f"), 0, "f"), (file("C:/f"), 0, "f"),
            (file("/%s/f" % self.path("outside")), 0, self.path("outside")[1:] + "/f"), (file("f/"), 0, "f"),
            (file("inner/f"), 0, "real/f"), (file("link"), 0, "link"), (file("real"), 29, None),
            (file("../.."), 3, None), (file("way/f"), 1, None), (file("there/f"), 1, None),
            (file("n" * 300 + "/f"), 2, None), (old.directory_entry("way", 0o755, MTIME), 1, None),
            (broken, 13, None),
        )
        for entry, code, made in rows:
            for name in ("outside", "out"):
                self.fresh(name)
            harness.build_tree(self.dir, tree)
            before = harness.snapshot(self.dir)
            self.write("old", old.build([entry]))
            with self.subTest(entry.line):
                run = self.run_tolven("-xf", self.path("old"), cwd="out")
                self.assertEqual(run.code, code, run)
                os.remove(self.path("old"))
                after = harness.snapshot(self.dir)
                changed = {path for path, what in after.items() if before.get(path) != what and what[0] != "directory"}
                self.assertEqual(changed, {os.path.join("out", made)} if made else set())
                self.assertEqual(set(before) - set(after), set())
        self.write("old", old.build([old.file_entry("../up", 0o644, MTIME, b"1")]))
        self.expect("-xf old -R out -xnopvalid", ["TOLVEN: 1 file(s) extracted"])
        self.assertEqual(harness.read_file(self.path("up")), b"1", "the user asked for it")

    def test_none_of_them_is_signed(self):
        self.write("old", KINDS["LZH"])
        refusal = "TOLVEN: old is not digitally signed (error 59). "
        for letters in ("-tVf", "-dVf", "-xVf"):
            run = self.expect([letters, "old"], [refusal], 59)
            self.assertEqual(sorted(os.listdir(self.dir)), ["old"], run)
        wrong = old.file_entry("f", 0o644, MTIME, TEXT)
        wrong.line = old.entry_line("F", "f", 0o644, len(wrong.stream), len(TEXT), MTIME, 4711)
        self.write("old", old.build([wrong]))
        for letters in ("-dVf", "-xVf"):
            run = self.run_tolven(letters, "old")
            self.assertEqual(run.code, 14, run)
            self.assertEqual(sorted(os.listdir(self.dir)), ["old"], run)


if __name__ == "__main__":
    harness.main()
