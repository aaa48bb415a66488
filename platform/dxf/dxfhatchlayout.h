// The nested, counted data of a hatch (boundary loops with their edges, pattern
// lines, seed points), laid out once. The reader and the writer each run these
// routines with their own side: an input side reads each value into the hatch
// being built, an output side writes each value of the hatch being saved, so the
// order of groups and their counts cannot drift apart between the two.
//
// A side provides:
//   kReading                       true when values are read into the data
//   integer(code, int&)            one integer group
//   real(code, double&)            one real group
//   point2(code, KoGePoint2d&)     a 2D point (code and code + 10)
//   handle(code, KoDbHandle&)      a handle group
//   count(code, n, limit)          a count group; returns the count read, or n written
//   optional(code, written)        whether an optional group follows: the next
//                                  tag's code when reading, `written` when writing
//   item(vector, index)            the element to read into (appended) or to write
//   enumerated(code, int&, lo, hi, what)  an integer group that must lie in [lo, hi]
// Values are taken by reference; on the output side they are const.
#pragma once

#include <vector>

#include "dbimpl.h"
#include "dxfentitykinds.h"

namespace Kora::Dxf::HatchLayout {

template <class IO, class Edge>
void splineEdge(IO& io, Edge& edge)
{
    int degree = edge.degree, rational = edge.rational ? 1 : 0, periodic = edge.periodic ? 1 : 0;
    io.integer(94, degree);
    io.integer(73, rational);
    io.integer(74, periodic);
    if constexpr (IO::kReading) {
        edge.degree = degree;
        edge.rational = rational != 0;
        edge.periodic = periodic != 0;
    }
    const int nk = io.count(95, edge.knots.size(), 1 << 22);
    const int nc = io.count(96, edge.controlPoints.size(), 1 << 22);
    for (int q = 0; q < nk; ++q) io.real(40, io.item(edge.knots, q));
    for (int q = 0; q < nc; ++q) {
        io.point2(10, io.item(edge.controlPoints, q));
        if (io.optional(42, static_cast<size_t>(q) < edge.weights.size())) io.real(42, io.item(edge.weights, q));
    }
    // Weights may also come all together after the control points.
    for (size_t q = edge.weights.size(); io.optional(42, false); ++q) io.real(42, io.item(edge.weights, q));
    if (io.optional(97, true)) {
        const int nf = io.count(97, edge.fitPoints.size(), 1 << 22);
        for (int q = 0; q < nf; ++q) io.point2(11, io.item(edge.fitPoints, q));
        if (io.optional(12, edge.hasFitTangents)) {
            if constexpr (IO::kReading) edge.hasFitTangents = true;
            io.point2(12, edge.startTangent);
            io.point2(13, edge.endTangent);
        }
    }
}

template <class IO, class Edge>
void edge(IO& io, Edge& edge)
{
    int type = edge.type;
    io.enumerated(72, type, 1, 4, "hatch: unknown edge type ");
    if constexpr (IO::kReading) edge.type = static_cast<KoDbHatch::EdgeType>(type);
    switch (type) {
    case KoDbHatch::kLine:
        io.point2(10, edge.start);
        io.point2(11, edge.end);
        break;
    case KoDbHatch::kCirArc:
    case KoDbHatch::kEllArc: {
        io.point2(10, edge.center);
        if (type == KoDbHatch::kEllArc) io.point2(11, edge.majorAxis);
        io.real(40, edge.radius);
        io.real(50, edge.startAngle);
        io.real(51, edge.endAngle);
        int ccw = edge.counterClockwise ? 1 : 0;
        io.integer(73, ccw);
        if constexpr (IO::kReading) edge.counterClockwise = ccw != 0;
        break;
    }
    case KoDbHatch::kSpline:
        splineEdge(io, edge);
        break;
    }
}

template <class IO, class Loop>
void loop(IO& io, Loop& loop)
{
    io.integer(92, loop.type);
    if (loop.isPolyline()) {
        int bulges = loop.bulges.empty() ? 0 : 1, closed = loop.closed ? 1 : 0;
        io.integer(72, bulges);
        io.integer(73, closed);
        if constexpr (IO::kReading) loop.closed = closed != 0;
        const int nv = io.count(93, loop.vertices.size(), 1 << 22);
        for (int v = 0; v < nv; ++v) {
            io.point2(10, io.item(loop.vertices, v));
            if (bulges) {
                // A missing bulge is a straight segment.
                auto& b = io.item(loop.bulges, v);
                if (io.optional(42, true)) io.real(42, b);
            }
        }
        if constexpr (IO::kReading) {
            bool any = false;
            for (double b : loop.bulges) any = any || b != 0.0;
            if (!any) loop.bulges.clear();
        }
    } else {
        const int ne = io.count(93, loop.edges.size(), 1 << 22);
        for (int k = 0; k < ne; ++k) edge(io, io.item(loop.edges, k));
    }
    if (io.optional(97, true)) {
        const int ns = io.count(97, loop.sourceObjects.size(), 1 << 22);
        for (int q = 0; q < ns; ++q) io.handle(330, io.item(loop.sourceObjects, q));
    }
}

template <class IO, class Loops>
void loops(IO& io, Loops& loops)
{
    const int n = io.count(91, loops.size(), 1 << 20);
    for (int k = 0; k < n; ++k) loop(io, io.item(loops, k));
}

template <class IO, class Lines>
void patternLines(IO& io, Lines& lines)
{
    const int n = io.count(78, lines.size(), 1 << 16);
    for (int k = 0; k < n; ++k) {
        auto& line = io.item(lines, k);
        io.real(53, line.angle);
        io.real(43, line.base.x);
        io.real(44, line.base.y);
        io.real(45, line.offset.x);
        io.real(46, line.offset.y);
        const int nd = io.count(79, line.dashes.size(), 1 << 16);
        for (int q = 0; q < nd; ++q) io.real(49, io.item(line.dashes, q));
    }
}

template <class IO, class Points>
void seedPoints(IO& io, Points& seeds)
{
    const int n = io.count(98, seeds.size(), 1 << 22);
    for (int k = 0; k < n; ++k) io.point2(10, io.item(seeds, k));
}

// One list of the hatch: read into a new list that is then set whole, or
// written from the hatch's own.
template <class IO, class Hatch, class T, class Layout>
Kora::ErrorStatus list(IO& io, Hatch& hatch, const std::vector<T>& (KoDbHatch::*get)() const,
                       Kora::ErrorStatus (KoDbHatch::*set)(std::vector<T>), Layout layout)
{
    if constexpr (IO::kReading) {
        std::vector<T> values;
        layout(io, values);
        return (hatch.*set)(std::move(values));
    } else {
        layout(io, (hatch.*get)());
        return Kora::eOk;
    }
}

// Runs the routine a field names, where the field's count stands.
template <class IO, class Hatch>
Kora::ErrorStatus run(IO& io, Nested which, Hatch& hatch)
{
    switch (which) {
    case Nested::HatchLoops:
        return list(io, hatch, &KoDbHatch::loops, &KoDbHatch::setLoops, [](IO& o, auto& v) { loops(o, v); });
    case Nested::HatchPatternLines:
        return list(io, hatch, &KoDbHatch::patternLines, &KoDbHatch::setPatternLines,
                    [](IO& o, auto& v) { patternLines(o, v); });
    case Nested::HatchSeedPoints:
        return list(io, hatch, &KoDbHatch::seedPoints, &KoDbHatch::setSeedPoints, [](IO& o, auto& v) { seedPoints(o, v); });
    case Nested::None:
        break;
    }
    return Kora::eOk;
}

}  // namespace Kora::Dxf::HatchLayout
