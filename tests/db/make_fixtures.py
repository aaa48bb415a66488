#!/usr/bin/python3
"""Writes the DXF fixtures of the database tests with ezdxf, an independent
DXF library, so the reader is tested on files it did not write itself.

usage: make_fixtures.py OUTPUT_FOLDER
"""
import math
import os
import sys

import ezdxf
from ezdxf.math import Vec3


def standard_layers(doc):
    doc.linetypes.add("DASHED", pattern=[0.75, 0.5, -0.25], description="Dashed __ __ __")
    doc.layers.add("Walls", color=1, linetype="DASHED", lineweight=35)
    doc.layers.add("Hidden", color=3).off()
    doc.layers.add("Frozen", color=4).freeze()
    doc.layers.add("Locked", color=5).lock()
    tc = doc.layers.add("TrueColour")
    tc.rgb = (10, 200, 30)
    doc.layers.add("NoPlot", color=6).dxf.plot = 0


def entities(path):
    doc = ezdxf.new("R2013", setup=True)
    doc.header["$INSUNITS"] = 4
    standard_layers(doc)
    doc.appids.add("OTHERAPP")
    msp = doc.modelspace()
    line = msp.add_line((0, 0, 0), (10, 5, 0), dxfattribs={"layer": "Walls", "color": 2, "lineweight": 50})
    line.set_xdata("OTHERAPP", [(1000, "kept"), (1040, 2.5), (1070, 7)])
    msp.add_line((1, 1, 0), (2, 2, 0), dxfattribs={"layer": "Walls", "true_color": ezdxf.rgb2int((255, 128, 0)),
                                                    "linetype": "DASHED", "ltscale": 2.0})
    msp.add_circle((5, 5, 0), 2.5, dxfattribs={"layer": "Hidden"})
    msp.add_arc((20, 0, 0), 4, 30, 120, dxfattribs={"color": 0})
    msp.add_ellipse((0, 20, 0), major_axis=(6, 0, 0), ratio=0.5, start_param=0.25, end_param=4.0)
    msp.add_lwpolyline([(0, 0, 0.5, 0.5, 0), (10, 0, 0, 0, 1.0), (10, 10, 0, 0, 0), (0, 10, 0, 0, -0.5)],
                       format="xyseb", close=True, dxfattribs={"elevation": 3.0})
    msp.add_polyline3d([(0, 0, 0), (1, 2, 3), (4, 5, 6), (7, 8, -9)], close=False)
    msp.add_spline(fit_points=[(0, 0, 0), (2, 3, 0), (5, 1, 0), (8, 4, 0)])
    msp.add_rational_spline([(0, 0), (1, 2), (3, 2), (4, 0)], weights=[1, 0.5, 0.5, 1], degree=3)
    msp.add_point((3, 4, 5))
    msp.add_text("Hello DXF", dxfattribs={"height": 1.5, "rotation": 30, "layer": "Walls"}).set_placement(
        (1, 2), align=ezdxf.enums.TextEntityAlignment.MIDDLE_CENTER)
    msp.add_text("Größe ±5 °C", dxfattribs={"height": 2.0, "insert": (0, -5)})
    long_text = "Paragraph one. " * 30 + "\\PSecond paragraph with ümlauts: äöü ß."
    msp.add_mtext(long_text, dxfattribs={"char_height": 0.7, "width": 40, "attachment_point": 5,
                                         "insert": (50, 50, 0)})
    block = doc.blocks.new("Chair", base_point=(1, 1))
    block.add_line((0, 0), (2, 0))
    block.add_circle((1, 1), 0.5)
    block.add_attdef("TAG", (0, -1), dxfattribs={"height": 0.3})
    ref = msp.add_blockref("Chair", (100, 100), dxfattribs={"xscale": 2, "yscale": 2, "rotation": 90})
    ref.add_attrib("TAG", "A-101", (100, 99))
    msp.add_blockref("Chair", (120, 100))
    solid = msp.add_hatch(color=4)
    solid.paths.add_polyline_path([(0, 0, 0), (10, 0, 0.5), (10, 10, 0), (0, 10, 0)], is_closed=True)
    edges = msp.add_hatch(color=5)
    edge_path = edges.paths.add_edge_path()
    edge_path.add_line((0, 0), (10, 0))
    edge_path.add_arc((10, 5), radius=5, start_angle=-90, end_angle=90)
    edge_path.add_ellipse((5, 10), major_axis=(5, 0), ratio=0.4, start_angle=0, end_angle=180)
    edge_path.add_spline(control_points=[(0, 10), (-2, 5), (0, 0)], knot_values=[0, 0, 0, 1, 1, 1], degree=2)
    pattern = msp.add_hatch(color=6)
    pattern.set_pattern_fill("ANSI31", scale=2.0, angle=15)
    pattern.paths.add_polyline_path([(20, 0), (30, 0), (30, 10), (20, 10)], is_closed=True)
    # Kinds the database keeps whole.
    msp.add_3dface([(0, 0, 0), (1, 0, 0), (1, 1, 1), (0, 1, 0)])
    msp.add_solid([(0, 0), (1, 0), (0, 1)])
    msp.add_xline((0, 0, 0), (1, 1, 0))
    msp.add_polyface().append_face([(0, 0, 0), (1, 0, 0), (1, 1, 0)])
    msp.add_polyline2d([(0, 0), (5, 0), (5, 5)])
    dim = msp.add_linear_dim(base=(0, -3), p1=(0, 0), p2=(10, 0))
    dim.render()
    doc.saveas(path)


def layouts(path):
    doc = ezdxf.new("R2013")
    doc.layers.add("VIEWPORTS")
    msp = doc.modelspace()
    msp.add_line((0, 0), (100, 100))
    first = doc.layouts.get("Layout1")
    first.add_line((0, 0), (50, 0))
    first.add_viewport(center=(100, 100), size=(150, 100), view_center_point=(50, 50), view_height=120)
    second = doc.layouts.new("Sheet2")
    second.add_circle((10, 10), 5)
    second.add_viewport(center=(50, 50), size=(80, 60), view_center_point=(0, 0), view_height=50)
    doc.layouts.new("Empty")
    doc.saveas(path)


def underlays(path):
    doc = ezdxf.new("R2013")
    msp = doc.modelspace()
    site = doc.add_underlay_def("/data/site.dgn", fmt="dgn", name="Default")
    plan = doc.add_underlay_def("/data/plan.dgn", fmt="dgn", name="Level 2")
    first = msp.add_underlay(site, insert=(10, 20, 0), scale=(2, 2, 2), rotation=45)
    first.dxf.contrast = 60
    first.dxf.fade = 30
    first.monochrome = True
    msp.add_underlay(site, insert=(0, 0, 0))
    clipped = msp.add_underlay(plan, insert=(5, 5, 0), scale=(0.5, 0.5, 0.5))
    clipped.boundary_path = [(0, 0), (10, 0), (10, 10), (0, 10)]
    doc.saveas(path)


def opaque(path):
    doc = ezdxf.new("R2013")
    msp = doc.modelspace()
    sat = ["400 0 1 0", "16 ASM-BODY 1.0 20 KORA fixture builder 24 Thu Jan 01 00:00:00 2026",
           "1 9.9999999999999995e-07 1e-10", "body $-1 -1 $-1 $1 $-1 $2 #", "End-of-ACIS-data"]
    solid = msp.add_3dsolid()
    solid.sat = sat
    body = msp.add_body()
    body.sat = sat
    region = msp.add_region()
    region.sat = sat
    surface = msp.add_extruded_surface()
    surface.sat = sat
    msp.add_line((0, 0, 5e-8), (1, 1, 5e-8))
    doc.saveas(path)


def three_d(path):
    doc = ezdxf.new("R2013")
    doc.modelspace().add_line((0, 0, 0), (1, 1, 2e-7))
    doc.saveas(path)


def release2000(path):
    doc = ezdxf.new("R2000")
    doc.layers.add("Façade", color=2)
    doc.modelspace().add_text("Café", dxfattribs={"layer": "Façade", "height": 1})
    doc.modelspace().add_line((0, 0), (1, 0), dxfattribs={"layer": "Façade"})
    doc.saveas(path, encoding="cp1252")


def broken_references(path):
    """A drawing as careless programs leave them: written by ezdxf, then
    edited as text so that a line is on a layer without a table entry and
    a block reference names a block that is not defined."""
    doc = ezdxf.new("R2013")
    doc.layers.add("Walls", color=1)
    doc.blocks.new("Door").add_line((0, 0), (1, 0))
    msp = doc.modelspace()
    msp.add_line((0, 0), (10, 0), dxfattribs={"layer": "Walls"})
    msp.add_line((0, 5), (10, 5), dxfattribs={"layer": "Walls"})
    msp.add_blockref("Door", (5, 5))
    doc.saveas(path)
    with open(path, encoding="utf-8") as f:
        text = f.read()
    head, entities = text.split("ENTITIES", 1)
    entities, tail = entities.split("ENDSEC", 1)
    entities = entities.replace("\n  8\nWalls\n", "\n  8\nGhost\n", 1).replace("\n  2\nDoor\n", "\n  2\nNoSuchBlock\n", 1)
    with open(path, "w", encoding="utf-8") as f:
        f.write(head + "ENTITIES" + entities + "ENDSEC" + tail)


def main():
    out = sys.argv[1]
    os.makedirs(out, exist_ok=True)
    entities(os.path.join(out, "entities.dxf"))
    layouts(os.path.join(out, "layouts.dxf"))
    underlays(os.path.join(out, "underlays.dxf"))
    opaque(os.path.join(out, "opaque.dxf"))
    three_d(os.path.join(out, "three_d.dxf"))
    release2000(os.path.join(out, "release2000.dxf"))
    broken_references(os.path.join(out, "broken_references.dxf"))


if __name__ == "__main__":
    main()
