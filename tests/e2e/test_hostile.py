"""Archives that are damaged or made to do harm: an error or correct data, and nothing outside the extraction directory,
ever.
"""
import os

import archivefile
import harness
from archivefile import archive, block, directory, end, entry, link, lzh, regular
from harness import Link

DATA = b"some text, some text and some more text"


class Damaged(harness.TolvenTest):
    """One small archive, cut at every byte and with every byte changed."""

    files = {"a": DATA, "d/b": b"raw data", "d/c": b"zzzzzzzzzzzz"}
    # With a damaged terminator. A temporary file carries six characters more than its name, so it is longer than that.
    longest_name = 4

    def setUp(self):
        super().setUp()
        stream = lzh(self.files["d/c"])
        pieces = block(b"DA", stream[:11]) + block(b"ED", stream[11:]) + end(self.files["d/c"])
        self.entries = [
            regular("a", DATA), directory("d"), regular("d/b", self.files["d/b"], blocks=archivefile.raw_blocks),
            entry(b"RG", "d/c", 0o644, 12, 1, pieces), link("l", "a")]
        self.content = archive(*self.entries)
        self.assertLessEqual(len(self.content), 360)

    commands = {"list": ["-tf", "A"], "test": ["-df", "A"], "extract": ["-xf", "A", "-R", "out"]}

    def damaged(self, content, what, commands=tuple(commands)):
        """Runs the commands; returns their exit codes."""
        self.write("A", content)
        self.fresh("out")
        codes = []
        for command in commands:
            run = self.run_tolven(*self.commands[command])
            codes.append(run.code)
            if run.code != 0 and not (run.code == 36 and run.lines[-1].endswith("extracted")):
                self.assertRegex([line for line in run.lines if line][-1], r"^TOLVEN: ", (what, run))
        self.assertEqual(sorted(os.listdir(self.dir)), ["A", "out"], what)
        for name, content in harness.contents(self.path("out")).items():
            self.assertIn(content, self.files.values(), "%s: %s is wrong" % (what, name))
            self.assertLessEqual(len(os.fsencode(name)), self.longest_name, "%s: %s was left behind" % (what, name))
        return codes

    def test_whole(self):
        self.assertEqual(self.damaged(self.content, "whole"), [0, 0, 0])
        self.assertEqual(harness.contents(self.path("out")), self.files)

    def test_cut_at_every_byte(self):
        starts = [len(archive(*self.entries[:count])) for count in range(len(self.entries))]
        for length in range(len(self.content)):
            codes = self.damaged(self.content[:length], "cut to %d bytes" % length)
            # Between two entries the archive may end; anywhere else data is missing, and the user must hear of it.
            if length in starts:
                self.assertEqual(codes, [0, 0, 0], length)
            else:
                self.assertTrue(codes[1] and codes[2], (length, codes))

    def test_every_byte_changed(self):
        for flip, commands in ((0xFF, ("list", "extract")), (0x01, ("test", "extract"))):
            for at in range(len(self.content)):
                changed = bytearray(self.content)
                changed[at] ^= flip
                self.damaged(bytes(changed), "byte %d xor %#x" % (at, flip), commands)


class Broken(harness.TolvenTest):
    """Single faults, with the words they are reported with."""

    def fails(self, content, message, code, commands="tdx", before=None):
        """Every command ends with `message`; `before` are the other lines of test and extract."""
        self.write("A", content)
        self.fresh("out")
        version = content[4:8].decode(errors="replace")
        for command in commands:
            where = ["-R", "out"] if command == "x" else []
            run = self.run_tolven("-%sf" % command, "A", *where)
            self.assertEqual((run.lines[-1], run.code), (message, code), command)
            if before is not None:
                done = {"t": [], "d": ["TOLVEN: not all files could be tested"],
                        "x": ["TOLVEN: not all files could be extracted"]}[command]
                first = ["TOLVEN: processing archive A (version %s)" % version]
                self.assertEqual(run.lines[:-1], first + before + done)
        self.assertEqual(harness.contents(self.path("out")), {})

    def test_archive_header(self):
        for content in (b"", b"O", b"ORV 2.0", b"ORV 2.0"):
            self.fails(content, "TOLVEN: error reading from A (error 5). ", 5)
        unsupported = "TOLVEN: unsupported archive: "
        backup = ("archive is a windows backup archive that can be extracted with a unicode-enabled TOLVEN on windows "
                  "only")
        self.fails(b"ORV\x002.01", unsupported + backup, 1)
        self.fails(b"ORV\x002.00", unsupported + backup, 1)
        for magic, version in ((b"ORV ", b"2.02"), (b"ORV ", b"1.99"), (b"ORV\0", b"3.00"), (b"ORV ", b"2,01")):
            self.write("A", magic + version)
            for command in ("-tf", "-df", "-xf"):
                self.expect([command, "A"], [
                    unsupported + "archive version %s is not supported by this release; to extract this archive you "
                    "need to use a newer TOLVEN release" % version.decode(), ""], 1)

    def test_empty_archives(self):
        for content in (b"ORV 2.01", b"ORV 2.00", b"ORV 2.01" + b"XX" + bytes(32)):
            self.write("A", content)
            line = "TOLVEN: processing archive A (version %s)" % content[4:8].decode()
            self.expect("-tf A", [line])
            self.expect("-df A", [line, "TOLVEN: 0 file(s) tested"])
            self.expect("-xf A", [line, "TOLVEN: 0 file(s) extracted"])

    def test_entry_headers(self):
        cut = "TOLVEN: error reading from A (error 5). "
        one = regular("a", b"")
        too_long = ("TOLVEN: violation of data integrity - value of entry-name-length exceeds allocated buffer size! "
                    "(error 100). ")
        for content in (archive(one[:1]), archive(one[:33]), archive(one[:34]), archive(one[:-1]),
                        archive(entry(b"DR", "d", 0o755, access=b"xyz")[:-1])):
            self.fails(content, cut, 5, before=[])
        self.fails(archive(entry(b"RG", b"n" * 4352, 0o644, name_length=4353)), too_long, 100, before=[])
        self.fails(archive(entry(b"RG", b"n", 0o644, name_length=65535)), too_long, 100, before=[])
        unknown = "TOLVEN: unknown entry type encountered (error 100). "
        self.fails(archive(directory("d"), entry(b"SV", "x", 0o644)), unknown, 100)
        self.fails(archive(entry(b"SV", "x", 0o644)), unknown, 100, before=[])
        self.fails(archive(directory("d"), bytes(34)), unknown, 100)
        self.fails(archive(directory("d"), b"R"), cut, 5)

    def test_longest_name(self):
        long = "/".join(["x" * 255] * 17)[:4351]
        for length, name in ((4352, long), (4352, long[:-1] + "|")):
            self.write("A", archive(entry(b"RG", name, 0o644)))
            run = self.run_tolven("-tf", "A")
            self.assertEqual((run.code, run.lines[1].split(" ")[-1]), (0, name))

    def test_data_blocks(self):
        cut = "TOLVEN: error reading from A (error 5). "
        decompress = "TOLVEN: error decompressing a"
        limit = "TOLVEN: error in GetEntryData(); entry data length exceeds buffer limit (error 100). "
        unknown = "TOLVEN: error in GetEntryData(); unknown block type (error 100). "
        stream = lzh(DATA)

        def data(blocks, size=len(DATA)):
            return archive(entry(b"RG", "a", 0o644, size, 1, blocks))

        rows = (
            (data(b""), cut, 5), (data(b"DA\0"), cut, 5), (data(block(b"UE", DATA)[:-1]), cut, 5),
            (data(block(b"UE", DATA)), cut, 5), (data(block(b"UE", DATA) + b"\1\2\3"), cut, 5),
            (data(block(b"UD", DATA)), cut, 5), (data(block(b"UD", b"")), cut, 5), (data(block(b"DA", stream)), cut, 5),
            (data(block(b"UD", bytes(131073)) + end(b"")), limit, 100),
            (data(block(b"DA", b"", 0xFFFFFFFF)), limit, 100), (data(block(b"ED", b"", 0x80000000)), limit, 100),
            (data(block(b"XX", DATA)), unknown, 100), (data(directory("d")), None, None),
            (data(block(b"UE", DATA) + b"\1\2\3\4"), "TOLVEN: checksum error in a", 12),
            (data(block(b"ED", stream) + b"\1\2\3\4"), "TOLVEN: checksum error in a", 12),
            (data(block(b"ED", stream[:-6]) + end(DATA)), decompress, 11),
            (data(block(b"DA", stream[:-6]) + block(b"UE", b"x") + end(DATA)), decompress, 11),
            (data(block(b"ED", stream[:7]) + end(DATA)), decompress + " (cslib error -11)", 11),
            (data(block(b"ED", stream[:5] + b"x" + stream[6:]) + end(DATA)), decompress + " (cslib error -50)", 11),
            (data(block(b"ED", stream[:4] + b"\x14" + stream[5:]) + end(DATA)), decompress + " (cslib error -21)", 11),
            (data(block(b"ED", stream[:8] + b"\x07" * 20) + end(DATA)), None, 11),
        )
        for content, message, code in rows:
            if message is not None:
                self.fails(content, message, code, "dx", [])
                continue
            self.write("A", content)
            for command in ("-df", "-xf"):
                run = self.run_tolven(command, "A")
                self.assertNotEqual(run.code, 0)
                if code is not None:
                    self.assertEqual(run.code, code, run)
                    self.assertRegex(run.lines[-1], r"^TOLVEN: error decompressing a")

    def test_listing_walks_over_data_by_its_lengths(self):
        self.write("A", archive(entry(b"RG", "a", 0o644, 5, 1, block(b"ED", b"no stream") + b"sum."), directory("d")))
        self.assertEqual(len(self.run_tolven("-tf", "A").lines), 3)
        cut = archive(entry(b"RG", "a", 0o644, 5, 1, block(b"UE", b"short", 500)))
        self.fails(cut, "TOLVEN: error in second MoveFlPtr() (error 100). ", 100, "t")
        cut = archive(entry(b"RG", "a", 0o644, 5, 1, b"UE\1\2\3"))
        self.fails(cut, "TOLVEN: error reading from A (error 5). ", 5, "t")

    def test_zero_checksum_accepts_anything(self):
        self.write("A", archive(entry(b"RG", "a", 0o644, 3, 1, block(b"UE", b"whatever it is") + bytes(4))))
        self.assertEqual(harness.contents(self.extracted("A", count=1)), {"a": b"whatever it is"})

    def test_more_data_than_memory(self):
        # 2000 blocks of 64 KiB, announced as 5 bytes; a stream of 128 MiB, announced as 4 GiB; names without end.
        one = block(b"DA", lzh(bytes(65536)))
        limit = None if harness.instrumented() else harness.little_memory
        self.write("A", archive(
            entry(b"RG", "a", 0o644, 5, 1, one * 2000 + block(b"UE", b"") + bytes(4)),
            entry(b"RG", "b", 0o644, 0, 1, archivefile.one_stream_blocks(bytes(2**27), 131072), size_high=1),
            *(entry(b"DR", b"d" * 4351, 0o755, access=bytes(65535)) for _ in range(300))))
        self.expect("-df A", ["TOLVEN: processing archive A (version 2.01)", "TOLVEN: 302 file(s) tested"],
                    preexec=limit)
        self.assertEqual(self.run_tolven("-tf", "A", preexec=limit).code, 0)
        bomb = archive(entry(b"RG", "c", 0o644, 2**62, 1, block(b"UE", b"", 131072)))
        self.fails(bomb, "TOLVEN: error reading from A (error 5). ", 5, "dx")


class Paths(harness.TolvenTest):
    """Names and links that lead out of the extraction directory. Outside of it nothing may change."""

    def setUp(self):
        super().setUp()
        self.outside = self.path("outside")
        harness.build_tree(self.outside, {"precious": "precious", "sub/file": "file"})

    def extract(self, *entries, before=None, args=()):
        """Extracts into box/out; whatever else lies in the test's directory must stay as it is."""
        self.fresh("box")
        harness.build_tree(self.path("box/out"), before or {})
        self.write("A", archive(*entries))
        untouched = self.surroundings()
        run = self.run_tolven("-xf", "A", "-R", "box/out", *args)
        self.assertEqual(self.surroundings(), untouched, run)
        self.assertEqual(os.listdir(self.path("box")), ["out"])
        return run

    def surroundings(self):
        return {name: what for name, what in harness.snapshot(self.dir).items() if not name.startswith("box")}

    def test_names(self):
        rows = (
            ("/abs", "abs"), ("//abs/x", "abs/x"), ("../up", "up"), ("../../../up", "up"), ("a/../../up", "up"),
            ("a/../b", "b"), ("./a/./b", "a/b"), ("a//b", "a/b"), ("C:/x", "x"), ("C:x", "x"), ("C:../x", "x"),
            ("C:/../../x", "x"), ("a/./../../b", "b"), ("..", None), (".", None), ("/", None), ("C:", None),
            ("a/..", None), ("...", "..."), ("..a", "..a"), ("a/...", "a/..."), ("a:b:c", "b:c"), ("x/", "x"),
            ("/" + self.outside + "/precious", (self.outside + "/precious").lstrip("/")),
            ("../../outside/precious", "outside/precious"), ("a/b/../../../../outside/precious", "outside/precious"))
        for stored, path in rows:
            run = self.extract(regular(stored, b"new"))
            found = harness.contents(self.path("box/out"))
            if path is None:
                self.assertEqual(found, {}, (stored, run))
                self.assertNotEqual(run.code, 0, (stored, run))
            else:
                self.assertEqual((found, run.code), ({path: b"new"}, 0), stored)
                # A component that is lost may make two names one: that is said. A leading "/" or a "." is no loss.
                lost = ":" in stored or ".." in stored.split("/")
                self.assertEqual("TOLVEN: %s is extracted as %s" % (stored, path) in run.lines, lost, run)
            run = self.extract(directory(stored, 0o40700))
            self.assertEqual(run.code, 0, (stored, run))
            if path is not None:
                self.assertTrue(os.path.isdir(self.path("box/out", path)), stored)

    def test_links_of_the_archive_are_never_followed(self):
        for target in (self.outside, "../../outside", ".", "inside"):
            for parts in (
                    (link("l", target), regular("l/precious", b"new")),
                    (link("l", target), directory("l", 0o40700), regular("l/precious", b"new")),
                    (link("l", target), directory("l/sub", 0o40700)),
                    (link("l", target), link("l/precious", "/etc/passwd")),
                    (link("a", "b"), link("b", target), regular("a/precious", b"new")),
                    (link("d/l", "../" + target if target[0] != "/" else target), regular("d/l/precious", b"new")),
                    (directory("l", 0o40700, 1), link("l", target)),
                    (link("l", target + "/precious"), regular("l", b"new"))):
                self.extract(*parts, before={"inside": harness.Directory()})
                found = harness.contents(self.path("box/out"))
                self.assertLessEqual(set(found.values()), {b"new"})

    def test_a_link_gives_way_to_what_comes_later(self):
        run = self.extract(link("l", self.outside), regular("l/precious", b"new"))
        # Links are made last, so the file got a real directory; the link then finds its place taken.
        self.assertEqual(harness.contents(self.path("box/out")), {"l/precious": b"new"})
        self.assertEqual((run.code, run.lines[-1]), (36, "TOLVEN: not all files could be extracted"))
        self.assertIn("TOLVEN: could not create symbolic link (error 36). l", run.lines)
        run = self.extract(link("l", self.outside + "/precious"), regular("l", b"new"))
        self.assertEqual((harness.contents(self.path("box/out")), run.code), ({"l": b"new"}, 0))
        run = self.extract(link("l", self.outside), directory("l"))
        self.assertEqual((os.path.islink(self.path("box/out/l")), run.code), (False, 0))
        run = self.extract(regular("l", b"new"), link("l", "t"))
        self.assertEqual((os.readlink(self.path("box/out/l")), run.code), ("t", 0))

    def test_links_that_were_there_before(self):
        rows = (({"l": Link(self.outside)}, "l/precious"), ({"l": Link("../../outside")}, "l/precious"),
                ({"d/l": Link("../../../outside")}, "d/l/sub/file"), ({"l": Link("..")}, "l/new"),
                ({"a": Link("b"), "b": Link("../../outside")}, "a/precious"), ({"l": Link("/")}, "l/tmp/tolven-e2e-x"))
        for before, name in rows:
            for item in (regular(name, b"new"), directory(name + "/sub/new"), link(name, "target")):
                run = self.extract(item, before=before)
                self.assertEqual((run.code, run.lines[1]), (3, "TOLVEN: not all files could be extracted"),
                                 (before, run))
                self.assertRegex(run.lines[2], r"^TOLVEN: can not create directory \S+ \(error 3\)\. ")
            self.extract(directory(next(iter(before)), 0o40700, 1), before=before)

    def test_links_that_stay_inside_may_be_followed(self):
        run = self.extract(regular("l/a", b"new"), before={"l": Link("real"), "real/b": "b"})
        self.assertEqual(run.code, 0, run)
        self.assertEqual(harness.contents(self.path("box/out")), {"real/a": b"new", "real/b": b"b"})

    def test_a_link_in_place_of_a_file_is_replaced(self):
        for target in (self.outside + "/precious", "../../outside/precious", "nowhere"):
            for item in (regular("f", b"new"), link("f", "elsewhere")):
                self.assertEqual(self.extract(item, before={"f": Link(target)}).code, 0)
                full = self.path("box/out/f")
                if item[:2] == b"LK":
                    self.assertEqual(os.readlink(full), "elsewhere")
                else:
                    self.assertEqual((os.path.islink(full), harness.read_file(full)), (False, b"new"))

    def test_a_link_of_an_earlier_archive_of_the_run(self):
        for target in ("../../outside", self.outside, "."):
            self.fresh("box")
            os.mkdir(self.path("box/out"))
            self.write("A1", archive(link("l", target)))
            self.write("A2", archive(regular("l/precious", b"new")))
            untouched = self.surroundings()
            run = self.run_tolven("-xf", "A1 A2", "-R", "box/out")
            self.assertEqual(self.surroundings(), untouched)
            self.assertEqual(harness.contents(self.path("box/out")), {})
            self.assertEqual(run.lines[:2], ["TOLVEN: processing archive A1 (version 2.01)",
                                             "TOLVEN: 1 file(s) extracted"])
            self.assertEqual(run.code, 3, run)

    def test_without_the_check(self):
        self.fresh("box")
        os.mkdir(self.path("box/out"))
        self.write("A", archive(regular("../up", b"1"), regular(self.path("abs/x"), b"2"), regular("C:/x", b"3"),
                                link("l", "/nowhere")))
        run = self.run_tolven("-xvf", "A", "-R", "box/out", "-xnopvalid")
        self.assertEqual((run.code, run.lines[1:]),
                         (0, ["x ../up", "x " + self.path("abs/x"), "x C:/x", "x l", "TOLVEN: 4 file(s) extracted"]))
        self.assertEqual(harness.contents(self.path("box")), {"up": b"1", "out/C:/x": b"3"})
        self.assertEqual(harness.read_file(self.path("abs/x")), b"2")


if __name__ == "__main__":
    harness.main()
