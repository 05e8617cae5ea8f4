#!/usr/bin/env python3
"""Times TOLVEN beside its peers, in one run: the commands of a row take turns, so that a machine whose speed drifts
slows all of them. Prints a Markdown table of medians of wall-clock time, their ratios (below 1 TOLVEN is faster), the
largest resident set of one process, and the size of the archive.
"""
import argparse
import datetime
import os
import platform
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

CORES = len(os.sched_getaffinity(0))
QUICK_SECONDS = 100  # no row begins later than this; the rest of two minutes is for the last one
TAR = "tar -cf - ."

# Program, package to get it from, create, test, extract, list; run by sh below the corpus (create), an empty directory
# (extract) or the work directory. {t} is the binary, {a} the archive, {n} the number
# of cores. The first row is what the others are compared with.
ONE = (
    ("TOLVEN", "", "{t} -crf {a} .", "{t} -df {a}", "{t} -xf {a} -xnopvalid", "{t} -tf {a}"),
    ("TOLVEN, signed", "", "{t} -crSf {a} -key {key} .", "{t} -dVf {a} -key {key}", "{t} -xVf {a} -key {key} -xnopvalid", ""),
    ("zip -4, unzip", "zip", "zip -4 -q -y -r {a} .", "unzip -tq {a}", "unzip -q -o {a}", "unzip -l {a}"),
    ("unzip, names only", "unzip", "", "", "", "unzip -Z1 {zip}"),
    ("gzip -4", "gzip", TAR + " | gzip -4 >{a}", "gzip -t <{a}", "gzip -dc <{a} | tar -xf -", "gzip -dc <{a} | tar -tf -"),
    ("bgzip -l 4", "tabix", TAR + " | bgzip -l 4 >{a}", "bgzip -dc <{a}", "bgzip -dc <{a} | tar -xf -", ""),
    ("libdeflate-gzip -4", "libdeflate-tools", TAR + " | libdeflate-gzip -4 >{a}", "libdeflate-gzip -dc <{a}",
     "libdeflate-gzip -dc <{a} | tar -xf -", ""),
    ("igzip", "isal", TAR + " | igzip -1 >{a}", "igzip -dc <{a}", "igzip -dc <{a} | tar -xf -", ""),
)
ALL = (
    ("TOLVEN", *ONE[0][1:5], ""),
    ("TOLVEN, one thread", "", *("TOLVEN_THREADS=1 " + part for part in ONE[0][2:5]), ""),
    ("pigz -4", "pigz", TAR + " | pigz -4 -p {n} >{a}", "pigz -p {n} -t <{a}", "pigz -p {n} -dc <{a} | tar -xf -", ""),
    ("bgzip -l 4 -@", "tabix", TAR + " | bgzip -l 4 -@ {n} >{a}", "bgzip -@ {n} -dc <{a}",
     "bgzip -@ {n} -dc <{a} | tar -xf -", ""),
    ("mksquashfs", "squashfs-tools", "rm -f {a}; mksquashfs . {a} -comp gzip -Xcompression-level 4 -b 64K -processors {n}"
     " -no-progress -quiet", "", "unsquashfs -processors {n} -n -q -f -d . {a}", ""),
    ("zstd -1 -T0", "zstd", TAR + " | zstd -q -1 -T0 >{a}", "zstd -q -t <{a}", "zstd -q -dc <{a} | tar -xf -", ""),
)
OPERATIONS = ("create", "test", "extract", "list")


CORPORA = ("sources", "binaries", "small", "big", "noise", "zeros")


def copy_files(target, sources, suffixes, budget, largest=4_000_000):
    """Files of this machine in random but repeatable order, in folders of their own names."""
    paths = []
    for source in sources:
        for folder, _, names in os.walk(source):
            paths += [os.path.join(folder, name) for name in names if ":" not in name]
    paths.sort()
    random.Random(1).shuffle(paths)
    for path in paths:
        if budget <= 0:
            break
        if (suffixes and not path.endswith(suffixes)) or os.path.islink(path) or not os.path.isfile(path):
            continue
        try:
            size = os.path.getsize(path)
            if not 0 < size <= min(largest, 2 * budget):
                continue
            place = os.path.join(target, os.path.dirname(path).lstrip("/"))
            os.makedirs(place, exist_ok=True)
            shutil.copy(path, place)
            budget -= size
        except OSError:
            continue  # not ours to read


def make_corpus(name, target, args):
    os.mkdir(target)
    size = args.megabytes * 1_000_000
    text = (".h", ".hpp", ".py", ".pl", ".pm", ".c", ".cpp", ".cmake", ".sh")
    if name == "sources":
        copy_files(target, ("/usr/include", "/usr/lib/python3", "/usr/share"), text, size)
    elif name == "binaries":
        copy_files(target, ("/usr/bin", "/usr/lib"), (), size)
    elif name == "small":
        letters = random.Random(2)
        words = ["".join(letters.choices("etaoinshrdlu", k=letters.randrange(2, 9))) for _ in range(2000)]
        for number in range(args.files):
            folder = os.path.join(target, str(number // 200))
            os.makedirs(folder, exist_ok=True)
            with open(os.path.join(folder, "%d.txt" % number), "w", encoding="ascii") as file:
                file.write(" ".join(letters.choices(words, k=letters.randrange(20, 400))))
    elif name == "big":
        with open(os.path.join(target, "big"), "wb") as out:
            paths = [os.path.join(folder, name) for root in ("/usr/bin", "/usr/lib") for folder, _, names in os.walk(root)
                     for name in sorted(names)]
            while out.tell() < args.big * 1_000_000:
                for path in paths:
                    if os.path.isfile(path) and os.access(path, os.R_OK) and out.tell() < args.big * 1_000_000:
                        with open(path, "rb") as file:
                            out.write(file.read(args.big * 1_000_000 - out.tell()))
    else:
        with open(os.path.join(target, name), "wb") as out:
            for _ in range(args.megabytes):
                out.write(os.urandom(1_000_000) if name == "noise" else bytes(1_000_000))
    return sum(os.path.getsize(os.path.join(folder, name)) for folder, _, names in os.walk(target) for name in names)


def resident(session, most):
    """Notes in `most` the largest resident set, so far, of each process of a session, in MiB. What a finished child
    reports is no use: it counts the memory of this script, from between fork and exec."""
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.getsid(int(pid)) == session:
                with open("/proc/%s/status" % pid, encoding="ascii", errors="replace") as file:
                    text = file.read()
                if "VmHWM:" in text and "Name:\tbash" not in text and "Name:\tpython" not in text:
                    most[pid] = int(text.split("VmHWM:")[1].split()[0]) / 1024
        except OSError:
            continue  # it has ended


def run(command, cwd, cores, environment, watched=False):
    """Seconds; if watched, the sum of the largest resident sets of all its processes instead, in MiB."""
    with open(os.devnull, "wb") as null:
        start = time.perf_counter()
        # -e, and a pipe is judged by its last part: what is timed must have worked.
        process = subprocess.Popen(["bash", "-e", "-o", "pipefail", "-c", command], cwd=cwd, stdin=null, stdout=null,
                                   stderr=null, env=environment, start_new_session=True,
                                   preexec_fn=lambda: os.sched_setaffinity(0, cores))
        most = {}
        while watched and process.poll() is None:
            resident(process.pid, most)
            time.sleep(0.001)
        process.wait()
        seconds = time.perf_counter() - start
    if process.returncode != 0:
        raise RuntimeError("%s: exit code %d" % (command, process.returncode))
    return sum(most.values()) if watched else seconds


class Bench:
    def __init__(self, args, work):
        self.args, self.work = args, work
        self.deadline = time.monotonic() + QUICK_SECONDS if args.quick else float("inf")
        self.lines = []

    def say(self, text=""):
        print(text, flush=True)
        self.lines.append(text)

    def fill(self, command, archive):
        return command.format(t=self.args.tolven, a=archive, n=CORES, key=os.path.join(self.work, "key.pse"),
                              zip=os.path.join(self.work, "0.2.archive.zip"))

    def rows(self, corpus, size, programs, mode):
        """All operations of one corpus on one core or on all."""
        cores = {min(os.sched_getaffinity(0))} if mode else os.sched_getaffinity(0)
        environment = dict(os.environ, **({"TOLVEN_THREADS": "1"} if mode else {}))
        archives = [os.path.join(self.work, "0.%d.archive.zip" % number) for number in range(len(programs))]
        for operation, name in enumerate(OPERATIONS):
            taking_part = [number for number, program in enumerate(programs) if program[2 + operation] and
                           (not program[1] or shutil.which(program[2 + operation].replace(TAR + " | ", "").replace(
                               "rm -f {a}; ", "").split()[0]))]
            if not taking_part:
                continue
            if time.monotonic() > self.deadline:
                self.say("| %s | | skipped: out of time | | | | |" % name)
                continue
            results, memory = {number: [] for number in taking_part}, {}
            for turn in range(self.args.rounds + 1):  # the first one warms up, and is watched
                for number in taking_part:
                    cwd = {"create": corpus, "extract": os.path.join(self.work, "out")}.get(name, self.work)
                    if name == "extract":
                        shutil.rmtree(cwd, ignore_errors=True)
                        os.mkdir(cwd)
                    elif name == "create" and os.path.exists(archives[number]):
                        os.remove(archives[number])
                    command = self.fill(programs[number][2 + operation], archives[number])
                    if turn == 0:
                        memory[number] = run(command, cwd, cores, environment, watched=True)
                    else:
                        results[number].append(run(command, cwd, cores, environment))
            own = results[taking_part[0]]
            for number, times in results.items():
                ratio = statistics.median(a / b for a, b in zip(own, times))
                self.say("| %s | %s | %.3f | %.0f | %s | %.0f | %s |" % (
                    name, programs[number][0], statistics.median(times), size / 1e6 / statistics.median(times),
                    "%.2f" % ratio if number != taking_part[0] else "", memory[number],
                    "%.2f" % (os.path.getsize(archives[number]) / 1e6) if name == "create" else ""))

    def corpus(self, name):
        path = os.path.join(self.work, name)
        size = make_corpus(name, path, self.args)
        count = sum(len(names) for _, _, names in os.walk(path))
        for programs, mode in ((ONE, True),) + (((ALL, False),) if CORES > 1 else ()):
            self.say("\n### %s, %s\n\n%d files, %.1f MB.\n" % (
                name, "one core" if mode else "%d cores" % CORES, count, size / 1e6))
            self.say("| operation | program | s | MB/s | ours / it | RSS MiB | archive MB |")
            self.say("|---|---|---:|---:|---:|---:|---:|")
            self.rows(path, size, programs, mode)
        if name != "binaries":
            shutil.rmtree(path)
        return path, size

    def threads(self, path, size):
        """Operation -> [(threads, MB/s)], for the plot."""
        archive = os.path.join(self.work, "threads.vra")
        counts = [count for count in (1, 2, 3, 4, 6, 8, 12, 16) if count <= 2 * CORES]
        times = {(operation, count): [] for operation in ("create", "test") for count in counts}
        for _ in range(self.args.rounds):
            for (operation, count), values in times.items():
                environment = dict(os.environ, TOLVEN_THREADS=str(count))
                command = self.fill(ONE[0][2 + OPERATIONS.index(operation)], archive)
                values.append(run(command, path, os.sched_getaffinity(0), environment))
        return {operation: [(count, size / 1e6 / statistics.median(times[operation, count])) for count in counts]
                for operation in ("create", "test")}


def plot(curves, title):
    """An SVG of throughput against threads, from zero, with a dashed line for perfect scaling of each curve."""
    width, height, left, bottom = 640, 400, 60, 350
    most = max(count for points in curves.values() for count, _ in points)
    top = 1.1 * max(speed for points in curves.values() for _, speed in points)
    x, y = (lambda count: left + (count - 1) * (width - left - 120) / max(1, most - 1)), (lambda v: bottom - 310 * v / top)
    parts = ['<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 %d %d" font-family="sans-serif" font-size="13">'
             % (width, height), '<rect width="100%" height="100%" fill="white"/>',
             '<text x="%d" y="20">%s</text>' % (left, title),
             '<path d="M%d 40V%dH%d" fill="none" stroke="black"/>' % (left, bottom, width - 110),
             '<text x="%d" y="%d">threads</text>' % (width / 2 - 40, height - 10)]
    for step in range(5):
        speed = top * step / 4
        parts.append('<text x="%d" y="%.0f" text-anchor="end">%.0f MB/s</text>' % (left - 4, y(speed) + 4, speed))
    for count in sorted({count for points in curves.values() for count, _ in points}):
        parts.append('<text x="%.0f" y="%d" text-anchor="middle">%d</text>' % (x(count), bottom + 18, count))
    for (name, points), colour in zip(curves.items(), ("#1f5fa8", "#b5471b", "#3b7d3b")):
        path = " ".join("%.1f,%.1f" % (x(count), y(speed)) for count, speed in points)
        ideal = [(count, points[0][1] * count) for count in (1, most) if points[0][1] * count <= top]
        parts += ['<polyline points="%s" fill="none" stroke="%s" stroke-width="2"/>' % (path, colour),
                  '<text x="%.0f" y="%.0f" fill="%s">%s</text>' % (x(points[-1][0]) + 6, y(points[-1][1]), colour, name)]
        if len(ideal) == 2:
            parts.append('<path d="M%.1f %.1fL%.1f %.1f" stroke="%s" stroke-dasharray="4"/>' % (
                x(1), y(ideal[0][1]), x(most), y(ideal[1][1]), colour))
    return "\n".join(parts + ["</svg>", ""])


def machine():
    model = ""
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as file:
        model = next((line.split(":")[1].strip() for line in file if line.startswith("model name")), platform.machine())
    return "%s, %d cores, Linux %s" % (model, CORES, platform.release())


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("tolven", help='the program; "-" only looks at the options')
    parser.add_argument("--quick", action="store_true", help="small corpora and few rounds: ends in two minutes")
    parser.add_argument("--corpora", default=",".join(CORPORA))
    parser.add_argument("--megabytes", type=int, help="of sources, binaries, noise and zeros (200)")
    parser.add_argument("--files", type=int, help="small files (50000)")
    parser.add_argument("--big", type=int, help="megabytes of the one big file (2048)")
    parser.add_argument("--rounds", type=int, help="timed rounds behind one that warms up (5)")
    parser.add_argument("--work", help="where trees and archives are made; a memory file system when there is one")
    parser.add_argument("--markdown", help="write the tables there, too")
    parser.add_argument("--svg", help="write the plot of throughput against threads there")
    args = parser.parse_args()
    if unknown := set(args.corpora.split(",")) - set(CORPORA):
        parser.error("no corpus " + ", ".join(sorted(unknown)))
    if args.tolven == "-":
        return
    defaults = (4, 500, 8, 1) if args.quick else (200, 50000, 2048, 5)
    for name, value in zip(("megabytes", "files", "big", "rounds"), defaults):
        if getattr(args, name) is None:
            setattr(args, name, value)
    args.tolven = os.path.abspath(args.tolven)
    where = args.work or ("/dev/shm" if os.access("/dev/shm", os.W_OK) else None)
    with tempfile.TemporaryDirectory(prefix="tolven-bench-", dir=where) as work:
        bench = Bench(args, work)
        subprocess.run([os.path.join(os.path.dirname(args.tolven), "tolven-pse"), "new", os.path.join(work, "key.pse"),
                        "-nopass"], stdout=subprocess.DEVNULL, check=True)
        bench.say("%s. %s. Medians of %d rounds in turn, in %s; load at the start %.1f." % (
            datetime.date.today(), machine(), args.rounds, os.path.dirname(work), os.getloadavg()[0]))
        for name, package, create, *_ in ONE + ALL:
            tool = create.replace(TAR + " | ", "").replace("rm -f {a}; ", "").split()[:1]
            if package and tool and not shutil.which(tool[0]):
                bench.say("\n%s is left out: %s is not installed." % (name, package))
        measured = {name: bench.corpus(name) for name in args.corpora.split(",")}
        if args.svg and "binaries" in measured and time.monotonic() < bench.deadline:
            with open(args.svg, "w", encoding="ascii") as file:
                file.write(plot(bench.threads(*measured["binaries"]), "TOLVEN on binaries, " + machine()))
        if args.markdown:
            with open(args.markdown, "w", encoding="utf-8") as file:
                file.write("\n".join(bench.lines) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
