"""Signing and verifying on the command line: every way that should work, and what a user is told when it does not."""
import fcntl
import functools
import glob
import os
import pty
import re
import select
import shutil
import signal
import subprocess
import termios

import archivefile
import harness
import signing_support as support
from archivefile import archive, regular
from signing_support import MANIFEST_NAME, manifest_of, pki, tool

TREE = {"dir/read-me": "for you", "dir/big": os.urandom(1000) + bytes(200000), "dir/empty": "",
        "dir/sub/with blank": "x", "dir/sub/\u00e9": "name in UTF-8"}
FILES = {name: what.encode() if isinstance(what, str) else what for name, what in TREE.items()}


class FirstUse(support.SigningTest):
    """The commands of docs/signing.md as they are printed there, by somebody who has nothing yet."""

    MODULE = "/usr/lib/softhsm/libsofthsm2.so"
    # Sections that need something of the machine: whether it is there, and the name of what is missing.
    NEEDS = {"hardware": (bool(shutil.which("softhsm2-util")) and os.path.exists(MODULE) and
                          bool(glob.glob("/usr/lib/*/engines-3/pkcs11.so")), "softhsm2 and libengine-pkcs11-openssl")}
    SAYS = {"TOLVEN -dVf MY.VRA": "TOLVEN: 7 file(s) tested\n", "TOLVEN -xVf MY.VRA": "TOLVEN: 7 file(s) extracted\n",
            "tolven-pse show": "fingerprint: ", "tolven-verify --signer": "MY.VRA: ok\n",
            "tolven-verify --subject CN=somebody": "asked for", "--json": '"verdict": "ok"',
            "openssl cms": "CMS Verification successful", "TOLVEN -M": "successfully validated\n"}

    def setUp(self):
        super().setUp()
        with open(os.path.join(support.SOURCE, "docs", "signing.md"), encoding="utf-8") as file:
            self.sections = dict(part.split("\n", 1) for part in file.read().split("\n## ")[1:])
        harness.build_tree(self.dir, {**TREE, "more": "more"})
        self.environment = harness.environment(
            HOME=self.path("home"), PATH=support.PROGRAMS + ":" + os.environ["PATH"], RELEASE_PASSWORD="PASSWORD",
            SOFTHSM2_CONF=self.path("softhsm.conf"), **support.sanitizer())
        self.environment.pop("SECUDIR", None)

    def commands(self, section):
        """The indented lines of a section, continued ones joined, without notes of their own."""
        text = self.sections[section].replace("\\\n", "")
        lines = [line[4:] for line in text.split("\n") if line.startswith("    ") and line.strip()]
        return [line for line in lines if not line.startswith("#")]

    def shell(self, command, code=0, answer="PASSWORD"):
        """Runs a line on a terminal and types the answer to whoever asks; returns the output."""
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(self.dir)
            os.execve("/bin/sh", ["sh", "-c", command], self.environment)
        output, asked = b"", 0
        while True:
            if not select.select([terminal], [], [], harness.TIMEOUT)[0]:
                os.kill(pid, signal.SIGKILL)
            try:
                piece = os.read(terminal, 65536)
            except OSError:  # the other side is closed
                piece = b""
            if not piece:
                break
            output += piece
            # An answer must not be typed before the question: the terminal would show it.
            if len(re.findall(rb"[Pp]assword[^:\n]*: |Once more: ", output)) > asked:
                os.write(terminal, answer.encode() + b"\n")
                asked += 1
        os.close(terminal)
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]), code, (command, output))
        self.assertNotIn(answer.encode(), output)
        return output.decode().replace("\r\n", "\n")

    def answer(self, request, name, serial):
        tool("openssl", "x509", "-req", "-in", self.path(request), "-CA", "inter.crt", "-CAkey", "inter.key", "-extfile",
             "pki.cnf", "-extensions", "signer", "-set_serial", serial, "-out", self.path(name), cwd=pki())

    def prepare(self, command):
        """What the reader is said to have, or somebody else to have done, by the time of a command."""
        for name, source in (("root.pem", "root.crt"), ("chain.pem", "inter.crt"), ("tsa-root.pem", "root.crt"),
                             ("revoked.crl", "both.crl")):
            shutil.copy(pki(source), self.path(name))
        if "import team-key answer" in command:
            self.answer("team-key.csr", "answer.pem", "4711")
        if "import team-key renewal" in command:
            self.answer("renewal.csr", "renewal.pem", "4712")
        if "shop.p12" in command:
            tool("openssl", "pkcs12", "-export", "-in", pki("signer.crt"), "-inkey", pki("signer.key"), "-passout",
                 "pass:PASSWORD", "-certfile", pki("inter.crt"), "-out", self.path("shop.p12"))
        if "pkcs11:" in command:
            os.makedirs(self.path("tokens"), exist_ok=True)
            self.write("softhsm.conf", "directories.tokendir = %s\nlog.level = ERROR\n" % self.path("tokens"))
            self.write("home/.tolven/sec/signer.pse", harness.read_file(pki("signer.crt")) +
                       harness.read_file(pki("inter.crt")))
            self.shell("softhsm2-util --init-token --free --label release --so-pin 1234 --pin PASSWO'RD' && "
                       "openssl pkcs8 -topk8 -nocrypt -in %s -out key && softhsm2-util --import key --token release "
                       "--label signer --id 01 --pin PASSWO'RD'" % pki("signer.key"))

    def run_line(self, line):
        command, _, note = line.partition(" #")
        code = re.search(r"exit code (\d+)", note)
        if "FINGERPRINT" in command:
            shown = re.search("fingerprint: ([^ ]*)", self.shell("tolven-pse show release-key"))[1]
            command = command.replace("FINGERPRINT", shown)
        self.prepare(command)
        command = command.replace("http://tsa.example/", support.tsa())
        if "pkcs11:" in command:
            self.environment["ASAN_OPTIONS"] = "detect_leaks=0"  # the engine frees nothing at the end
        output = self.shell(command, code=int(code[1]) if code else 0)
        for start, text in self.SAYS.items():
            if start in command and not code or start == command.strip():
                self.assertIn(text, output, command)
        return output

    def test_the_documented_commands(self):
        """In their order, as one reader's day."""
        run = []
        for section in self.sections:
            if section == "The document":
                continue
            for line in self.commands(section):
                if "pkcs11:" in line and not self.NEEDS["hardware"][0]:
                    print("not run, for want of", self.NEEDS["hardware"][1] + ":", line)
                    continue
                run.append(line)
                if line.startswith("TOLVEN -xVf MY"):
                    shutil.rmtree(self.path("dir"))
                output = self.run_line(line)
                if line.startswith("TOLVEN -xVf MY"):
                    got = harness.contents(self.path("dir"))
                    self.assertEqual({"dir/" + name: content for name, content in got.items()}, FILES)
                if "sha256sum" in line:
                    listed, summed = output.splitlines()
                    self.assertEqual(listed.split()[0], summed.split()[0])
        self.assertGreater(len(run), 35)
        # What the text says of the archive without a signature: it was left as it was.
        self.assertIn("is not", self.shell("TOLVEN -dVf PLAIN.VRA", code=59))

    def test_the_terminal_comes_before_the_file(self):
        harness.write_file(self.path("other"), "another password\n", 0o600)
        for command in ("tolven-pse new key", "TOLVEN -cSf A -key key dir", "tolven-pse request key key.csr"):
            self.assertRegex(self.shell("TOLVEN_PASSWORD_FILE=other " + command), "[Pp]assword", command)

    def test_what_is_not_covered(self):
        """As docs/signing.md says it: another order of the entries, other modes and times pass."""
        harness.build_tree(self.dir, {"x/name": "of x", "y/name": "of y"})
        self.sign_new("A", "x/name", "y/name")
        entries = archivefile.read(self.path("A"))[1]
        entries[0].mode, entries[0].mtime = 0o100600, 77
        self.write("B", archive(*map(support.pack, [entries[1], entries[0], entries[2]])))
        for name, kept in (("A", "of y"), ("B", "of x")):
            self.assertEqual(self.run_tolven("-xVf", self.path(name), "-flat", cwd=self.fresh("out")).code, 0)
            self.assertEqual(harness.contents(self.path("out")), {"name": kept.encode()})

    def test_the_documented_document(self):
        """The picture of the document, against a real one."""
        self.env["SECUDIR"] = pki("sec")
        text = manifest_of(self.sign_new("A", "dir/read-me")).decode()
        shown = "\n".join(self.commands("The document")[:5])
        self.assertTrue(text.startswith(shown + "\n\n"), text)
        self.assertRegex(text, r"\n\n[0-9a-f]{64} 000b dir/read-me\n")
        self.assertRegex(text, r"\n\n-----BEGIN SIGNATURE-----\n([A-Za-z0-9+/]{64}\n)*[A-Za-z0-9+/=]{1,64}\n"
                               r"-----END SIGNATURE-----$")

    def test_password_from_a_file(self):
        self.env["SECUDIR"] = pki("sec")
        key = ["-key", pki("signer.p12")]
        for name, content, mode, text in (
                ("good", "secret", 0o600, None), ("line", "secret\r\nmore", 0o400, None),
                ("group", "secret", 0o640, "chmod 600 group"), ("others", "secret", 0o604, "chmod 600 others"),
                ("none", "\nsecret", 0o600, "first line"), ("long", "x" * 5000, 0o600, "first line"),
                ("wrong", "Secret", 0o600, "password"), ("gone", None, 0, "gone"), (".", None, 0, "not a regular file")):
            if content is not None:
                harness.write_file(self.path(name), content, mode)
            env = {"TOLVEN_PASSWORD_FILE": name}
            with self.subTest(name):
                for args in (["-cSf", "A", "dir"], ["-tVf", "A"]):
                    if text is None:
                        self.assertEqual(self.run_tolven(*args, *key, env=env).code, 0)
                    else:
                        self.create("A", "dir") if args[0] == "-cSf" else self.sign_new("A", "dir")
                        self.refused([*args, *key], 60, text, env=env)
        self.sign_new("A", "dir", options=[*key, "-pwd", "secret"])
        self.assertEqual(self.run_tolven("-tVf", "A", *key, "-pwd", "secret", env=env).code, 0, "-pwd comes first")

    def test_echo_comes_back(self):
        """Whatever ends the question."""
        for ending in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, b"\x03", b"\x04", b"x\n", b"secret\n"):
            master, slave = pty.openpty()
            with self.subTest(ending), subprocess.Popen(
                    [harness.BINARY, "-cSf", "A", "-key", pki("signer.p12"), "dir"], cwd=self.dir, env=self.environment,
                    stdin=slave, stdout=slave, stderr=slave, start_new_session=True,
                    preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0)) as process:
                said = b""
                while b"Password of" not in said:
                    said += os.read(master, 1000)
                self.assertEqual(termios.tcgetattr(slave)[3] & termios.ECHO, 0)
                if isinstance(ending, bytes):
                    os.write(master, ending)
                else:
                    process.send_signal(ending)
                code = process.wait(harness.TIMEOUT)
                expected = {b"\x03": -signal.SIGINT, b"\x04": 60, b"x\n": 60, b"secret\n": 0}.get(ending)
                self.assertEqual(code, -ending if expected is None else expected)
                self.assertNotEqual(termios.tcgetattr(slave)[3] & termios.ECHO, 0)
            os.close(master)
            os.close(slave)


class ManifestTool(support.SigningTest):
    def take(self, *words, code=0):
        done = subprocess.run([os.path.join(support.PROGRAMS, "tolven-manifest"), *words], cwd=self.dir,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual((done.returncode, b"Traceback" in done.stderr), (code, False), done.stderr)
        return done.stdout

    def test_streams_over_blocks_and_names_like_the_signature(self):
        hostile = support.body_line(b"x\n\n-----BEGIN SIGNATURE-----\nAAAA", b"data")
        text = support.signed_document([hostile, *support.LINES])
        for version, blocks in ((b"2.01", archivefile.lzh_blocks), (b"2.01", archivefile.raw_blocks),
                                *((b"2.00", functools.partial(archivefile.one_stream_blocks, piece=piece))
                                  for piece in (1, 7, 8, 9, 10, 500))):
            with self.subTest(version=version, blocks=blocks):
                entry = archivefile.regular(MANIFEST_NAME, text, mode=support.MANIFEST_MODE, blocks=blocks)
                self.write("A", archive(entry, version=version))
                self.assertEqual(self.take("A"), text)
                self.take("A", "body", "sig")
                self.assertEqual(harness.read_file(self.path("body")), support.split_document(text)[0])
        self.write("cut", archive(entry, version=b"2.00")[:-20])
        self.take("cut", code=1)
        self.take("A", "body", code=2)


class RoundTrip(support.SigningTest):
    def setUp(self):
        super().setUp()
        harness.build_tree(self.dir, TREE)

    def verify(self, name, count=7, options=()):
        """List, test and extract, all of which must succeed."""
        archive_path = self.path(name)
        self.assertEqual(self.run_tolven("-tVf", archive_path, *options).code, 0)
        run = self.run_tolven("-dVf", archive_path, *options)
        self.assertEqual((run.lines[-1], run.code), ("TOLVEN: %d file(s) tested" % count, 0), run)
        run = self.run_tolven("-xVf", archive_path, *options, cwd=self.fresh("out"))
        self.assertEqual((run.lines[-1], run.code), ("TOLVEN: %d file(s) extracted" % count, 0), run)
        return harness.contents(self.path("out"))

    def change(self, name, file, data):
        """Gives a file of an archive other data, with a checksum that is right; returns the archive's bytes."""
        _, entries = archivefile.read(self.path(name))
        support.put_data(next(entry for entry in entries if entry.name == file.encode()), data)
        self.write(name, archive(*map(support.pack, entries)))
        return harness.read_file(self.path(name))

    def names(self, name):
        return [entry.name.decode() for entry in archivefile.read(self.path(name))[1]]

    def test_create(self):
        os.symlink("read-me", self.path("dir/link"))
        self.sign_new("A", "-r", "dir")
        self.assertEqual(self.verify("A", 8), FILES)
        self.assertTrue(os.path.islink(self.path("out/dir/link")))
        listed = support.split_document(manifest_of(self.path("A")))[0].split(b"\n\n")[1].decode().split("\n")
        self.assertEqual(sorted(line[70:] for line in listed), sorted(FILES))
        # Without -V the entry neither shows as a file nor is it extracted.
        self.assertEqual(harness.contents(self.extracted("A", count=8)), FILES)

    def test_append(self):
        self.sign_new("A", "dir/read-me")
        self.expect(["-aSf", "A", "-key", pki("signer.pse"), "dir/big"], [])
        self.assertEqual(self.names("A"), ["dir/read-me", "dir/big", "SIGNATURE.SMF"])
        self.assertEqual(self.verify("A", 2), {name: FILES[name] for name in ("dir/read-me", "dir/big")})
        # The same with a separate -V, to an archive without a signature, and to none.
        for name, before in (("B", ["dir/empty"]), ("C", [])):
            if before:
                self.create(name, *before)
            self.expect(["-af", name, "-V", "-key", pki("signer.pse"), "dir/read-me"], [])
            self.assertEqual(self.names(name), before + ["dir/read-me", "SIGNATURE.SMF"])
            self.verify(name, len(before) + 1)

    def test_sign_again(self):
        """In place; a shorter signature leaves nothing of a longer one behind."""
        self.create("A", "dir")
        plain = harness.read_file(self.path("A"))
        sizes = {}
        for key in ("rsa", "signer", "rsa", "signer"):
            self.expect(["-Sf", "A", "-key", support.pse(key)], [])
            self.verify("A")
            whole = harness.read_file(self.path("A"))
            self.assertTrue(whole.startswith(plain))
            self.assertEqual(self.names("A").count("SIGNATURE.SMF"), 1)
            sizes.setdefault(key, set()).add(len(whole) // 20)
        self.assertLess(max(sizes["signer"]), min(sizes["rsa"]))
        self.expect(["-Svf", "A", "-key", pki("signer.pse")],
                    ["TOLVEN: Signature of archive A was successfully created"])

    def test_append_to_changed(self):
        """An archive that was changed since must not get a new signature from an append."""
        self.sign_new("A", "dir/read-me", "dir/big")
        changed = self.change("A", "dir/read-me", b"from me")
        # Append verifies the old signature with -V, and with S behind the a; -S alone signs what is there.
        for command, names in (("-aSif", ["dir/empty"]), ("-aVif", ["dir/empty"]), ("-SVf", [])):
            self.refused([command, "A", "-key", pki("signer.pse"), *names], 54,
                         "TOLVEN: error in processing the signed manifest file. ",
                         "Archive A is already signed, but the content was modified.\n        This is not supported!")
            self.assertEqual(harness.read_file(self.path("A")), changed)
        # An append that fails takes the archive with it unless -i is given.
        shutil.copy(self.path("A"), self.path("B"))
        self.refused(["-aSf", "B", "-key", pki("signer.pse"), "dir/empty"], 54)
        self.assertFalse(os.path.exists(self.path("B")))
        self.expect(["-Sf", "A", "-key", pki("signer.pse")], [])
        self.assertEqual(self.verify("A", 2)["dir/read-me"], b"from me")

    def test_algorithms(self):
        for options, head in (
                (["-H", "SHA384"], "Hash: SHA384\nSignature: PKCS7,SHA256\n"),
                (["-H", "sha-512", "-y", "SHA512"], "Hash: SHA512\nSignature: PKCS7\n"),
                (["-y", "SHA384"], "Hash: SHA256\nSignature: PKCS7,SHA384\n")):
            self.sign_new("A", "dir", options=["-key", pki("signer.pse"), *options])
            self.assertIn(head, manifest_of(self.path("A")).decode())
            self.assertEqual(self.verify("A"), FILES)
            # An append with the default algorithms reads the old manifest by its own.
            self.expect(["-aSf", "A", "-key", pki("signer.pse"), "dir/read-me"], [])
            self.assertIn("Hash: SHA256\nSignature: PKCS7\n", manifest_of(self.path("A")).decode())
        for options, code in ((["-H", "SHA257"], 54), (["-H", "CRC-33"], 54), (["-y", "WHIRL"], 54)):
            self.refused(["-cSf", "B", "-key", pki("signer.pse"), *options, "dir"], code, "SMF_EDIGESTLIB")

    def test_one_of_several(self):
        """With names, only what they select counts: a damaged neighbour and an unlisted one do not."""
        self.sign_new("A", "dir/read-me", "dir/empty", "dir/big")
        self.change("A", "dir/read-me", b"from me")
        content = harness.read_file(self.path("A"))
        self.write("A", content[:8] + regular("more", b"more") + content[8:])
        run = self.run_tolven("-dVvf", "A", "dir/big", "dir/empty")
        self.assertEqual((run.code, self.details(run)["Error category"]), (0, "LOGGABLE_WARNING"), run)
        self.refused("-dVf A dir/big dir/read-me", 57)
        self.refused("-dVf A dir/big more", 58)
        self.refused("-dVf A", 58, "2 files of the archive are invalid:\n")
        # A listed file that has no entry counts when its name, or that of a directory above it, is asked for.
        self.create("A", "dir")
        self.expect(["-Sf", "A", "-key", pki("signer.pse")], [])
        self.write("names", "dir/read-me\n")
        asked = (["dir/read-me"], ["-A", "names"], ["dir"], ["read-me", "-flat"], ["dir/big", "dir/read-me"])
        others = (["dir/big"], ["dir/read-m"], ["dir/sub"], ["dir/read-me/x"])
        for missing in (False, True):
            if missing:
                entries = [item for item in archivefile.read(self.path("A"))[1] if item.name != b"dir/read-me"]
                self.write("A", archive(*map(support.pack, entries)))
            for command in ("-tVf", "-dVf", "-xVf"):
                for names in asked + others:
                    where = ["-R", self.fresh("out")] if command == "-xVf" else []
                    if missing and names in asked:
                        self.refused([command, "A", *where, *names], 58, "File >dir/read-me< of the manifest was not found")
                    else:
                        self.assertEqual(self.run_tolven(command, "A", *where, *names).code, 0, names)
        self.assertNotIn(">ERROR<", "\n".join(self.run_tolven("-dVvf", "A", "dir/big").lines))
        entries = [item for item in archivefile.read(self.path("A"))[1] if not item.name.startswith(b"dir/sub/")]
        self.write("A", archive(*map(support.pack, entries)))
        self.refused("-dVf A dir", 58, "3 files of the archive are invalid:\n")
        self.sign_new("A", "dir/read-me", "dir/empty", "dir/big")
        self.change("A", "dir/read-me", b"from me")
        run = self.refused("-dVf A", 57, "TOLVEN: invalid digest of archive file(s) (error 57). \nDetail: ",
                           "File >dir/read-me< digest is different to manifest")
        self.assertNotIn("files of the archive are invalid", "\n".join(run.lines))
        self.change("A", "dir/big", b"too")
        self.refused("-dVf A", 57, "Detail: 2 files of the archive are invalid:\n")

    def test_equal_names(self):
        """The n-th entry of a name answers to the n-th record, selected or not."""
        for number, content in enumerate(("first", "second", "third")):
            self.write("dir/read-me", content)
            self.create("A", "dir/read-me", "dir/empty") if number == 0 else self.expect("-af A dir/read-me", [])
        self.expect(["-Sf", "A", "-key", pki("signer.pse")], [])
        self.assertEqual(self.verify("A", 4), {"dir/read-me": b"third", "dir/empty": b""})
        self.expect(["-aSf", "A", "-key", pki("signer.pse"), "dir/read-me"], [])
        self.verify("A", 5)
        self.assertEqual(self.run_tolven("-dVf", "A", "dir/empty").code, 0)

    def test_nothing_but_empty_files(self):
        harness.build_tree(self.dir, {"none/a": "", "none/b": "", "void": harness.Directory()})
        self.sign_new("A", "none")
        self.assertEqual(self.verify("A", 3), {"none/a": b"", "none/b": b""})
        self.sign_new("B", "void")  # a manifest without files
        self.assertEqual(self.verify("B", 1), {})
        self.assertIn(b"| Name\n\n\n-----BEGIN", manifest_of(self.path("B")))

    def test_names_shown_otherwise(self):
        """-flat and -lower change where files go, not what is checked."""
        harness.build_tree(self.dir, {"UP/One": "1", "UP/DEEP/Two": "2"})
        self.sign_new("A", "UP")
        for options, expected in ((["-flat"], {"One": b"1", "Two": b"2"}),
                                  (["-lower"], {"up/one": b"1", "up/deep/two": b"2"}),
                                  (["-flat", "-lower"], {"one": b"1", "two": b"2"})):
            run = self.run_tolven("-xVf", self.path("A"), *options, cwd=self.fresh("out"))
            self.assertEqual((run.code, harness.contents(self.path("out"))), (0, expected), run)

    def test_target_directory_and_password_of_relative_paths(self):
        shutil.copy(pki("signer.p12"), self.path("my.p12"))
        self.sign_new("A", "dir/read-me", options=["-key", "my.p12", "-pwd", "secret"])
        self.fresh("out")
        run = self.run_tolven("-xVf", "A", "-R", "out", "-key", "./my.p12", "-pwd", "secret")
        self.assertEqual((run.code, harness.contents(self.path("out"))), (0, {"dir/read-me": b"for you"}), run)

    def test_two_archives_in_one_run(self):
        self.sign_new("A", "dir/read-me")
        self.sign_new("B", "dir/big")
        self.assertEqual(self.run_tolven("-dVf", "A B").code, 0)
        self.create("C", "dir/big")
        self.refused(["-dVf", "A C"], 59, "TOLVEN: C is not digitally signed")


if __name__ == "__main__":
    harness.main()
