"""Any number of threads gives the same bytes, lines and exit codes, and leaves the same behind when something fails."""
import os
import random
import resource
import shutil
import signal
import subprocess
import time
import unittest

import harness

COUNTS = (1, 2, 3, 8)
NOISE = random.Random(5).randbytes(400000)
TEXT = b"".join(b"line %d of the text\n" % (n * n) for n in range(90000))
# More than a run does without threads; blocks that do not shrink, a file of whole blocks, files without any.
TREE = {"t/text": TEXT, "t/noise": NOISE, "t/zeros": bytes(1 << 20), "t/link": harness.Link("text"), "t/empty": b"",
        **{"t/small/%03d" % n: TEXT[n * 50:n * 97] for n in range(300)}, "u/last": TEXT[:70000]}


class Threads(harness.TolvenTest):

    def setUp(self):
        super().setUp()
        harness.build_tree(self.dir, TREE)
        self.addCleanup(os.environ.update, {key: os.environ.pop(key) for key in ("TOLVEN_THREADS",) if key in os.environ})

    def outcomes(self, args, prepare=lambda: None, left=("A",), **more):
        """What each number of threads says and leaves, told apart only where they differ."""
        found = {}
        for count in COUNTS:
            prepare()
            run = self.run_tolven(*args, env={"TOLVEN_THREADS": str(count)}, **more)
            files = {}
            for name in left:
                if os.path.isdir(self.path(name)):
                    # A directory without an entry has the date of the run.
                    files[name] = {path: what[:2] if what[0] == "directory" else what
                                   for path, what in harness.snapshot(self.path(name)).items()}
                    shutil.rmtree(self.path(name))
                elif os.path.exists(self.path(name)):
                    files[name] = harness.digest(self.path(name))
            found[count] = (run.code, run.lines, files)
        for count in COUNTS[1:]:
            self.assertEqual(found[count], found[1], "%d threads: %s" % (count, " ".join(args)))
        return found[1]

    def test_same_archives(self):
        code, lines, left = self.outcomes(["-cvrf", "A", "t", "u"])
        self.assertEqual((code, len(lines), len(left)), (0, len(TREE) + 3, 1))
        self.assertEqual(self.outcomes(["-cvrf", "A", "t", "gone", "u"])[0], 44)
        self.assertEqual(self.outcomes(["-cvrif", "A", "t", "gone", "u", "lost"])[0], 44)
        for limit in (10, 150000, 300000, 470000):
            code, _, left = self.outcomes(["-cvrf", "A", "t", "u"], preexec=harness.size_limit(limit))
            self.assertEqual((code, left), (4, {}), limit)

    def test_same_extractions(self):
        self.expect("-crf A t u", [])
        whole = harness.read_file(self.path("A"))
        for damage in ([], [60], [len(whole) // 3], [len(whole) // 2, len(whole) - 40], [200000, 300000, 400000]):
            content = bytearray(whole)
            for at in damage:
                content[at] ^= 1
            harness.write_file(self.path("A"), bytes(content))
            for command in (["-dvf", "A"], ["-tvf", "A"], ["-xvf", "A", "-R", "out"],
                            ["-xvf", "A", "-R", "out", "t/small", "u/last"]):
                code, _, left = self.outcomes(command, lambda: os.mkdir(self.path("out")), ("out",))
                if not damage:
                    self.assertEqual(code, 0, command)
            if damage == []:
                self.assertEqual(left["out"]["u/last"][:1], ("file",))
        for length in (len(whole) - 1, len(whole) - 5, len(whole) // 2, 70000):
            harness.write_file(self.path("A"), whole[:length])
            code, _, _ = self.outcomes(["-xvf", "A", "-R", "out"], lambda: os.mkdir(self.path("out")), ("out",))
            self.assertNotEqual(code, 0, length)

    def straced_threads(self, *args, count=None, inject=()):
        """Threads made, and the run, which must be like any other."""
        if not shutil.which("strace") or harness.instrumented() or \
                subprocess.run(["strace", "-o", "/dev/null", "true"], stderr=subprocess.DEVNULL).returncode:
            self.skipTest("system calls cannot be traced here")
        extra = {} if count is None else {"TOLVEN_THREADS": str(count)}
        command = ["strace", "-f", "-o", self.path("calls"), "-e", "trace=clone,clone3", *inject]
        done = subprocess.run([*command, harness.BINARY, *args], cwd=self.dir, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, env=harness.environment(**extra), timeout=harness.TIMEOUT)
        self.assertEqual(done.returncode, 0, done.stdout)
        return harness.read_file(self.path("calls")).count(b"CLONE_THREAD")

    def test_threads_made(self):
        self.assertEqual(self.straced_threads("-crf", "A", "t", count=3), 2)
        self.assertEqual(self.straced_threads("-df", "A", count=3), 2)
        for args in (["-crf", "A", "t"], ["-df", "A"], ["-xf", "A"]):
            self.assertEqual(self.straced_threads(*args, count=1), 0, args)
        self.assertEqual(self.straced_threads("-crf", "B", "u", count=3), 0, "small work")
        for nonsense in ("", "0", "-1", "2x", "99999999999999999999"):
            self.assertLess(self.straced_threads("-crf", "A", "t", count=nonsense), 16, nonsense)

    def test_threads_that_cannot_be_made(self):
        self.expect("-crf good t", [])
        for first in (1, 2):
            for args in (["-crf", "A", "t"], ["-df", "good"]):
                inject = ["-e", "inject=clone,clone3:error=EAGAIN:when=%d+" % first]
                self.straced_threads(*args, count=4, inject=inject)
        self.assertEqual(harness.read_file(self.path("A")), harness.read_file(self.path("good")))

    def test_signals_end_it(self):
        harness.write_file(self.path("t/noise"), NOISE * 100)
        for count in COUNTS:
            process = subprocess.Popen([harness.BINARY, "-crf", "A", "t"], cwd=self.dir,
                                       env=harness.environment(TOLVEN_THREADS=str(count)))
            while not os.path.exists(self.path("A")) or os.path.getsize(self.path("A")) < 1 << 20:
                self.assertIsNone(process.poll())
                time.sleep(0.001)
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(harness.TIMEOUT), -signal.SIGTERM)
            self.assertFalse(os.path.exists(self.path("A")))

    @unittest.skipIf(harness.instrumented(), "a sanitizer has memory of its own")
    def test_memory(self):
        harness.write_file(self.path("t/noise"), NOISE * 150)
        for args in ("-crf A t", "-df A", "-xf A -R out"):
            os.makedirs(self.path("out"), exist_ok=True)
            process = subprocess.Popen([harness.BINARY, *args.split()], cwd=self.dir, stdout=subprocess.DEVNULL,
                                       env=harness.environment(TOLVEN_THREADS="16"))
            most = 0
            while process.poll() is None:
                with open("/proc/%d/status" % process.pid, encoding="ascii") as status:
                    most = max([most] + [int(line.split()[1]) for line in status if line.startswith("VmHWM:")])
                time.sleep(0.002)
            self.assertEqual(process.returncode, 0)
            self.assertGreater(most, 8 << 10)
            self.assertLess(most, (32 + 16) << 10, args)


if __name__ == "__main__":
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    unittest.main()
