#!/usr/bin/python3
"""Reads a V7 file of 200,000 line strings with our reader and with GDAL
and prints time and peak memory of each, and the ratios.

usage: bench_dgn.py BENCH_DGN_EXECUTABLE WORK_FOLDER SEED_FILE

The CSV and the DGN file are made in WORK_FOLDER on the first run (GDAL's
ogr2ogr writes the DGN file from the CSV, on the given seed)."""
import os
import random
import subprocess
import sys
import time

LINES = 200_000
RUNS = 3


def make_input(folder, seed):
    os.makedirs(folder, exist_ok=True)
    dgn = os.path.join(folder, "linestrings.dgn")
    if os.path.exists(dgn):
        return dgn
    csv = os.path.join(folder, "linestrings.csv")
    rng = random.Random(42)
    with open(csv, "w") as out:
        out.write("WKT,Id\n")
        for i in range(LINES):
            x, y = rng.uniform(0, 10000), rng.uniform(0, 10000)
            points = [(x + rng.uniform(-50, 50), y + rng.uniform(-50, 50)) for _ in range(rng.randint(2, 8))]
            out.write('"LINESTRING (%s)",%d\n' % (",".join("%.3f %.3f" % p for p in points), i))
    subprocess.run(["ogr2ogr", "-f", "DGN", dgn, csv, "-dsco", "SEED=" + seed],
                   check=True, stderr=subprocess.DEVNULL)
    return dgn


def measure(command):
    """Wall time and peak resident memory (kB) of one child process."""
    start = time.perf_counter()
    with open(os.devnull, "w") as devnull:
        child = subprocess.Popen(command, stdout=devnull, stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(child.pid, 0)
    elapsed = time.perf_counter() - start
    if status != 0:
        sys.exit("failed: %s" % " ".join(command))
    return elapsed, usage.ru_maxrss


def best(command):
    runs = [measure(command) for _ in range(RUNS)]
    return min(r[0] for r in runs), max(r[1] for r in runs)


def main():
    executable, folder, seed = sys.argv[1:4]
    dgn = make_input(folder, seed)
    size_kb = os.path.getsize(dgn) / 1024
    print(subprocess.run([executable, dgn], capture_output=True, text=True, check=True).stdout.strip())
    ours = best([executable, dgn])
    gdal = best(["ogrinfo", "-ro", "-al", "-q", "-geom=NO", "-fields=NO", dgn])
    print("file        %s (%.0f kB)" % (dgn, size_kb))
    print("kora V7     %8.3f s  peak %8.0f kB" % ours)
    print("GDAL        %8.3f s  peak %8.0f kB" % gdal)
    print("speed-up    %8.1f x (aim: at least 5)" % (gdal[0] / ours[0]))
    print("our memory  %8.2f x the file size" % (ours[1] / size_kb))


if __name__ == "__main__":
    main()
