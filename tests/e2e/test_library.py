"""libtolven.so through ctypes, in a process of its own: calls in a row share nothing."""
import json
import os
import subprocess
import sys
import unittest

import harness

CALLER = """
import ctypes, json, os, signal, sys
library = ctypes.CDLL(sys.argv[1])
library.extractTOLVENArchive.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
library.getTOLVENOutput.restype = ctypes.c_char_p
results = [library.getTOLVENOutput() is None]
handlers = lambda: [line for line in open("/proc/self/status") if line.startswith(("SigIgn", "SigCgt"))]
signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
start, before = os.getcwd(), handlers()
for archive, target in json.loads(sys.argv[2]):
    encode = lambda text: None if text is None else text.encode()
    code = library.extractTOLVENArchive(encode(archive), encode(target))
    results.append([code, library.getTOLVENOutput().decode(), os.getcwd() == start and handlers() == before])
print(json.dumps(results))
"""


@unittest.skipIf(harness.instrumented(), "an instrumented library needs an instrumented process")
class Library(harness.TolvenTest):
    def calls(self, *calls):
        library = os.path.join(os.environ["TOLVEN_LIBDIR"], "libtolven.so")
        done = subprocess.run([sys.executable, "-c", CALLER, library, json.dumps(calls)], cwd=self.dir, check=True,
                              stdout=subprocess.PIPE, timeout=harness.TIMEOUT)
        results = json.loads(done.stdout)
        self.assertTrue(results.pop(0), "there was output before the first call")
        for result in results:
            self.assertTrue(result.pop(), "the working directory or the signal handlers were not restored")
        return results

    def test_calls_in_a_row_start_afresh(self):
        for name in ("one", "two"):
            self.write(name + ".txt", name)
            self.create(name + ".vra", name + ".txt")
            os.mkdir(self.path("to-" + name))
        self.create("DEFAULT.VRA", "one.txt")
        done = "TOLVEN: processing archive %s (version 2.01)\nTOLVEN: 1 file(s) extracted\n"
        results = self.calls(
            ("one.vra", "to-one"), ("missing.vra", "to-one"), ("two.vra", "to-two"), ("two.vra", "nowhere"),
            ("one.vra, two.vra", "to-two"), (None, ""), ("", ""), ("one.txt", None))
        self.assertEqual(results, [
            [0, done % "one.vra"],
            [6, "TOLVEN: error opening missing.vra (error 6). No such file or directory\n"],
            [0, done % "two.vra"],
            [102, "TOLVEN: processing archive two.vra (version 2.01)\n"
                  "TOLVEN: can not change to dir nowhere (error 102). No such file or directory\n"],
            [0, done % "one.vra" + done % "two.vra"],
            [0, done % "DEFAULT.VRA"],
            [29, "TOLVEN: no archives specified for extracting (error 29). \n"],
            [5, "TOLVEN: error reading from one.txt (error 5). \n"]])
        self.assertEqual(sorted(os.listdir(self.path("to-one"))), ["one.txt"])
        self.assertEqual(sorted(os.listdir(self.path("to-two"))), ["one.txt", "two.txt"])


if __name__ == "__main__":
    harness.main()
