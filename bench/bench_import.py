#!/usr/bin/python3
"""Imports a V7 file of 200,000 line strings into a drawing and saves it as
DXF with our import, and converts the same file with GDAL's ogr2ogr;
prints time and peak memory of each, and the ratios. Then the import alone
in elements per second: the V7 file imported 3 times, the V8 sample
(V8_SAMPLE) 20,000 times, each into a new drawing.

usage: bench_import.py BENCH_IMPORT_EXECUTABLE WORK_FOLDER SEED_FILE V8_SAMPLE

The DGN file is the one bench_dgn.py makes (in WORK_FOLDER, on the first
run)."""
import os
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from bench_dgn import best, make_input, measure  # noqa: E402


def main():
    executable, folder, seed, v8 = sys.argv[1:5]
    dgn = make_input(folder, seed)
    ours_dxf = os.path.join(folder, "imported.dxf")
    gdal_dxf = os.path.join(folder, "ogr2ogr.dxf")
    print(subprocess.run([executable, dgn, ours_dxf], capture_output=True, text=True, check=True).stdout.strip()
          .splitlines()[-1])
    ours = best([executable, dgn, ours_dxf])

    # ogr2ogr does not write over an existing DXF file.
    runs = []
    for _ in range(3):
        if os.path.exists(gdal_dxf):
            os.remove(gdal_dxf)
        runs.append(measure(["ogr2ogr", "-f", "DXF", gdal_dxf, dgn]))
    gdal = min(r[0] for r in runs), max(r[1] for r in runs)
    print("file          %s (%.0f kB)" % (dgn, os.path.getsize(dgn) / 1024))
    print("kora import   %8.3f s  peak %8.0f kB  (import + DXF save)" % ours)
    print("GDAL ogr2ogr  %8.3f s  peak %8.0f kB" % gdal)
    print("speed-up      %8.1f x (aim: at least 10)" % (gdal[0] / ours[0]))
    print("memory        %8.2f x GDAL's" % (ours[1] / gdal[1]))
    for label, design, count in (("V7 import", dgn, 3), ("V8 import", v8, 20000)):
        line = subprocess.run([executable, "--repeat", str(count), design], capture_output=True, text=True,
                              check=True).stdout.strip().splitlines()[-1]
        print("%-13s %s" % (label, line))


main()
