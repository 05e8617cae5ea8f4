#!/usr/bin/env python3
"""Extracts an archive in-process and prints what the program would have printed.

    python3 extract.py ARCHIVE [DIRECTORY]

libtolven.so.1 must be where the dynamic loader looks (LD_LIBRARY_PATH, or installed).
"""
import ctypes
import os
import sys


def load():
    library = ctypes.CDLL("libtolven.so.1")
    library.extractTOLVENArchive.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
    library.extractTOLVENArchive.restype = ctypes.c_int32
    library.getTOLVENOutput.argtypes = []
    library.getTOLVENOutput.restype = ctypes.c_char_p
    return library


def main():
    if len(sys.argv) not in (2, 3):
        print(f"usage: {sys.argv[0]} ARCHIVE [DIRECTORY]", file=sys.stderr)
        return 1
    library = load()
    target = os.fsencode(sys.argv[2]) if len(sys.argv) == 3 else None
    code = library.extractTOLVENArchive(os.fsencode(sys.argv[1]), target)
    output = library.getTOLVENOutput()
    if output is not None:
        sys.stdout.buffer.write(output)
    return code


if __name__ == "__main__":
    sys.exit(main())
