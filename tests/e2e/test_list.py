"""Listing lines, the space report, and the availability check."""
import os
import re

import harness
from archivefile import archive, directory, entry, link, regular

LINE = "TOLVEN: processing archive A (version %s)"


class Lines(harness.TolvenTest):
    def listed(self, *entries, env=None, args=(), version=b"2.01"):
        self.write("A", archive(*entries, version=version))
        run = self.run_tolven("-tf", "A", *args, env=env)
        self.assertEqual((run.code, run.lines[0]), (0, LINE % version.decode()))
        return run.lines[1:]

    def test_documented_example(self):
        # 5 bytes, 2 January 2020 10:07: eleven blanks before the 5, the date right-aligned in 20 columns.
        line = self.listed(regular("name", b"12345", mtime=1577959620))
        self.assertEqual(line, ["-rw-r--r--" + " " * 11 + "5" + " " + "   02 Jan 2020 10:07" + " name"])

    def test_permissions(self):
        rows = ((b"DR", 0o40755, "drwxr-xr-x"), (b"RG", 0o100644, "-rw-r--r--"), (b"RG", 0o104755, "-rwsr-xr-x"),
                (b"DR", 0o41777, "drwxrwxrws"), (b"RG", 0o102600, "-rw---s---"), (b"RG", 0o100000, "----------"),
                (b"LK", 0o120777, "lrwxrwxrwx"), (b"RG", 0o107777, "-rwsrwsrws"), (b"RG", 0o101000, "---------s"),
                (b"SC", 0o120123, "l--x-w--wx"), (b"RG", 0o40700, "drwx------"), (b"DR", 0o755, "-rwxr-xr-x"),
                (b"RG", 0xFFFF0FFF, "-rwsrwsrws"), (b"RG", 0o466, "-r--rw-rw-"))
        lines = self.listed(*(entry(kind, "n|t", mode) for kind, mode, _ in rows))
        self.assertEqual([line[:10] for line in lines], [text for _, _, text in rows])

    def test_lengths(self):
        rows = ((0, 0, "0"), (2**32, 0, "4294967296"), (5, 1, "4294967301"), (10**12 - 1, 0, "999999999999"),
                (0, 2**32 - 1, "18446744069414584320"), (2**63, 0, "9223372036854775808"))
        lines = self.listed(*(entry(b"RG", "n", 0o644, size, size_high=high) for size, high, _ in rows))
        self.assertEqual([re.sub(r"^-rw-r--r--( *\d+) .*", r"\1", line) for line in lines],
                         [text.rjust(12) for _, _, text in rows])

    def test_dates(self):
        rows = ((0, "01 Jan 1970 00:00"), (-1, "31 Dec 1969 23:59"), (2**31, "19 Jan 2038 03:14"),
                (-2**31 - 1, "13 Dec 1901 20:45"), (253402300799, "31 Dec 9999 23:59"),
                (253402300800, ""), (2**62, ""), (-2**63, ""), (-62135596800, "01 Jan 1 00:00"))
        lines = self.listed(*(entry(b"RG", "n", 0o644, 0, mtime) for mtime, _ in rows))
        for (mtime, text), line in zip(rows, lines):
            if mtime == -62135596800:
                self.assertRegex(line[23:43].strip(), r"^01 Jan (0001|1) 00:00$")
            else:
                self.assertEqual(line, "-rw-r--r--           0 " + text.rjust(20) + " n", mtime)

    def test_dates_are_local(self):
        item = regular("n", b"", mtime=1577959620)
        for zone, text in (("UTC", "02 Jan 2020 10:07"), ("XYZ-5:30", "02 Jan 2020 15:37"),
                           ("XYZ11", "01 Jan 2020 23:07")):
            self.assertEqual(self.listed(item, env={"TZ": zone})[0][23:43].strip(), text)

    def test_names_as_they_are_stored(self):
        names = ["with blank", "\u00fcml", "/abs", "../up", "a//b/", "C:/x", "tab\there", os.fsdecode(b"\xff\x80"),
                 "a|b"]
        lines = self.listed(*(regular(os.fsencode(name), b"") for name in names), link("l", "some target"))
        self.assertEqual([line[44:] for line in lines], names + ["l|some target"])
        # The rest of the field behind the first zero byte is not part of the name.
        self.assertEqual(self.listed(regular(b"short\0rest", b""))[0][44:], "short")
        self.assertEqual(self.listed(entry(b"RG", "cut", 0o644, name_length=2, data=b"")[:36])[0][44:], "cu")

    def test_flat_changes_the_shown_names(self):
        self.assertEqual([line[44:] for line in self.listed(directory("a/b"), link("a/l", "x/y"), args=["-flat"])],
                         ["b", "l|x/y"])


class SpaceReport(harness.TolvenTest):
    NOTHING = ["The extraction does not require free disk space (maybe",
               "the extraction will only overwrite existing files of",
               "greater or equal size or the uncompressed size of each",
               "file in the archive is zero).", ""]

    def report(self, *args):
        run = self.run_tolven("-tsf", "A", *args)
        self.assertEqual(run.code, 0, run)
        return [line for line in run.lines if not re.match(r"TOLVEN: processing|[-dl][-rwxs]{9}", line)]

    def write_sizes(self, *sizes):
        self.write("A", archive(*(entry(b"RG", name, 0o644, size, size_high=high) for name, size, high in sizes)))

    def test_nothing_required(self):
        self.write_sizes(("f/a", 0, 0))
        self.assertEqual(self.report(), self.NOTHING)
        self.write_sizes(("there", 4, 0))
        self.write("there", "1234")
        self.assertEqual(self.report(), self.NOTHING)
        self.assertEqual(self.report("unknown"), self.NOTHING)

    def test_what_is_required(self):
        here = os.path.realpath(self.dir)
        self.write("there", "x" * 1000)
        rows = (([("a", 1024, 0)], "1"), ([("a", 1024, 0), ("d/b", 512, 0)], "1.5"), ([("a", 1, 0)], "0.000976562"),
                ([("there", 3048, 0), ("a", 0, 0)], "2"), ([("there", 10, 0), ("a", 2048, 0)], "2"),
                ([("a", 1234567890, 0)], "1.20563e+06"))
        for sizes, amount in rows:
            self.write_sizes(*sizes)
            self.assertEqual(self.report(), ["The extraction requires approximately...",
                                             "\t%s KB in %s" % (amount, here), ""])

    def test_the_directory_that_is_asked_for(self):
        self.write_sizes(("d/a", 1024, 0), ("e/f/b", 1024, 0))
        self.fresh("out")
        os.mkdir(self.path("out/e"))
        lines = ["The extraction requires approximately...", "\t2 KB in out", ""]
        self.assertEqual(self.report("-R", "out"), lines)
        self.assertEqual(self.report("-R", self.path("out")), [lines[0], "\t2 KB in " + self.path("out"), ""])
        self.assertEqual(self.report("e/f/b", "-R", "out"), [lines[0], "\t1 KB in out/e", ""])

    def test_what_is_missing(self):
        self.write_sizes(("a", 0, 2**20))  # 4 PiB
        lines = self.report()
        self.assertEqual(lines[0], "There is free space missing... ")
        self.assertRegex(lines[1], r"^\t\d\.\d+e\+12 KB in " + re.escape(os.path.realpath(self.dir)) + "$")
        self.assertEqual(lines[2:], [""])

    def test_one_report_for_all_archives(self):
        self.write_sizes(("a", 1024, 0))
        self.write("B", archive(entry(b"RG", "b", 0o644, 1024)))
        run = self.run_tolven("-tsf", "A B")
        self.assertEqual(run.lines[-3:-1], ["The extraction requires approximately...",
                                            "\t2 KB in " + os.path.realpath(self.dir)])


class Availability(harness.TolvenTest):
    HEADER = "# TOLVEN: list of missing files\n# ==========================\n"
    MESSAGE = ["TOLVEN: some files are missing. See files.log"]

    def test_missing_names(self):
        harness.build_tree(self.dir, {"a": "1", "d/b": "2", "broken": harness.Link("nowhere"),
                                      "good": harness.Link("a"), "e": harness.Directory(),
                                      "LIST": "a\nlisted\n*\n", "EX": "gone\n"})
        os.mkfifo(self.path("pipe"))
        rows = ((["a", "d", "d/b", "good", "pipe"], ""), (["."], ""), (["*"], ""), (["?"], ""), (["d/*"], ""),
                (["a", "gone", "d/gone", "broken"], "broken\nd/gone\ngone\n"), (["none*"], "none*\n"),
                (["/"], ""), (["//"], ""),
                (["d/?", "d/??"], "d/??\n"), (["-A", "LIST"], "*\nlisted\n"),
                (["-A", "LIST", "gone"], "*\ngone\nlisted\n"),
                (["e/*"], "e/*\n"), (["d/.*"], "d/.*\n"), (["-X", "EX", "gone", "a"], ""), (["a/b"], "a/b\n"))
        for args, missing in rows:
            self.expect(["-l", *args], self.MESSAGE if missing else [])
            self.assertEqual(harness.read_file(self.path("files.log")).decode(), self.HEADER + missing, args)

    def test_a_directory_that_may_only_be_read(self):
        harness.build_tree(self.dir, {"d/a": "1", "d": harness.Directory(0o444)})
        self.expect("-l d/*", [], preexec=harness.unprivileged)

    def test_no_names_left(self):
        self.write("LIST", "")
        self.expect("-l -A LIST", [])
        self.assertFalse(os.path.exists(self.path("files.log")))

    def test_no_list_file(self):
        os.mkdir(self.path("files.log"))
        run = self.run_tolven("-l", "a")
        self.assertEqual(run.code, 6)
        self.assertEqual(run.lines, ["TOLVEN: error opening files.log (error 6). Is a directory"])


if __name__ == "__main__":
    harness.main()
