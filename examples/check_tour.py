#!/usr/bin/python3
"""Checks what the tour wrote, with tools other than kora, and prints it.

usage: /usr/bin/python3 examples/check_tour.py TOUR_FOLDER

- plan.dgn is read by GDAL (ogrinfo -ro -al): its elements are counted by
  level; the Walls of the plan must be on level 10 and its Doors on 20, as
  the mapping setup asks.
- every DXF file the tour saved is audited by ezdxf and must be clean.
Exits non-zero when a check fails."""
import collections
import os
import re
import subprocess
import sys

import ezdxf

# What examples/plan.dxf holds on the two mapped layers.
EXPECTED_LEVELS = {10: 2, 20: 4}  # Walls: outline and inner wall; Doors: two leaves, two swings


def dgn_levels(path):
    text = subprocess.run(["ogrinfo", "-ro", "-al", path], capture_output=True, text=True, check=True).stdout
    return collections.Counter(int(level) for level in re.findall(r"^\s+Level \(Integer\) = (\d+)$", text, re.M))


def main():
    folder = sys.argv[1]
    failures = []

    dgn = os.path.join(folder, "plan.dgn")
    levels = dgn_levels(dgn)
    print("%s (ogrinfo): %d elements" % (dgn, sum(levels.values())))
    for level, count in sorted(levels.items()):
        print("  level %2d: %d" % (level, count))
    for level, count in EXPECTED_LEVELS.items():
        if levels[level] != count:
            failures.append("plan.dgn has %d elements on level %d, expected %d" % (levels[level], level, count))

    for name in ("smalltest.dxf", "plan-bound.dxf"):
        path = os.path.join(folder, name)
        doc = ezdxf.readfile(path)
        auditor = doc.audit()
        # A bound underlay is a block reference: count what its block holds.
        entities = [b for e in doc.modelspace() for b in ([e] + (list(e.block()) if e.dxftype() == "INSERT" else []))]
        kinds = collections.Counter("%s on %s" % (e.dxftype(), e.dxf.layer) for e in entities)
        print("%s (ezdxf): %d errors, %d fixes; %s" % (path, len(auditor.errors), len(auditor.fixes),
                                                      ", ".join("%d %s" % (n, k) for k, n in sorted(kinds.items()))))
        if auditor.errors or auditor.fixes:
            failures.append("%s is not clean: %s" % (name, [str(e.message) for e in auditor.errors + auditor.fixes]))

    for failure in failures:
        print("FAIL:", failure)
    sys.exit(1 if failures else 0)


main()
