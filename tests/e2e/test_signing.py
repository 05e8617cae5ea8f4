"""Signing and verifying on the command line: every way that should work, and what a user is told when it does not."""
import fcntl
import functools
import os
import pty
import re
import shutil
import signal
import subprocess
import termios

import archivefile
import harness
import signing_support as support
from archivefile import archive, regular
from signing_support import MANIFEST_NAME, manifest_of, pki

TREE = {"dir/read-me": "for you", "dir/big": os.urandom(1000) + bytes(200000), "dir/empty": "",
        "dir/sub/with blank": "x", "dir/sub/\u00e9": "name in UTF-8"}
FILES = {name: what.encode() if isinstance(what, str) else what for name, what in TREE.items()}


class FirstUse(support.SigningTest):
    """The commands of docs/signing.md as they are printed there, by somebody who has nothing yet."""

    def setUp(self):
        super().setUp()
        with open(os.path.join(support.SOURCE, "docs", "signing.md"), encoding="utf-8") as file:
            self.sections = dict(part.split("\n", 1) for part in file.read().split("\n## ")[1:])
        harness.build_tree(self.dir, TREE)
        self.environment = harness.environment(HOME=self.path("home"), PATH=support.PROGRAMS + ":" + os.environ["PATH"])
        self.environment.pop("SECUDIR", None)

    def commands(self, section):
        """The indented lines of a section, continued ones joined."""
        text = self.sections[section].replace("\\\n", "")
        return [line[4:] for line in text.split("\n") if line.startswith("    ") and not line.startswith("    #")]

    def shell(self, command, answers=(), code=0):
        """Runs a line on a terminal and types the answers; returns the output."""
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(self.dir)
            os.execve("/bin/sh", ["sh", "-c", command], self.environment)
        output, asked = b"", 0
        while True:
            try:
                piece = os.read(terminal, 65536)
            except OSError:  # the other side is closed
                piece = b""
            if not piece:
                break
            output += piece
            # An answer must not be typed before the question: the terminal would show it.
            if asked < len(answers) and len(re.findall(rb"[Pp]assword[^:\n]*: |Once more: ", output)) > asked:
                os.write(terminal, answers[asked].encode() + b"\n")
                asked += 1
        os.close(terminal)
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]), code, (command, output))
        for answer in answers:
            self.assertNotIn(answer.encode(), output)
        return output.decode().replace("\r\n", "\n")

    def test_the_documented_commands(self):
        new, create, test, trust, extract = self.commands("From nothing to a verified archive")
        self.assertIn("release-key.pse", self.shell(new, ["PASSWORD", "PASSWORD"]))
        self.assertEqual(self.shell(create), "")
        self.assertIn("TOLVEN: 7 file(s) tested\n", self.shell(test))
        self.shell(trust)
        shutil.rmtree(self.path("dir"))
        self.assertIn("TOLVEN: 7 file(s) extracted\n", self.shell(extract))
        got = harness.contents(self.path("dir"))
        self.assertEqual({"dir/" + name: content for name, content in got.items()}, FILES)

        take, check, compare = self.commands("Checking with the openssl command alone")
        self.shell(take)
        self.assertIn("CMS Verification successful", self.shell(check))
        listed, summed = self.shell(compare.replace("name/of/a/file", "dir/read-me")).splitlines()
        self.assertEqual(listed.split()[0], summed.split()[0])

        manifest, outside, same = self.commands("A manifest beside the archive")
        self.shell(manifest)
        self.assertEqual(self.shell(outside), "TOLVEN:  Signature of manifest MY.SMF was successfully validated\n")
        self.assertIn("TOLVEN: 7 file(s) tested\n", self.shell(same))

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
        self.assertEqual(self.run_tolven("-dVf", "A", "dir/big", "dir/empty").code, 0)
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
