// dgninfo FILE [--raw]: what a DGN file holds, one line per element (V7
// here, V8 in dgninfov8.cpp). --raw adds the bytes of each element (of the
// elements not decoded, for V8).
#include <cstdio>
#include <cstring>
#include <string>

#include "kora/dgn/naming.h"
#include "dgninfov8.h"
#include "kora/dgn/v7/reader.h"

using namespace Kora::Dgn::V7;
using Kora::Dgn::colourName;
using Kora::Dgn::lineStyleName;
using Kora::Dgn::weightName;

namespace {

std::string number(double v)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.10g", v);
    return buffer;
}

class Printer {
public:
    Printer(const DesignInfo& info) : m_info(info) {}

    std::string point(const DoublePoint& uor) const
    {
        const DoublePoint p = m_info.units.toMaster(uor);
        return "(" + number(p.x) + " " + number(p.y) + (m_info.is3d ? " " + number(p.z) : "") + ")";
    }
    std::string point(const IntPoint& uor) const
    {
        return point(DoublePoint{double(uor.x), double(uor.y), double(uor.z)});
    }
    std::string length(double uor) const { return number(m_info.units.lengthToMaster(uor)); }
    std::string rotation(const Orientation& o) const
    {
        if (!m_info.is3d) return "rotation=" + number(angleDegrees(o.angle));
        return "quaternion=(" + std::to_string(o.quaternion[0]) + " " + std::to_string(o.quaternion[1]) + " "
            + std::to_string(o.quaternion[2]) + " " + std::to_string(o.quaternion[3]) + ")";
    }
    std::string points(const std::vector<IntPoint>& list) const
    {
        std::string s = std::to_string(list.size()) + " points";
        for (const IntPoint& p : list) s += " " + point(p);
        return s;
    }

    std::string describe(const Element& e) const
    {
        return std::visit(
            [&](const auto& body) -> std::string {
                using T = std::decay_t<decltype(body)>;
                if constexpr (std::is_same_v<T, Tcb>)
                    return std::string(body.is3d ? "3D" : "2D") + " master=\"" + body.masterName + "\" sub=\"" + body.subName
                        + "\" sub/master=" + std::to_string(body.subPerMaster) + " uor/sub=" + std::to_string(body.uorPerSub);
                else if constexpr (std::is_same_v<T, ColourTable>)
                    return "colour table, background #" + hex(body.background());
                else if constexpr (std::is_same_v<T, GroupData>)
                    return std::to_string(body.data.size()) + " data bytes";
                else if constexpr (std::is_same_v<T, CellHeader>)
                    return "name=\"" + radix50Name(body.name) + "\" origin=" + point(body.origin);
                else if constexpr (std::is_same_v<T, Line>)
                    return point(body.start) + " " + point(body.end);
                else if constexpr (std::is_same_v<T, Vertices>)
                    return points(body.points);
                else if constexpr (std::is_same_v<T, PointString>)
                    return points(body.points);
                else if constexpr (std::is_same_v<T, TextNode>)
                    return "strings=" + std::to_string(body.stringCount) + " origin=" + point(body.origin);
                else if constexpr (std::is_same_v<T, ComplexHeader> || std::is_same_v<T, SurfaceHeader>)
                    return "components=" + std::to_string(body.componentCount);
                else if constexpr (std::is_same_v<T, Ellipse>)
                    return "centre=" + point(body.origin) + " axes=" + length(body.primaryAxis) + " " + length(body.secondaryAxis)
                        + " " + rotation(body.orientation);
                else if constexpr (std::is_same_v<T, Arc>)
                    return "centre=" + point(body.origin) + " axes=" + length(body.primaryAxis) + " " + length(body.secondaryAxis)
                        + " start=" + number(angleDegrees(body.startAngle)) + " sweep="
                        + number(body.sweepAngle == 0 ? 360.0 : angleDegrees(body.sweepAngle)) + " " + rotation(body.orientation);
                else if constexpr (std::is_same_v<T, Text>)
                    return "text=\"" + body.text + "\" origin=" + point(body.origin) + " height="
                        + length(textSizeUor(body.heightMultiplier)) + " font=" + std::to_string(body.font) + " "
                        + rotation(body.orientation);
                else if constexpr (std::is_same_v<T, Cone>)
                    return "centres=" + point(body.centre1) + " " + point(body.centre2) + " radii=" + length(body.radius1) + " "
                        + length(body.radius2);
                else if constexpr (std::is_same_v<T, BSplineCurveHeader>)
                    return "order=" + std::to_string(body.order()) + " poles=" + std::to_string(body.poleCount)
                        + " knots=" + std::to_string(body.knotCount);
                else if constexpr (std::is_same_v<T, BSplineSurfaceHeader>)
                    return "poles=" + std::to_string(body.uPoleCount) + "x" + std::to_string(body.vPoleCount);
                else if constexpr (std::is_same_v<T, BSplineValues>)
                    return std::to_string(body.values.size()) + " values";
                else if constexpr (std::is_same_v<T, BSplineBoundary>)
                    return "boundary " + std::to_string(body.number) + ", " + std::to_string(body.points.size()) + " points";
                else if constexpr (std::is_same_v<T, RasterHeader>)
                    return std::to_string(body.xExtent) + "x" + std::to_string(body.yExtent) + " pixels, format "
                        + std::to_string(body.format()) + ", origin=" + point(body.origin);
                else if constexpr (std::is_same_v<T, RasterData>)
                    return "offset " + std::to_string(body.xOffset) + "," + std::to_string(body.yOffset) + ", "
                        + std::to_string(body.pixelCount) + " pixels";
                else if constexpr (std::is_same_v<T, RawBody>)
                    return std::to_string(e.source.size()) + " bytes kept as they are";
                else
                    return "";
            },
            e.body);
    }

    static std::string hex(ColourTable::Rgb c)
    {
        char buffer[8];
        std::snprintf(buffer, sizeof buffer, "%02x%02x%02x", c.r, c.g, c.b);
        return buffer;
    }

private:
    const DesignInfo& m_info;
};

void printRaw(std::span<const std::byte> bytes)
{
    for (std::size_t i = 0; i < bytes.size(); i += 32) {
        std::printf("    ");
        for (std::size_t k = i; k < bytes.size() && k < i + 32; ++k) std::printf("%02x", std::to_integer<unsigned>(bytes[k]));
        std::printf("\n");
    }
}

} // namespace

int main(int argc, char** argv)
{
    const char* path = nullptr;
    bool raw = false;
    int paths = 0;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--raw") == 0) raw = true;
        else path = argv[i], ++paths;
    }
    if (paths != 1) {
        std::fprintf(stderr, "usage: dgninfo FILE [--raw]\n");
        return 2;
    }
    auto bytes = readFileBytes(path);
    if (!bytes && bytes.error().code == ReadError::Code::UnsupportedV8) return printV8File(path, raw);
    if (!bytes) {
        std::fprintf(stderr, "dgninfo: %s\n", bytes.error().message.c_str());
        return 1;
    }
    const FileKind kind = recognise(*bytes);
    auto reader = Reader::open(std::move(*bytes));
    if (!reader) {
        std::fprintf(stderr, "dgninfo: %s: %s\n", path, reader.error().message.c_str());
        return 1;
    }
    const DesignInfo& info = reader->info();
    const Units& u = info.units;
    std::printf("File: %s\n", path);
    std::printf("Version: V7 (%s)\n", fileKindName(kind).c_str());
    std::printf("Dimension: %s\n", info.is3d ? "3D" : "2D");
    std::printf("Units: master \"%s\", sub \"%s\", %d sub units per master unit, %d UOR per sub unit\n", u.masterName.c_str(),
                u.subName.c_str(), u.subPerMaster, u.uorPerSub);
    std::printf("Global origin: (%s %s %s) UOR\n", number(u.globalOrigin.x).c_str(), number(u.globalOrigin.y).c_str(),
                number(u.globalOrigin.z).c_str());
    std::printf("Models: 1\n  Default\n");

    const Printer printer(info);
    Element e;
    std::size_t count = 0;
    bool colourTable = false;
    std::printf("Elements:\n");
    while (reader->next(e)) {
        ++count;
        colourTable = colourTable || e.as<ColourTable>() != nullptr;
        const Header& h = e.header;
        std::string flags;
        if (h.complex) flags += " complex";
        if (h.deleted) flags += " deleted";
        if (!h.attributes.empty()) flags += " linkage=" + std::to_string(h.attributes.size());
        std::printf("@%zu #%zu %s(%d) level=%d colour=%s weight=%s style=%s%s %s\n", e.offset, e.index,
                    elementTypeName(h.type).c_str(), static_cast<int>(h.type), h.level, colourName(h.symbology.colour).c_str(),
                    weightName(h.symbology.weight).c_str(), lineStyleName(h.symbology.style).c_str(), flags.c_str(),
                    printer.describe(e).c_str());
        if (raw) printRaw(e.source);
    }
    std::printf("Element count: %zu\n", count);
    std::printf("Colour table: %s\n", colourTable ? "yes" : "no");
    for (const Diagnostic& d : reader->diagnostics())
        std::printf("warning: %s (element %zu at byte offset %zu)\n", d.message.c_str(), d.elementIndex, d.offset);
    if (reader->error()) {
        std::fprintf(stderr, "dgninfo: %s: %s\n", path, reader->error()->describe().c_str());
        return 1;
    }
    return 0;
}
