#!/usr/bin/env python3
"""Reads the JSON of engine_bench from standard input and prints our medians beside each peer's, with the ratio: above
1 ours is faster. The rows to compare are the table below.
"""
import json
import re
import sys

# Ours, its peer, what is compared. Groups of the first pattern are filled into the second and the third.
PAIRS = (
    (r"compress/tolven/(\d)/(\d)", r"compress/zlib/\1/\2", r"compress, level \1, {label}: zlib at equal effort"),
    (r"decompress/(\w+)/tolven", r"decompress/\1/zlib", r"decompress, \1: zlib's inflate"),
    (r"crc32/64K/tolven/(\d+)", r"crc32/64K/bytewise/\1", "CRC-32: the byte-wise table"),
    (r"crc32/64K/tolven/(\d+)", r"crc32/64K/zlib/\1", "CRC-32: zlib's crc32"),
)


def medians(report):
    """Name -> (MB/s, label)."""
    return {row["run_name"]: (row["bytes_per_second"] / 1e6, row.get("label", ""))
            for row in report["benchmarks"]
            if row.get("aggregate_name") == "median" and row.get("bytes_per_second")}


def main():
    report = json.load(sys.stdin)
    speeds = medians(report)
    print(f"{report['context']['num_cpus']} cores; medians in MB/s: ours, peer, ours / peer")
    for ours, peer, title in PAIRS:
        for name in sorted(speeds):
            match = re.fullmatch(ours, name)
            other = match and match.expand(peer)
            if not match or other not in speeds:
                continue
            speed, label = speeds[name]
            text = match.expand(title).format(label=label)
            print(f"  {text:<68} {speed:9.1f} {speeds[other][0]:9.1f} {speed / speeds[other][0]:7.2f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
