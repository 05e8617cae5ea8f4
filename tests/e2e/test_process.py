"""What surrounds a run: the descriptors it is started with, outputs that cannot be written, and people who read hostile
text on a terminal.
"""
import errno
import fcntl
import os
import pty
import signal
import subprocess
import termios
import threading

import archivefile
import harness
import make_old_archive as old_archive
import signing_support as support
from archivefile import regular
from harness import Link


def close_descriptors(*descriptors):
    def close():
        for descriptor in descriptors:
            os.close(descriptor)
    return close


class Descriptors(harness.TolvenTest):
    def test_closed_at_the_start(self):
        """A file that takes the number of a closed output would get the messages."""
        harness.build_tree(self.path("dir"), {"one": b"first\n", "two": b"second\n"})
        for command, kept in (("-cvf", {}), ("-avf", {b"dir/one": b"first\n"})):
            for closed in ([0], [1], [2], [0, 1], [1, 2], [0, 1, 2]):
                with self.subTest(command=command, closed=closed):
                    self.create("A", "dir/one")
                    done = subprocess.run(
                        [harness.BINARY, command, "A", "dir/two"], cwd=self.dir, stdin=subprocess.DEVNULL,
                        env=harness.environment(), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                        preexec_fn=close_descriptors(*closed), timeout=harness.TIMEOUT)
                    self.assertEqual((done.returncode, done.stderr), (0, b""))
                    self.assertEqual(done.stdout, b"" if 1 in closed else b"a dir/two\n")
                    entries = {entry.name: entry.data() for entry in archivefile.read(self.path("A"))[1]}
                    self.assertEqual(entries, kept | {b"dir/two": b"second\n"})


class LostOutput(harness.TolvenTest):
    def setUp(self):
        super().setUp()
        self.write("f", b"content")
        self.create("A", "f")

    def loses(self, args, what, code=4, error=errno.ENOSPC, stdout=subprocess.PIPE, preexec=None):
        done = subprocess.run([harness.BINARY, *args.split()], cwd=self.dir, stdin=subprocess.DEVNULL, stdout=stdout,
                              stderr=subprocess.PIPE, env=harness.environment(), preexec_fn=preexec,
                              timeout=harness.TIMEOUT)
        line = "TOLVEN: error writing to %s (error 4). %s\n" % (what, os.strerror(error))
        self.assertEqual((done.returncode, done.stderr.decode()), (code, line), args)

    def test_standard_output_on_a_full_device(self):
        commands = {"": 4, "-v": 4, "-tf A": 4, "-df A": 4, "-xf A -R .": 4, "-cvf B f": 4, "-avf B f": 4,
                    "-l missing": 4, "-nlf A f": 4, "-xf missing": 6, "-cf C missing": 44}
        for args, code in commands.items():
            with self.subTest(args), open("/dev/full", "wb", 0) as full:
                self.loses(args, "standard output", code, stdout=full)
        self.assertEqual(harness.read_file(self.path("f")), b"content")
        self.assertIn("B", os.listdir(self.dir), "an archive is whole without its messages")

    def test_files_of_the_run(self):
        for args, what, code, size in (
                ("-e -tf A", "tolven_output", 4, 16), ("-e -df A", "tolven_output", 4, 16),
                ("-l missing", "files.log", 4, 16), ("-e -l missing", "files.log", 4, 16),
                ("-e -cif B f " + "m" * 250, "tolven.log", 44, 200)):
            with self.subTest(args):
                self.loses(args, what, code, errno.EFBIG, preexec=harness.size_limit(size))

    def test_slow_reader_of_a_non_blocking_pipe(self):
        names = ["n%05d" % i + "x" * 60 for i in range(2000)]
        harness.build_tree(self.path("d"), {name: b"" for name in names})
        self.create("A", "d")
        expected = self.run_tolven("-tf", "A")
        reader, writer = os.pipe()
        os.set_blocking(writer, False)
        fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
        process = subprocess.Popen([harness.BINARY, "-tf", "A"], cwd=self.dir, stdout=writer, env=harness.environment())
        os.close(writer)
        with open(reader, "rb") as pipe:
            self.assertEqual(pipe.read(), expected.output)
        self.assertEqual(process.wait(harness.TIMEOUT), 0)

    def test_reader_that_went_away(self):
        """A broken pipe ends the program, as everywhere; where that is ignored, it is an error."""
        for ignored, code in ((False, -signal.SIGPIPE), (True, 4)):
            reader, writer = os.pipe()
            os.close(reader)
            preexec = (lambda: signal.signal(signal.SIGPIPE, signal.SIG_IGN)) if ignored else None
            done = subprocess.run([harness.BINARY, "-tf", "A"], cwd=self.dir, stdout=writer, stderr=subprocess.PIPE,
                                  env=harness.environment(), preexec_fn=preexec, timeout=harness.TIMEOUT)
            os.close(writer)
            self.assertEqual(done.returncode, code, done)


# As a name may be, and as a terminal shows it.
SHOWN = {
    b"esc\x1b[31mred": rb"esc\033[31mred",
    b"esc\x1b": rb"esc\033",
    b"two\nlines": rb"two\012lines",
    b"back\rover\x08\x7f": rb"back\015over\010\177",
    b"c1\xc2\x9b2J": rb"c1\302\2332J",
    b"raw c1\x9b2J": rb"raw c1\2332J",
    b"cod.\xe2\x80\xaetxt.exe": rb"cod.\342\200\256txt.exe",
    b"isolate\xe2\x81\xa6": rb"isolate\342\201\246",
    b"mark\xd8\x9c": rb"mark\330\234",
    b"separator\xe2\x80\xa8": rb"separator\342\200\250",
    b"cut\xe2\x82": rb"cut\342\202",
    b"long\xc0\xaf": rb"long\300\257",
    b"surrogate\xed\xa0\x80": rb"surrogate\355\240\200",
    b"beyond\xf4\x90\x80\x80": rb"beyond\364\220\200\200",
}
# Shown as they are.
HARMLESS = [b"plain", "Grüße, 日本語 €".encode(), "smile \U0001f600".encode()]


class Terminal(support.SigningTest):
    def on_terminal(self, *args, cwd=None):
        """What the program writes to a terminal, byte by byte."""
        master, slave = pty.openpty()
        modes = termios.tcgetattr(slave)
        modes[1] &= ~termios.OPOST
        termios.tcsetattr(slave, termios.TCSANOW, modes)
        pieces = []

        def read():
            try:
                while piece := os.read(master, 65536):
                    pieces.append(piece)
            except OSError:  # the last writer went away
                pass
        reader = threading.Thread(target=read)
        reader.start()
        try:
            run = self.run_tolven(*args, cwd=cwd, stdout=slave)
        finally:
            os.close(slave)
            reader.join()
            os.close(master)
        return b"".join(pieces), run.code

    def shows(self, args, raw_names):
        """On a terminal the same lines as through a pipe, but for the names."""
        piped = self.run_tolven(*args)
        shown, code = self.on_terminal(*args)
        expected = piped.output
        for name in raw_names:
            self.assertIn(name, piped.output, args)
            expected = expected.replace(name, SHOWN.get(name, name))
        self.assertEqual((shown, code), (expected, piped.code), args)

    def test_names(self):
        names = [*SHOWN, *HARMLESS]
        harness.build_tree(self.path("d"), {os.fsdecode(name): b"x" for name in names})
        self.create("A", "d")
        for args in (["-cvf", "B", "d"], ["-tf", "A"], ["-dvf", "A"], ["-xvf", "A", "-R", "."]):
            with self.subTest(args):
                self.shows(args, names)

    def test_messages(self):
        raw = b"esc\x1b[31mred"
        name = os.fsdecode(raw)
        harness.build_tree(self.path("links"), {"link": Link(name)})
        self.create("L", "-r", "links")
        self.create(name + ".vra", "-r", "links")
        good = old_archive.file_entry(name, 0o644, 1000000000, b"old text")
        bad = old_archive.Entry(good.line[:-1] + b"9", good.stream)
        self.write("old", old_archive.build([good]))
        self.write("bad", old_archive.build([bad]))
        for archive, entries in (("dots", [regular("../" + name, b"")]), ("no-target", [archivefile.link(name, "")]),
                                 ("over", [regular(name, b"x")]), ("crc", [regular(name, b"x")[:-1] + b"!"])):
            self.write(archive, archivefile.archive(*entries))
        self.write("version", b"ORV " + raw[:4])
        harness.build_tree(self.path("full"), {name + "/x": b""})
        os.mkdir(self.path("out"))
        for args in (["-cf", "B", name], ["-xf", name], ["-tf", name + ".vra"], ["-xf", "L", "-R", name],
                     ["-" + name, "x"], ["-cf", "B", "-T", name, "links"], ["-tf", "L"], ["-xf", "dots", "-R", "out"],
                     ["-xf", "no-target", "-R", "out"], ["-xf", "over", "-R", "full"], ["-df", "crc"],
                     ["-tf", "old"], ["-dvf", "old"], ["-xvf", "old", "-R", "out"], ["-df", "bad"],
                     ["-tVf", name + ".vra"]):
            with self.subTest(args):
                self.shows(args, [raw])
        with self.subTest("a version"):
            self.shows(["-tf", "version"], [raw[:4]])

    def test_signatures(self):
        raw = b"cod.\xe2\x80\xaetxt.exe"
        name = os.fsdecode(raw)
        support.tool("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-utf8", "-subj", "/CN=" + name,
                     "-keyout", "key", "-out", "crt", cwd=self.dir)
        self.write("pse", harness.read_file(self.path("key")) + harness.read_file(self.path("crt")))
        self.write(name, b"signed")
        self.run_tolven("-cSf", "A", "-key", "pse", name)
        entries = archivefile.read(self.path("A"))[1]
        support.put_data(entries[0], b"changed")
        self.write("B", archivefile.archive(*map(support.pack, entries)))
        for args in (["-tVvf", "A", "-key", "./pse"], ["-dVf", "B", "-key", "./pse"], ["-Svf", name, "-key", "pse"],
                     ["-tVf", "A", "-key", "./pse", "-crl", name + "/"], ["-cSf", "C", "-key", name + "/", "pse"]):
            with self.subTest(args):
                self.write(name, archivefile.archive())
                self.shows(args, [raw])

    def test_what_looks_like_an_escape(self):
        """A backslash is shown as it is unless what is behind it would make it an escape."""
        for name, shown in ((r"a\033b", r"a\134033b"), (r"a\08", r"a\08"), ("a\\", "a\\")):
            self.write("A", archivefile.archive(regular(name, b"")))
            output, code = self.on_terminal("-dvf", "A")
            self.assertEqual((output.split(b"\n")[1], code), (b"t " + shown.encode(), 0))


if __name__ == "__main__":
    harness.main()
