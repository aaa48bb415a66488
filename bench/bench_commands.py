#!/usr/bin/python3
"""Runs the import and the export of bench_import_run and bench_export_run
again as a user would, through kora's -DGNIMPORT and -DGNEXPORT in a script,
and prints them beside the library-only figures and GDAL's, with the
command layer's overhead.

usage: bench_commands.py KORA BENCH_IMPORT BENCH_EXPORT WORK_FOLDER SEED_FILE

The inputs are those of bench_import.py and bench_export.py (made in
WORK_FOLDER on the first run). The command runs include what a user waits
for and the library runs do not: starting kora, loading the module, the
prompts, the mapping setup store and the drawing's document. Their time
ends when kora prints the command's last line, where the user's wait ends;
the library runs are timed the same way, up to the line of figures they
print, so that neither counts taking the drawing apart at exit. Peak memory
is that of the whole process."""
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from bench_dgn import RUNS, make_input, measure  # noqa: E402
from bench_export import make_drawing  # noqa: E402


def script(folder, name, lines):
    path = os.path.join(folder, name)
    with open(path, "w") as out:
        out.write("\n".join(lines) + "\n")
    return path


def until(command, last_line):
    """Wall time until the child prints last_line, and its peak memory (kB)."""
    start = time.perf_counter()
    # Line-buffered, so that each line arrives when kora prints it.
    child = subprocess.Popen(["stdbuf", "-oL"] + command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    elapsed = None
    for line in child.stdout:
        if elapsed is None and last_line in line:
            elapsed = time.perf_counter() - start
    _, status, usage = os.wait4(child.pid, 0)
    if status != 0 or elapsed is None:
        sys.exit("failed: %s" % " ".join(command))
    return elapsed, usage.ru_maxrss


def fresh(command, output, last_line=None):
    """Best time and peak memory of RUNS runs that each start without their
    output file (ogr2ogr writes over none, and SAVEAS would ask)."""
    runs = []
    for _ in range(RUNS):
        if os.path.exists(output):
            os.remove(output)
        runs.append(until(command, last_line) if last_line else measure(command))
    if not os.path.exists(output):
        sys.exit("no output: %s" % " ".join(command))
    return min(r[0] for r in runs), max(r[1] for r in runs)


def check(command, output):
    """One kora run whose transcript must report the translation done."""
    if os.path.exists(output):
        os.remove(output)
    done = subprocess.run(command, capture_output=True, text=True)
    if "Translation successful." not in done.stdout or not os.path.exists(output):
        sys.exit("%s failed:\n%s%s" % (" ".join(command), done.stdout[-2000:], done.stderr))


def overhead(library, commands):
    return (commands[0] - library[0]) / library[0] * 100


def main():
    kora, bench_import, bench_export, folder, seed = sys.argv[1:6]
    # Every kora run keeps its per-user tree (settings, seed files) here.
    os.environ["KORA_USER_ROOT"] = os.path.join(folder, "commands-home")

    # Import into the current drawing and save it, as bench_import does:
    # the file, its first model, the default units, the standard setup.
    dgn = make_input(folder, seed)
    imported = os.path.join(folder, "commands-imported.dxf")
    import_command = [kora, "--script", script(folder, "commands-import.scr", [
        "SETVAR FILEDIA 0", "SETVAR DGNIMPORTMODE 1", "-DGNIMPORT", dgn, "", "", "", "SAVEAS " + imported, "QUIT"])]
    check(import_command, imported)
    library_dxf = os.path.join(folder, "imported.dxf")
    library_import = fresh([bench_import, dgn, library_dxf], library_dxf, "elements read")
    command_import = fresh(import_command, imported, "Saved ")
    gdal_dxf = os.path.join(folder, "ogr2ogr.dxf")
    gdal_import = fresh(["ogr2ogr", "-f", "DXF", gdal_dxf, dgn], gdal_dxf)

    # Export bench_export's drawing, opened by kora's drawing argument, to
    # V7 on the same seed file.
    dxf = make_drawing(folder, seed)
    exported = os.path.join(folder, "commands-export.dgn")
    export_command = [kora, "--script", script(folder, "commands-export.scr", [
        "SETVAR FILEDIA 0", "-DGNEXPORT", "V7", exported, "", "", seed, "QUIT"]), dxf]
    check(export_command, exported)
    library_dgn = os.path.join(folder, "kora-export.dgn")
    library_export = fresh([bench_export, dxf, library_dgn, seed], library_dgn, "entities")
    command_export = fresh(export_command, exported, "Translation successful.")
    gdal_dgn = os.path.join(folder, "gdal-export.dgn")
    gdal_export = fresh(["ogr2ogr", "-f", "DGN", "-dsco", "SEED=" + seed, gdal_dgn, dxf], gdal_dgn)

    print("import   %s -> DXF" % dgn)
    print("  library   %8.3f s  peak %8.0f kB  (bench_import)" % library_import)
    print("  commands  %8.3f s  peak %8.0f kB  (kora --script: -DGNIMPORT, SAVEAS)" % command_import)
    print("  GDAL      %8.3f s  peak %8.0f kB  (ogr2ogr -f DXF)" % gdal_import)
    print("  overhead  %8.1f %% (aim: no more than 10)" % overhead(library_import, command_import))
    print("export   %s -> V7 DGN" % dxf)
    print("  library   %8.3f s  peak %8.0f kB  (bench_export)" % library_export)
    print("  commands  %8.3f s  peak %8.0f kB  (kora --script: drawing, -DGNEXPORT)" % command_export)
    print("  GDAL      %8.3f s  peak %8.0f kB  (ogr2ogr -f DGN)" % gdal_export)
    print("  overhead  %8.1f %% (aim: no more than 10)" % overhead(library_export, command_export))


main()
