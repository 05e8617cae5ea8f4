"""Archives of the older format through the program: the fallback of list, test and extract."""
import os
import resource
import signal

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


def small_files():
    """Run in the child: no file may grow beyond 200 000 bytes, as on a disk that is full."""
    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    resource.setrlimit(resource.RLIMIT_FSIZE, (200000, 200000))


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
        good = KINDS["LZH"]
        line = old.entry_line("F", "f", 0o644, 20, 5, MTIME, 0)
        stream = old.file_entry("f", 0o644, MTIME, TEXT)
        damaged = old.Entry(stream.line, stream.stream[:40] + bytes([stream.stream[40] ^ 1]) + stream.stream[41:])
        rows = (
            ("zeros", bytes(100), "TOLVEN: format error in header", 12),
            ("neither format", b"just a text\n", "TOLVEN: format error in header", 12),
            ("header not closed", line + b"\n", "TOLVEN: format error in header", 12),
            ("a field that is no number", b"F f 644 12x 5 1 0\n#\n", "TOLVEN: format error in header", 12),
            ("line too long", b"F " + b"n" * 5000 + b" 644 20 5 1 0\n#\n", "TOLVEN: format error in header", 12),
            ("more claimed than there is", line + b"\n#\n12345678", "TOLVEN: Archive seems to be corrupt", 37),
            ("cut", good[:-40000], "TOLVEN: Archive seems to be corrupt", 37),
            ("no stream", line + b"\n#\n" + b"x" * 20, "TOLVEN: can't decompress", 13),
            ("larger than 2 GB", b"F f 644 20 3000000000 1 0\n#\n" + b"x" * 20, "TOLVEN: file is larger than 2 GB", 36),
            ("wrong data", old.build([damaged]), "TOLVEN: ", None),
        )
        for situation, content, message, code in rows:
            self.write("old", content)
            with self.subTest(situation):
                target = self.fresh("out")
                run = self.run_tolven("-df", self.path("old"), cwd="out")
                self.assertTrue(run.lines[-1].startswith(message), run)
                self.assertIn(run.code, (code,) if code else (13, 14))
                if code:
                    run = self.run_tolven("-xf", self.path("old"), cwd="out")
                    self.assertEqual(run.code, code, run)
                    self.assertEqual(set(harness.contents(target)) - {"dir/text file.txt"}, set(), situation)

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
        run = self.run_tolven("-xf", "old", "-R", "out", preexec=small_files)
        self.assertEqual((run.code, run.lines), (4, [
            "TOLVEN: not all files could be extracted", "TOLVEN: dir/text file.txt: File too large (error 4). "]))
        self.assertEqual(harness.contents(self.path("out")), {})

    def test_paths_stay_inside(self):
        os.mkdir(self.path("outside"))
        for name in ("../outside/f", "/%s/f" % self.path("outside"), "x/../../outside/f", "way/f"):
            self.write("old", old.build([old.file_entry(name, 0o644, MTIME, b"data!")]))
            target = self.fresh("out")
            os.symlink("../outside", os.path.join(target, "way"))
            run = self.run_tolven("-xf", self.path("old"), cwd="out")
            self.assertEqual(os.listdir(self.path("outside")), [], (name, run))
            self.assertEqual(run.code, 1 if name == "way/f" else 0, (name, run))

    def test_none_of_them_is_signed(self):
        self.write("old", KINDS["LZH"])
        refusal = "TOLVEN: old is not digitally signed (error 59). "
        for letters in ("-tVf", "-dVf", "-xVf"):
            run = self.expect([letters, "old"], [refusal], 59)
            self.assertEqual(sorted(os.listdir(self.dir)), ["old"], run)
        wrong = old.Entry(old.entry_line("F", "f", 0o644, len(old.lzh_stream(TEXT)), len(TEXT), MTIME, 4711), old.lzh_stream(TEXT))
        self.write("old", old.build([wrong]))
        for letters in ("-dVf", "-xVf"):
            run = self.run_tolven(letters, "old")
            self.assertEqual(run.code, 14, run)
            self.assertEqual(sorted(os.listdir(self.dir)), ["old"], run)


if __name__ == "__main__":
    harness.main()
