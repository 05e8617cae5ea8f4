"""Extraction and test: selection, options, what was in the way before, and what stays behind when it fails."""
import os

import archivefile
import harness
import make_old_archive
from archivefile import archive, directory, entry, link, regular
from harness import Directory, File, Link

LINE = "TOLVEN: processing archive %s (version 2.01)"


class Selection(harness.TolvenTest):
    def setUp(self):
        super().setUp()
        self.write("A", archive(
            directory("d"), regular("d/a", b"1"), directory("d/s"), regular("d/s/b", b"2"), regular("d2", b"3"),
            regular("other/c", b"4"), link("d/l", "a"), link("ln", "d/a"), regular("*", b"5"), regular("Up", b"6")))

    def test_names_and_directories(self):
        rows = (
            (["d"], ["d/a", "d/l", "d/s/b"], 5), (["d/"], ["d/a", "d/l", "d/s/b"], 5), (["d/s"], ["d/s/b"], 2),
            (["d/a"], ["d/a"], 1), (["d/a", "d2"], ["d/a", "d2"], 2), (["other"], [], 0), (["other/c"], ["other/c"], 1),
            (["none"], [], 0), (["d/l"], ["d/l"], 1), (["ln|d/a"], ["ln"], 1), (["D"], [], 0), (["?2"], [], 0),
            (["d*"], [], 0), (["d\\a"], ["d/a"], 1), (["."], None, 10), (["*"], None, 10), ([], None, 10))
        for names, paths, count in rows:
            target = self.extracted("A", *names, count=count)
            found = [path for path, what in harness.snapshot(target).items() if what[0] != "directory"]
            everything = ["*", "Up", "d/a", "d/l", "d/s/b", "d2", "ln", "other/c"]
            self.assertEqual(sorted(found), everything if paths is None else paths, names)
            self.expect(["-df", "A", *names], [LINE % "A", "TOLVEN: %d file(s) tested" % count])
            listing = self.run_tolven("-tf", "A", *names)
            self.assertEqual((listing.code, len(listing.lines)), (0, 1 + count), names)

    def test_names_of_a_list_file(self):
        self.write("LIST", "d/s\n# comment\nd2\n")
        self.assertEqual(harness.contents(self.extracted("A", "-A", self.path("LIST"), count=3)),
                         {"d/s/b": b"2", "d2": b"3"})
        run = self.run_tolven("-tf", "A", "-A", "LIST")
        self.assertEqual(len(run.lines), 4)

    def test_what_is_not_selected_is_passed_over_unread(self):
        bad = entry(b"RG", "bad", 0o644, 4, 1, archivefile.block(b"ED", b"no.." b"\x12" b"stream") + b"sum.")
        self.write("A", archive(bad, regular("good", b"text"), bad))
        self.extracted("A", "good", count=1)
        self.expect("-df A bad", [LINE % "A", "TOLVEN: not all files could be tested",
                                  "TOLVEN: error decompressing bad (cslib error -50)"], 11)

    def test_flat_and_lower(self):
        self.write("A", archive(directory("Dir"), regular("Dir/Sub/File.TXT", b"1"), link("Dir/Ln", "Dir/Target"),
                                regular("\u00c4/B", b"2")))
        rows = (
            (["-lower"], {"dir": "d", "dir/sub": "d", "dir/sub/file.txt": "1", "dir/ln": "dir/target", "\u00c4": "d",
                          "\u00c4/b": "2"}),
            (["-flat"], {"Dir": "d", "File.TXT": "1", "Ln": "Dir/Target", "B": "2"}),
            (["-flat", "-lower"], {"dir": "d", "file.txt": "1", "ln": "dir/target", "b": "2"}),
            (["-flat", "File.TXT"], {"File.TXT": "1"}), (["-flat", "Dir/Sub/File.TXT"], {"File.TXT": "1"}),
            (["-lower", "dir/sub/file.txt"], {"dir": "d", "dir/sub": "d", "dir/sub/file.txt": "1"}))
        for args, expected in rows:
            target = self.extracted("A", *args)
            found = {}
            for path, what in harness.snapshot(target).items():
                full = os.path.join(target, path)
                found[path] = {"directory": "d", "link": what[1]}.get(what[0]) or harness.read_file(full).decode()
            self.assertEqual(found, expected, args)
        # A name that ends in "/" is nothing to -flat: the failure is told, and nothing is written.
        self.write("A", archive(regular("x/", b"1")))
        run = self.run_tolven("-xf", "A", "-flat", "-R", self.fresh("out"))
        self.assertNotEqual(run.code, 0)
        self.assertEqual(os.listdir(self.path("out")), [])
        self.assertEqual(self.run_tolven("-tf", "A", "-flat").lines[1][-1], " ")


class Target(harness.TolvenTest):
    def test_target_directory(self):
        self.write("A", archive(regular("d/a", b"1")))
        self.expect("-xf A -R none", [
            LINE % "A", "TOLVEN: can not change to dir none (error 102). No such file or directory"], 102)
        self.assertEqual(os.listdir(self.dir), ["A"])
        self.expect("-xf A -R A", [LINE % "A", "TOLVEN: can not change to dir A (error 120). Not a directory"], 120)
        # Every archive of a list is found from the start, and every one goes below the same directory.
        self.write("B", archive(regular("b", b"2")))
        self.fresh("out")
        self.expect(["-xf", "A B", "-R", "out"], [LINE % "A", "TOLVEN: 1 file(s) extracted"] +
                    [LINE % "B", "TOLVEN: 1 file(s) extracted"])
        self.assertEqual(harness.contents(self.path("out")), {"d/a": b"1", "b": b"2"})

    def test_the_target_directory_itself_is_left_alone(self):
        os.chmod(self.fresh("out"), 0o751)
        os.utime(self.path("out"), (5, 5))
        self.write("A", archive(directory(".", 0o40700, 77), directory("/", 0o40700, 77)))
        self.expect("-xf A -R out", [LINE % "A", "TOLVEN: 2 file(s) extracted"])
        info = os.stat(self.path("out"))
        self.assertEqual((info.st_mode & 0o7777, info.st_mtime), (0o751, 5))

    def test_verbose(self):
        self.write("A", archive(directory("d"), regular("d/a", b"1"), link("l", "d")))
        self.fresh("out")
        names = ["d", "d/a", "l"]
        self.expect("-xvf A -R out", [LINE % "A"] + ["x " + name for name in names] + ["TOLVEN: 3 file(s) extracted"])
        self.expect("-dvf A", [LINE % "A"] + ["t " + name for name in names] + ["TOLVEN: 3 file(s) tested"])

    def test_directories_are_closed_to_others_until_the_end(self):
        self.write("A", archive(
            regular("late/a", b"1"), directory("late", 0o40711), directory("d", 0o42777), regular("d/f", b"2"),
            regular("parent/f", b"3"), regular("z", b"4")))
        names = ["late/a", "late", "d", "d/f", "parent/f"]
        for letters in ("-xvf", "-xvhf"):
            self.fresh("out")
            during = []
            run = self.run_held([letters, "A", "-R", "out"], [LINE % "A"] + ["x " + name for name in names],
                                lambda: during.extend(self.modes("late", "d", "parent")))
            self.assertEqual((run.code, during), (0, ["0o700", "0o700", "0o755"]), run)
            self.assertEqual(self.modes("late", "d", "parent"), ["0o711", "0o2777", "0o755"], letters)

    def modes(self, *names):
        return [oct(os.stat(self.path("out", name)).st_mode & 0o7777) for name in names]

    def test_read_only_directories_are_extracted_again(self):
        self.write("A", archive(
            directory("d", 0o40555), regular("d/f", b"1"), directory("d/s", 0o40500), regular("d/s/f", b"2"),
            directory("closed", 0o40000), regular("closed/x", b"3")))
        self.write("old", make_old_archive.build([
            make_old_archive.directory_entry("d", 0o555, 1000), make_old_archive.file_entry("d/f", 0o600, 5, b"1")]))
        for name, letters, code in (("A", "-xf", 0), ("A", "-xhf", 28), ("A", "-xjf", 28), ("old", "-xf", 0)):
            self.fresh("out")
            runs = [self.run_tolven(how, name, "-R", "out", preexec=harness.unprivileged) for how in ("-xf", letters)]
            self.assertEqual([run.code for run in runs], [0, code], (letters, runs))
            expected = {"d": "0o555", "d/s": "0o500", "closed": "0o0"} if name == "A" else {"d": "0o555"}
            self.assertEqual(self.modes(*expected), list(expected.values()), letters)

    def test_directories_in_any_order_and_more_than_once(self):
        self.write("A", archive(directory("d/s", 0o40700, 1000), directory("d", 0o40000, 2000),
                                directory("e", 0o40700, 3000), directory("e", 0o40711, 4000)))
        self.fresh("out")
        self.assertEqual(self.run_tolven("-xf", "A", "-R", "out", preexec=harness.unprivileged).code, 0)
        self.assertEqual(self.modes("d"), ["0o0"])
        os.chmod(self.path("out/d"), 0o755)
        found = {path: what[1:] for path, what in harness.snapshot(self.path("out")).items()}
        self.assertEqual(found, {"d": ("0o755", 2000), "d/s": ("0o700", 1000), "e": ("0o711", 4000)})

    def test_a_directory_that_cannot_be_finished(self):
        self.write("A", archive(directory("gone", 0o40700), directory("kept", 0o40711, 1000), regular("z", b"1")))
        self.fresh("out")
        run = self.run_held(["-xvf", "A", "-R", "out"], [LINE % "A", "x gone", "x kept"],
                            lambda: os.rmdir(self.path("out/gone")))
        self.assertEqual((run.code, run.lines[4:]), (14, [
            "TOLVEN: not all files could be extracted",
            "TOLVEN: can not change date for gone (error 14). No such file or directory"]))
        self.assertEqual(harness.snapshot(self.path("out"))["kept"], ("directory", "0o711", 1000))

    def test_modes_of_directories_that_were_there(self):
        self.write("A", archive(directory("old", 0o40711, 1000), directory("new", 0o40711, 1000),
                                regular("old/a", b"1")))
        for letters, old in (("-xf", "0o711"), ("-xhf", "0o750"), ("-xjf", "0o750")):
            harness.build_tree(self.fresh("out"), {"old": Directory(0o750)})
            self.assertEqual(self.run_tolven(letters, "A", "-R", "out").code, 0)
            found = harness.snapshot(self.path("out"))
            self.assertEqual((found["old"][1:], found["new"][1:]), ((old, 1000), ("0o711", 1000)), letters)

    def test_what_is_replaced(self):
        self.write("A", archive(regular("a", b"new", 0o100640, 1000)))
        for before in ({"a": File(b"old and longer", 0o444)}, {"a": File(b"", 0)}, {"a": Link("b"), "b": "other"}):
            for options in ([], ["-j"]):
                harness.build_tree(self.fresh("out"), before)
                self.expect(["-xf", "A", "-R", "out", *options], [LINE % "A", "TOLVEN: 1 file(s) extracted"])
                found = harness.snapshot(self.path("out"))
                self.assertEqual(found["a"][:4], ("file", "0o640", 1000, 3))
                self.assertEqual(harness.contents(self.path("out")).get("b", b"other"), b"other")
                self.assertLessEqual(set(found), {"a", "b"})

    def test_another_name_of_the_same_file_keeps_its_data(self):
        self.write("A", archive(regular("a", b"new")))
        harness.build_tree(self.fresh("out"), {"a": "old"})
        os.link(self.path("out/a"), self.path("out/b"))
        self.assertEqual(self.run_tolven("-xf", "A", "-R", "out").code, 0)
        self.assertEqual(harness.contents(self.path("out")), {"a": b"new", "b": b"old"})

    def test_directories_in_the_way(self):
        self.write("A", archive(regular("a", b"new"), regular("b", b"1")))
        harness.build_tree(self.fresh("out"), {"a/x": "old"})
        run = self.run_tolven("-xf", "A", "-R", "out")
        self.assertEqual((run.code, run.lines), (100, [
            LINE % "A", "TOLVEN: not all files could be extracted",
            "TOLVEN: could not open for writing a (error 100). Is a directory"]))
        run = self.run_tolven("-xjf", "A", "-R", "out")
        self.assertEqual((run.code, run.lines), (28, [
            LINE % "A", "TOLVEN: not all files could be extracted",
            "TOLVEN: force mode (option -j): could not delete a (error 28). Is a directory"]))
        self.assertEqual(harness.contents(self.path("out")), {"a/x": b"old"})
        # A link fails alone; what comes after it is extracted.
        self.write("A", archive(link("a", "t"), regular("b", b"1")))
        self.expect("-xf A -R out", [LINE % "A", "TOLVEN: could not create symbolic link (error 36). a",
                                     "TOLVEN: not all files could be extracted"], 36)
        self.assertEqual(harness.contents(self.path("out")), {"a/x": b"old", "b": b"1"})

    def test_files_in_the_way(self):
        for item in (directory("f"), directory("f/d"), regular("f/a", b"1"), link("f/l", "t")):
            self.write("A", archive(item))
            harness.build_tree(self.fresh("out"), {"f": "old"})
            self.expect("-xf A -R out", [LINE % "A", "TOLVEN: not all files could be extracted",
                                         "TOLVEN: can not create directory f (error 3). Not a directory"], 3)
            self.assertEqual(harness.contents(self.path("out")), {"f": b"old"})

    def test_names_too_long_for_the_disk(self):
        self.write("A", archive(regular("n" * 255, b"1"), regular("\u20ac" * 85, b"2"), regular("n" * 256, b"3")))
        run = self.run_tolven("-xf", "A", "-R", self.fresh("out"))
        self.assertEqual(run.lines[1], "TOLVEN: not all files could be extracted")
        self.assertRegex(run.lines[2], r"^TOLVEN: .*n{256} \(error \d+\)\. File name too long$")
        self.assertEqual(harness.contents(self.path("out")), {"n" * 255: b"1", "\u20ac" * 85: b"2"})


class Failures(harness.TolvenTest):
    def test_a_failure_ends_the_run_and_leaves_nothing_half_done(self):
        wrong = entry(b"RG", "d/wrong", 0o644, 3, 1, archivefile.block(b"UE", b"abc") + b"\1\2\3\4")
        self.write("A", archive(directory("d", 0o40711, 1000), regular("d/a", b"1"), link("d/l", "a"), wrong,
                                regular("d/never", b"2")))
        self.write("B", archive(regular("b", b"3")))
        self.fresh("out")
        lines = [LINE % "A", "TOLVEN: not all files could be extracted", "TOLVEN: checksum error in d/wrong"]
        self.expect(["-xf", "A B", "-R", "out"], lines, 12)
        found = harness.snapshot(self.path("out"))
        self.assertEqual(sorted(found), ["d", "d/a", "d/l"])
        self.assertEqual(found["d"], ("directory", "0o711", 1000))
        harness.build_tree(self.fresh("out"), {"d/wrong": "old"})
        self.expect(["-xf", "A", "-R", "out"], lines, 12)
        self.assertEqual(harness.contents(self.path("out"))["d/wrong"], b"old")
        lines[1] = lines[1].replace("extracted", "tested")
        self.expect(["-df", "A B"], lines, 12)

    def test_a_failing_link_does_not_end_it(self):
        self.write("B", archive(regular("b", b"3")))
        for name in ("nobar", "l|", "|t"):
            self.write("A", archive(entry(b"LK", name, 0o120777), regular("a", b"1")))
            self.fresh("out")
            self.expect(["-xf", "A B", "-R", "out"], [
                LINE % "A", "TOLVEN: could not create symbolic link (error 36). " + name.split("|")[0],
                "TOLVEN: not all files could be extracted", LINE % "B", "TOLVEN: 1 file(s) extracted"], 36)
            self.assertEqual(harness.contents(self.path("out")), {"a": b"1", "b": b"3"})

    def test_no_room_while_extracting(self):
        # The second one fails only when the last bytes leave the buffers of the stream: at the close.
        for size in (300000, 200001):
            self.write("A", archive(regular("a", b"1"), regular("big", bytes(size)), regular("never", b"2")))
            harness.build_tree(self.fresh("out"), {"big": "old"})
            run = self.run_tolven("-xf", "A", "-R", "out", preexec=harness.size_limit())
            self.assertEqual((run.code, run.lines), (4, [
                LINE % "A", "TOLVEN: not all files could be extracted",
                "TOLVEN: error writing to big (error 4). File too large"]), size)
            self.assertEqual(harness.contents(self.path("out")), {"a": b"1", "big": b"old"})

    def test_no_room_while_creating(self):
        for size in (300000, 199950):
            self.write("noise", os.urandom(size))
            for command in ("-cf", "-cif"):
                run = self.run_tolven(command, "A", "noise", preexec=harness.size_limit())
                self.assertEqual((run.code, run.lines), (4, ["TOLVEN: error writing to A (error 4). File too large"]))
                self.assertFalse(os.path.exists(self.path("A")))

    def test_directories_that_must_not_be_written(self):
        self.write("A", archive(regular("d/a", b"1")))
        harness.build_tree(self.fresh("out"), {"d": Directory(0o555)})
        self.expect("-xf A -R out", [
            LINE % "A", "TOLVEN: not all files could be extracted",
            "TOLVEN: could not create a temporary file for d/a (error 28). Permission denied"
        ], 28, preexec=harness.unprivileged)
        os.chmod(self.path("out"), 0o555)
        self.write("A", archive(directory("new")))
        self.expect("-xf A -R out", [LINE % "A", "TOLVEN: not all files could be extracted",
                                     "TOLVEN: can not create directory new (error 3). Permission denied"], 3,
                    preexec=harness.unprivileged)

    def test_archives_that_cannot_be_written(self):
        self.write("a", "text")
        os.mkdir(self.path("dir"))
        self.expect("-cf dir a", ["TOLVEN: error opening dir (error 6). Is a directory"], 6)
        self.expect("-cf none/A a", ["TOLVEN: error opening none/A (error 6). No such file or directory"], 6)
        self.expect("-tf dir", ["TOLVEN: error reading from dir (error 5). "], 5)


if __name__ == "__main__":
    harness.main()
