#!/usr/bin/env python3
"""Times TOLVEN beside its peers on one tree, in one run: the commands of a row take turns, so that a machine whose
speed drifts slows all of them. Prints medians of wall-clock seconds and their ratios.

    side_by_side.py TOLVEN_BINARY TREE [ROUNDS]
"""
import os
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile
import time


def run(command, cwd):
    start = time.perf_counter()
    subprocess.run(command, cwd=cwd, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.perf_counter() - start


class Bench:
    def __init__(self, tolven, tree, rounds, work):
        self.tolven, self.tree, self.rounds, self.work = tolven, os.path.abspath(tree), rounds, work

    def row(self, title, commands):
        """commands: list of (name, argv, cwd, prepare). The first is ours. One warm-up, then rounds in turn."""
        times = {name: [] for name, *_ in commands}
        for turn in range(self.rounds + 1):
            for name, argv, cwd, prepare in commands:
                prepare()
                seconds = run(argv, cwd)
                if turn > 0:
                    times[name].append(seconds)
        medians = {name: statistics.median(values) for name, values in times.items()}
        own = medians[commands[0][0]]
        print(f"\n{title}")
        for name, values in times.items():
            ratio = "" if name == commands[0][0] else f"   ours / it = {own / medians[name]:.2f}"
            print(f"  {name:<24} {medians[name]:8.3f} s  ({min(values):.3f} .. {max(values):.3f}){ratio}")

    def path(self, name):
        return os.path.join(self.work, name)

    def remover(self, name):
        return lambda: os.path.exists(self.path(name)) and os.remove(self.path(name))

    def emptier(self, name):
        def prepare():
            shutil.rmtree(self.path(name), ignore_errors=True)
            os.mkdir(self.path(name))
        return prepare

    def create(self):
        nothing = lambda: None
        self.row("create (each leaves its archive for the extraction below)", [
            ("TOLVEN -crf", [self.tolven, "-crf", self.path("a.vra"), "."], self.tree, nothing),
            ("zip -4 -y", ["zip", "-4", "-q", "-y", "-r", self.path("a.zip"), "."], self.tree, self.remover("a.zip")),
            ("tar, gzip -4", ["tar", "-I", "gzip -4", "-cf", self.path("a.tgz"), "."], self.tree, nothing),
        ])
        for name in ("a.vra", "a.zip", "a.tgz"):
            print(f"  {name:<24} {os.path.getsize(self.path(name)) / 1e6:8.1f} MB")

    def extract(self):
        self.row("extract", [
            ("TOLVEN -xf", [self.tolven, "-xf", self.path("a.vra"), "-R", self.path("x1"), "-xnopvalid"],
             self.work, self.emptier("x1")),
            ("unzip", ["unzip", "-q", "-o", self.path("a.zip"), "-d", self.path("x2")], self.work, self.emptier("x2")),
            ("tar, gzip -d", ["tar", "-xzf", self.path("a.tgz"), "-C", self.path("x3")], self.work, self.emptier("x3")),
        ])

    def read(self):
        nothing = lambda: None
        self.row("test", [
            ("TOLVEN -df", [self.tolven, "-df", self.path("a.vra")], self.work, nothing),
            ("unzip -t", ["unzip", "-tq", self.path("a.zip")], self.work, nothing),
        ])

    def sign(self):
        """What signing costs: the same creation with and without -S."""
        tool = os.path.join(os.path.dirname(self.tolven), "tolven-pse")
        key = self.path("bench.pse")
        subprocess.run([tool, "new", key, "-nopass"], stdout=subprocess.DEVNULL, check=True)
        nothing = lambda: None
        self.row("create with a signature, and without", [
            ("TOLVEN -crSf", [self.tolven, "-crSf", self.path("s.vra"), "-key", key, "."], self.tree, nothing),
            ("TOLVEN -crf", [self.tolven, "-crf", self.path("a.vra"), "."], self.tree, nothing),
        ])

    def lzc(self):
        """LZC on one file of about 100 MB: the tree's files one behind the other."""
        tool = os.path.join(os.path.dirname(self.tolven), "lzc_file")
        whole, ours, theirs = self.path("whole"), self.path("ours.lzc"), self.path("theirs.Z")
        with open(whole, "wb") as out:
            for folder, _, names in os.walk(self.tree):
                for name in names:
                    path = os.path.join(folder, name)
                    if os.path.isfile(path) and not os.path.islink(path) and out.tell() < 100_000_000:
                        with open(path, "rb") as file:
                            shutil.copyfileobj(file, out)
        nothing = lambda: None
        shell = lambda command: ["sh", "-c", command]
        self.row(f"LZC compression of {os.path.getsize(whole) / 1e6:.0f} MB", [
            ("lzc_file c", [tool, "c", whole, ours], self.work, nothing),
            ("compress -b 13", shell(f"compress -b 13 -c '{whole}' >'{theirs}'"), self.work, nothing),
        ])
        self.row("LZC decompression", [
            ("lzc_file d", [tool, "d", ours, self.path("back")], self.work, nothing),
            ("compress -d", shell(f"exec compress -dc '{theirs}' >'{self.path('back.Z')}'"), self.work, nothing),
        ])


def main():
    if len(sys.argv) not in (3, 4):
        print(__doc__, file=sys.stderr)
        return 2
    tolven = os.path.abspath(sys.argv[1])
    rounds = int(sys.argv[3]) if len(sys.argv) == 4 else 5
    files = sum(len(names) for _, _, names in os.walk(sys.argv[2]))
    print(f"{platform.machine()}, {os.cpu_count()} cores; tree: {files} files; medians of {rounds} rounds")
    with tempfile.TemporaryDirectory(prefix="tolven-bench-") as work:
        bench = Bench(tolven, sys.argv[2], rounds, work)
        bench.create()
        bench.extract()
        bench.read()
        bench.sign()
        bench.lzc()
    return 0


if __name__ == "__main__":
    sys.exit(main())
