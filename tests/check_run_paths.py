#!/usr/bin/env python3
"""check_run_paths.py DIRECTORY...: no program or library below looks for libraries in a place that its user chooses.

An empty or relative element of a run path means the current directory of whoever starts the program: a library that
lies there would be loaded and run.
"""
import os
import re
import subprocess
import sys

RUN_PATH = re.compile(r"\((?:RPATH|RUNPATH)\)[^\[]*\[(.*)\]")


def is_linked(path):
    """Whether `path` is an executable or a shared library of ELF: what has a run path."""
    if os.path.islink(path) or not os.path.isfile(path):
        return False
    with open(path, "rb") as file:
        start = file.read(18)
    return start[:4] == b"\x7fELF" and start[16:18] in (b"\x02\0", b"\x03\0")


def elements(path):
    shown = subprocess.run(["readelf", "-dW", path], check=True, capture_output=True, text=True).stdout
    return [element for found in RUN_PATH.findall(shown) for element in found.split(":")]


def main(directories):
    read, bad = 0, []
    for directory in directories:
        for folder, _, files in os.walk(directory):
            for path in (os.path.join(folder, name) for name in files):
                found = elements(path) if is_linked(path) else []
                read += len(found)
                bad += ["%s: %r" % (path, element) for element in found
                        if not element.startswith(("/", "$ORIGIN/")) and element != "$ORIGIN"]
    if not read:
        bad.append("no run path was found at all")
    print("\n".join(bad) if bad else "%d elements, all fixed" % read)
    return bool(bad)


sys.exit(main(sys.argv[1:]))
