"""tolven-pse, run as people run it: what it makes signs and verifies, what it refuses stays as it was."""
import os
import stat
import subprocess

import harness
import signing_support as support
from signing_support import pki, tool


class Pse(support.SigningTest):
    def setUp(self):
        super().setUp()
        self.env["SECUDIR"] = self.path("sec")
        self.write("file", "content\n")
        self.secret("pw", "a secret with blanks ")
        self.fresh("out")

    def secret(self, name, password, mode=0o600):
        harness.write_file(self.path(name), password + "\n", mode)

    def pse(self, *words, code=0, says="", **env):
        done = subprocess.run([os.path.join(support.PROGRAMS, "tolven-pse"), *words], cwd=self.dir,
                              env=harness.environment(**self.env, **env), stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        output = (done.stdout + done.stderr).decode()
        self.assertEqual((done.returncode, says in output, "Traceback" in output), (code, True, False), (words, output))
        return output

    def sec(self, name):
        return self.path("sec", name + ".pse")

    def mode(self, name):
        return stat.S_IMODE(os.stat(self.sec(name)).st_mode)

    def signed(self, key, *options, code=0):
        self.assertEqual(self.run_tolven("-cSf", "A", "-key", key, *options, "file").code, code)

    def verified(self, *options, code=0):
        self.assertEqual(self.run_tolven("-dVf", "A", *options).code, code, options)

    def test_new_keys_sign_and_verify(self):
        for name, password, options in (
                ("one", "a secret with blanks ", ["-passfile", "pw"]), ("two", None, ["-nopass"]),
                ("three", None, ["-type", "rsa", "-nopass", "-subject", "/CN=Jane Doe/O=Example"])):
            with self.subTest(options):
                self.pse("new", name, *options)
                self.assertEqual(self.mode(name), 0o600)
                self.signed(name, *(["-pwd", password] if password else []))
                self.verified("-key", name)
                shown = self.pse("show", name, says="Digital Signature; Code Signing")
                self.assertRegex(shown, r"valid: .* \(valid\)\nfingerprint: ([0-9A-F]{2}:){31}[0-9A-F]{2} \(SHA-256\)")
        self.pse("new", "four", TOLVEN_PASSWORD_FILE="pw")
        self.assertIn(b"ENCRYPTED", harness.read_file(self.sec("four")))
        listed = self.pse("list", says="one: PEM, key with a password; certificates: 1; CN=one, valid")
        self.assertEqual(len(listed.splitlines()), 4)

    def test_trust_is_one_certificate_and_can_be_taken_back(self):
        self.pse("new", "one", "-nopass")
        self.pse("new", "two", "-nopass")
        self.pse("import", "one", pki("inter.crt"))
        self.pse("trust", "QELverify", "one")
        self.assertEqual((self.mode("QELverify"), b"PRIVATE" in harness.read_file(self.sec("QELverify"))),
                         (0o644, False))
        self.assertEqual(self.pse("cert", "QELverify").count("BEGIN"), 1)
        self.signed("two")
        self.verified(code=60)
        self.pse("trust", "QELverify", "two", "two")  # added once
        self.assertEqual(self.pse("cert", "QELverify").count("BEGIN"), 2)
        self.verified()
        self.pse("untrust", "QELverify", "CN=nobody", code=1, says="tolven-pse show")
        self.pse("untrust", "QELverify", "CN=two")
        self.verified(code=60)
        self.pse("untrust", "QELverify", "CN=one", says="held nothing else")
        self.assertFalse(os.path.exists(self.sec("QELverify")))
        self.pse("trust", "all", "one", "-chain")
        self.assertEqual(self.pse("cert", "all").count("BEGIN"), 2)

    def test_an_authority_answers(self):
        self.pse("request", "mine", "request.csr", "-passfile", "pw")
        self.signed("mine", "-pwd", "a secret with blanks ", code=60)  # no certificate yet

        def answer(request, name):
            tool("openssl", "x509", "-req", "-in", self.path(request), "-CA", "inter.crt", "-CAkey", "inter.key",
                 "-extfile", "pki.cnf", "-extensions", "signer", "-set_serial", "4712", "-out", self.path(name),
                 cwd=pki())

        answer("request.csr", "answer.pem")
        before = harness.read_file(self.sec("mine"))
        self.pse("import", "mine", pki("signer.crt"), "-passfile", "pw", code=1, says="none of the certificates")
        self.assertEqual(harness.read_file(self.sec("mine")), before)
        harness.write_file(self.sec("mine"), before.rstrip(b"\n"), 0o600)  # as some editors leave it
        self.pse("import", "mine", "answer.pem", pki("inter.crt"), pki("inter.crt"), "-passfile", "pw")
        self.assertEqual((self.mode("mine"), self.pse("cert", "mine").count("BEGIN")), (0o600, 2))
        self.pse("trust", "QELverify", pki("root.crt"))
        self.signed("mine", "-pwd", "a secret with blanks ")
        self.verified()
        # A renewal: a request for the key there is, under the name there is.
        self.pse("request", "mine", "renewal.csr", "-passfile", "pw")
        answer("renewal.csr", "renewal.pem")
        self.assertEqual(tool("openssl", "req", "-in", self.path("renewal.csr"), "-noout", "-pubkey"),
                         tool("openssl", "x509", "-in", self.path("answer.pem"), "-noout", "-pubkey"))
        self.assertIn(b"CN = mine", tool("openssl", "req", "-in", self.path("renewal.csr"), "-noout", "-subject"))

    def test_keys_that_come_in_one_file(self):
        self.secret("p12word", "secret")
        self.pse("import", "given", pki("signer.p12"), "-passfile", "p12word")
        self.signed("given", "-pwd", "secret")
        self.pse("import", "wrong", pki("signer.p12"), "-passfile", "pw", code=1, says="password")
        self.assertFalse(os.path.exists(self.sec("wrong")))

    def test_a_link_stays_a_link(self):
        self.pse("new", "one", "-nopass")
        os.rename(self.sec("one"), self.path("elsewhere"))
        os.symlink(self.path("elsewhere"), self.sec("one"))
        self.pse("import", "one", pki("inter.crt"))
        self.assertTrue(os.path.islink(self.sec("one")))
        self.assertEqual(harness.read_file(self.path("elsewhere")).count(b"BEGIN CERTIFICATE"), 2)
        self.assertEqual(sorted(os.listdir(self.path("sec"))), ["one.pse"])

    def test_mistakes_change_nothing_and_say_what_to_do(self):
        self.pse("new", "key", "-nopass")
        self.secret("open", "known to all", 0o644)
        self.secret("empty", "")
        harness.write_file(self.path("planted"), harness.read_file(self.sec("key")))
        before = harness.contents(self.dir)
        for words, code, says in (
                ([], 2, "usage:"), (["nonsense"], 2, "invalid choice"), (["new"], 2, "required"),
                (["new", "a", "b", "-nopass"], 2, "unrecognized"), (["new", "a", "-type", "dsa"], 2, "invalid choice"),
                (["new", "a", "-frob"], 2, "unrecognized"), (["new", "a"], 1, "-passfile"),
                (["new", "a", "-passfile", "missing"], 1, "missing"),
                (["new", "a", "-passfile", "empty"], 1, "first line"),
                (["new", "a", "-passfile", "open"], 1, "chmod 600"), (["new", "key", "-nopass"], 1, "exists"),
                (["request", "new", "file", "-nopass"], 1, "exists"), (["trust", "key", "key"], 1, "no trust file"),
                (["untrust", "key", "CN=key"], 1, "no trust file"), (["show", "missing"], 1, "looked for"),
                (["import", "missing", pki("signer.crt")], 1, "looked for"),
                (["import", "key", "file"], 1, "neither PEM"),
                (["trust", "other", "planted"], 1, "./planted"), (["show", "planted"], 1, "./planted")):
            with self.subTest(words):
                self.pse(*words, code=code, says=says)
                self.assertEqual(harness.contents(self.dir), before)


if __name__ == "__main__":
    harness.main()
