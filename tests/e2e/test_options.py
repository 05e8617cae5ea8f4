"""The command line: what is parsed, what is refused and with which words, and the options that belong to no command
in particular.
"""
import os
import re

import archivefile
import harness

NO_COMMAND = "TOLVEN: please specify a command (one of -c, -x, -t, -d, -a, -m, -l, -S, -M)"


class Start(harness.TolvenTest):
    def test_no_argument_prints_the_usage(self):
        run = self.run_tolven()
        self.assertEqual(run.code, 0)
        self.assertEqual(run.lines[:4], ["usage:", "", "create a new archive:",
                                         "TOLVEN -c[vir][f archive] [-P] [-C directory]"])
        self.assertIn("stored at the end of the archive. It contains a TOC of all file entries. This ", run.lines)
        self.assertEqual([line for line in run.lines if line][-1],
                         "TOC is signed. This ensures integrity and authenticity of the archive entries.")

    def test_one_argument_never_runs_a_command(self):
        self.write("DEFAULT.VRA", b"not an archive")
        for argument in ("-t", "-x", "-q", "--version", "name", "-f", "-e", ""):
            run = self.run_tolven(argument)
            self.assertEqual(run.code, 0, argument)
            self.assertRegex(run.lines[0], r"^TOLVEN \d+\.\d+")
        self.assertEqual(os.listdir(self.dir), ["DEFAULT.VRA"])


class Refused(harness.TolvenTest):
    def refuse(self, args, message, number):
        self.expect(args, ["%s (error %d). " % (message, number)], number)

    def test_options_with_an_argument(self):
        for name in "X T C f A R H key L pwd y manifest crl F tsaurl proxy".split():
            option = "-" + name
            once = "TOLVEN: %s: use option only once" % name
            missing = "TOLVEN: %s-option specified without filename" % name
            self.refuse(["-c", option, "one", option, "two"], once, 18)
            self.refuse(["-c", option, "one", option], once, 18)
            self.refuse(["-c", option], missing, 19)
            self.refuse(["-c", option, "-v"], missing, 19)
            self.refuse(["-c", option, "-"], missing, 19)

    def test_archive_in_a_group(self):
        self.refuse("-c -cvf", "TOLVEN: f-option specified without filename", 19)
        self.refuse("-cvf -x", "TOLVEN: f-option specified without filename", 19)
        self.refuse("-cf A -tf B", "TOLVEN: f: use option only once", 18)
        self.refuse("-cf A -f B", "TOLVEN: f: use option only once", 18)
        self.refuse("-fcv ARCHIVE", NO_COMMAND, 21)  # what follows the "f" in a group is not read
        self.refuse("-fq ARCHIVE", NO_COMMAND, 21)

    def test_unknown_letters(self):
        for group, rest in (("-q", "q"), ("-cqv", "qv"), ("-vv?x", "?x"), ("-ce", "e"), ("-cp", "p"), ("-c-", "-"),
                            ("-lowe", "owe"), ("-lowerr", "owerr"), ("-Key", "Key"), ("--", "-"), ("-cX", "X")):
            self.refuse(["-v", group], "TOLVEN: unknown command option " + rest, 20)

    def test_permission_value(self):
        self.refuse("-c -p rw x", "TOLVEN: no octal value specified for p-option", 27)
        self.refuse(["-c", "-p", "", "x"], "TOLVEN: no octal value specified for p-option", 27)
        self.refuse("-c -p 8 x", "TOLVEN: no octal value specified for p-option", 27)
        self.refuse("-c -p -v x", "TOLVEN: no octal value specified for p-option", 27)
        self.refuse("-c -p 600 -p 644", "TOLVEN: use p-option only once", 18)
        self.refuse("-c -p 0 -p", "TOLVEN: use p-option only once", 18)

    def test_first_error_ends_the_parsing(self):
        self.refuse("-cf A -f B -q", "TOLVEN: f: use option only once", 18)
        self.refuse("-q -f", "TOLVEN: unknown command option q", 20)

    def test_rules_in_their_order(self):
        both = "TOLVEN: don't use both P-option and C-option"
        only_c = "TOLVEN: use C-option only with create (-c)"
        only_t = "TOLVEN: use T-option only with create (-c) or append (-a)"
        only_x = "TOLVEN: use X-option only with create (-c), append (-a) or scan (-l)"
        only_r = "TOLVEN: use R-option only with extract (-x) or list content (-t)"
        only_s = "TOLVEN: use s-option only with list content (-t)"
        only_lower = "TOLVEN: use -lower only with extract (-x)"
        self.write("list", "x|y\n")
        rows = (
            ("-c -v", "TOLVEN: no files given for archiving", 29),
            ("-cf A", "TOLVEN: no files given for archiving", 29),
            ("-c -X list", "TOLVEN: no files given for archiving", 29),
            ("-xf NONE*", "TOLVEN: no archives specified for extracting", 29),
            ("-xgf none", "TOLVEN: no archives specified for extracting", 29),
            ("-Sf NONE*", "TOLVEN: no archives specified for extracting", 29),
            ("-a -v", "TOLVEN: no files specified for appending", 29),
            ("-af A -T list", "TOLVEN: no files specified for appending", 29),
            ("-l -v", "TOLVEN: no files specified for scanning", 29),
            ("-Sf A x", "TOLVEN: additionally files are not allowed for signing an archive", 20),
            ("-Sf A -A list", "TOLVEN: additionally files are not allowed for signing an archive", 20),
            ("-Mf NONE*", "TOLVEN: no manifest specified", 20),
            ("-mVf A", "TOLVEN: no signatures supported for merging", 53),
            ("-m -V -s", "TOLVEN: no signatures supported for merging", 53),
            ("-mSf A", "TOLVEN: no signatures supported for merging", 53),
            ("-v -v", NO_COMMAND, 21),
            ("- -v", NO_COMMAND, 21),
            ("x y", NO_COMMAND, 21),
            ("-v -C . -P", NO_COMMAND, 21),
            ("-t -C . -P", both, 22),
            ("-c x -C . -P", both, 22),
            ("-t -C .", only_c, 23),
            ("-a x -C .", only_c, 23),
            ("-t -T list -X list", only_t, 24),
            ("-x -T list", only_t, 24),
            ("-l x -T list", only_t, 24),
            ("-t -X list -R .", only_x, 25),
            ("-d -X list", only_x, 25),
            ("-c x -R .", only_r, 26),
            ("-d -R .", only_r, 26),
            ("-ds -lower", only_s, 31),
            ("-cs x", only_s, 31),
            ("-t -lower", only_lower, 46),
            ("-c x -lower", only_lower, 46),
        )
        for args, message, number in rows:
            self.refuse(args, message, number)
        self.assertEqual(os.listdir(self.dir), ["list"])

    def test_the_last_command_letter_counts(self):
        self.refuse("-xc -v", "TOLVEN: no files given for archiving", 29)
        self.refuse("-c -a", "TOLVEN: no files specified for appending", 29)
        # "S" makes a command of its own only where none stands before it.
        self.refuse("-Sc -v", "TOLVEN: no files given for archiving", 29)
        # "M" behind or before a "t" asks for the signature only.
        self.write("A", archivefile.archive(archivefile.directory("d")))
        for letters in ("-tMf", "-Mtf"):
            self.expect([letters, "A"], ["TOLVEN: processing archive A (version 2.01)",
                                         "TOLVEN: A is not digitally signed (error 59). "], 59)

    def test_list_files(self):
        for option in ("-A", "-X", "-T"):
            self.expect(["-c", "x", option, "missing"],
                        ["TOLVEN: error opening missing (error 6). No such file or directory"], 6)
            self.expect(["-c", "x", option, "."],
                        ["TOLVEN: error reading from . (error 5). "], 5)
        # The lists are read before the options are compared.
        self.expect("-t -T missing", ["TOLVEN: error opening missing (error 6). No such file or directory"], 6)


class Common(harness.TolvenTest):
    def test_backup_is_noted_and_ignored(self):
        self.write("a", "a")
        note = "TOLVEN: option -backup not supported on non-Windows platforms (option ignored)"
        self.expect("-cvf A -backup a", [note, "a a"])
        # Parsing comes before the output is redirected.
        self.expect("-tf A -e -backup", [note])
        self.expect("-backup -q", [note, "TOLVEN: unknown command option q (error 20). "], 20)

    def test_redirected_output(self):
        self.write("a", "a")
        self.write("tolven_output", "x" * 1000)
        self.expect("-cvf A a -e", [])
        self.assertEqual(harness.read_file(self.path("tolven_output")), b"a a\n")
        self.expect("-tf MISSING -e", [], 6)
        self.assertEqual(harness.read_file(self.path("tolven_output")),
                         b"TOLVEN: error opening MISSING (error 6). No such file or directory\n")
        self.expect("-e -q", ["TOLVEN: unknown command option q (error 20). "], 20)

    def test_redirection_that_fails(self):
        os.mkdir(self.path("tolven_output"))
        self.write("a", "a")
        self.expect("-cvf A a -e", ["TOLVEN: could not redirect stdout to file tolven_output", "a a"])

    def test_inaccessible_files_are_logged_when_redirected(self):
        self.write("a", "a")
        for ignore, kept in (("", False), ("i", True)):
            self.expect(["-c%sf" % ignore, "A", "-e", "a", "gone1", "gone2"], [], 44)
            self.assertEqual(harness.read_file(self.path("tolven_output")),
                             b"TOLVEN: some files could not be accessed (see TOLVEN.log for details)\n")
            self.assertEqual(harness.read_file(self.path("tolven.log")),
                             b"# List of inaccessible files\n# ==========================\ngone1\ngone2\n")
            self.assertEqual(os.path.exists(self.path("A")), kept)

    def test_the_log_follows_the_source_directory_and_may_fail(self):
        harness.build_tree(self.path("src"), {"a": "a"})
        self.expect("-cf A -C src -e gone", [], 44)
        self.assertEqual(sorted(os.listdir(self.dir)), ["src", "tolven_output"])
        self.assertEqual(sorted(os.listdir(self.path("src"))), ["a", "tolven.log"])
        os.mkdir(self.path("tolven.log"))
        self.expect("-cf A -e gone", [], 6)
        self.assertRegex(harness.read_file(self.path("tolven_output")).decode(),
                         r"^TOLVEN: error opening tolven\.log \(error 6\)\. ")

    def test_statistics(self):
        harness.build_tree(self.path("d"), {"a": "a", "s/b": "b", "l": harness.Link("a")})
        texts = [r"Printing program statistics for TOLVEN\.\.\.", r"time elapsed: 00:00:\d\d \(hh:mm:ss\)"]
        rows = (("-cf A d -n", 0, 5), ("-cnf A d", 0, 5), ("-tnf A", 0, 5), ("-dnf A", 0, 5), ("-tnf A d/s", 0, 2),
                ("-cnf B d gone", 44, 5), ("-cinf B d/a gone", 44, 1))
        for args, code, count in rows:
            run = self.run_tolven(*args.split())
            self.assertEqual(run.code, code, run)
            for pattern, line in zip(texts + ["Files processed: %d" % count], run.lines[-3:]):
                self.assertRegex(line, "^%s$" % pattern, args)
        run = self.run_tolven("-tnf", "MISSING")
        self.assertEqual((run.code, len(run.lines)), (6, 1), "no statistics after a failure")

    def test_default_archive_and_long_names(self):
        self.write("a", "a")
        self.expect("-c a", [])
        self.expect("-t a", ["TOLVEN: processing archive DEFAULT.VRA (version 2.01)",
                             self.run_tolven("-t", "-v").lines[1]])
        run = self.run_tolven("-cf", "n" * 5000, "a")
        self.assertEqual((run.code, run.lines),
                         (6, ["TOLVEN: error opening %s (error 6). File name too long" % ("n" * 4351)]))

    def test_permission_value_is_read_like_octal_input(self):
        self.write("a", "a")
        os.chmod(self.path("a"), 0o751)
        for text, mode in (("644", 0o644), (" 644", 0o644), ("600x", 0o600), ("6448", 0o644), ("0", 0),
                           ("4755", 0o4755), ("107777", 0o7777)):
            self.expect(["-cf", "A", "-p", text, "a"], [])
            self.assertEqual(oct(archivefile.read(self.path("A"))[1][0].mode), oct(0o100000 | mode), text)
        self.expect("-cf A a -p", [])  # as the last argument it is as if it were not there
        self.assertEqual(archivefile.read(self.path("A"))[1][0].mode, 0o100751)


class ArchiveLists(harness.TolvenTest):
    def setUp(self):
        super().setUp()
        content = archivefile.archive(archivefile.directory("d"))
        for name in ("A.VRA", "B.VRA", "X Y.VRA", "sub/K1.vra", "sub/K2.vra", "k3.VRA", "c,d"):
            self.write(name, content)

    def listed(self, text, *args):
        run = self.run_tolven("-tf", text, *args)
        self.assertEqual(run.code, 0, run)
        return [re.fullmatch(r"TOLVEN: processing archive (.*) \(version 2\.01\)", line).group(1)
                for line in run.lines[::2]]

    def test_separators(self):
        rows = (("A.VRA", ["A.VRA"]), ("A.VRA B.VRA", ["A.VRA", "B.VRA"]), (" A.VRA\t\n B.VRA ", ["A.VRA", "B.VRA"]),
                ("A.VRA,B.VRA", ["A.VRA", "B.VRA"]), ("A.VRA,,, B.VRA,", ["A.VRA", "B.VRA"]),
                ("X Y.VRA, B.VRA", ["X Y.VRA", "B.VRA"]), ("X Y.VRA,", ["X Y.VRA"]),
                ("B.VRA A.VRA B.VRA", ["B.VRA", "A.VRA", "B.VRA"]))
        for text, names in rows:
            self.assertEqual(self.listed(text), names, text)

    def test_wildcards(self):
        for text, names in (("?.VRA", ["A.VRA", "B.VRA"]), ("sub/K*", ["sub/K1.vra", "sub/K2.vra"]),
                            ("*Y.V*,", ["X Y.VRA"]), ("NONE*", []), ("NONE* A.VRA", ["A.VRA"])):
            self.assertEqual(sorted(self.listed(text)), names, text)
        # A wildcard in the directory part is no pattern.
        self.expect(["-tf", "s*/K1.vra"],
                    ["TOLVEN: error opening s*/K1.vra (error 6). No such file or directory"], 6)

    def test_ignoring_case(self):
        for text, names in (("a.vra", ["A.VRA"]), ("K*.vRa", ["k3.VRA"]), ("sub/k?.VRA", ["sub/K1.vra", "sub/K2.vra"]),
                            ("A.VRA sub/k1.vra", ["A.VRA", "sub/K1.vra"]), ("none", [])):
            self.assertEqual(sorted(self.listed(text, "-g")), names, text)
        self.expect("-tf a.vra", ["TOLVEN: error opening a.vra (error 6). No such file or directory"], 6)

    def test_create_takes_the_whole_text_as_one_name(self):
        self.create("N 1,N 2", "A.VRA")
        self.assertTrue(os.path.exists(self.path("N 1,N 2")))

    def test_an_archive_that_fails_ends_the_list(self):
        run = self.run_tolven("-tf", "A.VRA MISSING B.VRA")
        self.assertEqual(run.code, 6)
        self.assertEqual([run.lines[0], run.lines[-1]],
                         ["TOLVEN: processing archive A.VRA (version 2.01)",
                          "TOLVEN: error opening MISSING (error 6). No such file or directory"])
        self.assertEqual(len(run.lines), 3)


if __name__ == "__main__":
    harness.main()
