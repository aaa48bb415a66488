#!/usr/bin/python3
"""Compares what ezdxf reads from two DXF files: layers, linetypes, blocks,
layouts, every entity's attributes and geometry, and underlays.

usage: dxf_check.py compare EXPECTED ACTUAL
Prints the differences and exits 1 when there are any.
"""
import math
import sys

import ezdxf

# Attributes that name other objects by handle or that writers set freely.
SKIPPED = {"handle", "owner", "layout", "version", "material_handle", "plotstyle_handle",
           "visualstyle_handle", "shadow_mode", "block_record_handle", "underlay_def_handle",
           "transparency", "flags"}


def rounded(value):
    if isinstance(value, float):
        v = round(value, 7)
        return 0.0 if v == 0 else v
    if isinstance(value, (tuple, list)) or hasattr(value, "__iter__") and not isinstance(value, str):
        return tuple(rounded(v) for v in value)
    return value


def attributes(entity):
    out = {}
    for name in list(entity.DXFATTRIBS._attribs):
        if name in SKIPPED or name.endswith("_handle"):
            continue
        try:
            value = entity.dxf.get(name)
        except (ezdxf.DXFAttributeError, ezdxf.DXFValueError):
            continue
        if value is not None:
            # Table names are case-insensitive ("BYBLOCK" is "ByBlock").
            out[name] = value.upper() if name in ("layer", "linetype", "style") else rounded(value)
    return out


def geometry(entity):
    kind = entity.dxftype()
    if kind == "LWPOLYLINE":
        return rounded(list(entity.get_points("xyseb")))
    if kind == "POLYLINE":
        return rounded([v.dxf.location for v in entity.vertices])
    if kind == "SPLINE":
        return (rounded(list(entity.control_points)), rounded(list(entity.fit_points)),
                rounded(list(entity.knots)), rounded(list(entity.weights)))
    if kind == "MTEXT":
        return entity.text
    if kind == "INSERT":
        return tuple((a.dxf.tag, a.dxf.text) for a in entity.attribs)
    if kind == "HATCH":
        paths = []
        for p in entity.paths:
            if p.type.name == "POLYLINE":
                paths.append(("poly", rounded([tuple(v) for v in p.vertices]), p.is_closed))
            else:
                paths.append(("edges", tuple(e.type.name for e in p.edges)))
        lines = rounded([(l.angle, l.base_point, l.offset, tuple(l.dash_length_items))
                         for l in entity.pattern.lines]) if entity.pattern else ()
        return (tuple(paths), lines)
    if kind == "DGNUNDERLAY":
        definition = entity.doc.entitydb.get(entity.dxf.underlay_def_handle)
        return (definition.dxf.filename, definition.dxf.name, rounded(list(entity.boundary_path)))
    if kind in ("3DSOLID", "BODY", "REGION", "EXTRUDEDSURFACE"):
        return tuple(entity.sat)
    return None


def describe(entity):
    return (entity.dxftype(), tuple(sorted(attributes(entity).items())), geometry(entity))


def summary(path):
    doc = ezdxf.readfile(path)
    s = {}
    s["layers"] = sorted((l.dxf.name, l.dxf.color, l.dxf.get("true_color"), l.dxf.linetype, l.dxf.lineweight,
                          l.is_on(), l.is_frozen(), l.is_locked(), l.dxf.get("plot", 1)) for l in doc.layers)
    s["linetypes"] = sorted((lt.dxf.name, rounded(tuple(lt.simplified_line_pattern())))
                            for lt in doc.linetypes)
    s["blocks"] = sorted(b.name for b in doc.blocks if not b.name.startswith("*"))
    s["layouts"] = sorted((l.name, l.dxf.taborder) for l in doc.layouts)
    for layout in doc.layouts:
        s["layout " + layout.name] = [describe(e) for e in layout]
    for block in doc.blocks:
        if not block.name.startswith("*"):
            s["block " + block.name] = [describe(e) for e in block]
    s["dgn definitions"] = sorted((d.dxf.filename, d.dxf.name) for d in doc.objects.query("DGNDEFINITION"))
    s["insunits"] = doc.header.get("$INSUNITS", 0)
    return s


def main():
    if len(sys.argv) != 4 or sys.argv[1] != "compare":
        print(__doc__)
        return 2
    expected, actual = summary(sys.argv[2]), summary(sys.argv[3])
    differences = 0
    for key in sorted(set(expected) | set(actual)):
        a, b = expected.get(key), actual.get(key)
        if a == b:
            continue
        differences += 1
        print(f"{key}:")
        if isinstance(a, list) and isinstance(b, list) and len(a) == len(b):
            for x, y in zip(a, b):
                if x != y:
                    print(f"  expected {x}\n  actual   {y}")
        else:
            print(f"  expected {a}\n  actual   {b}")
    print("same" if differences == 0 else f"{differences} differences")
    return 1 if differences else 0


if __name__ == "__main__":
    sys.exit(main())
