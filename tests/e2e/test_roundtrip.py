"""Trees that go into an archive and come out again, and the archive in between read by another implementation; and
archives of another implementation read by the program.
"""
import os
import random
import subprocess
import time
import zlib

import archivefile
import harness
from harness import Directory, File, Link

TEXT = b"".join(b"%d bottles of beer on the wall, %d bottles of beer.\n" % (n, n) for n in range(6000))
NOISE = random.Random(1).randbytes(300000)
SIZES = (0, 1, 2, 3, 257, 258, 16122, 16384, 32506, 32768, 65535, 65536, 65537, 131071, 131072, 131073)


class Blocks(harness.TolvenTest):
    def setUp(self):
        super().setUp()
        self.files = {}
        for size in SIZES:
            for name, source in (("text", TEXT), ("noise", NOISE), ("zeros", bytes(300000)),
                                 ("period", b"abcde" * 60000)):
                self.files["%s.%d" % (name, size)] = source[:size]
        # A raw block in the middle, a compressed one before and after it, and the other way round.
        self.files["mixed1"] = TEXT[:65536] + NOISE[:65536] + TEXT[:100]
        self.files["mixed2"] = NOISE[:65536] + TEXT[:65536] + NOISE[:65536]
        harness.build_tree(self.path("t"), self.files)
        self.create("../A", ".", cwd="t")

    def test_structure(self):
        version, entries = archivefile.read(self.path("A"))
        self.assertEqual(version, b"2.01")
        self.assertEqual(len(entries), len(self.files))
        for entry in entries:
            content = self.files[entry.name.decode()]
            info = os.stat(self.path("t", entry.name.decode()))
            self.assertEqual((entry.type, entry.mode, entry.size, entry.size_high, entry.mtime, entry.reserved,
                              entry.access),
                             (b"RG", info.st_mode, len(content), 0, int(info.st_mtime), 0, b""), entry.name)
            self.assertEqual(entry.data(), content, entry.name)
            self.assertEqual(entry.crc, archivefile.crc(content) if content else None, entry.name)
            self.assertLessEqual(set(entry.kinds[:-1]), {b"DA", b"UD"}, entry.name)
            self.assertLessEqual(set(entry.kinds[-1:]), {b"ED", b"UE"}, entry.name)
            self.assertEqual(len(entry.blocks), -(-len(content) // 65536), entry.name)
            pieces = [archivefile.inflate(payload) if kind[:1] != b"U" else payload for kind, payload in entry.blocks]
            self.assertEqual(pieces, [content[i:i + 65536] for i in range(0, len(content), 65536)], entry.name)
            for kind, payload in entry.blocks:
                self.assertLessEqual(len(payload), 65536, entry.name)
                self.assertTrue(kind[:1] == b"U" or payload[4:8] == b"\x12\x1f\x9d\x02" and payload[-1] == 0, entry.name)

    def test_what_is_stored_raw(self):
        # Only what does not fit the 65536 bytes of a block; noise of less than about 65390 bytes does.
        kinds = {entry.name.decode(): entry.kinds for entry in archivefile.read(self.path("A"))[1]}
        rows = {"text.65536": [b"ED"], "text.65537": [b"DA", b"ED"], "noise.65536": [b"UE"],
                "noise.65537": [b"UD", b"ED"], "noise.131072": [b"UD", b"UE"], "noise.32768": [b"ED"],
                "noise.65535": [b"UE"], "zeros.131073": [b"DA", b"DA", b"ED"], "mixed1": [b"DA", b"UD", b"ED"],
                "mixed2": [b"UD", b"DA", b"UE"], "text.0": [], "noise.1": [b"ED"]}
        self.assertEqual({name: kinds[name] for name in rows}, rows)

    def test_same_tree_same_bytes(self):
        """The recipe of the manual: two trees made at different times and in another order give one archive."""
        files = dict(self.files, **{"d/#e *": b"x", "d/link": Link("#e *"), "d/empty": Directory()})
        archives = set()
        for turn, names in enumerate((sorted(files), sorted(files, reverse=True), sorted(files))):
            root = self.path("t%d" % turn)
            harness.build_tree(root, {name: files[name] for name in names})
            subprocess.run("find . ! -type d -o -empty | LC_ALL=C sort >../list;"
                           "find . -exec touch -h -d @1700000000 {} +", shell=True, cwd=root, check=True)
            for threads in ("1", "4"):
                self.assertEqual(self.run_tolven("-crf", "../A", "-A", "../list", cwd=root,
                                                 env={"TOLVEN_THREADS": threads}).code, 0)
                archives.add(harness.digest(self.path("A")))
            time.sleep(1.1)  # whatever takes the time in seconds sees another one
        self.assertEqual(len(archivefile.read(self.path("A"))[1]), len(files))
        self.assertEqual(len(archives), 1)

    def test_comes_out_again(self):
        self.expect("-df A", ["TOLVEN: processing archive A (version 2.01)",
                              "TOLVEN: %d file(s) tested" % len(self.files)])
        target = self.extracted("A", count=len(self.files))
        self.assertEqual(harness.snapshot(target), harness.snapshot(self.path("t")))


class Attributes(harness.TolvenTest):
    def test_modes_dates_and_names(self):
        long = "n" * 255
        tree = {
            "modes/set-uid": File(b"1", 0o4755), "modes/set-gid": File(b"2", 0o2711),
            "modes/sticky": File(b"3", 0o1644),
            "modes/all": File(b"4", 0o7777), "modes/read-only": File(b"5", 0o444), "modes/none": File(b"", 0o600),
            "modes/directory": Directory(0o2755), "modes/closed": Directory(0o700), "modes/world": Directory(0o1777),
            "modes/read-only-directory/file": File(b"x", 0o400), "modes/read-only-directory": Directory(0o555),
            "dates/1901": File(b"1", mtime=-2**31), "dates/1969": File(b"2", mtime=-1),
            "dates/1970": File(b"3", mtime=0),
            "dates/2038": File(b"4", mtime=2**31 - 1), "dates/2039": File(b"5", mtime=2**31),
            "dates/2106": File(b"6", mtime=2**32 + 5), "dates/empty": File(b"", mtime=86400 * 365),
            "dates/old": Directory(0o750, -86400), "dates/old/inner/file": File(b"7", mtime=12345),
            "dates/old/inner": Directory(0o711, 2**31 + 7), "dates": Directory(0o755, 1000000001),
            "names/ leading and trailing ": b"1", "names/new\nline": b"2", "names/\u00fc\u20ac\U0001f600": b"3",
            "names/tab\tback\bbell\a": b"4", "names/*": b"5", "names/?[a]": b"6", "names/-x": b"7", "names/#c": b"8",
            "names/a|b": b"9", "names/C:": b"10", "names/" + long: b"11",
            "names/" + os.fsdecode(b"\xff\xfe\x80"): b"12",
            "names/" + long[:250] + "/" + long + "/" + long: b"13", "names/.hidden": b"14",
            "links/file": Link("../dates/1970"), "links/directory": Link("../names"), "links/broken": Link("no where"),
            "links/self": Link("self"), "links/absolute": Link("/etc/passwd"), "links/bar": Link("a|b"),
            "links/up": Link("../../.."), "links/long": Link("x" * 4000)}
        harness.build_tree(self.path("t"), tree)
        before = harness.snapshot(self.path("t"))
        if before["dates/1901"][2] != -2**31 or before["dates/2106"][2] != 2**32 + 5:
            self.skipTest("the file system here does not keep these dates")
        self.expect(["-crf", self.path("A"), "."], [], cwd="t")
        # A bare ":" in a name is a drive prefix to the path check: such names come back whole only without it.
        target = self.extracted("A", "-xnopvalid", count=len(before))
        self.assertEqual(harness.snapshot(target), before)
        self.assertEqual(sorted(entry.name for entry in archivefile.read(self.path("A"))[1]),
                         sorted(self.stored_name(path, what) for path, what in before.items()))

    @staticmethod
    def stored_name(path, what):
        return os.fsencode(path) + (b"|" + os.fsencode(what[1]) if what[0] == "link" else b"")


class Changing(harness.TolvenTest):
    def test_files_that_are_not_as_long_as_they_say(self):
        # The size in the header is what the system reported before; the blocks hold what was there.
        path = "/sys/devices/system/cpu/online"
        if not os.path.exists(path) or os.path.getsize(path) == len(harness.read_file(path)):
            self.skipTest("no such file here")
        self.create("A", path)
        entry, = archivefile.read(self.path("A"))[1]
        self.assertEqual((entry.size, entry.data()), (os.path.getsize(path), harness.read_file(path)))
        self.assertEqual(harness.contents(self.extracted("A", count=1)), {path[1:]: harness.read_file(path)})

    def test_a_file_that_shrinks_to_nothing(self):
        self.write("f", "text")
        self.assertEqual(self.run_injected("f", "read", "retval=0", "-cf", "A", "f").lines, [])
        self.assertEqual(harness.contents(self.extracted("A", count=1)), {"f": b""})


class Deep(harness.TolvenTest):
    def test_as_deep_as_paths_may_be(self):
        self.addCleanup(subprocess.run, ["rm", "-rf", self.path("t"), self.path("out")], check=True)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.fresh("t"))
        for _ in range(2047):
            os.mkdir("d")
            os.chdir("d")
        harness.write_file("f", "text")
        limit = None if harness.instrumented() else harness.small_stack
        self.fresh("out")
        for args, lines in ((["-cf", "../A", "d"], 0), (["-cf", "../B", "d"], 0), (["-mf", "../A ../B"], 0),
                            (["-af", "../A", "d"], 0), (["-tf", "../A"], 4097), (["-df", "../B"], 2),
                            (["-xf", "../B", "-R", "../out"], 2)):
            run = self.run_tolven(*args, cwd="t", preexec=limit)
            self.assertEqual((run.code, len(run.lines)), (0, lines), args)
        found = subprocess.run(["find", ".", "-type", "f"], cwd=self.path("out"), stdout=subprocess.PIPE, check=True)
        self.assertEqual(found.stdout, b"./" + b"d/" * 2047 + b"f\n")


class Large(harness.TolvenTest):
    def sparse(self, size, marks):
        with open(self.path("big"), "wb") as file:
            file.truncate(size)
            for offset in marks:
                file.seek(offset)
                file.write(b"mark %d" % offset)

    def round_trip(self, size, marks):
        self.sparse(size, marks)
        self.write("after", "small")
        # Memory does not depend on sizes.
        limit = None if harness.instrumented() else harness.little_memory
        self.expect("-cf A big after", [], preexec=limit)
        self.expect("-df A", ["TOLVEN: processing archive A (version 2.01)", "TOLVEN: 2 file(s) tested"], preexec=limit)
        target = self.extracted("A", count=2)
        self.assertEqual(os.path.getsize(os.path.join(target, "big")), size)
        self.assertEqual(harness.digest(os.path.join(target, "big")), harness.digest(self.path("big")))

    def test_many_blocks(self):
        self.round_trip(100 * 2**20 + 1, (0, 50 * 2**20 - 3, 100 * 2**20 - 20))

    @harness.unittest.skipUnless(os.environ.get("TOLVEN_E2E_LARGE"), "5 GiB: set TOLVEN_E2E_LARGE")
    def test_beyond_32_bits(self):
        self.round_trip(5 * 2**30 + 3, (2**32 - 3, 5 * 2**30 - 30))

    def test_an_archive_beyond_32_bits(self):
        # The blocks of one entry are a hole in the archive: a walk needs 64-bit positions, not 4 GiB of disk.
        hole = 2**32 // (131072 + 6) + 2
        first = archivefile.archive(archivefile.entry(b"RG", "big", 0o100644, hole * 131072))
        with open(self.path("A"), "wb") as file:
            file.write(first)
            for number in range(hole):
                file.write(archivefile.block(b"UE" if number + 1 == hole else b"UD", b"", 131072))
                file.seek(131072, os.SEEK_CUR)
            file.write(archivefile.end(b"", zero_crc=True) + archivefile.regular("after", b"small"))
        self.assertGreater(os.path.getsize(self.path("A")), 2**32)
        run = self.run_tolven("-tf", "A", "-v")
        self.assertEqual([line.split()[-1] for line in run.lines[1:]], ["big", "after"])
        self.assertEqual(run.lines[1].split()[1], str(hole * 131072))
        self.extracted("A", "after", count=1)
        self.assertEqual(harness.contents(self.path("out")), {"after": b"small"})


class Foreign(harness.TolvenTest):
    """Archives that this program does not write, but reads."""

    def extract(self, content, expected):
        self.write("A", content)
        self.expect("-df A", ["TOLVEN: processing archive A (version %s)" % content[4:8].decode(),
                              "TOLVEN: %d file(s) tested" % len(expected)])
        self.assertEqual(harness.contents(self.extracted("A", count=len(expected))), expected)

    def test_data_of_every_shape(self):
        for version in (b"2.00", b"2.01"):
            files, entries = {}, []
            for size in (1, 65535, 65536, 65537, 200000):
                for name, blocks in (
                        ("raw", archivefile.raw_blocks),
                        ("fixed", archivefile.lzh_blocks),
                        ("dynamic", lambda data: archivefile.lzh_blocks(data, strategy=zlib.Z_DEFAULT_STRATEGY)),
                        ("huffman", lambda data: archivefile.lzh_blocks(data, strategy=zlib.Z_HUFFMAN_ONLY)),
                        ("one stream", lambda data: archivefile.one_stream_blocks(data, 1000)),
                        ("one block", lambda data: archivefile.one_stream_blocks(data, 131072)),
                        ("zero checksum", lambda data: archivefile.raw_blocks(data, zero_crc=True))):
                    key = "%s %d" % (name, size)
                    files[key] = TEXT[:size]
                    entries.append(archivefile.regular(key, files[key], blocks=blocks))
            self.extract(archivefile.archive(*entries, version=version), files)

    def test_streams_and_raw_blocks_in_one_entry(self):
        pieces = [TEXT[:1000], NOISE[:300], TEXT[:70000], b"end"]
        first = archivefile.lzh(pieces[0])
        payloads = [(b"DA", first[:50]), (b"DA", first[50:]), (b"UD", pieces[1]), (b"DA", archivefile.lzh(b"")),
                    (b"DA", archivefile.lzh(pieces[2], "1110" + "1", zlib.Z_DEFAULT_STRATEGY)), (b"UE", pieces[3])]
        data = b"".join(pieces)
        blocks = b"".join(archivefile.block(*pair) for pair in payloads) + archivefile.end(data)
        self.extract(archivefile.archive(archivefile.entry(b"RG", "a", 0o644, len(data), 1, blocks)), {"a": data})

    def test_size_in_two_fields_and_access_information(self):
        data = archivefile.raw_blocks(b"0123456789")
        # The real data decides what is written; the header's 4 GiB are only announced.
        entries = (archivefile.entry(b"RG", "high", 0o644, 0, 1, data, size_high=1),
                   archivefile.entry(b"RG", "access", 0o644, 10, 1, data, access=b"RG\0DA" * 100),
                   archivefile.entry(b"DR", "d", 0o40755, 77, 1, access=b"x"),
                   archivefile.regular("d/end", b"x"))
        self.write("A", archivefile.archive(*entries))
        run = self.run_tolven("-tf", "A")
        self.assertEqual([line.split()[1] for line in run.lines[1:]], ["4294967296", "10", "77", "1"])
        found = harness.contents(self.extracted("A", count=4))
        self.assertEqual(found, {"high": b"0123456789", "access": b"0123456789", "d/end": b"x"})

    def test_shortcuts_and_link_targets(self):
        self.write("A", archivefile.archive(
            archivefile.link("s", "some where", kind=b"SC"), archivefile.link("d/l", "a|b"),
            archivefile.entry(b"LK", "odd|odd", 0o100644, 500)))  # by its type a link, whatever mode and size say
        target = self.extracted("A", count=3)
        self.assertEqual([os.readlink(os.path.join(target, name)) for name in ("s", "d/l", "odd")],
                         ["some where", "a|b", "odd"])

    def test_manifest_entries_are_listed_and_never_written(self):
        document = archivefile.lzh_blocks(b"not a document")
        for manifest in (archivefile.entry(b"RG", "SIGNATURE.SMF", 0o40600, 14, 1, document),
                         archivefile.entry(b"SM", "anything", 0o644, 14, 1, document)):
            self.write("A", archivefile.archive(archivefile.regular("a", b"text"), manifest))
            run = self.run_tolven("-tf", "A")
            self.assertEqual(len(run.lines), 3, run)
            self.assertEqual(run.lines[2][:10], "-rw-------")
            self.assertEqual(harness.contents(self.extracted("A", count=1)), {"a": b"text"})
            self.assertEqual(self.run_tolven("-df", "A").lines[-1], "TOLVEN: 1 file(s) tested")
        # The stored name counts, not the one that is shown.
        self.write("A", archivefile.archive(archivefile.regular("d/SIGNATURE.SMF", b"text", mode=0o40600)))
        self.assertEqual(harness.contents(self.extracted("A", "-flat", count=1)), {"SIGNATURE.SMF": b"text"})
        # The mode is what marks it: with another one it is a file like any other.
        self.write("A", archivefile.archive(archivefile.regular("SIGNATURE.SMF", b"text")))
        self.assertEqual(harness.contents(self.extracted("A", count=1)), {"SIGNATURE.SMF": b"text"})


if __name__ == "__main__":
    harness.main()
