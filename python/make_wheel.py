#!/usr/bin/env python3
"""Makes the wheel of the Python module, without setuptools and without a network; also what pip calls to build it.

    python3 make_wheel.py [--library libtolven.so.1] DIRECTORY

With a library the wheel holds it and is for this platform, else the module finds the one that is installed. Two runs
make the same bytes.
"""
import argparse
import base64
import hashlib
import os
import re
import stat
import sys
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
LICENSE = "Proprietary"


def version():
    with open(os.path.join(HERE, "..", "CMakeLists.txt"), encoding="utf-8") as file:
        return re.search(r"project\(tolven VERSION ([0-9.]+)", file.read()).group(1)


def module_files():
    package = os.path.join(HERE, "tolven")
    for name in sorted(os.listdir(package)):
        if name.endswith((".py", ".typed")):
            with open(os.path.join(package, name), "rb") as file:
                yield f"tolven/{name}", file.read()


def metadata(tag, pure):
    release = version()
    return [("METADATA", f"Metadata-Version: 2.1\nName: tolven\nVersion: {release}\n"
                         "Summary: TOLVEN archives: walk, read at any offset, extract, verify, write\n"
                         f"License: {LICENSE}\nRequires-Python: >=3.9\n"),
            ("WHEEL", f"Wheel-Version: 1.0\nGenerator: make_wheel\nRoot-Is-Purelib: {str(pure).lower()}\nTag: {tag}\n")]


def make(directory, library=None):
    tag = "py3-none-any" if library is None else "py3-none-linux_x86_64"
    name = f"tolven-{version()}-{tag}.whl"
    info = f"tolven-{version()}.dist-info"
    files = list(module_files())
    if library is not None:
        with open(library, "rb") as file:
            files.append(("tolven/libtolven.so.1", file.read()))
    files += [(f"{info}/{part}", text.encode()) for part, text in metadata(tag, library is None)]
    record = ""
    for path, data in files:
        digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
        record += f"{path},sha256={digest},{len(data)}\n"
    files.append((f"{info}/RECORD", (record + f"{info}/RECORD,,\n").encode()))
    with zipfile.ZipFile(os.path.join(directory, name), "w", zipfile.ZIP_DEFLATED) as wheel:
        for path, data in files:
            entry = zipfile.ZipInfo(path, (1980, 1, 1, 0, 0, 0))
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (stat.S_IFREG | 0o644) << 16
            wheel.writestr(entry, data)
    return name


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    """What pip calls; --config-settings library=FILE puts the library in."""
    return make(wheel_directory, (config_settings or {}).get("library"))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--library", metavar="FILE", help="a libtolven.so.1 to put in")
    parser.add_argument("directory", metavar="DIRECTORY")
    arguments = parser.parse_args()
    print(make(arguments.directory, arguments.library))
    return 0


if __name__ == "__main__":
    sys.exit(main())
