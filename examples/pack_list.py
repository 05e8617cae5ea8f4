#!/usr/bin/env python3
"""Packs a directory and shows what is in the archive.

    python3 pack_list.py ARCHIVE DIRECTORY
"""
import sys

import tolven


def main():
    if len(sys.argv) != 3:
        print(f"usage: {sys.argv[0]} ARCHIVE DIRECTORY", file=sys.stderr)
        return 1
    try:
        with tolven.create(sys.argv[1]) as archive:
            archive.add_tree(sys.argv[2], "content")
        with tolven.open(sys.argv[1]) as archive:
            for entry in archive:
                print(f"{entry.mode:04o} {entry.size:12} {entry.name}", *(["->", entry.target] if entry.is_link() else []))
    except tolven.Error as error:
        print(error, file=sys.stderr)
        return max(error.code, 1)
    return 0


if __name__ == "__main__":
    sys.exit(main())
