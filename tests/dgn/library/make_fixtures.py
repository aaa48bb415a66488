#!/usr/bin/python3
"""Writes the drawing the DGN library tests read: a DXF file made by ezdxf,
an independent DXF library, with two DGN underlays of the V7 samples of tests/data.
ezdxf keys the definitions "Underlay00001", "Underlay00002", names that our
own naming never makes.

usage: make_fixtures.py SAMPLE_FOLDER OUTPUT_FOLDER
"""
import os
import sys

import ezdxf


def underlays(samples, path):
    doc = ezdxf.new("R2013")
    msp = doc.modelspace()
    small = doc.add_underlay_def(os.path.join(samples, "smalltest.dgn"), fmt="dgn", name="Default")
    mixed = doc.add_underlay_def(os.path.join(samples, "mixed-elements.dgn"), fmt="dgn", name="Default")
    msp.add_underlay(small, insert=(0, 0, 0))
    msp.add_underlay(mixed, insert=(100, 0, 0), scale=(2, 2, 2))
    doc.saveas(path)


if __name__ == "__main__":
    os.makedirs(sys.argv[2], exist_ok=True)
    underlays(sys.argv[1], os.path.join(sys.argv[2], "dgn-underlays.dxf"))
