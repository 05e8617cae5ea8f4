"""What scripts/faults and scripts/torture share: the program with the preload, its fork server, options, the table."""
import argparse
import atexit
import collections
import os
import shutil
import socket
import struct
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILDS = "TOLVEN_BIN" not in os.environ  # once the arguments are known to be good
os.environ.setdefault("TOLVEN_BIN", os.path.join(ROOT, "build/release/bin/TOLVEN"))
sys.path.insert(0, os.path.join(ROOT, "tests", "e2e"))
import harness  # pylint: disable=wrong-import-position

NO_FAULT, ALLOCATION, SHORT_COUNT, TORN_WRITE = range(4)
SKIPPED = 77  # CTest's word for a test that did not run
SECONDS = 30  # after which a run counts as hanging
Reply = collections.namedtuple("Reply", "code early allocations transfers fired")


def options(text, **more):
    parser = argparse.ArgumentParser(description=text, formatter_class=argparse.RawDescriptionHelpFormatter,
                                     allow_abbrev=False)
    parser.add_argument("--quick", action="store_true", help="an even sample, for the tests")
    parser.add_argument("--jobs", type=int, default=2, metavar="N", help="runs at a time (default 2)")
    parser.add_argument("--report", metavar="FILE", help="write the table there")
    for name, how in more.items():
        parser.add_argument(name if name == "what" else "--" + name, **how)
    choice = parser.parse_args()
    for step in (["--preset", "release"], ["--build", "--preset", "release"]) if BUILDS else ():
        subprocess.run(["cmake", *step], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    return choice


def scratch():
    """A directory in memory where there is one, removed in the end."""
    made = tempfile.mkdtemp(prefix="stress-", dir="/dev/shm" if os.access("/dev/shm", os.W_OK) else None)
    atexit.register(shutil.rmtree, made, True)
    return made


def preload():
    """Builds the preload. A sanitizer has an allocator of its own: there, no allocation fails."""
    made = os.path.join(tempfile.mkdtemp(prefix="tolven-preload-"), "preload.so")
    atexit.register(shutil.rmtree, os.path.dirname(made), True)
    subprocess.run(["cc", "-O1", "-Wall", "-Wextra", "-fno-builtin", "-fPIC", "-shared", "-o", made,
                    os.path.join(ROOT, "tests/support/fault_preload.c")]
                   + ([] if harness.instrumented() else ["-DCOUNT_ALLOCATIONS"]), check=True)
    return made


def environment(library, **extra):
    env = harness.environment(LD_PRELOAD=library, QELMANIFEST_TRACELEVEL="0", **extra)
    env["ASAN_OPTIONS"] += ":verify_asan_link_order=0"
    return env


class Server:
    """The program, started once and forked at its main() for every run. Runs write to the file `output`."""

    def __init__(self, arguments, cwd, env, output):
        ours, theirs = socket.socketpair()
        self.channel, self.output = ours, output
        with open(output, "ab") as sink:
            self.process = subprocess.Popen([harness.BINARY, *arguments], cwd=cwd, stdin=subprocess.DEVNULL, stdout=sink,
                                            stderr=subprocess.DEVNULL, pass_fds=[theirs.fileno()],
                                            env={**env, "TOLVEN_FAULT_CHANNEL": str(theirs.fileno())})
        theirs.close()

    def run(self, kind=NO_FAULT, number=0):
        os.truncate(self.output, 0)
        self.channel.sendall(struct.pack("3i", kind, number, SECONDS))
        answer = self.channel.recv(20, socket.MSG_WAITALL)
        if len(answer) != 20:
            raise RuntimeError("the program under test did not start")
        status, *rest = struct.unpack("5i", answer)
        return Reply(os.waitstatus_to_exitcode(status), *rest)

    def close(self):
        self.channel.close()
        self.process.wait()


def sample(items, most):
    """At most `most` of them, evenly spread."""
    step = max(1.0, len(items) / most)
    return [items[int(i * step)] for i in range(int(len(items) / step))]


def say(failures):
    for failure in failures:
        print("FAILED " + failure, flush=True)
    return failures


def finish(title, columns, rows, failures, report):
    """Prints the table; returns the exit code."""
    lines = ["| " + " | ".join(map(str, row)) + " |" for row in [columns, ["---"] * len(columns), *rows]]
    text = "\n".join([title, "", *lines, ""])
    print(text)
    if report:
        harness.write_file(report, text)
    print("%d failures" % len(failures))
    return 1 if failures else 0
