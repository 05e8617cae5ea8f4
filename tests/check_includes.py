#!/usr/bin/env python3
"""Proves the floors of src/: a file includes its own folder and the folders listed for it, nothing above, and no
headers include each other in a circle. The allowed edges are the data below; whatever is not listed is refused.
"""
import pathlib
import re
import sys

# Folder -> folders that it may include. "signing" and "main" mean the files directly in them.
ALLOWED = {
    "cslib": [],
    "report": [],
    "signing/hash": ["cslib"],
    "fileio": ["report"],
    "signing/crypto": ["report"],
    "cmdline": ["fileio", "report"],
    "signing/manifest": ["signing/crypto", "signing/hash", "fileio", "report"],
    "main/run": ["cmdline", "fileio", "report"],
    "archive": ["main/run", "cmdline", "fileio", "report", "cslib", "signing/manifest"],
    "oldarchive": ["main/run", "cmdline", "fileio", "report", "cslib"],
    "signing": ["archive", "main/run", "cmdline", "fileio", "report", "cslib", "signing/manifest",
                "signing/crypto"],
    "archive/commands": ["signing", "archive", "oldarchive", "main/run", "cmdline", "fileio", "report"],
    "main": ["archive/commands", "signing", "archive", "oldarchive", "main/run", "cmdline", "fileio", "report",
             "signing/manifest", "tolven"],
}
# The cryptographic library sees the published C header of its interface, and nothing else of src/.
CRYPTO_MAY = {"signing/crypto/dkv.h"}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def includes(path):
    return INCLUDE.findall(path.read_text(encoding="utf-8"))


def check_floors(src):
    faults = []
    graph = {}
    for path in sorted(src.rglob("*")):
        if path.suffix not in (".h", ".cpp", ".c"):
            continue
        name = path.relative_to(src).as_posix()
        folder = path.parent.relative_to(src).as_posix()
        if folder not in ALLOWED:
            faults.append(f"{name}: its folder is on no floor")
            continue
        graph[name] = includes(path)
        for target in graph[name]:
            target_folder = target.rpartition("/")[0]
            if target_folder != folder and target_folder not in ALLOWED[folder]:
                faults.append(f"{name}: must not include {target}")
    return faults, graph


def find_circle(graph):
    done = set()

    def visit(name, path):
        if name in path:
            return path[path.index(name):] + [name]
        if name in done:
            return None
        for target in graph.get(name, []):
            circle = visit(target, path + [name])
            if circle:
                return circle
        done.add(name)
        return None

    for name in graph:
        circle = visit(name, [])
        if circle:
            return circle
    return None


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".")
    faults, graph = check_floors(root / "src")
    circle = find_circle(graph)
    if circle:
        faults.append("circle: " + " -> ".join(circle))
    crypto = root / "crypto"
    for path in sorted(crypto.rglob("*")):
        if path.suffix in (".h", ".cpp"):
            own = {p.relative_to(crypto).as_posix() for p in crypto.rglob("*.h")}
            for target in includes(path):
                if target not in CRYPTO_MAY and target not in own and not target.startswith("crypto/"):
                    faults.append(f"{path.relative_to(root)}: must not include {target}")
    for fault in faults:
        print(fault)
    print(f"{len(graph)} files checked, {len(faults)} faults")
    return 1 if faults or not graph else 0


if __name__ == "__main__":
    sys.exit(main())
