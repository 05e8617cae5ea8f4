#!/usr/bin/env python3
"""Proves the floors of src/: a file includes its own folder and the folders listed for it, nothing above, and neither
headers nor top folders (with their inner floors taken together) include each other in a circle. The allowed edges are
the rows of src/floors.cmake; the rest is refused.
"""
import pathlib
import re
import sys

# The list that the build reads, too: a folder, and the folders that it may include.
FLOORS = "src/floors.cmake"
# The cryptographic library sees the published C header of its interface, and nothing else of src/.
CRYPTO_MAY = {"signing/crypto/dkv.h"}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def includes(path):
    return INCLUDE.findall(path.read_text(encoding="utf-8"))


def read_floors(path):
    rows = re.findall(r'^  "([^":]+):([^"]*)"', path.read_text(encoding="utf-8"), re.MULTILINE)
    allowed = {}
    for folder, below in rows:
        unknown = set(below.split()) - set(allowed)
        if unknown:
            raise SystemExit(f"{path}: {folder} names {', '.join(unknown)}, which no line before it has")
        allowed[folder] = below.split()
    return allowed


def check_floors(src):
    faults = []
    allowed = read_floors(src.parent / FLOORS)
    graph = {}
    for path in sorted(src.rglob("*")):
        if path.suffix not in (".h", ".cpp", ".c"):
            continue
        name = path.relative_to(src).as_posix()
        folder = path.parent.relative_to(src).as_posix()
        if folder not in allowed:
            faults.append(f"{name}: its folder is on no floor")
            continue
        graph[name] = includes(path)
        for target in graph[name]:
            target_folder = target.rpartition("/")[0]
            if target_folder != folder and target_folder not in [*allowed[folder], "tolven"]:
                faults.append(f"{name}: must not include {target}")
    return faults, graph


def top(name):
    return name.partition("/")[0]


def top_graph(edges):
    """Which top folder reaches into which."""
    graph = {}
    for name, targets in edges.items():
        graph.setdefault(top(name), set()).update(top(t) for t in targets if top(t) != top(name))
    return {name: sorted(targets) for name, targets in graph.items()}


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
    # The list is looked at as well: an edge that no file uses yet would invite the first that does.
    for edges in (graph, top_graph(read_floors(root / FLOORS)), top_graph(graph)):
        circle = find_circle(edges)
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
