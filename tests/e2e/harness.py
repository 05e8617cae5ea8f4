"""What every end-to-end test stands on: a fresh directory each, the program run with everything it says checked for
sanitizer reports, and trees that are built and compared.
"""
import array
import ctypes
import fcntl
import hashlib
import os
import resource
import shutil
import stat
import subprocess
import tempfile
import termios
import time
import unittest

import format_reader

BINARY = os.path.abspath(os.environ.get("TOLVEN_BIN", "build/release/bin/TOLVEN"))
SANITIZER_EXIT = 99

# Seconds after which a run counts as hanging. Wide: an instrumented program on a busy machine is slow.
TIMEOUT = 120


def environment(**extra):
    env = {key: value for key, value in os.environ.items() if not key.startswith("LC_") and key != "LANG"}
    env.update(
        TZ="UTC",
        ASAN_OPTIONS="exitcode=%d:detect_leaks=1" % SANITIZER_EXIT,
        LSAN_OPTIONS="exitcode=%d" % SANITIZER_EXIT,
        TSAN_OPTIONS="exitcode=%d" % SANITIZER_EXIT,
        UBSAN_OPTIONS="halt_on_error=1:exitcode=%d:print_stacktrace=1" % SANITIZER_EXIT)
    env.update(extra)
    return env


def to_lines(output):
    text = os.fsdecode(output)
    return text.split("\n")[:-1] if text.endswith("\n") else text.split("\n") if text else []


class Link(str):
    """A symbolic link's target, in the description of a tree."""


class Directory:
    """A directory with attributes of its own, in the description of a tree."""

    def __init__(self, mode=0o755, mtime=None):
        self.mode, self.mtime = mode, mtime


class File:
    """A file with attributes of its own, in the description of a tree."""

    def __init__(self, content=b"", mode=0o644, mtime=None):
        self.content, self.mode, self.mtime = content, mode, mtime


def write_file(path, content, mode=None):
    with open(path, "wb") as file:
        file.write(content if isinstance(content, bytes) else content.encode())
    if mode is not None:
        os.chmod(path, mode)


def read_file(path):
    with open(path, "rb") as file:
        return file.read()


def build_tree(root, tree):
    """Makes what `tree` describes below `root`: path -> bytes or str (a file), File, Directory or Link."""
    os.makedirs(root, exist_ok=True)
    for path, what in tree.items():
        full = os.path.join(root, path)
        if isinstance(what, Directory):
            os.makedirs(full, exist_ok=True)
            continue
        os.makedirs(os.path.dirname(full), exist_ok=True)
        if isinstance(what, Link):
            os.symlink(what, full)
        else:
            write_file(full, what.content if isinstance(what, File) else what)
    # Attributes last and from the bottom up: neither a date nor a mode must be spoiled by what comes after.
    for path, what in sorted(tree.items(), reverse=True):
        full = os.path.join(root, path)
        if isinstance(what, (File, Directory)):
            os.chmod(full, what.mode)
            if what.mtime is not None:
                os.utime(full, (what.mtime, what.mtime))


def snapshot(root):
    """Path -> what is there: type, mode, modification time in seconds and content (target) of everything below."""
    found = {}
    for folder, directories, files in os.walk(root):
        for name in directories + files:
            full = os.path.join(folder, name)
            info = os.lstat(full)
            path = os.path.relpath(full, root)
            if stat.S_ISLNK(info.st_mode):
                found[path] = ("link", os.readlink(full))
            elif stat.S_ISDIR(info.st_mode):
                found[path] = ("directory", oct(stat.S_IMODE(info.st_mode)), info.st_mtime_ns // 10**9)
            elif stat.S_ISREG(info.st_mode):
                found[path] = ("file", oct(stat.S_IMODE(info.st_mode)), info.st_mtime_ns // 10**9, info.st_size,
                               digest(full))
            else:
                found[path] = ("other", oct(info.st_mode))
    return found


def digest(path):
    total = hashlib.sha256()
    with open(path, "rb") as file:
        while piece := file.read(1 << 20):
            total.update(piece)
    return total.hexdigest()


def walk_open(root):
    """os.walk that opens what is closed to its owner."""
    for folder, directories, files in os.walk(root):
        for name in directories + files:
            full = os.path.join(folder, name)
            if not os.path.islink(full) and not os.access(full, os.R_OK | os.X_OK * (name in directories)):
                os.chmod(full, 0o700)
        yield folder, directories, files


def contents(root):
    """Path -> bytes of every regular file below `root`, unreadable ones included; links are not followed."""
    found = {}
    for folder, _, files in walk_open(root):
        for name in files:
            full = os.path.join(folder, name)
            if stat.S_ISREG(os.lstat(full).st_mode):
                found[os.path.relpath(full, root)] = read_file(full)
    return found


def instrumented():
    """Whether the program carries a sanitizer, which needs memory of its own."""
    return any(name in read_file(BINARY) for name in (b"__asan_init", b"__tsan_init"))


def little_memory():
    """Run in the child: 16 MiB for all it allocates, whatever the sizes in an archive say."""
    resource.setrlimit(resource.RLIMIT_DATA, (16 << 20, 16 << 20))


def small_stack():
    """Run in the child: 256 KiB of stack, however deep what it works on is."""
    resource.setrlimit(resource.RLIMIT_STACK, (256 << 10, resource.getrlimit(resource.RLIMIT_STACK)[1]))


def size_limit(size=200000):
    """Run in the child: no file may grow beyond that many bytes, as on a disk that is full."""
    return lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))


LIBC = ctypes.CDLL(None, use_errno=True)
PR_SET_SECUREBITS, SECBIT_NOROOT = 28, 1


def unprivileged():
    """Run in the child: permissions hold for the superuser too."""
    if os.geteuid() == 0 and LIBC.prctl(PR_SET_SECUREBITS, SECBIT_NOROOT, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "cannot give the superuser's privileges up")


def bytes_in(pipe):
    count = array.array("i", [0])
    fcntl.ioctl(pipe, termios.FIONREAD, count)
    return count[0]


def sleeps(process):
    with open("/proc/%d/stat" % process.pid, encoding="ascii") as file:
        return file.read().rsplit(")", 1)[1].split()[0] == "S"


class Run:
    """One finished run: exit code and output lines."""

    def __init__(self, code, output):
        self.code, self.output, self.lines = code, output, to_lines(output)

    def __repr__(self):
        return "exit code %d, output:\n%s" % (self.code, "\n".join(self.lines))


class TolvenTest(unittest.TestCase):
    """A test in a directory of its own, `self.dir`; runs start in it unless `cwd` says otherwise."""

    maxDiff = 4000

    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="tolven-e2e-")
        self.addCleanup(self.remove_tree, self.dir)

    @staticmethod
    def remove_tree(path):
        for folder, directories, _ in os.walk(path):
            for name in directories:
                if not os.path.islink(os.path.join(folder, name)):
                    os.chmod(os.path.join(folder, name), 0o700)
        shutil.rmtree(path)

    def path(self, *names):
        return os.path.join(self.dir, *names)

    def fresh(self, name):
        """An empty directory `name`, whatever was there before."""
        full = self.path(name)
        if os.path.lexists(full):
            self.remove_tree(full)
        os.mkdir(full)
        return full

    def write(self, name, content):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        write_file(self.path(name), content)
        return self.path(name)

    def run_tolven(self, *args, cwd=None, env=None, preexec=None, stdout=subprocess.PIPE, under=(), errors=b""):
        done = subprocess.run(
            [*under, BINARY, *args], cwd=self.path(cwd) if cwd else self.dir, stdin=subprocess.DEVNULL, stdout=stdout,
            stderr=subprocess.PIPE, env=environment(**(env or {})), preexec_fn=preexec, timeout=TIMEOUT)
        run = Run(done.returncode, done.stdout or b"")
        self.check_sane(run, done.stderr, args, errors)
        return run

    def run_injected(self, path, call, what, *args):
        """Runs with every system call `call` on `path` answered by `what`."""
        strace = ["strace", "-qqq", "-o", os.devnull, "-P", self.path(path), "-e", "trace=" + call,
                  "-e", "inject=%s:%s" % (call, what)]
        # The leak check does not work below a tracer.
        return self.run_tolven(*args, env={"ASAN_OPTIONS": "exitcode=%d:detect_leaks=0" % SANITIZER_EXIT}, under=strace)

    def run_held(self, args, before, change):
        """Runs with an output that takes the lines `before` and no more, calls `change` while the next line waits for
        room, and then lets the program go on."""
        reader, writer = os.pipe()
        size = fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 1)
        filler = bytes(size - sum(len(line) + 1 for line in before))
        os.write(writer, filler)
        with os.fdopen(reader, "rb") as pipe, subprocess.Popen(
                [BINARY, *args], cwd=self.dir, stdin=subprocess.DEVNULL, stdout=writer, stderr=subprocess.PIPE,
                env=environment()) as process:
            deadline, asleep = time.monotonic() + TIMEOUT, 0
            while asleep < 5 and process.poll() is None and time.monotonic() < deadline:
                time.sleep(0.01)
                asleep = asleep + 1 if sleeps(process) and bytes_in(pipe) == size else 0
            self.assertEqual(asleep, 5, "%r never came to the line" % (args,))
            change()
            os.close(writer)
            output = pipe.read()[len(filler):]
            errors = process.stderr.read()
        run = Run(process.returncode, output)
        self.check_sane(run, errors, args)
        return run

    def check_sane(self, run, errors, args, expected=b""):
        self.assertRegex(errors, rb"\A" + expected + rb"\Z", "%r wrote to the error output, %r" % (args, run))
        self.assertNotEqual(run.code, SANITIZER_EXIT, (args, run))
        self.assertGreaterEqual(run.code, 0, "%r died by a signal, %r" % (args, run))

    def expect(self, args, lines, code=0, **how):
        """Runs and compares output and exit code; `args` as a list or as a text split at blanks."""
        args = args.split() if isinstance(args, str) else args
        run = self.run_tolven(*args, **how)
        self.assertEqual((run.lines, run.code), (list(lines), code), args)
        return run

    def create(self, archive, *args, cwd=None):
        """A create that must succeed and say nothing."""
        self.expect(["-cf", archive, *args], [], cwd=cwd)

    def extracted(self, archive, *args, count=None, cwd="out"):
        """Extracts into a fresh directory, with success; returns that directory."""
        target = self.fresh(cwd)
        name = os.path.join(self.dir, archive)
        run = self.run_tolven("-xf", name, *args, cwd=cwd)
        self.assertEqual(run.code, 0, run)
        if count is not None:
            self.assertEqual(run.lines[-1], "TOLVEN: %d file(s) extracted" % count)
        if set(args) <= {"-xnopvalid"} and os.path.isfile(name) and os.path.getsize(name) < 1 << 26:
            self.check_reader(name, target)
        return target

    def check_reader(self, archive, target):
        """What was extracted is what the reader of docs/format.md finds."""
        extracted = set()
        for folder, directories, files in os.walk(target):
            for full in (os.path.join(folder, name) for name in directories + files):
                if os.path.islink(full):
                    extracted.add(os.fsencode(os.readlink(full)))
                elif os.path.isfile(full) and os.access(full, os.R_OK):
                    extracted.add(read_file(full))
        entries = format_reader.read(archive)[1]
        found = {entry.link()[1] if entry.type in (b"LK", b"SC") else entry.data() for entry in entries}
        self.assertLessEqual(extracted, found, archive)


main = unittest.main
