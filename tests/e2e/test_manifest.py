"""A manifest as a document by itself: what may stand for a listed file, and who vouches."""
import os

import harness
import signing_support as support
from signing_support import DATA, manifest_of, pki


class Manifest(support.TrustTest):
    FAILED = "TOLVEN: Manifest verification failed with with ErrorCode: \nERROR:  "

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
