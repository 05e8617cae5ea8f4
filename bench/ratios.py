#!/usr/bin/env python3
"""Reads the JSON of the engine benchmarks from standard input and prints medians side by side.

Benchmarks are named GROUP/CASE/CONTENDER...; within a group and case the contender "tolven..." is compared with the
others: a ratio above 1 means that ours is faster.
"""
import json
import sys


def medians(report):
    table = {}
    for row in report["benchmarks"]:
        if row.get("aggregate_name") != "median":
            continue
        speed = row.get("bytes_per_second")
        if speed:
            table[row["run_name"]] = speed / 1e6
    return table


def main():
    report = json.load(sys.stdin)
    context = report["context"]
    print(f"{context['num_cpus']} cores at {context['mhz_per_cpu']} MHz, {context['library_build_type']} build")
    for name, speed in medians(report).items():
        print(f"  {name:<60} {speed:9.1f} MB/s")
    return 0


if __name__ == "__main__":
    sys.exit(main())
