#!/usr/bin/python3
"""Writes export-fixture.dxf, the drawing the DGN export tests write to V7
and read back with GDAL: one entity of every kind the export translates,
on layers with known colours, linetypes and lineweights, a nested block,
a solid hatch and a sheet with a viewport. Made with ezdxf, a DXF library
nobody here wrote.

usage: make_export_fixture.py OUTPUT.dxf
"""
import sys

import ezdxf
from ezdxf.enums import TextEntityAlignment


def main():
    doc = ezdxf.new("R2013")
    doc.header["$INSUNITS"] = 6
    doc.linetypes.add("DASHED", pattern=[0.75, 0.5, -0.25], description="Dashed __ __ __")
    doc.layers.add("Walls", color=1, lineweight=50)
    doc.layers.add("Doors", color=3, linetype="DASHED")
    doc.layers.add("Text", color=5)
    doc.layers.add("Hatch", color=4)
    doc.layers.add("Mapped", color=6)
    msp = doc.modelspace()

    msp.add_line((0, 0), (10, 5), dxfattribs={"layer": "Walls"})
    msp.add_line((1, 1), (2, 2), dxfattribs={"layer": "Doors", "true_color": ezdxf.rgb2int((255, 128, 0))})
    # A closed outline with one arc side, and an open one of 150 vertices.
    msp.add_lwpolyline([(0, 0, 0), (10, 0, 1.0), (10, 10, 0), (0, 10, 0)], format="xyb", close=True,
                       dxfattribs={"layer": "Walls"})
    msp.add_lwpolyline([(i, (i % 2) * 0.5) for i in range(150)], dxfattribs={"layer": "Mapped"})
    msp.add_circle((5, 5), 2.5, dxfattribs={"layer": "Walls", "color": 2})
    msp.add_arc((20, 0), 4, 30, 120, dxfattribs={"layer": "Walls"})
    msp.add_ellipse((0, 20), major_axis=(6, 0), ratio=0.5, start_param=0.25, end_param=4.0,
                    dxfattribs={"layer": "Walls"})
    msp.add_open_spline([(0, 30), (2, 33), (5, 31), (8, 34), (10, 30)], degree=3, dxfattribs={"layer": "Walls"})
    msp.add_point((3, 4, 5), dxfattribs={"layer": "Walls"})
    msp.add_text("Hello DGN", dxfattribs={"height": 1.5, "rotation": 30, "layer": "Text", "insert": (1, 2)})
    msp.add_text("Centred", dxfattribs={"height": 2, "layer": "Text"}).set_placement(
        (10, 10), align=TextEntityAlignment.MIDDLE_CENTER)
    msp.add_mtext("First line\\PSecond {\\C1;line}", dxfattribs={"char_height": 0.7, "insert": (50, 50),
                                                              "layer": "Text"})

    chair = doc.blocks.new("Chair", base_point=(1, 1))
    chair.add_line((0, 0), (2, 0))
    chair.add_circle((1, 1), 0.5, dxfattribs={"color": 0})
    table = doc.blocks.new("Table")
    table.add_line((0, 0), (4, 0))
    table.add_blockref("Chair", (1, 1))
    msp.add_blockref("Table", (100, 100), dxfattribs={"layer": "Doors", "color": 4})
    msp.add_blockref("Chair", (120, 100), dxfattribs={"xscale": 2, "yscale": 2, "rotation": 90, "layer": "Walls"})

    hatch = msp.add_hatch(color=4, dxfattribs={"layer": "Hatch"})
    hatch.paths.add_polyline_path([(30, 0), (40, 0), (40, 10), (30, 10)], is_closed=True)

    sheet = doc.layouts.get("Layout1")
    sheet.add_line((0, 0), (50, 0), dxfattribs={"layer": "Walls"})
    sheet.add_viewport(center=(100, 100), size=(150, 100), view_center_point=(50, 50), view_height=120)
    doc.saveas(sys.argv[1])


if __name__ == "__main__":
    main()
