#!/usr/bin/python3
"""Writes examples/plan.dxf, the small floor plan the tour exports to DGN.

usage: /usr/bin/python3 examples/make_plan.py [OUT.dxf]

The plan is committed; run this again only to change it. It has three
layers: Walls and Doors, which the tour's mapping setup sends to DGN levels
10 and 20, and Notes, which the setup leaves alone.
"""
import sys
from pathlib import Path

import ezdxf


def main():
    out = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).with_name("plan.dxf")
    doc = ezdxf.new("R2013")
    doc.header["$INSUNITS"] = 4  # millimetres
    doc.layers.add("Walls", color=1)
    doc.layers.add("Doors", color=3)
    doc.layers.add("Notes", color=5)
    msp = doc.modelspace()
    # Outer walls as one closed polyline, an inner wall as a line.
    msp.add_lwpolyline([(0, 0), (8000, 0), (8000, 5000), (0, 5000)], close=True, dxfattribs={"layer": "Walls"})
    msp.add_line((5000, 0), (5000, 5000), dxfattribs={"layer": "Walls"})
    # Two doors: the leaf as a line, its swing as a quarter arc.
    for hinge, leaf_end, start in (((1000, 0), (1000, 900), 0), ((5000, 2000), (4100, 2000), 90)):
        msp.add_line(hinge, leaf_end, dxfattribs={"layer": "Doors"})
        msp.add_arc(hinge, 900, start, start + 90, dxfattribs={"layer": "Doors"})
    msp.add_text("Living", dxfattribs={"layer": "Notes", "insert": (2000, 2500), "height": 250})
    msp.add_text("Kitchen", dxfattribs={"layer": "Notes", "insert": (6000, 2500), "height": 250})
    msp.add_circle((6500, 4000), 300, dxfattribs={"layer": "Notes"})
    doc.saveas(out)


if __name__ == "__main__":
    main()
