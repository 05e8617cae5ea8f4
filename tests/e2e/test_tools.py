"""tolven-ls, tolven-diff and tolven-mount, as they stand beside the program."""
import json
import os
import random
import shutil
import subprocess
import time
import unittest

import archivefile
import harness
import signing_support

BIN = os.environ["TOLVEN_LIBDIR"]
DATA = random.Random(7).randbytes(70000) + b"again and again " * 20000
TREE = {"data": harness.File(DATA, 0o640, 981173106), "dir": harness.Directory(0o755, 77), "dir/empty": b"",
        "link": harness.Link("dir/empty")}


@unittest.skipIf(harness.instrumented(), "an instrumented library needs an instrumented process")
class Tools(harness.TolvenTest):
    def tool(self, *args, code=0):
        done = subprocess.run([os.path.join(BIN, args[0]), *args[1:]], cwd=self.dir, capture_output=True,
                              env=harness.environment(), timeout=harness.TIMEOUT)
        self.assertEqual(done.returncode, code, done)
        return done.stdout.decode("utf-8", "surrogateescape")

    def signed(self):
        harness.build_tree(self.fresh("tree"), TREE)
        self.expect(["-crf", "../signed.vra", "data", "dir", "link"], [], cwd="tree")
        self.assertEqual(self.run_tolven("-Sf", "signed.vra", "-key", signing_support.pse("signer")).code, 0)
        return signing_support.pki("sec", "QELverify.pse")

    def test_ls(self):
        trust = self.signed()
        rows = [json.loads(line) for line in self.tool("tolven-ls", "--json", "--verify", "--trust", trust,
                                                       "signed.vra").splitlines()]
        self.assertEqual([(row["name"], row["type"], row["mode"], row["size"], row["covered"]) for row in rows],
                         [("data", "file", "0640", len(DATA), True), ("dir", "directory", "0755", 0, False),
                          ("dir/empty", "file", "0644", 0, True), ("link", "link", "0777", 0, False),
                          ("SIGNATURE.SMF", "signature", "0600", rows[4]["size"], False)])
        self.assertEqual((rows[0]["mtime"], rows[3]["target"]), ("2001-02-03T04:05:06Z", "dir/empty"))
        self.write("odd.vra", archivefile.archive(archivefile.regular(b"a\xff\n", b"x", mtime=1 << 60)))
        self.assertEqual(json.loads(self.tool("tolven-ls", "--json", "odd.vra"))["name_base64"], "Yf8K")
        on_terminal = subprocess.run(["script", "-qec", f"{BIN}/tolven-ls odd.vra", os.devnull], cwd=self.dir,
                                     stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=harness.TIMEOUT)
        self.assertIn(b"a\\377\\012\r\n", on_terminal.stdout)
        for code, args in ((1, ("signed.vra", "missing.vra")), (1, ("--verify", "--trust", trust, "odd.vra")),
                           (2, ("--trust", trust, "odd.vra")), (2, ()), (2, ("--nonsense", "odd.vra")), (0, ("--help",))):
            self.tool("tolven-ls", *args, code=code)

    def test_diff(self):
        self.signed()
        self.assertEqual(self.tool("tolven-diff", "signed.vra", "tree"), "")
        self.assertEqual(self.tool("tolven-diff", "--times", "signed.vra", "signed.vra"), "")
        changed = DATA[:-1] + b"x"
        self.write("tree/data", changed)
        os.chmod(self.path("tree", "data"), 0o600)
        os.remove(self.path("tree", "dir", "empty"))
        os.mkdir(self.path("tree", "dir", "empty"))
        os.remove(self.path("tree", "link"))
        os.symlink("else", self.path("tree", "link"))
        self.write("tree/new", b"")
        expected = ["data: mode: 0640, 0600", "data: content", "dir/empty: type: file, directory",
                    "link: target: dir/empty, else"]
        self.assertEqual(self.tool("tolven-diff", "signed.vra", "tree", code=1).splitlines(),
                         expected + ["only in tree: new"])
        self.expect(["-crf", "../changed.vra", "data", "dir", "link"], [], cwd="tree")
        self.assertEqual(self.tool("tolven-diff", "signed.vra", "changed.vra", code=1).splitlines(), expected)
        self.write("escape.vra", archivefile.archive(archivefile.regular("../signed.vra", b"x")))
        self.assertIn("only in escape.vra: ../signed.vra", self.tool("tolven-diff", "escape.vra", "tree", code=1))
        self.write("bad.vra", harness.read_file(self.path("signed.vra"))[:60000])
        self.tool("tolven-diff", "bad.vra", "tree", code=2)
        self.tool("tolven-diff", "signed.vra", "missing", code=2)

    def mounted(self, archive, *options):
        where = self.fresh("mnt")
        self.tool("tolven-mount", *options, archive, where)
        deadline = time.monotonic() + 20
        while not os.path.ismount(where) and time.monotonic() < deadline:
            time.sleep(0.01)
        self.addCleanup(subprocess.run, ["umount", "-l", where], stderr=subprocess.DEVNULL)
        return where

    @unittest.skipUnless(os.path.exists(os.path.join(BIN, "tolven-mount")), "tolven-mount was not built: no libfuse3")
    def test_mount(self):
        if not os.access("/dev/fuse", os.R_OK | os.W_OK) or shutil.which("umount") is None:
            self.skipTest("no mount was tried: /dev/fuse cannot be opened here")
        trust = self.signed()
        options = ("-o", f"verify,trust={trust}")
        where = self.mounted("signed.vra", *options)
        self.assertEqual(harness.snapshot(where), harness.snapshot(self.path("tree")))
        subprocess.run(["diff", "-r", "--no-dereference", self.path("tree"), where], check=True)
        at_random = random.Random(3)
        with open(os.path.join(where, "data"), "rb") as file:
            for _ in range(100):
                offset, size = at_random.randrange(len(DATA)), at_random.randrange(100000)
                self.assertEqual(os.pread(file.fileno(), size, offset), DATA[offset:offset + size])
        with self.assertRaises(OSError):
            open(os.path.join(where, "data"), "ab")
        subprocess.run(["umount", where], check=True)

        signed = harness.read_file(self.path("signed.vra"))
        at = signed.index(DATA[:1000]) + 500
        self.write("tampered.vra", signed[:at] + bytes([signed[at] ^ 1]) + signed[at + 1:])
        where = self.mounted("tampered.vra", *options)
        self.assertEqual(harness.read_file(os.path.join(where, "dir", "empty")), b"")
        with self.assertRaises(OSError):
            harness.read_file(os.path.join(where, "data"))
        subprocess.run(["umount", where], check=True)
        at = signed.rindex(b"ED")  # within the signed manifest
        self.write("broken.vra", signed[:at + 40] + bytes([signed[at + 40] ^ 1]) + signed[at + 41:])
        for code, args in ((1, (*options, "broken.vra")), (1, ("missing.vra",)), (2, ()), (0, ("--help",))):
            self.tool("tolven-mount", *args, *([self.fresh("mnt")] if code == 1 else []), code=code)


if __name__ == "__main__":
    harness.main()
