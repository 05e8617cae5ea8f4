"""tolven-verify: the verdict on archives, good and bad, and on who signed them."""
import json
import os
import shutil
import subprocess

import harness
import signing_support as support
from attack_table import Scene, listed_digest, other_data, token_of_another
from signing_support import DATA, pki, tool

TOOLS = ("tolven-verify", "tolven-manifest")


class Verify(support.TrustTest):
    def verify(self, *words, code=0, tools=support.PROGRAMS, before="", **how):
        done = subprocess.run(["sh", "-c", before + 'exec "$@"', "sh", os.path.join(tools, TOOLS[0]), *words],
                              cwd=self.dir, env=harness.environment(**{**self.env, **support.sanitizer()}),
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              timeout=harness.TIMEOUT, **how)
        self.errors = done.stderr.decode()
        self.assertEqual((done.returncode, "Traceback" in self.errors), (code, False), (words, done))
        return done.stdout.decode()

    def described(self, *words, code=0):
        return [json.loads(line) for line in self.verify("--json", *words, code=code).splitlines()]

    def fingerprint(self, name):
        out = tool("openssl", "x509", "-in", pki(name + ".crt"), "-noout", "-fingerprint", "-sha256")
        return out.decode().strip().split("=")[1]

    def attacked(self, name, change, source="good", other=b""):
        scene = Scene(harness.read_file(self.path(source)), other)
        change(scene)
        return self.write(name, scene.packed())

    def test_one_line_an_archive(self):
        """Whatever came before. Each bad one stands beside the good one that it was made of."""
        self.sign_new("good", *DATA)
        self.sign_new("stamped", *DATA, options=["-key", pki("signer.pse"), "-tsaurl", support.tsa()])
        stamped = support.manifest_of(self.sign_new("other", "a", options=["-key", pki("signer.pse"), "-tsaurl",
                                                                           support.tsa()]))
        shutil.copy(self.path("good"), self.path("-x"))
        shutil.copy(self.path("good"), self.path("two words"))
        self.create("unsigned", "a")
        self.attacked("data", other_data)
        self.attacked("list", listed_digest)
        self.attacked("token", token_of_another, "stamped", stamped)
        self.sign_new("stranger", "a", options=["-key", pki("lonely.pse")])
        self.write("tail", harness.read_file(self.path("good")) + b"\0")
        self.write("nothing", "")
        os.mkdir(self.path("directory"))
        os.mkfifo(self.path("fifo"))
        os.symlink("good", self.path("link"))
        os.symlink("fifo", self.path("link to a fifo"))
        hostile = "\n\x1b[2Jgood: ok\u202e"
        shutil.copy(self.path("data"), self.path(hostile))
        rows = (("good", 0, "ok"), ("unsigned", 59, "not digitally signed"), ("good", 0, "ok"), ("stamped", 0, "ok"),
                ("-x", 0, "ok"), ("two words", 0, "ok"), ("link", 0, "ok"), ("data", 57, "digest"),
                ("list", 60, "Signature"), ("token", 60, "Signature"), ("stranger", 60, "vouches"), ("tail", 54, "modified"),
                ("nothing", None, "get it again"), ("missing", None, "No such file"), ("directory", None, "directory"),
                ("fifo", None, "not a regular file"), ("link to a fifo", None, "not a regular file"),
                ("/dev/null", None, "not a regular file"), ("", None, "No such file"), (hostile, 57, "digest"),
                ("good", 0, "ok"))
        names = [name for name, _, _ in rows]
        lines = self.verify("--", *names, code=1).splitlines()
        found = self.described("--", *names, code=1)
        self.assertEqual((len(lines), len(found)), (len(rows), len(rows)), lines)
        for (name, code, says), line, one in zip(rows, lines, found):
            with self.subTest(name):
                shown = name.replace("\n", "\\012").replace("\x1b", "\\033").replace("\u202e", "\\342\\200\\256")
                self.assertTrue(line.startswith("%s: %s" % (shown, "ok" if says == "ok" else "FAILED ")), line)
                self.assertIn(says, line)
                self.assertEqual((one["archive"], one["verdict"] == "ok"), (name, says == "ok"))
                if code is not None:
                    self.assertEqual(one["code"], code)
                self.assertEqual(one["signer"] is not None, says == "ok")
                self.assertEqual(one.get("reason") is None, says == "ok")
        self.verify("./-x", "good", "link")

    def test_what_is_told(self):
        harness.build_tree(self.dir, {"t/a": "1", "t/b": "2", "t/link": harness.Link("a"), "t/d": harness.Directory()})
        self.sign_new("A", "-r", "t", options=["-key", pki("signer.pse"), "-tsaurl", support.tsa(), "-y", "SHA512"])
        one, = self.described("A")
        self.assertEqual((one["covered"], one["uncovered"], one["digest"], one["signature_algorithm"], one["warnings"]),
                         (2, 3, "SHA256", "ECDSA with SHA512", []))
        text = tool("openssl", "x509", "-in", pki("signer.crt"), "-noout", "-serial", "-startdate", "-enddate",
                    "-dateopt", "iso_8601").decode().replace(" ", "T")
        signer = one["signer"]
        self.assertEqual(text, "serial=%s\nnotBefore=%s\nnotAfter=%s\n" % (
            signer["serial"].upper(), signer["not_before"], signer["not_after"]))
        self.assertEqual((signer["subject"], signer["issuer"], signer["fingerprint"]),
                         ("CN=signer", "CN=Test Intermediate", self.fingerprint("signer")))
        self.assertEqual(one["time_stamp"]["authority"], "CN=tsa")
        self.assertRegex(one["time_stamp"]["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        tool("openssl", "x509", "-req", "-in", pki("signer.csr"), "-CA", "inter.crt", "-CAkey", "inter.key", "-extfile",
             "pki.cnf", "-extensions", "signer", "-set_serial", "4713", "-days", "9", "-out", self.path("soon.crt"),
             cwd=pki())
        parts = (pki("signer.key"), self.path("soon.crt"), pki("inter.crt"))
        self.write("soon.pse", b"".join(map(harness.read_file, parts)))
        key = ["-key", pki("signer.pse")]
        for options, says in ((["-key", "./soon.pse"], "expires within 30 days"), ([*key, "-H", "MD5"], "MD5"),
                              ([*key, "-H", "SHA1"], "SHA1"), ([*key, "-H", "CRC-32"], "CRC32")):
            self.sign_new("A", "t", options=options)
            one, = self.described("A")
            self.assertEqual((one["verdict"], one["time_stamp"], len(one["warnings"])), ("ok", None, 1))
            self.assertIn(says, one["warnings"][0])
            self.assertEqual(self.verify("A"), "A: ok\n")
            self.assertIn("A: warning: ", self.errors)
        self.trust(QELverify="foreign.crt", QELvalidation="signer.crt")
        self.assertIn("test key", self.described("A")[0]["warnings"][-1])
        self.verify("--key", "QELverify", "A", code=1)
        self.verify("--key", pki("signer.crt"), "A")
        self.write("crl", "no list")
        self.assertIn("FAILED", self.verify("--crl", "crl", "A", code=1))

    def test_pins(self):
        self.sign_new("A", *DATA)
        mine, other = self.fingerprint("signer"), self.fingerprint("rsa")
        plain = mine.replace(":", "").lower()
        for options, good in ((["--signer", mine], True), (["--signer", other], False), (["--signer", plain], True),
                              (["--signer", other, "--signer", mine], True), (["--subject", "CN=signer"], True),
                              (["--subject", "CN=rsa"], False), (["--subject", "signer"], False),
                              (["--subject", "CN=Test Intermediate"], False), (["--subject", ""], False),
                              (["--signer", mine, "--subject", "CN=rsa"], False),
                              (["--signer", other, "--subject", "CN=signer"], False)):
            with self.subTest(options):
                out = self.verify(*options, "A", code=0 if good else 1)
                self.assertEqual(out.startswith("A: ok"), good)
                self.assertEqual("not by the signer that was asked for" in out, not good)
        # The pin is beside the trust, not instead of it.
        self.trust(QELverify="foreign.crt")
        self.verify("--signer", mine, "A", code=1)

    def test_a_namesake_of_the_signer_certificate(self):
        """A certificate of the attacker's making with the signer's number, issuer and key, and with the name of somebody
        else: whoever looks for the signer by number finds it first."""
        make = ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "ca.key", "-out", "ca.crt", "-subj",
                "/CN=Test Intermediate"]
        tool(*make, cwd=self.dir)
        serial = tool("openssl", "x509", "-in", pki("signer.crt"), "-noout", "-serial").decode().strip().split("=")[1]
        self.write("public", tool("openssl", "pkey", "-in", pki("signer.key"), "-pubout"))
        tool("openssl", "x509", "-new", "-force_pubkey", "public", "-subj", "/CN=Boss", "-set_serial", "0x" + serial, "-CA",
             "ca.crt", "-CAkey", "ca.key", "-out", "boss.crt", cwd=self.dir)
        both = self.write("both.crt", harness.read_file(self.path("boss.crt")) + harness.read_file(pki("inter.crt")))
        for options in (("-cades",), ()):
            self.made("A", support.signed_document(support.LINES, certificates=both, options=options))
            one, = self.described("A")
            self.assertEqual((one["signer"]["subject"], one["signer"]["fingerprint"]),
                             ("CN=signer", self.fingerprint("signer")))
            self.verify("--subject", "CN=signer", "A")
            self.verify("--subject", "CN=Boss", "A", code=1)
        self.made("A", support.signed_document(support.LINES, certificates=self.path("boss.crt")))
        self.assertIsNone(self.described("A", code=1)[0]["signer"])

    def test_an_archive_that_is_exchanged_meanwhile(self):
        """A program in between does what the attacker does, after the list was read."""
        tools = self.fresh("tools")
        for name in (*TOOLS, "libqelcrypto.so"):
            shutil.copy(os.path.join(support.PROGRAMS, name), tools)
        self.sign_new("good", *DATA)
        self.sign_new("other", "a")
        self.sign_new("again", *DATA, options=["-key", support.pse("rsa")])
        self.create("unsigned", *DATA)
        for what, good in (("true", True), ("cp other B", True), ("cp other B; mv B d/A", False), ("rm d/A", False),
                           ("cat other > A", False), ("cat again > A", False), ("cat unsigned > A", False),
                           ("mv d e; mkdir d; cp other d/A", False)):
            with self.subTest(what):
                shutil.copy(self.path("good"), os.path.join(self.fresh("d"), "A"))
                os.path.lexists(self.path("A")) or os.symlink("d/A", self.path("A"))
                self.write("tools/TOLVEN", "#!/bin/sh\n%s\nexec %s \"$@\"\n" % (what, harness.BINARY))
                os.chmod(self.path("tools/TOLVEN"), 0o755)
                out = self.verify("--signer", self.fingerprint("signer"), "A", tools=tools, code=0 if good else 1)
                self.assertEqual(out.startswith("A: ok\n"), good, out)

    def test_arguments(self):
        self.sign_new("A", "a")
        self.write("--json", "")
        for words, says in (([], "required"), (["nothing*"], "no file matches"), (["A", "[a-b]x"], "no file matches"),
                            (["--signer", "AB:CD", "A"], "no SHA-256 fingerprint"), (["--signer"], "expected one argument"),
                            (["--js", "A"], "unrecognized"), (["--json", "A"], "./--json"), (["-x", "A"], "unrecognized")):
            with self.subTest(words):
                self.assertEqual(self.verify(*words, code=2), "")
                self.assertIn(says, self.errors)
        self.verify("--", "--json", "A", code=1)
        self.assertIn("usage: tolven-verify", self.verify("--help"))
        self.assertRegex(self.verify("--version"), r"^tolven-verify \d")
        self.verify("A", before="exec >/dev/full; ", code=1)
        self.assertIn("cannot be written", self.errors)
        self.verify("A", before="TOLVEN_PASSWORD_FILE=A; LC_ALL=C PYTHONIOENCODING=ascii; export PYTHONIOENCODING; ")


if __name__ == "__main__":
    harness.main()
