#!/usr/bin/python3
"""Prints what GDAL's DGN driver reads from a file, one feature a line:
fid|Type|Level|ColorIndex|Weight|Style|text as hex|geometry type|x y z;x y z;...|style string
The DGN tests compare it with what our own reader finds."""
import sys
from osgeo import gdal, ogr

gdal.UseExceptions()


def points(geometry, out):
    if geometry is None:
        return
    if geometry.GetGeometryCount() > 0:
        for i in range(geometry.GetGeometryCount()):
            points(geometry.GetGeometryRef(i), out)
        return
    for i in range(geometry.GetPointCount()):
        x, y, z = geometry.GetPoint(i)
        out.append("%.17g %.17g %.17g" % (x, y, z))


def main():
    source = ogr.Open(sys.argv[1])
    layer = source.GetLayer(0)
    for feature in layer:
        geometry = feature.GetGeometryRef()
        coords = []
        points(geometry, coords)
        text = feature.GetField("Text") or ""
        fields = [
            str(feature.GetFID()),
            str(feature.GetField("Type")),
            str(feature.GetField("Level")),
            str(feature.GetField("ColorIndex")),
            str(feature.GetField("Weight")),
            str(feature.GetField("Style")),
            text.encode("latin-1", "replace").hex(),
            geometry.GetGeometryName() if geometry is not None else "NONE",
            ";".join(coords),
            feature.GetStyleString() or "",
        ]
        print("|".join(fields))


main()
