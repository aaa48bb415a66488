#!/usr/bin/python3
"""Writes a DXF drawing of N mixed entities (default 200,000) with ezdxf.

usage: make_bench_dxf.py OUT.dxf [N]
"""
import math
import random
import sys

import ezdxf


def main():
    out = sys.argv[1]
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 200_000
    rnd = random.Random(7)
    doc = ezdxf.new("R2013")
    for i in range(20):
        doc.layers.add(f"L{i:02d}", color=1 + i % 254)
    block = doc.blocks.new("Mark")
    block.add_circle((0, 0), 1)
    block.add_line((-1, 0), (1, 0))
    msp = doc.modelspace()
    for i in range(count):
        x, y = rnd.uniform(0, 10000), rnd.uniform(0, 10000)
        attribs = {"layer": f"L{i % 20:02d}"}
        kind = i % 10
        if kind in (0, 1, 2):
            msp.add_line((x, y), (x + rnd.uniform(-50, 50), y + rnd.uniform(-50, 50)), dxfattribs=attribs)
        elif kind == 3:
            msp.add_circle((x, y), rnd.uniform(1, 20), dxfattribs=attribs)
        elif kind == 4:
            msp.add_arc((x, y), rnd.uniform(1, 20), rnd.uniform(0, 180), rnd.uniform(180, 360), dxfattribs=attribs)
        elif kind == 5:
            msp.add_lwpolyline([(x + j * 3, y + (j % 2) * 4) for j in range(6)], dxfattribs=attribs)
        elif kind == 6:
            msp.add_text(f"T{i}", dxfattribs=dict(attribs, insert=(x, y), height=2.5))
        elif kind == 7:
            msp.add_point((x, y, 0), dxfattribs=attribs)
        elif kind == 8:
            msp.add_blockref("Mark", (x, y), dxfattribs=dict(attribs, rotation=rnd.uniform(0, 360)))
        else:
            msp.add_ellipse((x, y), major_axis=(10, 0), ratio=0.5, dxfattribs=attribs)
    doc.saveas(out)


if __name__ == "__main__":
    main()
