"""Commands that change an archive that is there already."""
import os

import archivefile
import harness
from archivefile import archive, directory, entry, regular

MANIFEST = entry(b"RG", "SIGNATURE.SMF", 0o40600, 8, 1, archivefile.raw_blocks(b"document"))


class Append(harness.TolvenTest):
    def setUp(self):
        super().setUp()
        harness.build_tree(self.dir, {"a": "first", "d/b": "second", "d/c": "", "big": bytes(200000)})

    def names(self, name="A"):
        return [entry.name.decode() for entry in archivefile.read(self.path(name))[1]]

    def test_at_the_end(self):
        self.create("A", "a")
        before = harness.read_file(self.path("A"))
        self.expect("-avf A d big", ["a big", "a d"] + sorted(["a d/b", "a d/c"], key=self.scan_order))
        after = harness.read_file(self.path("A"))
        self.assertEqual(after[:len(before)], before)
        self.assertEqual(self.names()[:3], ["a", "big", "d"])
        self.assertEqual(len(harness.contents(self.extracted("A", count=5))), 4)

    def scan_order(self, line):
        return os.listdir(self.path("d")).index(line[4:])

    def test_to_nothing(self):
        self.write("empty", b"")
        for name in ("missing", "empty"):
            self.expect(["-af", name, "a"], [])
            self.assertEqual((archivefile.read(self.path(name))[0], self.names(name)), (b"2.01", ["a"]))

    def test_to_the_default_archive_and_older_versions(self):
        self.expect("-a a", [])
        self.assertEqual(self.names("DEFAULT.VRA"), ["a"])
        old = regular("x", b"old " * 50000, blocks=lambda data: archivefile.one_stream_blocks(data, 900))
        self.write("A", archive(old, version=b"2.00"))
        self.expect("-af A a big", [])
        self.assertEqual(harness.contents(self.extracted("A", count=3)),
                         {"x": b"old " * 50000, "a": b"first", "big": bytes(200000)})

    def test_only_to_archives(self):
        for content in (b"x", b"ORV 2.0", b"text that is no archive", b"#!/bin/sh\nexit 0\n"):
            self.write("A", content)
            self.expect("-af A a", ["TOLVEN: unsupported archive: A"], 1)
            self.assertEqual(harness.read_file(self.path("A")), content)
        for content in (b"ORV 9.99", b"ORV\x002.01"):
            self.write("A", content)
            self.assertEqual(self.run_tolven("-af", "A", "a").code, 1)
            self.assertEqual(harness.read_file(self.path("A")), content)

    def test_the_archive_itself_is_skipped(self):
        self.create("A", "a")
        self.expect("-af A .", [])
        self.assertEqual(sorted(self.names()), ["a", "a", "big", "d", "d/b", "d/c"])

    def test_renaming_and_permissions(self):
        self.write("T", "a new\n")
        self.create("A", "d/b")
        self.expect("-af A -T T -p 600 a", [])
        _, entries = archivefile.read(self.path("A"))
        self.assertEqual([(item.name, oct(item.mode)) for item in entries][1:], [(b"new", "0o100600")])

    def test_inaccessible_files_cost_the_archive(self):
        message = "TOLVEN: file 'gone' is inaccessible (No such file or directory)"
        self.create("A", "a")
        self.expect("-aif A d/b gone", [message], 44)
        self.assertEqual(self.names(), ["a", "d/b"])
        self.expect("-af A d/b gone", [message], 44)
        self.assertFalse(os.path.exists(self.path("A")))


class Merge(harness.TolvenTest):
    def setUp(self):
        super().setUp()
        self.source = archive(regular("s", b"source"), directory("d"))
        self.target = archive(regular("t", b"target"))
        self.write("S", self.source)
        self.write("T", self.target)

    def merge(self, lines=(), code=0, text="S T"):
        self.expect(["-mf", text], lines, code)

    def test_entries_are_copied(self):
        self.merge()
        self.assertEqual(harness.read_file(self.path("T")), self.target + self.source[8:])
        self.assertEqual(harness.read_file(self.path("S")), self.source)
        self.assertEqual(harness.contents(self.extracted("T", count=3)), {"s": b"source", "t": b"target"})

    def test_sizes_around_one_chunk(self):
        for size in (0, 1, 65535, 65536, 65537, 300001):
            body = bytes(range(256)) * (size // 256) + bytes(size % 256)
            self.write("T", self.target)
            # What is behind the header is not looked at, only that no signed manifest is among it.
            self.write("S", b"ORV 2.01" + (regular("x", body, blocks=archivefile.raw_blocks) if body else b""))
            self.merge(text="S,T")
            self.assertEqual(harness.read_file(self.path("T")), self.target + harness.read_file(self.path("S"))[8:])

    def test_versions_are_not_compared(self):
        data = b"one stream, many blocks. " * 9000
        self.write("S", archive(regular("old", data, blocks=lambda data: archivefile.one_stream_blocks(data, 700)),
                                version=b"2.00"))
        self.merge()
        expected = {"old": data, "t": b"target"}
        self.assertEqual(harness.contents(self.extracted("T", count=2)), expected)
        self.expect("-df T", ["TOLVEN: processing archive T (version 2.01)", "TOLVEN: 2 file(s) tested"])
        # And the other way round.
        self.write("T", self.target)
        self.merge(text="T S")
        self.assertEqual(harness.contents(self.extracted("S", count=2)), expected)

    def test_onto_itself(self):
        for text in ("T T", "T ./T"):
            self.write("T", self.target)
            self.merge(text=text)
            self.assertEqual(harness.read_file(self.path("T")), self.target + self.target[8:])

    def test_what_is_refused_leaves_the_target_alone(self):
        exactly = "TOLVEN: merging only supported for exactly two archives (error 100). "
        signed = "TOLVEN: signed archives must not be merged (error 53). "
        missing = "TOLVEN: error opening none (error 6). No such file or directory"
        self.write("signed", archive(regular("a", b"1"), MANIFEST))
        self.write("short", b"ORV 2.")
        self.write("other", b"something else altogether")
        rows = (("S", exactly, 100), ("S T S", exactly, 100), ("none none none", exactly, 100), ("none*", exactly, 100),
                ("none T", missing, 6), ("S none", missing, 6), ("signed T", signed, 53), ("S signed", signed, 53),
                ("short T", "TOLVEN: error reading from short (error 5). ", 5),
                ("S short", "TOLVEN: error reading from short (error 5). ", 5),
                ("other T", "TOLVEN: unsupported archive: other", 1),
                ("S other", "TOLVEN: unsupported archive: other", 1),
                ("short other", "TOLVEN: unsupported archive: other", 1),
                ("other signed", signed, 53), ("other short", "TOLVEN: error reading from short (error 5). ", 5))
        before = harness.snapshot(self.dir)
        for text, message, code in rows:
            self.merge([message], code, text)
            self.assertEqual(harness.snapshot(self.dir), before, text)


if __name__ == "__main__":
    harness.main()
