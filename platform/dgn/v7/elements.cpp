#include "kora/dgn/v7/elements.h"

#include <cmath>

namespace Kora::Dgn::V7 {

namespace {

constexpr double QuaternionScale = 2147483647.0; // 2^31 - 1

} // namespace

std::string elementTypeName(ElementType type)
{
    switch (type) {
    case ElementType::CellLibraryHeader: return "Cell Library Header";
    case ElementType::CellHeader: return "Cell Header";
    case ElementType::Line: return "Line";
    case ElementType::LineString: return "Line String";
    case ElementType::GroupData: return "Group Data";
    case ElementType::Shape: return "Shape";
    case ElementType::TextNode: return "Text Node";
    case ElementType::DigitizerSetup: return "Digitizer Setup";
    case ElementType::Tcb: return "TCB";
    case ElementType::LevelSymbology: return "Level Symbology";
    case ElementType::Curve: return "Curve";
    case ElementType::ComplexChainHeader: return "Complex Chain";
    case ElementType::ComplexShapeHeader: return "Complex Shape";
    case ElementType::Ellipse: return "Ellipse";
    case ElementType::Arc: return "Arc";
    case ElementType::Text: return "Text";
    case ElementType::SurfaceHeader: return "Surface";
    case ElementType::SolidHeader: return "Solid";
    case ElementType::BSplinePole: return "B-Spline Poles";
    case ElementType::PointString: return "Point String";
    case ElementType::Cone: return "Cone";
    case ElementType::BSplineSurfaceHeader: return "B-Spline Surface";
    case ElementType::BSplineBoundary: return "B-Spline Boundary";
    case ElementType::BSplineKnot: return "B-Spline Knots";
    case ElementType::BSplineCurveHeader: return "B-Spline Curve";
    case ElementType::BSplineWeight: return "B-Spline Weights";
    case ElementType::Dimension: return "Dimension";
    case ElementType::SharedCellDefinition: return "Shared Cell Definition";
    case ElementType::SharedCellInstance: return "Shared Cell Instance";
    case ElementType::MultiLine: return "Multi-Line";
    case ElementType::ApplicationElement: return "Application Element";
    case ElementType::RasterHeader: return "Raster Header";
    case ElementType::RasterData: return "Raster Data";
    }
    return "Type " + std::to_string(static_cast<int>(type));
}

bool hasDisplayHeader(ElementType type)
{
    // The cell library header has a layout of its own; the design header
    // elements have none.
    return type != ElementType::CellLibraryHeader && type != ElementType::DigitizerSetup
        && type != ElementType::Tcb && type != ElementType::LevelSymbology;
}

bool isComplexHeader(ElementType type)
{
    switch (type) {
    case ElementType::CellHeader:
    case ElementType::TextNode:
    case ElementType::ComplexChainHeader:
    case ElementType::ComplexShapeHeader:
    case ElementType::SurfaceHeader:
    case ElementType::SolidHeader:
        return true;
    default:
        return false;
    }
}

double angleDegrees(std::int32_t angle)
{
    return angle / 360000.0;
}

std::int32_t angleFromDegrees(double degrees)
{
    const double raw = std::round(degrees * 360000.0);
    if (!(raw > -2147483647.0)) return -2147483647;
    if (!(raw < 2147483647.0)) return 2147483647;
    return static_cast<std::int32_t>(raw);
}

// Files store the conjugate of the rotation the element has: a text rotated
// by +30 degrees about z holds (cos 15, 0, 0, -sin 15). The matrix below is
// that of the element's rotation.
std::array<std::array<double, 3>, 3> quaternionMatrix(const std::array<std::int32_t, 4>& q)
{
    double w = q[0] / QuaternionScale, x = -q[1] / QuaternionScale, y = -q[2] / QuaternionScale,
           z = -q[3] / QuaternionScale;
    const double norm = std::sqrt(w * w + x * x + y * y + z * z);
    if (norm == 0) return {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    w /= norm;
    x /= norm;
    y /= norm;
    z /= norm;
    return {{{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)},
             {2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)},
             {2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)}}};
}

std::array<std::int32_t, 4> quaternionFromZRotation(double degrees)
{
    const double half = degrees * M_PI / 360.0;
    return {static_cast<std::int32_t>(std::lround(std::cos(half) * QuaternionScale)), 0, 0,
            static_cast<std::int32_t>(std::lround(-std::sin(half) * QuaternionScale))};
}

std::string radix50Name(std::uint32_t value)
{
    static constexpr char Alphabet[] = " ABCDEFGHIJKLMNOPQRSTUVWXYZ$.?0123456789";
    std::string name;
    for (const std::uint32_t word : {value >> 16, value & 0xFFFF}) {
        std::uint32_t w = word;
        const char chars[3] = {Alphabet[(w / 1600) % 40], Alphabet[(w / 40) % 40], Alphabet[w % 40]};
        name.append(chars, 3);
    }
    while (!name.empty() && name.back() == ' ') name.pop_back();
    return name;
}

double textSizeUor(std::int32_t multiplier)
{
    // The base character cell is 6 UOR; multipliers are in thousandths.
    return multiplier * 6.0 / 1000.0;
}

std::int32_t textMultiplierFromUor(double size)
{
    const double raw = std::round(size * 1000.0 / 6.0);
    if (!(raw > -2147483647.0)) return -2147483647;
    if (!(raw < 2147483647.0)) return 2147483647;
    return static_cast<std::int32_t>(raw);
}

} // namespace Kora::Dgn::V7
