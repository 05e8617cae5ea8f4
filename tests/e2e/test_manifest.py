"""A manifest as a document by itself: every byte of it, what may stand for a listed file, and who vouches."""
import os

import harness
import signing_support as support
from signing_support import DATA, manifest_of, pki


class Manifest(support.TrustTest):
    FAILED = "TOLVEN: Manifest verification failed with with ErrorCode: \nERROR:  "

    def test_no_changed_byte_passes(self):
        text = manifest_of(self.sign_new("A", *DATA))
        covered = len(support.split_document(text)[0])
        changed = [text[:at] + bytes([text[at] ^ 1]) + text[at + 1:] for at in range(0, covered, 3)]
        for document in changed + [text[:length] for length in range(0, len(text), 60)]:
            self.write("M", document)
            self.assertEqual(self.run_tolven("-M", "-manifest", "M").code, 55, document)
        self.write("M", text)
        self.assertEqual(self.run_tolven("-M", "-manifest", "M").code, 0)

    def test_what_is_no_file(self):
        self.write("M", manifest_of(self.sign_new("A", *DATA)))
        os.remove(self.path("a"))
        self.write("elsewhere", DATA["a"])
        for make, error in ((lambda name: os.mkdir(name), "21. Is a directory"),
                            (lambda name: os.symlink("elsewhere", name), "40. Too many levels of symbolic links")):
            make(self.path("a"))
            self.refused("-M -manifest M", 55, self.FAILED,
                         "Local File >a< was not found. System error code " + error)
            os.rename(self.path("a"), self.path("was " + error[:2]))

    def test_productive_comes_first(self):
        self.sign_new("A", *DATA, options=["-key", pki("lonely.pse")])
        for verify, validation, kind in (
                ("lonely.crt", "lonely.pse", "QEL software"), ("lonely.crt", "nonsense.pse", "QEL software"),
                ("nonsense.pse", "lonely.pse", None), ("namesake.crt", "namesake.crt", None)):
            self.trust(QELverify=verify, QELvalidation=validation)
            if kind is None:
                self.rejected(["A"], 60)
            else:
                self.assertEqual(self.accepted("A")["Signature Type"], kind)


if __name__ == "__main__":
    harness.main()
