"""What stands beside the program for shells and desktops: completions, the magic of file, the MIME type."""
import os
import re
import shutil
import subprocess
import unittest
import xml.etree.ElementTree

import harness
import make_old_archive as old
import signing_support as signing
from harness import Link

PACKAGING = os.path.join(signing.SOURCE, "packaging")
SHELLS = {
    "bash": ["bash", "-c", 'compopt() { :; }; . "$0"/TOLVEN.bash; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _TOLVEN;'
             ' for name in "${COMPREPLY[@]}"; do eval "printf \'%s\\\\n\' $name"; done'],
    # What the completion system of zsh does with the candidates is left to it: only they are looked at.
    "zsh": ["zsh", "-f", "-c", 'compadd() { [[ $1 == -a ]] && print -rl -- ${(P)2} || print -rl -- $@ };'
            ' _files() { case $1 in -/) print -rl -- *(/);; -g) print -rl -- ${~2};; *) print -rl -- *;; esac };'
            ' _multi_parts() { print -rl -- ${(P)2} }; setopt extendedglob; words=("$@"); CURRENT=$#words;'
            ' . $0/_TOLVEN'],
    "fish": ["fish", "-N", "-c", 'source $argv[1]/TOLVEN.fish; complete -C (string join " " -- $argv[2..])'],
}
ROWS = (
    ("-", "-cf -crf -crSf -af -tf -tVf -xf -xVf -df -dVf -mf -l -Sf -M"),
    ("-xf My", "My.vra"),
    ("-xvf My.vra ", "d/ empty link"),
    ("-xf My.vra d/", "d/text"),
    ("-d -f My.vra em", "empty"),
    ("-tf Old.VRA d/", "d/text"),
    ("-xf My.vra -x", "-xnopvalid"),
    ("-xf My.vra -R ", "sub/"),
    ("-crSf New.vra -y SHA3", "SHA384"),
    ("-crSf New.vra -t", "-tsaurl"),
    ("-Sf My.vra -key ", "release test"),
    ("-cf New.vra ot", "other"),
    ("-Sf My.vra -x", ""),
)


def one_step(name, typed):
    cut = name.find("/", len(typed))
    return name if cut < 0 else name[:cut + 1]


class Completion(harness.TolvenTest):
    def test_candidates(self):
        harness.build_tree(self.path("t"), {"d/text": "1", "empty": "", "link": Link("d/text")})
        self.create("../My.vra", ".", "-r", cwd="t")
        self.write("Old.VRA", old.build([old.file_entry("d/text", 0o644, 1, b"old")]))
        harness.build_tree(self.dir, {"other": "", "sub": harness.Directory(), "sec/release.pse": "", "sec/test.pse": ""})
        os.mkdir(self.path("cwd"))
        for name in ("My.vra", "Old.VRA", "other", "sub"):
            os.rename(self.path(name), self.path("cwd", name))
        environment = harness.environment(PATH=os.path.dirname(harness.BINARY) + ":" + os.environ["PATH"], HOME=self.dir,
                                          SECUDIR=self.path("sec"))
        missing = [shell for shell in SHELLS if not shutil.which(shell)]
        for shell in SHELLS.keys() - missing:
            for line, expected in ROWS:
                words = ["TOLVEN", *line.split(" ")]
                done = subprocess.run([*SHELLS[shell], PACKAGING + "/completions", *words], cwd=self.path("cwd"),
                                      env=environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
                found = {name.split("\t")[0] for name in done.stdout.splitlines()}
                if expected == "sub/" and shell != "fish":
                    found = {name + "/" for name in found}
                found = {one_step(name, words[-1]) for name in found if name and name.startswith(words[-1])}
                # Where a directory has an entry of its own, it may be offered too.
                found -= {name[:-1] for name in found if name.endswith("/")}
                with self.subTest(shell=shell, line=line):
                    self.assertEqual((done.stderr, found), ("", set(expected.split())))
        if missing:
            self.skipTest("not installed: " + ", ".join(missing))

    def test_the_options_are_the_programs(self):
        table = harness.read_file(os.path.join(signing.SOURCE, "src", "cmdline", "option_table.cpp")).decode()
        program = set(re.findall(r'\{"(-\w+)",', table))
        for name, start, end in (("TOLVEN.bash", "long='", "'\n  COMPREPLY"), ("_TOLVEN", "long=(", ")"),
                                 ("TOLVEN.fish", "__tolven_long ", "\n\n")):
            text = harness.read_file(os.path.join(PACKAGING, "completions", name)).decode()
            told = text.split(start)[1].split(end)[0]
            self.assertEqual(set(re.findall(r"(?<!\S)(-\w+)", told.replace("'", " "))), program, name)


class Types(harness.TolvenTest):
    def setUp(self):
        super().setUp()
        self.write("f", "text")
        self.create("A.vra", "f")

    @unittest.skipUnless(shutil.which("file"), "file is not installed")
    def test_magic(self):
        magic = os.path.join(PACKAGING, "tolven.magic")
        for options, expected in (((), "TOLVEN archive, version 2.01, begins with a file"),
                                  (("--mime-type",), "application/x-tolven"), (("--extension",), "vra")):
            said = signing.tool("file", "-b", "-m", magic, *options, self.path("A.vra")).decode().strip()
            self.assertEqual(said, expected)
        self.assertNotIn("TOLVEN", signing.tool("file", "-b", "-m", magic, self.path("f")).decode())
        checked = subprocess.run(["file", "-C", "-m", magic], cwd=self.dir, stderr=subprocess.PIPE)
        self.assertEqual((checked.returncode, checked.stderr), (0, b""))

    def test_mime_type(self):
        root = xml.etree.ElementTree.parse(os.path.join(PACKAGING, "tolven.xml"))
        space = "{http://www.freedesktop.org/standards/shared-mime-info}"
        match = root.find(".//%smatch" % space)
        self.assertTrue(harness.read_file(self.path("A.vra")).startswith(match.get("value").encode()))
        self.assertEqual(root.find(".//%sglob" % space).get("pattern"), "*.vra")
        if shutil.which("update-mime-database"):
            os.makedirs(self.path("mime", "packages"))
            shutil.copy(os.path.join(PACKAGING, "tolven.xml"), self.path("mime", "packages"))
            signing.tool("update-mime-database", self.path("mime"))
            self.assertIn(b"application/x-tolven", harness.read_file(self.path("mime", "globs")))


if __name__ == "__main__":
    harness.main()
