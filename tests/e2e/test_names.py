"""Which files a create takes, under which names, and what becomes of those it cannot take."""
import os
import socket

import archivefile
import harness
from harness import Directory, Link

DOES_NOT_EXIST = "No such file or directory"


class NameTest(harness.TolvenTest):
    def names(self, archive="A"):
        return [os.fsdecode(entry.name) for entry in archivefile.read(self.path(archive))[1]]

    def created(self, *args, cwd=None):
        """The names, sorted, in an archive made with `args`; it lies outside of what is packed."""
        self.create(self.path("A"), *args, cwd=cwd)
        return sorted(self.names())


class Patterns(NameTest):
    def setUp(self):
        super().setUp()
        harness.build_tree(self.path("t"), {
            "a.txt": "1", "b.txt": "2", ".profile": "3", "d/x.txt": "4", "d/.y": "5", "d2/z": "6", "e": Directory(),
            "s*r": "7", "sxr": "8", "q?": "9"})

    def test_names_and_patterns(self):
        everything = [".profile", "a.txt", "b.txt", "d", "d/.y", "d/x.txt", "d2", "d2/z", "e", "q?", "s*r", "sxr"]
        below_d = ["d", "d/.y", "d/x.txt"]
        rows = (
            (["."], everything), (["*"], everything), ([".", "*", "./"], everything), (["./"], everything),
            (["./*"], sorted("./" + name for name in everything)),
            (["./."], sorted("././" + name for name in everything)),
            (["d"], below_d), (["d/"], below_d), (["d", "d/", "d"], below_d), (["d\\"], below_d),
            (["./d"], ["./" + name for name in below_d]),
            (["d/*"], ["d/.y", "d/x.txt"]), (["d//x*"], ["d//x.txt"]),
            (["d\\x.txt"], ["d/x.txt"]), (["d/."], ["d/./.y", "d/./x.txt"]),
            (["*.txt"], ["a.txt", "b.txt"]), (["?.txt"], ["a.txt", "b.txt"]), (["d?"], ["d2", "d2/z"]),
            (["s*r"], ["s*r", "sxr"]), (["q?"], ["q?"]), (["a*t*t", "a.txt"], ["a.txt", "a.txt"]),
            (["../t/a.txt"], ["../t/a.txt"]), (["../t/e/*"], []), (["none*"], []),
            (["e"], ["e"]), (["b.txt", "a.txt", "b.txt"], ["a.txt", "b.txt"]))
        for args, names in rows:
            self.assertEqual(self.created(*args, cwd="t"), names, args)

    def test_a_directory_that_cannot_be_scanned(self):
        failure = "TOLVEN: error in CCreate::ProcessDirectory (error 100). "
        self.write("0", "first in any order")
        for pattern, reason in (("none/*", DOES_NOT_EXIST), ("t*/a.txt", DOES_NOT_EXIST),
                                ("t/a.txt/*", "Not a directory")):
            self.expect(["-cf", "A", "0", pattern], [failure + reason], 100)
            self.assertEqual(self.names(), ["0"], "not a read or write error: what was written stays")

    def test_source_directory(self):
        self.assertEqual(self.created("-C", "t/d", "."), [".y", "x.txt"])
        # The archive's name is relative to it too.
        self.create("IN.VRA", "-C", "t/d", "x.txt")
        self.assertEqual(sorted(os.listdir(self.path("t/d"))), [".y", "IN.VRA", "x.txt"])
        self.expect("-cf A -C none x", ["TOLVEN: can not change to dir none (error 102). " + DOES_NOT_EXIST], 102)

    def test_absolute_names(self):
        here = os.path.realpath(self.path("t"))
        self.assertEqual(self.created("-P", "d/x.txt", cwd="t"), [here + "/d/x.txt"])
        self.assertEqual(self.created("-P", "d2", cwd="t"), [here + "/d2", here + "/d2/z"])
        self.assertEqual(self.created("-P", here + "/a.txt", cwd="t"), [here + "/a.txt"])
        self.assertEqual(self.created(here + "/d2", cwd="t"), [here + "/d2", here + "/d2/z"])
        # The rename list is asked for the absolute name, the exclusions for the name as given.
        self.write("T", "%s/a.txt|new\na.txt|wrong\n" % here)
        self.write("X", "b.txt\n%s/a.txt\n" % here)
        self.write("NONE", "")
        self.assertEqual(self.created("-P", "-T", "../T", "-A", "../NONE", "-X", "../X", "?.txt", cwd="t"), ["new"])

    def test_the_archive_inside_its_own_tree(self):
        for args in (["."], ["*"], ["-P", "."], ["IN.VRA", "d2"]):
            before = len(os.listdir(self.path("t")))
            self.create("IN.VRA", *args, cwd="t")
            _, entries = archivefile.read(self.path("t/IN.VRA"))
            self.assertFalse([entry.name for entry in entries if entry.name.endswith(b"IN.VRA")], args)
            self.assertEqual(len(os.listdir(self.path("t"))), before + 1)
            os.remove(self.path("t/IN.VRA"))
        os.symlink("IN.VRA", self.path("t/alias"))
        self.create("IN.VRA", ".", cwd="t")
        self.assertEqual(len(archivefile.read(self.path("t/IN.VRA"))[1]), 12)


class Lists(NameTest):
    def setUp(self):
        super().setUp()
        harness.build_tree(self.path("t"), {
            "a": "1", "b": "2", "x*": "3", "xx": "4", "#c": "5", "d/e": "6", "d/f": "7", "d2": "8", "old name": "9"})

    def test_names_to_include(self):
        rows = (("a\nb\n", [], ["a", "b"]), ("a", [], ["a"]), ("\n#b\n  a  \r\n", [], ["a"]), ("  #c\n", [], ["#c"]),
                ("x*\n", [], ["x*"]), ("d\\e\nd/f/\n", [], ["d/e", "d/f"]),
                ("d\n", ["d/e"], ["d", "d/e", "d/e", "d/f"]),
                ("a\na\n", ["a"], ["a"]), ("x*\n", ["x*"], ["x*", "xx"]), ("old name\n", [], ["old name"]),
                ("", [], []), ("b\n", ["a"], ["a", "b"]), ("a\0b\n\0\nb", [], ["a", "b"]), ("a", ["", "b"], ["a", "b"]),
                (".\n", [], ["#c", "a", "b", "d", "d/e", "d/f", "d2", "old name", "x*", "xx"]))
        for text, args, names in rows:
            self.write("LIST", text)
            self.assertEqual(self.created("-A", "../LIST", *args, cwd="t"), names, (text, args))

    def test_names_to_exclude(self):
        rows = (("a\n", ["a", "b"], ["b"]), ("d\n", ["d", "d2"], ["d2"]), ("d/\n", ["d", "d2"], ["d2"]),
                ("d/e\n", ["d"], ["d", "d/f"]), ("d\\e\n", ["d"], ["d", "d/f"]), ("d\n", ["*"],
                ["#c", "a", "b", "d2", "old name", "x*", "xx"]), ("x*\n", ["?*"],
                ["#c", "a", "b", "d", "d/e", "d/f", "d2", "old name", "xx"]), ("./a\n", ["a"], ["a"]),
                ("#a\n\n b \n", ["a", "b"], ["a"]), ("e\n", ["d"], ["d", "d/e", "d/f"]))
        for text, args, names in rows:
            self.write("LIST", text)
            self.assertEqual(self.created("-X", "../LIST", *args, cwd="t"), names, (text, args))
        self.expect("-cf A -X ../LIST e", ["TOLVEN: no files given for archiving (error 29). "], 29, cwd="t")

    def test_renaming(self):
        rows = (("a.txt b\na n\n", ["-A", "../ALL"], ["b", "n"]), ("a n\n", [], ["n"]),
                ("  # a n\n\n\t a \t n \n", [], ["n"]), ("old name|new name\n", [], ["new name"]),
                (" old name | a|b \n", [], ["a|b"]), ("a one\na two\n", [], ["one"]), ("d\\e|n\\o\n", [], ["n/o"]),
                ("d|D\nd/e|E\n", [], ["D", "E", "E", "d/f"]), ("x*|star\n", [], ["star"]),
                ("a n\n", ["b"], ["b", "n"]), ("a n\n", ["-X", "../EX", "b"], ["b"]))
        self.write("ALL", "a\nb\n")
        self.write("EX", "a\n")
        for text, args, names in rows:
            self.write("LIST", text)
            self.assertEqual(self.created("-T", "../LIST", *args, cwd="t"), names, (text, args))

    def test_rename_lines_of_a_wrong_format(self):
        for text in ("a\n", "a n\nb\n", "|n\n", "a|\n", "a| \n", "a \n"):
            self.write("LIST", text)
            self.expect("-cf A -T LIST", ["TOLVEN: wrong format in file LIST (error 43). "], 43)

    def test_lists_are_relative_to_the_start(self):
        self.write("LIST", "a\nb\n")
        self.write("EX", "b\n")
        self.write("REN", "a|n\n")
        self.assertEqual(self.created("-C", "t", "-A", "LIST", "-X", "EX", "-T", "REN"), ["n"])


class NotAvailable(NameTest):
    def create_fails(self, args, reported, kept, name="A", code=44, **how):
        """Without -i nothing stays, with -i all but what was reported; 44 either way."""
        lines = ["TOLVEN: file '%s' is inaccessible (%s)" % pair for pair in reported]
        self.expect(["-cf", name, *args], lines, code, **how)
        self.assertFalse(os.path.exists(self.path(name)), args)
        self.expect(["-cif", name, *args], lines, code, **how)
        self.assertEqual(sorted(self.names(name)), kept, args)
        os.remove(self.path(name))

    def test_missing_names(self):
        self.write("a", "a")
        self.create_fails(["a", "gone"], [("gone", DOES_NOT_EXIST)], ["a"])
        self.create_fails(["gone", "gone/too", "a/b"],
                          [("a/b", "Not a directory"), ("gone", DOES_NOT_EXIST), ("gone/too", DOES_NOT_EXIST)], [])
        self.write("LIST", "*\n?\n")
        self.create_fails(["-A", "LIST"], [("*", DOES_NOT_EXIST), ("?", DOES_NOT_EXIST)], [])
        self.create_fails([" a "], [(" a ", DOES_NOT_EXIST)], [])
        self.create_fails(["y" * 300], [("y" * 300, "File name too long")], [])
        # Far beyond any buffer, and a line that ends exactly with a read.
        lines = ["x" * 100000, "z" * (8192 - 100001 % 4096)]
        self.write("LIST", "\n".join(lines))
        self.create_fails(["-A", "LIST"], [(line, "File name too long") for line in lines], [])

    def test_broken_links(self):
        harness.build_tree(self.dir, {"d/l": Link("nowhere"), "d/a": "a", "loop": Link("loop")})
        self.create_fails(["d"], [("d/l (error 45).", "broken link")], ["d", "d/a"])
        self.create_fails(["d/l"], [("d/l (error 45).", "broken link")], [])
        self.create_fails(["loop"], [("loop (error 45).", "broken link")], [])
        self.expect("-crf A d", [])
        self.assertEqual(sorted(self.names()), ["d", "d/a", "d/l|nowhere"])
        self.expect("-cvrf A loop", ["a loop"])

    def test_objects_that_are_no_files(self):
        harness.build_tree(self.dir, {"d/a": "a"})
        os.mkfifo(self.path("d/pipe"))
        os.symlink("pipe", self.path("d/link"))
        here = os.getcwd()
        os.chdir(self.path("d"))  # the name of a socket must be short
        self.addCleanup(os.chdir, here)
        with socket.socket(socket.AF_UNIX) as sock:
            sock.bind("sock")
        kind = "not a file, directory or link"
        for names, kept in ((["d/pipe"], []), (["d/sock"], []), (["d/link"], [])):
            self.create_fails(names, [(names[0], kind)], kept)
        self.create_fails(["d/a", "/dev/null"], [("/dev/null", kind)], ["d/a"])
        run = self.run_tolven("-cif", "A", "d")
        self.assertEqual((run.code, sorted(run.lines)),
                         (44, ["TOLVEN: file 'd/%s' is inaccessible (%s)" % (name, kind)
                               for name in ("link", "pipe", "sock")]))
        self.assertEqual(sorted(self.names()), ["d", "d/a"])

    def test_after_the_first_nothing_is_written(self):
        harness.build_tree(self.dir, {"a": "a", "b/c": "c", "b/l": Link("nowhere"), "z": "z"})
        # From the report on the run only looks, and says so in the verbose lines.
        self.expect("-cvf A a gone z", ["a a", "TOLVEN: file 'gone' is inaccessible (%s)" % DOES_NOT_EXIST, "t z"], 44)
        self.expect("-cvif A a gone z", ["a a", "TOLVEN: file 'gone' is inaccessible (%s)" % DOES_NOT_EXIST, "a z"], 44)
        run = self.run_tolven("-cf", "A", "a0", "b", "zz")
        self.assertEqual(run.lines, ["TOLVEN: file 'a0' is inaccessible (%s)" % DOES_NOT_EXIST,
                                     "TOLVEN: file 'b/l (error 45).' is inaccessible (broken link)",
                                     "TOLVEN: file 'zz' is inaccessible (%s)" % DOES_NOT_EXIST])

    def test_what_must_not_be_read(self):
        harness.build_tree(self.dir, {
            "f/a": "a", "f/b": harness.File("b", 0), "l": Link("f/b"),
            "d/s/x": "x", "d/s": Directory(0o311), "d/a": "a", "t/x": "x", "t": Directory(0o644)})
        denied = "Permission denied"
        for args, reported, kept in (
                (["f"], "f/b", ["f", "f/a"]), (["l"], "l", []), (["d", "f/a"], "d/s", ["d", "d/a", "d/s", "f/a"]),
                (["d/s", "f/a"], "d/s", ["d/s", "f/a"]), (["d/s/x"], None, ["d/s/x"]), (["t"], "t/x", ["t"])):
            if reported:
                self.create_fails(args, [(reported, denied)], kept, preexec=harness.unprivileged)
            else:
                self.assertEqual(self.created(*args), kept)
        self.expect("-cf A d/s/*", ["TOLVEN: error in CCreate::ProcessDirectory (error 100). " + denied], 100,
                    preexec=harness.unprivileged)

    def test_what_is_exchanged_after_it_was_looked_at(self):
        def make(what):
            harness.build_tree(self.dir, {"n": what} if not isinstance(what, dict) else what)

        self.write("secret", "secret")
        file, folder, replaced = "text", {"n/x": "text"}, "replaced while being archived"
        for options, before, after, reason in (
                ("", file, lambda: os.mkdir(self.path("n")), replaced),
                ("", file, lambda: os.mkfifo(self.path("n")), replaced),
                ("", file, lambda: None, DOES_NOT_EXIST),
                ("r", file, lambda: make(Link("secret")), "Too many levels of symbolic links"),
                ("", folder, lambda: make(file), "Not a directory"),
                ("r", folder, lambda: make(Link(".")), "Not a directory"),
                ("r", Link("secret"), lambda: make(file), replaced),
                ("r", Link("secret"), lambda: None, DOES_NOT_EXIST)):
            self.remove("n")
            make(before)

            def exchange():
                self.remove("n")
                after()

            run = self.run_held(["-civ%sf" % options, "A", "n", "secret"], [], exchange)
            self.assertEqual((run.code, run.lines), (44, [
                "a n", "TOLVEN: file 'n' is inaccessible (%s)" % reason, "a secret"]), (options, before))
            self.assertEqual(self.names(), ["secret"])
            self.extracted("A", count=1)

    def remove(self, name):
        full = self.path(name)
        if os.path.isdir(full) and not os.path.islink(full):
            self.remove_tree(full)
        elif os.path.lexists(full):
            os.remove(full)

    def test_what_vanishes_after_it_was_listed(self):
        harness.build_tree(self.dir, {"d/a": "a", "d/b": "b"})
        first, second = ("d/" + name for name in os.listdir(self.path("d")))
        run = self.run_held(["-civf", "A", "d"], ["a d"], lambda: os.remove(self.path(second)))
        self.assertEqual((run.code, run.lines), (44, [
            "a d", "a " + first, "TOLVEN: file '%s' is inaccessible (%s)" % (second, DOES_NOT_EXIST)]))
        self.assertEqual(self.names(), ["d", first])

    def test_a_directory_whose_reading_fails(self):
        self.write("d/a", "a")
        run = self.run_injected("d", "getdents64", "error=EIO", "-cif", "A", "d")
        self.assertEqual((run.code, run.lines), (100, [
            "TOLVEN: error reading directory d/",
            "TOLVEN: error in CCreate::ProcessDirectory (error 100). Input/output error"]))

    def test_names_too_long_for_an_entry(self):
        self.write("r/a", "a")
        self.write("T", "a|%s\n" % ("x" * 4351))
        self.create(self.path("A"), "-T", "../T", cwd="r")
        self.assertEqual([len(name) for name in self.names()], [4351])
        self.write("T", "a|%s\n" % ("x" * 4352))
        self.expect(["-cf", "A", "-T", "../T"], ["TOLVEN: file 'a' is inaccessible (name too long)"], 44, cwd="r")


class Links(NameTest):
    def test_followed_or_kept(self):
        harness.build_tree(self.path("t"), {"d/a": "text", "d/l": Link("a"), "dl": Link("d"), "f": Link("d/a")})
        self.assertEqual(self.created(".", cwd="t"), ["d", "d/a", "d/l", "dl", "dl/a", "dl/l", "f"])
        for entry in archivefile.read(self.path("A"))[1]:
            self.assertEqual(entry.type, b"DR" if entry.name in (b"d", b"dl") else b"RG")
            self.assertEqual(entry.data(), b"" if entry.type == b"DR" else b"text")
        self.expect(["-crf", self.path("A"), "."], [], cwd="t")
        self.assertEqual(sorted(self.names()), ["d", "d/a", "d/l|a", "dl|d", "f|d/a"])
        for entry in archivefile.read(self.path("A"))[1]:
            if entry.type == b"LK":
                self.assertEqual((entry.mode & 0o170000, entry.size, entry.size_high, entry.blocks),
                                 (0o120000, 0, 0, []))

    def test_bars_in_a_link_name(self):
        harness.build_tree(self.dir, {"l|m": Link("x|y"), "n": Link("x|y"), "f|g": "f"})
        self.expect(["-crif", "A", "l|m", "n", "f|g"],
                    ["TOLVEN: file 'l|m' is inaccessible (link name contains \"|\")"], 44)
        self.assertEqual(self.names(), ["f|g", "n|x|y"])

    def test_loops_through_links(self):
        harness.build_tree(self.path("t"), {"d/a": "a", "d/up": Link(".."), "d/self": Link("."),
                                            "d/s/top": Link("../..")})
        self.create("A", "t")
        # Every way is followed until it meets a directory that it came through; that one is written, not entered.
        names = self.names()
        self.assertEqual(len(names), len(set(names)))
        self.assertIn("t/d/up", names)
        self.assertNotIn("t/d/up/d", names)
        self.assertIn("t/d/self", names)
        self.assertNotIn("t/d/self/a", names)
        self.assertIn("t/d/s/top", names)
        self.assertEqual(sorted(names), ["t", "t/d", "t/d/a", "t/d/s", "t/d/s/top", "t/d/self", "t/d/up"])


if __name__ == "__main__":
    harness.main()
