"""The manual pages against the source: nothing that a user may meet is missing, nothing stands there that is not so."""
import glob
import os
import re
import shutil
import subprocess
import tempfile
import unittest

import harness
import signing_support as signing

SOURCE = "".join(harness.read_file(path).decode() for path in
                 sorted(glob.glob(os.path.join(signing.SOURCE, "src", "**", "*.cpp"), recursive=True)) +
                 [os.path.join(signing.SOURCE, "src", *table) for table in
                  (("report", "error_numbers.h"), ("oldarchive", "old_messages.h"))])
PAGE = os.path.join(signing.SOURCE, "docs", "tolven.1")
with open(PAGE, encoding="utf-8") as page_file:
    TEXT = page_file.read()


def section(title):
    return re.search(r"^\.Sh " + title + r"\n(.*?)(?=^\.Sh )", TEXT, re.M | re.S)[1]


class Manual(unittest.TestCase):
    def test_exit_status_has_a_row_for_every_code(self):
        numbers = (r"\bkError\w+ = (\d+)", r"\bOLD_\w+ = (\d+)")
        found = {int(number) for pattern in numbers for number in re.findall(pattern, SOURCE)}
        rows = re.findall(r"^\.It (.+)$", section("EXIT STATUS"), re.M)
        self.assertGreater(len(found), 50)
        self.assertEqual([int(row) for row in rows[:-1]], sorted(found | {0, 100}))
        self.assertEqual(rows[-1], "above 100")
        # Codes of the older reader are told apart by parentheses.
        old = {int(number) for number in re.findall(r"\bOLD_\w+ = (\d+),", SOURCE)}
        told = re.findall(r"^\.It (\d+)\n((?:(?!\.It).*\n)*)", section("EXIT STATUS"), re.M)
        self.assertEqual({int(number) for number, text in told if ".Pq " in text and number != "0"}, old)

    def test_messages_are_the_programs(self):
        texts = re.sub(r'"\s*\n\s*"', "", SOURCE)
        for message in re.findall(r'^\.It "(TOLVEN: .*)"$', section("DIAGNOSTICS"), re.M):
            said = message.replace("\\&", "").split(" (error")[0].removeprefix("TOLVEN: ")
            for part in re.split(r"NAME|REASON|TEXT|PATH|ARGUMENT|\bN |X-| extracted| \(", said):
                self.assertTrue(part.strip(" ") in texts, (message, part))

    def test_options_are_the_programs(self):
        table = harness.read_file(os.path.join(signing.SOURCE, "src", "cmdline", "option_table.cpp")).decode()
        told = set(re.findall(r"\b(?:Fl|Cm) (\w+)", section("OPTIONS") + section("COMMANDS")))
        self.assertEqual(set(re.findall(r'\{"-(\w+)",', table)) | set(re.findall(r"\{'(\w)'", table)), told)

    @unittest.skipUnless(shutil.which("mandoc"), "mandoc is not installed")
    def test_lint(self):
        pages = sorted(glob.glob(os.path.join(signing.SOURCE, "docs", "*.[1-9]")))
        lint = subprocess.run(["mandoc", "-T", "lint", "-W", "style", *pages], stdout=subprocess.PIPE, text=True).stdout
        # Whether other pages are installed here is not a matter of the text.
        self.assertEqual([line for line in lint.splitlines() if "referenced manual not found" not in line], [])

    def test_scripts_tell_what_they_do_before_they_do_anything(self):
        scripts = [path for path in glob.glob(os.path.join(signing.SOURCE, "scripts", "*")) if os.access(path, os.X_OK)]
        with tempfile.TemporaryDirectory() as empty:
            for script in [*scripts, os.path.join(signing.SOURCE, ".ci", "run")]:
                for option, code in (("--help", 0), ("--nonsense", 2)):
                    run = subprocess.run([script, option], cwd=empty, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                         text=True, timeout=60)
                    self.assertEqual((run.returncode, run.stdout != "", os.listdir(empty)),
                                     (code, True, []), script)


if __name__ == "__main__":
    unittest.main()
