#!/usr/bin/python3
"""Runs the bench programs and reports how the library compares: a table, a CSV file and a picture.

Usage: report.py [--smoke] BUILD_DIRECTORY [NAME...]

Every program runs in namespaces of its own, so that it sees its own load only. The contestants of a
row take turns within one run. Times are CPU times, and only their ratios mean anything.
"""

import csv
import json
import os
import statistics
import subprocess
import sys
from pathlib import Path

REPETITIONS = 9

NAMESPACES = ["unshare", "--mount", "--pid", "--net", "--fork", "--kill-child", "--mount-proc",
              "sh", "-c", 'ip link set lo up && exec "$@"', "sh"]
if os.getuid() != 0:
    NAMESPACES.insert(1, "--map-root-user")

# The programs, each with the options of its runs.
PROGRAMS = {
    "processes": [[]],
    "sockets": [["--sockets=5000"], ["--sockets=20000"]],
    "ranges": [[]],
    "csv": [[]],
    "codec": [[]],
    "log": [[]],
    "spawn": [[]],
}

# What is compared: the work, the library's benchmark, another's, and the ratio of their times that
# is to be reached (None: to be known, not to be reached). A fifth entry tells how many times as much
# work the first one does; the ratio is that for the same work.
ROWS = [
    ("process walk", "walk/library", "walk/floor", 1.15),
    ("process walk", "walk/library", "walk/libproc2", 0.85),
    ("process walk", "walk/library", "walk/psutil", None),
    ("sockets of processes", "sockets/library/20000", "sockets/floor/20000", 1.20),
    ("sockets of processes", "sockets/library/20000", "sockets/ss/20000", 0.65),
    ("sockets of processes", "sockets/library/20000", "sockets/lsof/20000", 0.45),
    ("a socket of 20,000 or 5,000", "sockets/library/20000", "sockets/library/5000", 1.5, 4),
    ("address in ranges", "ranges/library", "ranges/subtraction", 1 / 14),
    ("CSV, records of 60 B", "csv/library/100000", "csv/libcsv/100000", 0.8),
    ("CSV, 60 B into arrays", "csv/library_arrays/100000", "csv/libcsv_arrays/100000", 0.8),
    ("CSV, records of 240 B", "csv_wide/library/100000", "csv_wide/libcsv/100000", 0.7),
    ("CSV, 240 B into arrays", "csv_wide/library_arrays/100000", "csv_wide/libcsv_arrays/100000",
     0.7),
    ("CSV, opened and counted", "csv/library_open/100000", "csv/floor_open/100000", 1.3),
    ("a CSV record of 100,000 or 1,000", "csv/library/100000", "csv/library/1000", 1.2, 100),
    ("MD5, 64 B", "md5/library/64", "md5/openssl/64", 1 / 0.98),
    ("MD5, 1 KiB", "md5/library/1024", "md5/openssl/1024", 1.0),
    ("MD5, 1 MiB", "md5/library/1048576", "md5/openssl/1048576", 1.0),
    ("MD5 of a file, 256 MiB", "md5file/library", "md5file/md5sum", 0.95),
    ("Base64 encoding, 100 B", "base64_encode/library/100", "base64_encode/openssl/100", 1.0),
    ("Base64 encoding, 64 KiB", "base64_encode/library/65536", "base64_encode/openssl/65536",
     1 / 1.5),
    ("Base64 decoding, 100 B", "base64_decode/library/100", "base64_decode/openssl/100", 1.0),
    ("Base64 decoding, 64 KiB", "base64_decode/library/65536", "base64_decode/openssl/65536",
     1 / 1.2),
    ("hex encoding, 64 KiB", "hex_encode/library/65536", "hex_encode/loop/65536", 1 / 5),
    ("hex decoding, 64 KiB", "hex_decode/library/65536", "hex_decode/loop/65536", 1 / 5),
    ("XXTEA, 1 KiB", "xxtea/library/1024", "xxtea/chain/1024", 1 / 0.95),
    ("XXTEA, 64 KiB", "xxtea/library/65536", "xxtea/chain/65536", 1 / 0.95),
    ("log line", "log/library", "log/ofstream", 1 / 2),
    ("log line", "log/library", "log/floor", 1.25),
    ("log line", "log/library", "log/spdlog", None),
    ("daemon, highest limit of open files", "spawn/limit_most", "spawn/limit_1024", None),
]

# System calls, each from two runs that differ in the work only: the program, the work of both runs
# as options, by how many units they differ, the calls to be reached per unit (None: to be known). What
# a call costs differs by machine; so does the ratio of two that make another number of calls.
COUNTS = [
    ("calls per process with 15 descriptors", "processes",
     ["--run=walk/library", "--processes=20"], ["--run=walk/library", "--processes=120"], 100, 32),
    ("calls per log line", "log",
     ["--run=log/library", "--times=10"], ["--run=log/library", "--times=1010"], 1000, 2),
    ("calls per log line, spdlog", "log",
     ["--run=log/spdlog", "--times=10"], ["--run=log/spdlog", "--times=1010"], 1000, None),
    ("calls per CSV record of 60 B", "csv",
     ["--run=csv/library/1000"], ["--run=csv/library/2000"], 1000, 0.05),
    ("calls per CSV record of 60 B, libcsv", "csv",
     ["--run=csv/libcsv/1000"], ["--run=csv/libcsv/2000"], 1000, None),
    ("calls more for a high limit of open files", "spawn",
     ["--run=spawn/limit_1024"], ["--run=spawn/limit_most"], 1, 10),
]


def run(command):
    done = subprocess.run(NAMESPACES + command, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{command[0]} failed:\n{done.stdout}{done.stderr}")


def measure(program, options, smoke, out):
    """Returns {benchmark: [nanoseconds of each repetition]}."""
    how = ["--smoke", "--benchmark_min_time=0.01"] if smoke else options + [
        "--benchmark_min_time=0.1", f"--benchmark_repetitions={REPETITIONS}",
        "--benchmark_enable_random_interleaving=true"]
    run([program, *how, f"--benchmark_out={out}", "--benchmark_out_format=json"])
    times = {}
    for entry in json.loads(out.read_text())["benchmarks"]:
        if entry["run_type"] == "iteration":
            name = entry["run_name"]
            manual = name.endswith("/manual_time")
            name = name.removesuffix("/manual_time")
            times.setdefault(name, []).append(entry["real_time" if manual else "cpu_time"])
    return times


def count_calls(program, options, log):
    follow = ["-f"] if program.name.startswith("spawn") else []
    run(["strace", "-c", *follow, "-U", "name,calls", "-o", log, program, "--smoke", *options])
    total = [line.split() for line in log.read_text().splitlines() if line.startswith("total")]
    return int(total[0][1])


def spread(times):
    """Half the distance of the quartiles, in parts of the median."""
    low, _, high = statistics.quantiles(times, n=4) if len(times) > 1 else (times * 3)
    return (high - low) / 2 / statistics.median(times)


def nanoseconds(value):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if value >= size:
            return f"{value / size:.3g} {unit}"
    return f"{value:.3g} ns"


def compare(times):
    rows = []
    for title, ours, theirs, reach, *more_work in ROWS:
        if ours in times and theirs in times:
            medians = [statistics.median(times[name]) for name in (ours, theirs)]
            rows.append({
                "work": title, "against": theirs,
                "library": medians[0], "library_spread": spread(times[ours]),
                "other": medians[1], "other_spread": spread(times[theirs]),
                "ratio": medians[0] / medians[1] / (more_work or [1])[0], "reach": reach})
    return rows


def verdict(value, reach):
    return "" if reach is None else "yes" if value <= reach else "NO"


def print_tables(rows, counts):
    print("| Work | Against | Library | Other | Ratio | Reach | Reached |")
    print("|---|---|---|---|---|---|---|")
    for row in rows:
        cells = [row["work"], row["against"]]
        for who in ("library", "other"):
            cells.append(f"{nanoseconds(row[who])} ±{row[who + '_spread']:.0%}")
        reach = row["reach"]
        cells += [f"{row['ratio']:.3g}", f"{reach:.3g}" if reach else "", verdict(row["ratio"], reach)]
        print("| " + " | ".join(cells) + " |")
    if counts:
        print("\n| System calls | Library | Reach | Reached |\n|---|---|---|---|")
        for title, calls, reach in counts:
            told = "" if reach is None else reach
            print(f"| {title} | {calls:.3g} | {told} | {verdict(round(calls, 2), reach)} |")


def draw(rows, directory):
    data = directory / "ratios.dat"
    lines = [f'"{row["work"]} / {row["against"].split("/")[1]}" {row["ratio"]} {row["reach"] or "NaN"}'
             for row in reversed(rows)]
    data.write_text("\n".join(lines) + "\n")
    subprocess.run(["gnuplot", "-e", f"""
        set terminal svg noenhanced size 900,{120 + 24 * len(rows)} font 'sans,12' background rgb 'white';
        set output '{directory}/ratios.svg';
        set logscale x 2; set xlabel 'time of the library / time of the other (left is faster)';
        set yrange [-1:{len(rows)}]; set grid; set key outside top center horizontal;
        set arrow from 1, graph 0 to 1, graph 1 nohead lw 2 lc rgb 'gray40';
        plot '{data}' using 3:0 with points pt 2 ps 1 lc rgb 'gray40' title 'to be reached',
             '' using 2:0:yticlabels(1) with points pt 7 ps 0.8 lc rgb 'dark-blue' title 'measured'
        """.replace("\n", " ")], check=True)
    data.unlink()


def main():
    arguments = sys.argv[1:]
    smoke = "--smoke" in arguments
    build, *names = [argument for argument in arguments if argument != "--smoke"]
    unknown = set(names) - set(PROGRAMS)
    if unknown:
        sys.exit(f"No bench named {', '.join(sorted(unknown))}. There are: {', '.join(PROGRAMS)}")
    names = names or list(PROGRAMS)
    directory = Path(build) / "bench-results"
    directory.mkdir(exist_ok=True)

    times = {}
    for name in names:
        for options in PROGRAMS[name][:1] if smoke else PROGRAMS[name]:
            print(f"{name} {' '.join(options)}", file=sys.stderr)
            times.update(measure(Path(build) / "bin" / f"{name}_bench", options, smoke,
                                 directory / "run.json"))
    counts = []
    for title, name, less, more, units, reach in COUNTS:
        if name in names:
            fewer, all_of_them = (count_calls(Path(build) / "bin" / f"{name}_bench", options,
                                              directory / "calls") for options in (less, more))
            counts.append((title, (all_of_them - fewer) / units, reach))

    rows = compare(times)
    print_tables(rows, counts)
    with open(directory / "times.csv", "w", newline="") as file:
        writer = csv.writer(file)
        writer.writerow(["benchmark", "repetition", "nanoseconds"])
        for name, values in times.items():
            writer.writerows([name, i, value] for i, value in enumerate(values))
    if rows:
        draw(rows, directory)
    print(f"\nAll times: {directory}/times.csv, picture: {directory}/ratios.svg", file=sys.stderr)


main()
