#!/usr/bin/python3
"""Opens and saves one large DXF drawing with the platform's database, with
ezdxf and with GDAL's ogr2ogr, in one run, and prints time and peak memory
(the whole process's maximum resident set) of each.

usage: bench_dxf.py BENCH_DXF_BINARY WORK_FOLDER
"""
import os
import subprocess
import sys
import time

EZDXF_SCRIPT = r"""
import resource, sys, time
import ezdxf
t = time.perf_counter()
doc = ezdxf.readfile(sys.argv[1])
opened = time.perf_counter() - t
peak_open = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
t = time.perf_counter()
doc.saveas(sys.argv[2])
saved = time.perf_counter() - t
print(f"open_s {opened:.3f}\nsave_s {saved:.3f}\npeak_after_open_kb {peak_open}\n"
      f"peak_after_save_kb {resource.getrusage(resource.RUSAGE_SELF).ru_maxrss}")
"""


def run(command):
    """Runs a command; answers its wall time, peak RSS in kB and output."""
    start = time.perf_counter()
    proc = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    _, status, usage = os.wait4(proc.pid, 0)
    out = proc.stdout.read()
    err = proc.stderr.read()
    elapsed = time.perf_counter() - start
    if status != 0:
        sys.exit(f"{command[0]} failed: {err}")
    return elapsed, usage.ru_maxrss, out


def figures(text):
    return {k: float(v) for k, v in (line.split() for line in text.splitlines() if line.strip())}


def main():
    binary, work = sys.argv[1], sys.argv[2]
    os.makedirs(work, exist_ok=True)
    source = os.path.join(work, "bench-200k.dxf")
    if not os.path.exists(source):
        print("writing the drawing with ezdxf ...", flush=True)
        subprocess.run([sys.executable, os.path.join(os.path.dirname(__file__), "make_bench_dxf.py"), source],
                       check=True)
    size_mb = os.path.getsize(source) / 1e6
    print(f"file: {source}, {size_mb:.1f} MB")

    _, ours_peak, out = run([binary, source, os.path.join(work, "out-kora.dxf")])
    ours = figures(out)
    _, ez_peak, out = run([sys.executable, "-c", EZDXF_SCRIPT, source, os.path.join(work, "out-ezdxf.dxf")])
    ez = figures(out)
    ogr_out = os.path.join(work, "out-ogr.dxf")
    if os.path.exists(ogr_out):
        os.remove(ogr_out)
    ogr_time, ogr_peak, _ = run(["ogr2ogr", "-f", "DXF", ogr_out, source])

    print(f"entities in model space: {int(ours['entities'])}")
    print(f"{'':28}{'open s':>9}{'save s':>9}{'total s':>9}{'peak MB':>9}{'peak/file':>10}")
    def row(name, open_s, save_s, total, peak_kb):
        peak = peak_kb / 1024
        o = f"{open_s:9.2f}" if open_s is not None else f"{'-':>9}"
        s = f"{save_s:9.2f}" if save_s is not None else f"{'-':>9}"
        print(f"{name:28}{o}{s}{total:9.2f}{peak:9.0f}{peak * 1.048576 / size_mb:10.2f}")
    row("kora (read + write)", ours["open_s"], ours["save_s"], ours["open_s"] + ours["save_s"], ours_peak)
    row("ezdxf (read + write)", ez["open_s"], ez["save_s"], ez["open_s"] + ez["save_s"], ez_peak)
    row("ogr2ogr -f DXF (whole run)", None, None, ogr_time, ogr_peak)
    print(f"kora peak after open: {ours['peak_after_open_kb'] / 1024:.0f} MB, after save: "
          f"{ours['peak_after_save_kb'] / 1024:.0f} MB (process start {ours['start_kb'] / 1024:.0f} MB)")


if __name__ == "__main__":
    main()
