"""The library's handles, by way of the Python module: what it writes the program reads, and the other way round."""
import io
import os
import random
import subprocess
import sys
import threading
import unittest
import zipfile

import archivefile
import harness
import signing_support

sys.path.insert(0, os.path.join(os.environ["TOLVEN_SOURCE_DIR"], "python"))
os.environ["TOLVEN_LIBRARY"] = os.path.join(os.environ["TOLVEN_LIBDIR"], "libtolven.so")
if not harness.instrumented():
    import tolven

DATA = random.Random(5).randbytes(70000) + b"many times " * 30000
TREE = {"empty": b"", "data": DATA, "dir": harness.Directory(),
        "dir/script": harness.File(b"#!", 0o755, 12345), "link": harness.Link("data"), "closed": harness.Directory(0o500, 77777)}


def flipped(data, at, bit=1):
    return data[:at] + bytes([data[at] ^ bit]) + data[at + 1:]


@unittest.skipIf(harness.instrumented(), "an instrumented library needs an instrumented process")
class Handles(harness.TolvenTest):
    def refused(self, code, call, *arguments):
        with self.assertRaises(tolven.Error) as caught:
            call(*arguments)
        self.assertEqual(caught.exception.code, code, caught.exception)

    def test_program_and_handles_agree(self):
        harness.build_tree(self.fresh("tree"), TREE)
        self.expect(["-crf", "../program.vra", "*"], [], cwd="tree")
        with tolven.create(self.path("handles.vra")) as writer:
            for name in sorted(os.listdir(self.path("tree"))):
                writer.add_tree(self.path("tree", name), name)
        original = harness.snapshot(self.path("tree"))
        for name in ("program.vra", "handles.vra"):
            with self.subTest(name):
                self.assertEqual(harness.snapshot(self.extracted(name)), original)
                with tolven.open(self.path(name)) as archive:
                    archive.extract_all(self.fresh("all"))
                    self.assertEqual(harness.snapshot(self.path("all")), original)
                    archive.extract_to(self.fresh("each"))
                    for entry in archive:
                        entry.extract()
                    archive.extract_finish()
                    self.assertEqual(harness.snapshot(self.path("each")), original)

    def test_any_way_in_and_out(self):
        memory = io.BytesIO()
        with tolven.create(memory) as writer:
            writer.add_bytes("data", DATA, 0o640, 99)
            writer.add_directory("dir", 0o750, 98)
            writer.add_link("link", "a|b", 97)
        with open(self.path("file.vra"), "wb") as file, tolven.create(file.fileno()) as writer:
            with tolven.open(memory) as archive:
                for entry in archive:
                    if entry.is_file():
                        writer.add_bytes(entry.raw_name, entry.read(), entry.mode, entry.mtime)
                    elif entry.is_link():
                        writer.add_link(entry.name, entry.target, entry.mtime)
                    else:
                        writer.add_directory(entry.name, entry.mode, entry.mtime)
        self.assertEqual(harness.read_file(self.path("file.vra")), memory.getvalue())
        with open(self.path("file.vra"), "rb") as file:
            file.seek(5)
            with tolven.open(file.fileno()) as first, tolven.open(file.fileno()) as second:
                for one, two in zip(first, second):
                    self.assertEqual((one.name, one.target, one.read()), (two.name, two.target, two.read()))

    def test_any_offset(self):
        def one_stream(data):
            return archivefile.one_stream_blocks(data, 4000)

        def looks_direct(data):  # a stream that runs on over a block, behind a first block that is whole
            chunks = [archivefile.lzh(data[:65536]), archivefile.lzh(data[65536:131072])]
            second = len(chunks[1]) // 2
            rest = archivefile.lzh(data[131072:])
            return archivefile.blocks_of([chunks[0], chunks[1][:second], chunks[1][second:], rest], b"DA", b"ED") + \
                archivefile.end(data)

        offsets = (0, 1, 65535, 65536, 70000, 131071, 131072, len(DATA) - 1, len(DATA), len(DATA) + 1)
        for version, blocks in ((b"2.01", archivefile.lzh_blocks), (b"2.01", archivefile.raw_blocks),
                                (b"2.00", one_stream), (b"2.01", one_stream), (b"2.01", looks_direct)):
            with self.subTest(version=version, blocks=blocks.__name__):
                data = DATA[:200000]
                file = io.BytesIO(archivefile.archive(archivefile.regular("first", b"1"),
                                                      archivefile.regular("data", data, blocks=blocks),
                                                      archivefile.regular("data", data, blocks=blocks), version=version))
                with tolven.open(file) as archive:
                    index = archive.index()
                    entry = index["data"]
                    self.assertEqual((len(index), entry.number, entry.size), (3, 2, len(data)))
                    for offset in offsets:
                        for size in (1, 70000):
                            self.assertEqual(entry.pread(size, offset), data[offset:offset + size], (offset, size))
                    self.assertEqual([index[0].read(), entry.read(), index[-2].read()], [b"1", data, data])
                    self.assertEqual([entry.name for entry in archive], ["first", "data", "data"])

    def test_many_readers_of_one_index(self):
        self.write("data.vra", archivefile.archive(archivefile.regular("data", DATA)))
        wrong = []
        with tolven.open(self.path("data.vra")) as archive:
            entry = archive.index()["data"]

            def read(seed):
                random_source = random.Random(seed)
                for _ in range(200):
                    offset, size = random_source.randrange(len(DATA)), random_source.randrange(100000)
                    if entry.pread(size, offset) != DATA[offset:offset + size]:
                        wrong.append(offset)
            threads = [threading.Thread(target=read, args=(seed,)) for seed in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        self.assertEqual(wrong, [])

    def test_bad_archives(self):
        good = archivefile.archive(archivefile.regular("file", DATA), archivefile.regular("next", b"x"))
        inside = 8 + 34 + 5 + 6 + 2000
        denied = archivefile.archive(archivefile.entry(b"RG", "file", 0o100644, 0, data=archivefile.raw_blocks(b"data")))
        bare = archivefile.archive(archivefile.entry(b"RG", "file", 0o100644, 5))
        for name, data, code, by_index in (
                ("a wrong byte", flipped(good, inside), 12, 12),
                ("cut in the data", good[:inside], 5, 100), ("cut in a header", good[:-40], 5, 5),
                ("no data at all", bare, 5, 5), ("data that the header denies", denied, 11, 11),
                ("wrong checksum", archivefile.archive(archivefile.entry(
                    b"RG", "file", 0o100644, 4, data=archivefile.raw_blocks(b"data")[:-4] + b"abcd")), 12, 12)):
            with self.subTest(name), tolven.open(io.BytesIO(data)) as archive:
                self.refused(code, lambda: [entry.read() for entry in archive])
                self.refused(by_index, lambda: [entry.check() for entry in archive.index()])
                self.refused(code, archive.extract_all, self.fresh("out"))
                self.assertLessEqual(set(os.listdir(self.path("out"))), {"file"} if name == "cut in a header" else set())
        os.mkfifo(self.path("pipe"))
        for name, code in (("pipe", -2), ("missing", 6), (".", -2)):
            self.refused(code, tolven.open, self.path(name))
        for data, code in ((b"", 5), (b"ORV", 5), (b"nothing at all", 1), (b"ORV 3.00", 1)):
            self.refused(code, tolven.open, io.BytesIO(data))

    def test_nothing_leaves_the_directory(self):
        self.write("precious", b"old")
        self.write("bad.vra", archivefile.archive(
            archivefile.link("away", ".."), archivefile.regular("away/precious", b"new"),
            archivefile.regular("../precious", b"new"), archivefile.regular(self.path("precious"), b"new")))
        said = []
        with tolven.open(self.path("bad.vra"), message=said.append) as archive:
            archive.extract_to(self.fresh("one"))
            for entry in archive:
                try:
                    entry.extract()
                    archive.extract_finish()
                except tolven.Error:
                    break
            self.refused(36, archive.extract_all, self.fresh("all"))
        self.assertEqual(harness.read_file(self.path("precious")), b"old")
        self.assertIn("TOLVEN: ../precious is extracted as precious", said)

    def test_a_writer_that_fails_leaves_what_was_there(self):
        self.write("a.vra", b"old")
        self.write("file", b"text")

        class Failing(io.RawIOBase):
            def read(self, _):
                raise ZeroDivisionError

        for name, code, use in (
                ("short", -5, lambda writer: writer.add_stream("name", io.BytesIO(b"12"), 3)),
                ("long", -5, lambda writer: writer.add_stream("name", io.BytesIO(b"123"), 2)),
                ("nameless", -2, lambda writer: writer.add_bytes("", b"")),
                ("zero byte", -2, lambda writer: writer.add_bytes("a\0b", b"")),
                ("too long", -2, lambda writer: writer.add_bytes("n" * 4352, b"")),
                ("bar in a link", -2, lambda writer: writer.add_link("a|b", "c")),
                ("link to nothing", -2, lambda writer: writer.add_link("a", "")),
                ("missing", 44, lambda writer: writer.add(self.path("missing"), "m")),
                ("device", 44, lambda writer: writer.add("/dev/null", "null")),
                ("aborted", -3, lambda writer: (writer.abort(), writer.add(self.path("file"))))):
            with self.subTest(name):
                writer = tolven.create(self.path("a.vra"))
                self.refused(code, use, writer)
                writer.close()
                self.assertEqual(harness.read_file(self.path("a.vra")), b"old")
        with self.assertRaises(ZeroDivisionError), tolven.create(self.path("a.vra")) as writer:
            writer.add_stream("name", Failing(), 3)
        self.assertEqual(sorted(os.listdir(self.dir)), ["a.vra", "file"])
        self.refused(-2, tolven.create, "/dev/null")
        with tolven.create(self.path("a.vra")) as writer:  # what could not be opened is no end
            self.refused(44, writer.add, self.path("missing"))
            writer.add(self.path("file"), "name")
        self.assertEqual(harness.read_file(os.path.join(self.extracted("a.vra"), "name")), b"text")

    def test_signatures(self):
        self.write("data", DATA)
        self.write("other", b"text")
        os.symlink("data", self.path("link"))
        self.expect(["-crf", "signed.vra", "link", "data", "other"], [])
        run = self.run_tolven("-Sf", "signed.vra", "-key", signing_support.pse("signer"))
        self.assertEqual(run.code, 0, run)
        trust = signing_support.pki("sec", "QELverify.pse")
        signed = harness.read_file(self.path("signed.vra"))
        for given in (trust, harness.read_file(trust)):
            with tolven.open(self.path("signed.vra")) as archive:
                verdict = archive.verify(given)
                self.assertEqual((verdict.code, verdict.manifest_code, verdict.key, verdict.covered),
                                 (0, 24, "External", [b"data", b"other"]))
                self.assertTrue(verdict.subject and verdict.issuer and verdict.signing_time, verdict)
                self.assertEqual([entry.read() for entry in archive if entry.is_file()], [DATA, b"text"])
                archive.index()["data"].check()
        content = bytes(reversed(DATA[:65536]))  # the same size, stored raw, so with any checksum
        at = signed.index(DATA[:65536])
        replaced = signed[:at] + content + signed[at + 65536:]
        crc_at = signed.index(archivefile.end(DATA), at)
        replaced = replaced[:crc_at] + bytes(4) + replaced[crc_at + 4:]
        for name, data, code, before in (
                ("another file", replaced, 57, True), ("cut", signed[:signed.index(b"SIGNATURE.SMF") - 34], 59, False),
                ("appended", signed + archivefile.regular("more", b"x"), 54, False),
                ("in front", signed[:8] + archivefile.regular("more", b"x") + signed[8:], 58, True)):
            with self.subTest(name), tolven.open(io.BytesIO(data)) as archive:
                self.refused(code, archive.verify, trust)
                if before:  # good by its signature; found out when the file is met
                    archive.verify(trust, data=False)
                    self.refused(code, lambda: [entry.read() for entry in archive])
                    self.refused(code, lambda: [entry.check() for entry in archive.index() if entry.is_file()])
                    self.refused(code, archive.extract_all, self.fresh("out"))
                    self.assertNotIn("link", os.listdir(self.path("out")))
        with tolven.open(self.path("signed.vra")) as archive:
            self.refused(60, archive.verify, signing_support.pki("foreign.crt"))

    def test_cancelled(self):
        self.write("data.vra", archivefile.archive(archivefile.regular("data", DATA * 5)))
        told = []
        with tolven.open(self.path("data.vra"), progress=lambda at, total: told.append((at, total)) or len(told) > 3) as archive:
            with self.assertRaises(tolven.Cancelled):
                archive.extract_all(self.fresh("out"))
            self.assertEqual(os.listdir(self.path("out")), [])
        self.assertEqual({total for _, total in told}, {os.path.getsize(self.path("data.vra"))})
        with self.assertRaises(tolven.Cancelled), tolven.create(self.path("new.vra")) as writer:
            writer.cancel()
            writer.add_bytes("name", DATA)
            writer.finish()
        self.assertFalse(os.path.exists(self.path("new.vra")))

    def test_examples(self):
        source, libraries = os.environ["TOLVEN_SOURCE_DIR"], os.environ["TOLVEN_LIBDIR"]
        harness.build_tree(self.fresh("tree"), TREE)
        environment = harness.environment(PYTHONPATH=os.path.join(source, "python"),
                                          TOLVEN_LIBRARY=os.environ["TOLVEN_LIBRARY"], LD_LIBRARY_PATH=libraries)
        for compiler, standard, name in (("cc", "c11", "list.c"), ("c++", "c++17", "peek.cpp")):
            subprocess.run([compiler, f"-std={standard}", "-pedantic-errors", "-Wall", "-Wextra", "-Werror",
                            f"-I{source}/include", f"{source}/examples/{name}", f"-L{libraries}", "-ltolven",
                            "-o", self.path(name[:4])], check=True)

        def run(*command):
            return subprocess.run(command, cwd=self.dir, env=environment, stdout=subprocess.PIPE, check=True).stdout

        shown = run(sys.executable, "-B", f"{source}/examples/pack_list.py", "a.vra", "tree").decode()
        self.assertIn(f"0644 {len(DATA):12} content/data\n", shown)
        self.assertIn(f"-0644 {len(DATA):12} content/data\n", run("./list", "a.vra").decode())
        self.assertEqual(run("./peek", "a.vra", "content/data", "69990", "30"), DATA[69990:70020])

    def test_wheel(self):
        maker = os.path.join(os.environ["TOLVEN_SOURCE_DIR"], "python", "make_wheel.py")
        made = [subprocess.run([sys.executable, "-B", maker, "--library", os.environ["TOLVEN_LIBRARY"], self.fresh(where)],
                               stdout=subprocess.PIPE, check=True).stdout.decode().strip() for where in ("one", "two")]
        wheels = [self.path(where, name) for where, name in zip(("one", "two"), made)]
        self.assertEqual(harness.read_file(wheels[0]), harness.read_file(wheels[1]))
        with zipfile.ZipFile(wheels[0]) as wheel:
            wheel.extractall(self.path("site"))
            recorded = wheel.read("tolven-%s.dist-info/RECORD" % made[0].split("-")[1]).decode().splitlines()
            self.assertEqual([line.split(",")[0] for line in recorded], wheel.namelist())
        environment = harness.environment(PYTHONPATH=self.path("site"))
        environment.pop("TOLVEN_LIBRARY", None)
        shown = subprocess.run([sys.executable, "-B", "-c", "import tolven; print(tolven.__file__, tolven.version())"],
                               env=environment, stdout=subprocess.PIPE, check=True).stdout.decode()
        self.assertEqual(shown.split(), [self.path("site", "tolven", "__init__.py"), tolven.version()])


if __name__ == "__main__":
    harness.main()
