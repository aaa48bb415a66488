#!/usr/bin/python3
"""Exports a drawing of 200,000 line strings to V7 with our reader and
export, and with GDAL's ogr2ogr, and prints time and peak memory of each
and their ratios.

usage: bench_export.py BENCH_EXPORT_EXECUTABLE WORK_FOLDER SEED_FILE

The drawing is made once in WORK_FOLDER: the V7 file of bench_dgn.py,
turned into DXF by ogr2ogr."""
import os
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from bench_dgn import RUNS, best, make_input, measure  # noqa: E402


def make_drawing(folder, seed):
    dxf = os.path.join(folder, "linestrings.dxf")
    if not os.path.exists(dxf):
        subprocess.run(["ogr2ogr", "-f", "DXF", dxf, make_input(folder, seed)], check=True,
                       stderr=subprocess.DEVNULL)
    return dxf


def main():
    executable, folder, seed = sys.argv[1:4]
    dxf = make_drawing(folder, seed)
    ours_out = os.path.join(folder, "kora-export.dgn")
    gdal_out = os.path.join(folder, "gdal-export.dgn")
    figures = subprocess.run([executable, dxf, ours_out, seed], capture_output=True, text=True,
                             check=True).stdout.strip().splitlines()[-1]
    print(figures)
    drawing_kb = float(figures.split("drawing")[1].split()[0])
    ours = best([executable, dxf, ours_out, seed])

    # ogr2ogr will not write over a DGN file: each run starts without one.
    runs = []
    for _ in range(RUNS):
        if os.path.exists(gdal_out):
            os.remove(gdal_out)
        runs.append(measure(["ogr2ogr", "-f", "DGN", "-dsco", "SEED=" + seed, gdal_out, dxf]))
    gdal = min(r[0] for r in runs), max(r[1] for r in runs)
    size_kb = os.path.getsize(dxf) / 1024
    print("drawing     %s (%.0f kB)" % (dxf, size_kb))
    print("kora        %8.3f s  peak %8.0f kB" % ours)
    print("GDAL        %8.3f s  peak %8.0f kB" % gdal)
    print("speed-up    %8.1f x (aim: at least 3)" % (gdal[0] / ours[0]))
    # The read hands its records between two cores; where the host put them
    # shows in its time.
    trip = subprocess.run([executable, "--crossing"], capture_output=True, text=True, check=True).stdout.strip()
    print("cores       %8s ns for a cache line to cross to the other core and back" % trip)
    print("memory      %8.0f kB above the drawing's %.0f kB, GDAL's whole run %.0f kB (aim: no more)"
          % (ours[1] - drawing_kb, drawing_kb, gdal[1]))


if __name__ == "__main__":
    main()
