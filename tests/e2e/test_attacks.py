"""What a signature is for: archives that were changed by somebody on the way. Each attack must end with its exit code on
list, test and extract, and extraction must leave nothing but files that are what was signed.
"""
import os
import resource
import stat
import unittest

import archivefile
import harness
import signing_support as support
from archivefile import directory, link
from attack_table import (DOCUMENT_ATTACKS, ENTRIES, FILE_ATTACKS, FILES, INVALID, PARSER, PLACE_ATTACKS, POWERS,
                          SIGNER_ATTACKS, UMASK, UNLISTED, UNSIGNED, Scene, block_behind, insert, signed_anew)
from harness import Directory
from signing_support import pki

_made = {}  # "plain" and "stamped": the archive of ENTRIES; "other": the manifest of another one


class AttackTest(support.SigningTest):
    def setUp(self):
        super().setUp()
        if not _made:
            self.make_archives()

    def make_archives(self):
        harness.build_tree(self.path("tree"), {**{name: data for name, data in FILES.items() if name != "dup"},
                                               "dup": "one", "d": Directory()})
        archive = self.path("made")
        self.create(archive, "a", "d", "dup", "empty", "z", cwd="tree")
        self.write("tree/dup", "two")
        self.expect(["-af", archive, "dup"], [], cwd="tree")
        for name, options in (("plain", []), ("stamped", ["-tsaurl", support.tsa()])):
            self.expect(["-Sf", archive, "-key", pki("signer.pse"), *options], [])
            _made[name] = harness.read_file(archive)
        self.sign_new("other", "tree/a", options=["-key", pki("signer.pse"), "-tsaurl", support.tsa()])
        _made["other"] = support.manifest_of(self.path("other"))
        parsed = archivefile.parse(_made["plain"])[1][:-1]
        assert [(item.name.decode(), item.data() if item.type == b"RG" else None) for item in parsed] == ENTRIES

    def attacked(self, row):
        scene = Scene(_made["stamped" if row.stamped else "plain"], _made["other"])
        own = row.change(scene)
        content = own if isinstance(own, bytes) else scene.packed()
        self.assertNotIn(content, _made.values())
        return content

    def run_row(self, row):
        self.write("A", self.attacked(row))
        for command in ("-tVf", "-dVf", "-xVf"):
            if command != "-xVf" and row.options == ["-lower"]:
                continue  # for extraction only
            where = ["-R", self.fresh("out")] if command == "-xVf" else []
            run = self.refused([command, "A", *where, *row.options], row.code, row.text)
            self.assertNotRegex("\n".join(run.lines), r"file\(s\) (tested|extracted)")
        self.check_left(row)

    def check_left(self, row):
        if row.left is None:
            self.assertEqual(os.listdir(self.path("out")), [])
            return
        found = harness.contents(self.path("out"))
        kinds = {what[0] for what in harness.snapshot(self.path("out")).values()}
        self.assertLessEqual(kinds, {"file", "directory"})
        for name, data in found.items():
            self.assertIn(name, row.left)
            self.assertIn(data, [content for entry, content in ENTRIES
                                 if content is not None and (entry == name or "-flat" in row.options and
                                                             os.path.basename(entry) == name)])
        self.assertEqual(set(found), set(row.left))

    def run_table(self, rows):
        for row in rows:
            with self.subTest(row.name):
                self.run_row(row)


class Attacks(AttackTest):
    def test_nothing_changed(self):
        for name in ("plain", "stamped"):
            self.write("A", Scene(_made[name]).packed())
            self.assertEqual(harness.read_file(self.path("A")), _made[name])
            run = self.run_tolven("-xVf", "A", "-R", self.fresh("out"))
            self.assertEqual((run.code, harness.contents(self.path("out"))), (0, FILES), run)
        # And what the table builds upon: lists that are signed anew, attributes that are put back.
        for signer in ({}, {"signer": "code_issued", "certificates": "code_ca.crt"}):
            scene = Scene(_made["plain"])
            signed_anew(**signer)(scene)
            self.write("A", scene.packed())
            self.assertEqual(self.run_tolven("-dVf", "A").code, 0)
        signed, signature = Scene(_made["stamped"]).document()
        same = support.with_unsigned_attributes(signature, support.unsigned_attributes(signature))
        self.assertEqual(same, signature)

    def test_files(self):
        self.run_table(FILE_ATTACKS)

    def test_place(self):
        self.run_table(PLACE_ATTACKS)

    def test_document(self):
        self.run_table(DOCUMENT_ATTACKS)

    def test_signer(self):
        self.run_table(SIGNER_ATTACKS)


class Extraction(AttackTest):
    """What the signature does not cover must not harm what it does."""

    def extract(self, change, *options):
        scene = Scene(_made["plain"])
        change(scene)
        self.write("A", scene.packed())
        run = self.run_tolven("-xVf", "A", "-R", self.fresh("out"), *options)
        return run, harness.contents(self.path("out"))

    def test_a_link_for_a_file(self):
        """Neither before nor behind the file, under no spelling, does a link take its place."""
        for name, options in (("a", []), ("./a", []), ("/a", []), ("d/../a", []), ("x/a", ["-flat"]), ("A", ["-lower"]),
                              ("./a", ["-xnopvalid"]), ("d", [])):
            for at in (0, -1):
                with self.subTest(name=name, at=at):
                    run, found = self.extract(insert(link(name, "/etc/passwd"), at=at), *options)
                    if options == ["-flat"]:
                        found["d/b"] = found.pop("b")
                    self.assertEqual(found, FILES)
                    # A link in front of the file it is named like gives way without a word.
                    self.assertIn(run.code, (36, 0) if at == 0 else (36,), run)

    def found(self, path):
        """A link's target, or the mode."""
        if os.path.islink(path):
            return os.readlink(path)
        return stat.S_IMODE(os.lstat(path).st_mode)

    def test_no_power(self):
        """With and without a file in the way, by V as a letter, as an argument and as what S implies."""
        for row in POWERS:
            scene = Scene(_made["plain"])
            row.change(scene)
            self.write("A", scene.packed())
            for options in (["-xVvf"], ["-V", "-xvjf"], ["-xSvf"], ["-xvf"]):
                with self.subTest(row.name, options=options):
                    self.fresh("out")
                    harness.build_tree(self.path("out"), {} if row.before is None else {row.place: row.before})
                    place = self.path("out", row.place)
                    before = None if row.before is None else self.found(place)
                    run = self.run_tolven(*options, "A", "-R", "out", preexec=lambda: os.umask(UMASK))
                    checked = options != ["-xvf"]
                    expected = row.checked if checked else row.unchecked
                    if "-xvjf" in options and isinstance(row.before, Directory):
                        expected = before  # j leaves directories alone
                    self.assertEqual(self.found(place), before if expected is None else expected)
                    self.assertEqual(run.code, 36 if expected is None else 0, run)
                    links = int(row.place == "l")
                    uncovered = "TOLVEN: 1 directory(s) and %d link(s) not covered by the signature" % links
                    self.assertEqual(run.lines[-1] == uncovered, checked, run)
                    self.assertEqual("not covered" in "\n".join(run.lines), checked, run)

    def test_a_link_for_a_directory(self):
        os.mkdir(self.path("outside"))

        def change(scene):
            scene.entries[scene.place("d")] = link("d", self.path("outside"))
        run, found = self.extract(change)
        self.assertEqual((run.code, found, os.listdir(self.path("outside"))), (36, FILES, []), run)

    def test_a_directory_for_a_file(self):
        for at in (0, -1):
            run, found = self.extract(insert(directory("a"), at=at))
            self.assertNotEqual(run.code, 0)
            self.assertEqual(found, {name: FILES[name] for name in found})

    def test_blocks_behind_the_data(self):
        """Nobody reads them."""
        run, found = self.extract(block_behind)
        self.assertEqual((run.code, found), (0, FILES), run)


class Disguise(AttackTest):

    def test_nothing(self):
        for content in (archivefile.archive(), b"ORV 2.00", archivefile.archive(b"XY" + bytes(40))):
            self.write("A", content)
            for command in ("-tVf", "-dVf", "-xVf"):
                self.refused([command, "A"], 59, UNSIGNED)


@unittest.skipIf(harness.instrumented(), "a sanitizer needs memory of its own")
class Memory(AttackTest):
    """A list of very many lines costs three times its size and no more, whoever made it."""

    COUNT = 600000

    def test_a_list_of_many(self):
        signed = support.body([b"%08x 0001 a\n" % number for number in range(self.COUNT)], "CRC32")
        good = support.openssl_sign(signed)
        limit = 3 * len(signed) + (32 << 20)
        for name, text, code, said in (
                ("control: trusted", support.document(signed, good), 58, UNLISTED),
                ("signature of another list", support.document(signed, support.openssl_sign(b"other")), 60, INVALID),
                ("no signature at all", support.document(signed, bytes(3000)), 60, INVALID),
                ("last line wrong", support.document(signed[:-4] + b"\n\n", good), 54, PARSER)):
            with self.subTest(name):
                self.write("A", archivefile.archive(archivefile.regular(
                    support.MANIFEST_NAME, text, mode=support.MANIFEST_MODE, blocks=archivefile.raw_blocks)))
                for names in ([], ["a"], ["other"]):
                    expected = 0 if code == 58 and names == ["other"] else code
                    self.refused(["-tVf", "A", *names], expected, "" if expected == 0 else said, preexec=lambda:
                                 resource.setrlimit(resource.RLIMIT_DATA, (limit, limit)))


class Signing(AttackTest):
    """Nobody's key is lent to an archive whose signature is out of place, and nothing of it is written."""

    def test_place(self):
        for row in PLACE_ATTACKS:
            if row.code == 59:
                continue  # not a signed archive
            with self.subTest(row.name):
                content = self.attacked(row)
                for command, names in (("-Sf", []), ("-aSif", ["tree/a"]), ("-aVif", ["tree/a"])):
                    self.write("A", content)
                    self.write("tree/a", "more")
                    run = self.run_tolven(command, "A", "-key", pki("signer.pse"), *names)
                    if row.name == "empty manifest" and command != "-Sf":
                        continue  # what cannot be read is removed, as an append does
                    torn = row.name in ("junk behind the manifest", "archive cut") and command != "-Sf"
                    expected = 1 if torn else row.code
                    self.assertEqual((run.code, harness.read_file(self.path("A"))), (expected, content), run)

    def test_append_after_an_attack(self):
        """The old signature and the files are looked at before an append signs."""
        for row in FILE_ATTACKS + DOCUMENT_ATTACKS + SIGNER_ATTACKS:
            if row.name == "data changed, checksum wrong":
                continue  # exit code 12, as below
            with self.subTest(row.name):
                content = self.attacked(row)
                self.write("A", content)
                self.write("tree/a", "more")
                options = [option for option in row.options if option not in ("-flat", "-lower")]
                run = self.run_tolven("-aSif", "A", "-key", pki("signer.pse"), "tree/a", *options)
                self.assertEqual(run.code, 54 if row in FILE_ATTACKS or row.left is not None else row.code, run)
                self.assertEqual(harness.read_file(self.path("A")), content)


if __name__ == "__main__":
    harness.main()
