"""What a run leaves when it fails, is told to end, or meets another writer: what was there, nothing, or all of it; and
never anything gone that it did not open itself.
"""
import fcntl
import os
import resource
import shutil
import signal
import stat
import subprocess
import threading
import time
import unittest

import archivefile
import harness
from archivefile import archive, block, directory, entry, link, lzh, regular
from signing_support import pki

GONE = "TOLVEN: file 'gone' is inaccessible (No such file or directory)"
DEVICE_MEM_FULL = (1, 7)

as_root = unittest.skipUnless(os.geteuid() == 0, "only the superuser makes devices")


def straced():
    """Whether system calls can be made to fail here."""
    return shutil.which("strace") and not harness.instrumented() and \
        subprocess.run(["strace", "-o", "/dev/null", "true"], stderr=subprocess.DEVNULL).returncode == 0


class LeftBehind(harness.TolvenTest):

    def setUp(self):
        super().setUp()
        harness.build_tree(self.dir, {"tree/a": "first", "tree/b": bytes(range(256)) * 500})
        self.create("whole", "tree")
        self.content = harness.read_file(self.path("whole"))

    def run_strace(self, inject, *args, only="A"):
        """The program with faults put into its calls on the file `only`."""
        command = ["strace", "-o", "/dev/null", "-P", self.path(only)]
        for fault in inject:
            command += ["-e", "inject=" + fault]
        done = subprocess.run([*command, harness.BINARY, *args], cwd=self.dir, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=harness.environment(),
                              timeout=harness.TIMEOUT)
        return harness.Run(done.returncode, done.stdout)


class Deleting(LeftBehind):
    """A create or append that fails deletes its archive: a regular file, by whatever name it was opened."""

    def test_what_stays(self):
        os.mkfifo(self.path("fifo"))
        reader = os.open(self.path("fifo"), os.O_RDONLY | os.O_NONBLOCK)
        self.addCleanup(os.close, reader)
        self.expect("-cf fifo tree/a gone", [GONE], 44)
        self.assertTrue(stat.S_ISFIFO(os.lstat(self.path("fifo")).st_mode))
        self.create("fifo", "tree/a")
        self.assertEqual([item.name for item in archivefile.parse(os.read(reader, 8 + len(self.content))[8:])[1]],
                         [b"tree/a"])
        os.mkdir(self.path("empty"))
        self.expect("-af empty tree", ["TOLVEN: error opening empty (error 6). Is a directory"], 6)
        self.assertEqual(os.listdir(self.path("empty")), [])

    @as_root
    def test_devices_stay(self):
        os.mknod(self.path("full"), stat.S_IFCHR | 0o600, os.makedev(*DEVICE_MEM_FULL))
        try:
            os.close(os.open(self.path("full"), os.O_WRONLY))
        except PermissionError:
            self.skipTest("no devices on this file system")
        for names in ("tree", "tree/a gone"):
            self.assertEqual(self.run_tolven("-cf", "full", *names.split()).code, 4)
        self.assertTrue(stat.S_ISCHR(os.lstat(self.path("full")).st_mode))

    def test_a_link_stays_and_its_file_goes(self):
        os.mkdir(self.path("d"))
        os.symlink("d/real", self.path("A"))
        for before in (None, b"old", self.content):
            if before is not None:
                self.write("d/real", before)
            self.expect("-cf A tree/a gone", [GONE], 44)
            self.assertTrue(os.path.islink(self.path("A")))
            self.assertEqual(os.listdir(self.path("d")), [])


class Judging(LeftBehind):
    """What is there is looked at before it is written to."""

    def test_a_torn_archive_is_not_appended_to(self):
        one = [regular("a", b"data"), directory("d"), link("l", "a"), regular("e", b""),
               entry(b"RG", "b", 0o644, 4, 1, block(b"DA", b"xy") + block(b"UE", b"") + b"sum.")]
        whole = [archive(*one[:count]) for count in range(len(one) + 1)]
        for length in range(8, len(whole[-1])):
            content = whole[-1][:length]
            self.write("A", content)
            if content in whole:
                self.expect("-af A tree/a", [])
                self.assertEqual(harness.read_file(self.path("A"))[:length], content)
                continue
            self.expect("-af A tree/a", ["TOLVEN: unsupported archive: A is damaged or incomplete"], 1)
            self.assertEqual(harness.read_file(self.path("A")), content)
        old = regular("x", b"old " * 50000, blocks=lambda data: archivefile.one_stream_blocks(data, 900))
        rows = (archive(old[:-4], version=b"2.00"), archive(entry(b"XY", "a", 0o644)),
                archive(directory("d"), entry(b"SV", "a", 0o644)),
                archive(entry(b"RG", "a", 0o644, 4, 1, block(b"UD", b"data"))),
                archive(entry(b"RG", "a", 0o644, 4, 1, block(b"UE", bytes(131073)) + b"sum.")))
        for content in rows:
            for command in ("-af", "-aSf"):
                self.write("A", content)
                self.assertEqual(self.run_tolven(command, "A", "-key", pki("signer.pse"), "tree/a").code, 1)
                self.assertEqual(harness.read_file(self.path("A")), content)
        self.write("A", archive(entry(b"XY", "a", 0o644)))
        self.assertEqual(self.run_tolven("-Sf", "A", "-key", pki("signer.pse")).code, 1)

    @unittest.skipUnless(straced(), "needs strace")
    def test_a_failing_look_is_no_missing_archive(self):
        for fault, code in (("newfstatat,stat:error=EIO", 6), ("read:error=EIO", 6), ("flock:error=EIO", 6),
                            ("flock:error=ENOLCK", 0), ("flock:error=EOPNOTSUPP", 0)):
            for options in (["-af", "A"], ["-Sf", "A", "-key", pki("signer.pse")], ["-mf", "whole A"]):
                self.write("A", self.content)
                run = self.run_strace([fault], *options, *["tree/a"][:options[0] == "-af"])
                expected = 5 if options[0] == "-mf" and fault.startswith("read") else code
                self.assertEqual(run.code, expected, (fault, options, run))
                self.assertEqual(harness.read_file(self.path("A")) == self.content, code != 0)

    def test_one_writer_at_a_time(self):
        commands = (["-cf", "A", "tree"], ["-af", "A", "tree"], ["-mf", "whole A"],
                    ["-Sf", "A", "-key", pki("signer.pse")], ["-cSf", "A", "-key", pki("signer.pse"), "tree"])
        for command in commands:
            self.write("A", self.content)
            with open(self.path("A"), "rb") as holder:
                fcntl.flock(holder, fcntl.LOCK_EX)
                self.expect(command, ["TOLVEN: error opening A (error 6). Resource temporarily unavailable"], 6)
                self.assertEqual(harness.read_file(self.path("A")), self.content)
                self.assertEqual(self.run_tolven("-tf", "A").code, 0)
            self.expect(command, [])

    @unittest.skipUnless(straced(), "needs strace")
    def test_the_file_of_the_name_when_it_is_locked(self):
        """The writer before may have removed it, or put another in its place."""
        other = archive(regular("other", b"other"))
        for replacement in (None, other):
            for args in (["-cf", "A", "tree/a"], ["-af", "A", "tree/a"]):
                self.write("A", self.content)
                os.link(self.path("A"), self.path("before"))
                self.write("next", other)
                change = threading.Timer(0.4, lambda: os.unlink(self.path("A")) if replacement is None else
                                         os.rename(self.path("next"), self.path("A")))
                change.start()
                run = self.run_strace(["flock:delay_enter=1500000:when=1"], *args)
                change.join()
                self.assertEqual((run.code, harness.read_file(self.path("before"))), (0, self.content), run)
                names = [item.name for item in archivefile.read(self.path("A"))[1]]
                kept = [b"other"] if replacement and args[0] == "-af" else []
                self.assertEqual(names, kept + [b"tree/a"])
                os.unlink(self.path("before"))


class Signatures(LeftBehind):

    def setUp(self):
        super().setUp()
        self.key = ["-key", pki("signer.pse")]
        self.expect(["-cSf", "signed", *self.key, "-H", "SHA512", "tree"], [])
        self.signed = harness.read_file(self.path("signed"))

    def names(self):
        return [item.name.decode() for item in archivefile.read(self.path("A"))[1]]

    def test_a_signed_append_that_fails_is_cut_behind_the_new_entries(self):
        self.write("manifest", "another one")
        for names in (["tree/a"], ["tree/a", "tree/b"]):
            self.write("A", self.signed)
            run = self.run_tolven("-aSif", "A", *self.key, "-manifest", self.path("manifest"), *names)
            self.assertNotEqual(run.code, 0)
            self.assertEqual(self.names()[3:], names)
            self.assertEqual(self.run_tolven("-Sf", "A", *self.key).code, 0)
            self.assertEqual(self.run_tolven("-dVf", "A", *self.key).code, 0)

    def test_a_signing_that_fails_changes_nothing(self):
        # The new signature is as long as the old one at least.
        for content, options in ((self.signed, ["-H", "SHA512", "-y", "SHA512"]), (self.content, [])):
            self.write("A", content)
            status = os.stat(self.path("A"))
            for limit in (len(content), len(content) - 100):
                run = self.run_tolven("-Sf", "A", *self.key, *options, preexec=harness.size_limit(limit))
                if run.code == 0:  # it found room
                    self.assertEqual(self.run_tolven("-dVf", "A", *self.key).code, 0)
                    continue
                self.assertEqual(run.code, 4, run)
                self.assertEqual(harness.read_file(self.path("A")), content)
            run = self.run_tolven("-Sf", "A", "-key", pki("missing.pse"))
            self.assertEqual((run.code != 0, os.stat(self.path("A")).st_ino), (True, status.st_ino))

    def test_a_manifest_that_cannot_be_looked_at_is_no_missing_one(self):
        os.symlink("loop", self.path("loop"))
        run = self.run_tolven("-dVf", "signed", *self.key, "-manifest", self.path("loop"))
        self.assertEqual((run.code, run.lines[-1]), (
            6, "TOLVEN: error opening %s (error 6). Too many levels of symbolic links" % self.path("loop")))


class OwnFiles(LeftBehind):
    """tolven_output, tolven.log, files.log and the trace."""

    def test_never_through_a_link(self):
        self.write("victim", "precious")
        rows = (("tolven_output", ["-tf", "whole", "-e"], 0, None),
                ("tolven.log", ["-cif", "A", "-e", "gone"], 6, "TOLVEN: error opening tolven.log (error 6). "),
                ("files.log", ["-l", "gone", "tree"], 6, "TOLVEN: error opening files.log (error 6). "))
        for name, args, code, message in rows:
            for target in ("victim", "nowhere"):
                os.symlink(target, self.path(name))
                run = self.run_tolven(*args)
                self.assertEqual(run.code, code, run)
                if message is None:
                    self.assertEqual(run.lines[0], "TOLVEN: could not redirect stdout to file tolven_output")
                else:
                    text = harness.read_file(self.path("tolven_output")) if "-e" in args else run.output
                    self.assertIn(message.encode(), text)
                self.assertEqual(harness.read_file(self.path("victim")), b"precious")
                self.assertFalse(os.path.exists(self.path("nowhere")))
                os.unlink(self.path(name))

    def test_no_trace_through_a_link(self):
        os.symlink("whole", self.path("dev_qelmanifest.trc"))
        for _ in range(2):
            self.assertEqual(self.run_tolven("-cSf", "A", "-key", pki("signer.pse"), "tree",
                                             env={"QELMANIFEST_TRACELEVEL": "1"}).code, 0)
            self.assertEqual(harness.read_file(self.path("whole")), self.content)
            if os.path.islink(self.path("dev_qelmanifest.trc")):
                os.unlink(self.path("dev_qelmanifest.trc"))
        self.assertGreater(os.path.getsize(self.path("dev_qelmanifest.trc")), 0, "without the link there is a trace")

    def test_never_packed(self):
        os.link(self.path("whole"), self.path("tree/other"))
        for options in (["-cif", "../whole", "-e"], ["-cSif", "../whole", "-e", "-key", pki("signer.pse")]):
            run = self.run_tolven(*options, "gone", ".", cwd="tree", env={"QELMANIFEST_TRACELEVEL": "9"})
            self.assertEqual(run.code, 44, run)
            self.assertLessEqual({"tolven_output", "tolven.log"}, set(os.listdir(self.path("tree"))))
            names = {item.name.decode() for item in archivefile.read(self.path("whole"))[1]}
            self.assertEqual(names - {"SIGNATURE.SMF"}, {"a", "b"}, run)
        self.assertIn("dev_qelmanifest.trc", os.listdir(self.path("tree")))


class Forced(LeftBehind):

    def test_the_old_file_stays_until_the_new_one_is_good(self):
        self.write("A", archive(regular("f", b"new data")[:-1] + b"\xff"))
        self.write("f", "old")
        os.chmod(self.path("f"), 0o400)
        self.assertEqual(self.run_tolven("-xjf", "A").code, 12)
        self.assertEqual(harness.read_file(self.path("f")), b"old")
        self.write("A", archive(regular("f", b"new data")))
        self.assertEqual(self.run_tolven("-xjf", "A").code, 0)
        self.assertEqual(harness.read_file(self.path("f")), b"new data")


class Ended(LeftBehind):
    """Signals, and limits that are signals unless somebody cares."""

    signals = (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGPIPE, signal.SIGTERM, signal.SIGXCPU)

    def setUp(self):
        super().setUp()
        # Minutes of work; what is written first does not compress, so that it is written at once.
        with open(self.path("huge"), "wb") as file:
            file.write(os.urandom(200000))
            file.truncate(1 << 40)
        piece = block(b"DA", lzh(bytes(65536)))
        self.write("A.x", archive(regular("small", b"small"),
                                  entry(b"RG", "d/huge", 0o644, 1 << 40, 1, piece * 40000)))

    def end(self, number, args, ready, cwd=None):
        """Starts the program, waits until `ready` says that it is in the middle, and ends it."""
        with open(self.path("output"), "wb") as output:
            process = subprocess.Popen(
                [harness.BINARY, *args], cwd=self.path(cwd or ""), stdin=subprocess.DEVNULL, stdout=output,
                stderr=subprocess.STDOUT, env=harness.environment(),
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)))
        deadline = time.monotonic() + harness.TIMEOUT
        while not ready() and process.poll() is None and time.monotonic() < deadline:
            time.sleep(0.002)
        process.send_signal(number)
        code = process.wait(harness.TIMEOUT)
        self.assertEqual(code, -number, (args, harness.read_file(self.path("output"))))

    def differs(self, name, content):
        """Whether a run has begun to write to the file, which stood with this content."""
        def look():
            try:
                with open(self.path(name), "rb") as file:
                    return file.read(len(content) + 1) != content
            except FileNotFoundError:
                return False
        return look

    def test_create_leaves_nothing(self):
        os.symlink("real", self.path("A"))
        for number in self.signals:
            for before in (None, self.content):
                if before is not None:
                    self.write("real", before)
                self.end(number, ["-cf", "A", "huge"], self.differs("real", before or b""))
                self.assertEqual((os.path.lexists(self.path("A")), os.path.exists(self.path("real"))), (True, False))

    def test_append_leaves_what_was_there(self):
        key = ["-key", pki("signer.pse")]
        self.expect(["-cSf", "signed", *key, "tree"], [])
        signed = harness.read_file(self.path("signed"))
        rows = ((["-af", "A"], self.content), (["-aSf", "A", *key], signed), (["-af", "A"], b""), (["-af", "A"], None))
        for number in self.signals:
            for args, before in rows:
                if before is not None:
                    self.write("A", before)
                self.end(number, [*args, "huge"], self.differs("A", before or b""))
                after = harness.read_file(self.path("A")) if os.path.exists(self.path("A")) else None
                self.assertEqual(after, before, (number, args))
                if after is not None:
                    os.unlink(self.path("A"))

    def test_extraction_leaves_no_temporary_file(self):
        for number in self.signals:
            self.fresh("out")
            self.end(number, ["-xf", "../A.x"],
                     lambda: os.path.isdir(self.path("out/d")) and os.listdir(self.path("out/d")), cwd="out")
            self.assertEqual(harness.contents(self.path("out")), {"small": b"small"})

    def test_what_is_ignored_does_not_end_it(self):
        self.create("B", "tree")
        subprocess.run(["sh", "-c", "trap '' HUP; kill -HUP $$; exec \"$0\" -cf B tree", harness.BINARY], cwd=self.dir,
                       check=True)

    @unittest.skipUnless(straced(), "needs strace")
    def test_at_every_call_on_the_archive(self):
        """There is no moment between two calls at which a signal leaves something else than it should."""
        key = ["-key", pki("signer.pse")]
        self.expect(["-cSf", "signed", *key, "tree"], [])
        signed = harness.read_file(self.path("signed"))
        rows = ((["-cf", "A", "tree"], None), (["-cf", "A", "tree"], self.content), (["-af", "A", "tree"], None),
                (["-af", "A", "tree"], self.content), (["-aSf", "A", *key, "tree"], signed),
                (["-Sf", "A", *key], signed), (["-Sf", "A", *key], self.content))
        for args, before in rows:
            undone = 0
            for call in ("openat", "flock", "write", "ftruncate", "close"):
                for count in range(1, 4):
                    if os.path.exists(self.path("A")):
                        os.unlink(self.path("A"))
                    if before is not None:
                        self.write("A", before)
                    run = self.run_strace(["%s:signal=TERM:when=%d" % (call, count)], *args)
                    after = harness.read_file(self.path("A")) if os.path.exists(self.path("A")) else None
                    if run.code == 0:
                        break
                    self.assertEqual(run.code, -signal.SIGTERM, run)
                    undone += 1
                    whole = {None, before} if args[0] == "-cf" else {before}
                    if after not in whole:
                        self.assertEqual(self.run_tolven("-df", "A").code, 0, (args, call, count))
                        self.assertEqual(call, "close", (args, call, count))
            self.assertGreater(undone, 1, args)

    @unittest.skipUnless(straced(), "needs strace")
    def test_interrupted_calls_are_made_again(self):
        again = ["%s:error=EINTR:when=1+2" % call for call in ("read", "write", "ftruncate")]
        self.write("A", self.content)
        for args in (["-cf", "A", "tree"], ["-af", "A", "tree"], ["-xf", "A", "-R", "out"], ["-df", "A"]):
            self.fresh("out")
            run = self.run_strace([*again, "close:error=EINTR"], *args)
            self.assertEqual(run.code, 0, (args, run))
        self.assertEqual(len(archivefile.read(self.path("A"))[1]), 6)
        self.assertEqual(set(harness.contents(self.path("out"))), set())
        self.assertEqual(set(harness.contents(self.extracted("A"))), {"tree/a", "tree/b"})


if __name__ == "__main__":
    harness.main()
