// Typed element records of V7 design files.
//
// An element is a common header plus one body record chosen by its type.
// Records hold what the file holds, in the file's own units: integer points
// and range in units of resolution (UOR), angles in the file's integer
// encodings, texts as their bytes. Converting to master units is the job of
// Units (units.h), so reading and writing back never loses a bit.
//
// Element types that have no record of their own (dimensions, shared cells,
// multi-lines, anything unknown) and elements too short for their type's
// record are kept as RawBody: the writer writes their bytes back unchanged.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>


namespace Kora::Dgn::V7 {

// The type numbers of the element structure. The enumeration is open: an
// element may carry any number 0..127, named here or not.
enum class ElementType : std::uint8_t {
    CellLibraryHeader = 1,
    CellHeader = 2,
    Line = 3,
    LineString = 4,
    GroupData = 5,
    Shape = 6,
    TextNode = 7,
    DigitizerSetup = 8,
    Tcb = 9,
    LevelSymbology = 10,
    Curve = 11,
    ComplexChainHeader = 12,
    ComplexShapeHeader = 14,
    Ellipse = 15,
    Arc = 16,
    Text = 17,
    SurfaceHeader = 18,
    SolidHeader = 19,
    BSplinePole = 21,
    PointString = 22,
    Cone = 23,
    BSplineSurfaceHeader = 24,
    BSplineBoundary = 25,
    BSplineKnot = 26,
    BSplineCurveHeader = 27,
    BSplineWeight = 28,
    Dimension = 33,
    SharedCellDefinition = 34,
    SharedCellInstance = 35,
    MultiLine = 36,
    ApplicationElement = 66,
    RasterHeader = 87,
    RasterData = 88,
};

// A short English name of the type ("Line String", "Arc"); "Type 63" for
// numbers without a name.
std::string elementTypeName(ElementType type);

// A point in UOR. Design plane points are 32-bit integers; the points that
// may lie off the plane (ellipse and arc centres, cone circles) are doubles.
struct IntPoint {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t z = 0;
    bool operator==(const IntPoint&) const = default;
};

struct DoublePoint {
    double x = 0;
    double y = 0;
    double z = 0;
    bool operator==(const DoublePoint&) const = default;
};

// The range block of the element header, in UOR. The file stores each value
// offset by 2^31 so that it sorts as an unsigned number; this holds them
// back as signed design plane coordinates.
struct Range {
    IntPoint low;
    IntPoint high;
    bool operator==(const Range&) const = default;
};

// Line style 0-7, weight 0-31, colour 0-255: the symbology word.
struct Symbology {
    std::uint8_t colour = 0;
    std::uint8_t weight = 0;
    std::uint8_t style = 0;
    bool operator==(const Symbology&) const = default;
};

// Bits of the properties word. The low four bits are the class.
namespace Property {
inline constexpr std::uint16_t ClassMask = 0x000F;
inline constexpr std::uint16_t Locked = 0x0100;
inline constexpr std::uint16_t New = 0x0200;
inline constexpr std::uint16_t Modified = 0x0400;
inline constexpr std::uint16_t Attributes = 0x0800;
inline constexpr std::uint16_t ViewIndependent = 0x1000;
inline constexpr std::uint16_t NonPlanar = 0x2000;
inline constexpr std::uint16_t NotSnappable = 0x4000;
inline constexpr std::uint16_t Hole = 0x8000;
} // namespace Property

// The element header and, for elements that have one, the display header.
// Elements of types 8, 9 and 10 have no display header: their graphic
// group, properties and symbology read as 0 and are not written.
struct Header {
    ElementType type = ElementType::Line;
    std::uint8_t level = 0; // 0..63; graphic elements use 1..63
    bool complex = false;   // component of the complex element before it
    bool deleted = false;
    // As stored when read. The writer recomputes it from the geometry when
    // it is empty, so code that edits the geometry of an element read from
    // a file resets it.
    std::optional<Range> range;
    std::uint16_t graphicGroup = 0;
    std::uint16_t properties = 0; // see Property; the Attributes bit follows `attributes`
    Symbology symbology;
    // Attribute linkages exactly as stored (the bytes from the attribute
    // index to the end of the element); empty when there are none.
    std::vector<std::byte> attributes;

    int elementClass() const { return properties & Property::ClassMask; }
};

// A 2D rotation is a 32-bit angle in 1/360000 of a degree; a 3D orientation
// is a quaternion of four 32-bit integers scaled by 2^31 - 1. Records keep
// both fields; the file's dimension says which one is stored.
struct Orientation {
    std::int32_t angle = 0;
    std::array<std::int32_t, 4> quaternion{};
    bool operator==(const Orientation&) const = default;
};

// Degrees of an angle in the 1/360000 degree encoding, and back (rounded).
double angleDegrees(std::int32_t angle);
std::int32_t angleFromDegrees(double degrees);
// The 3x3 rotation matrix (rows) of a stored quaternion; the matrix takes
// element coordinates to design coordinates.
std::array<std::array<double, 3>, 3> quaternionMatrix(const std::array<std::int32_t, 4>& quaternion);
// The quaternion of a rotation by `degrees` about the z axis.
std::array<std::int32_t, 4> quaternionFromZRotation(double degrees);

// Body records, one per kind of element.

// Types without a record; the element's bytes stay in Element::source.
struct RawBody {
    bool operator==(const RawBody&) const = default;
};

// Type 9. The 1536-byte block of settings; the fields below are decoded,
// every other byte is kept in `block` (bytes 4.. of the element) and
// written back as it was.
struct Tcb {
    bool is3d = false;
    std::int32_t subPerMaster = 1;
    std::int32_t uorPerSub = 1;
    std::string masterName; // at most 2 characters
    std::string subName;    // at most 2 characters
    DoublePoint globalOrigin; // UOR
    std::vector<std::byte> block;
    bool operator==(const Tcb&) const = default;
};

// Type 8: used only by old systems; kept as its bytes (after the 4-byte header).
struct DigitizerSetup {
    std::vector<std::byte> block;
    bool operator==(const DigitizerSetup&) const = default;
};

// Type 10: the symbology each level shows with when level symbology is on
// (index = level), and the selective-use flags stored in the range area.
struct LevelSymbology {
    std::array<Symbology, 64> levels{};
    std::vector<std::byte> block; // bytes 4..27 (the range area with the flags)
    bool operator==(const LevelSymbology&) const = default;
};

// Type 5 on level 1. The file stores 256 triples: the background, then
// colours 0..254; colour 255 shows with the background's triple.
struct ColourTable {
    struct Rgb {
        std::uint8_t r = 0, g = 0, b = 0;
        bool operator==(const Rgb&) const = default;
    };
    std::uint16_t screenFlag = 0;
    std::array<Rgb, 256> stored{}; // file order: background first
    Rgb background() const { return stored[0]; }
    Rgb colour(std::uint8_t index) const { return index == 255 ? stored[0] : stored[index + 1u]; }
    bool operator==(const ColourTable&) const = default;
};

// Type 5 on other levels and type 66: non-graphic data whose meaning the
// level selects; the bytes after the display header up to the linkages.
struct GroupData {
    std::vector<std::byte> data;
    bool operator==(const GroupData&) const = default;
};

// Type 2. The transformation is a 2x2 (2D: the first four values, rows) or
// 3x3 matrix of integers whose lowest bit is worth 10000 / 2^31; it is kept
// as stored.
struct CellHeader {
    std::uint16_t totalWords = 0;  // words after this one up to the end of the last component
    std::uint32_t name = 0;        // Radix-50, see radix50Name()
    std::uint16_t classMap = 0;
    std::array<std::uint16_t, 4> levels{}; // 64-bit level mask
    IntPoint rangeLow;
    IntPoint rangeHigh;
    std::array<std::int32_t, 9> transform{};
    IntPoint origin;
    bool operator==(const CellHeader&) const = default;
};
// The cell name of a Radix-50 value (up to six characters, trailing blanks cut).
std::string radix50Name(std::uint32_t value);

// Type 3.
struct Line {
    IntPoint start;
    IntPoint end;
    bool operator==(const Line&) const = default;
};

// Types 4 (line string), 6 (shape), 11 (curve) and 21 (B-spline poles):
// a vertex count and the vertices.
struct Vertices {
    std::vector<IntPoint> points;
    bool operator==(const Vertices&) const = default;
};

// Type 7.
struct TextNode {
    std::uint16_t totalWords = 0;
    std::uint16_t stringCount = 0;
    std::uint16_t nodeNumber = 0;
    std::uint8_t maxLength = 0;
    std::uint8_t maxUsed = 0;
    std::uint8_t font = 0;
    std::uint8_t justification = 0;
    std::int32_t lineSpacing = 0;
    std::int32_t lengthMultiplier = 0;
    std::int32_t heightMultiplier = 0;
    Orientation orientation;
    IntPoint origin;
    bool operator==(const TextNode&) const = default;
};

// Types 12 and 14. The four attribute words that pad the header to its
// minimum size count as attribute linkage (Header::attributes).
struct ComplexHeader {
    std::uint16_t totalWords = 0;     // words after this one up to the end of the last component
    std::uint16_t componentCount = 0;
    bool operator==(const ComplexHeader&) const = default;
};

// Types 18 and 19.
struct SurfaceHeader {
    std::uint16_t totalWords = 0;
    std::uint16_t componentCount = 0;
    std::uint8_t surfaceType = 0;
    std::uint8_t boundaryCountMinusOne = 0;
    bool operator==(const SurfaceHeader&) const = default;
};

// Type 15. Axes and origin in UOR.
struct Ellipse {
    double primaryAxis = 0;
    double secondaryAxis = 0;
    Orientation orientation;
    DoublePoint origin;
    bool operator==(const Ellipse&) const = default;
};

// Type 16. Angles in 1/360000 degree; the sweep is signed (negative =
// clockwise) and 0 means a full turn.
struct Arc {
    std::int32_t startAngle = 0;
    std::int32_t sweepAngle = 0;
    double primaryAxis = 0;
    double secondaryAxis = 0;
    Orientation orientation;
    DoublePoint origin;
    bool operator==(const Arc&) const = default;
};

// Type 17. The multipliers are in thousandths of the 6-UOR base character
// size; see textHeightUor(). The origin is the text's lower left corner.
struct Text {
    std::uint8_t font = 0;
    std::uint8_t justification = 0;
    std::int32_t lengthMultiplier = 0;
    std::int32_t heightMultiplier = 0;
    Orientation orientation;
    IntPoint origin;
    std::string text;                  // the stored bytes
    std::vector<std::uint8_t> editFields; // three bytes per enter-data field
    bool operator==(const Text&) const = default;
};
// Character height and width in UOR of a text multiplier.
double textSizeUor(std::int32_t multiplier);
std::int32_t textMultiplierFromUor(double size);

// Type 22. Each vertex has an orientation: a 2x2 matrix (2D) or a
// quaternion (3D), four integers scaled by 2^31 - 1 either way.
struct PointString {
    std::vector<IntPoint> points;
    std::vector<std::array<std::int32_t, 4>> orientations;
    bool operator==(const PointString&) const = default;
};

// Type 23 (3D only).
struct Cone {
    std::uint16_t coneType = 0;
    std::array<std::int32_t, 4> quaternion{};
    DoublePoint centre1;
    double radius1 = 0;
    DoublePoint centre2;
    double radius2 = 0;
    bool operator==(const Cone&) const = default;
};

// Type 27.
struct BSplineCurveHeader {
    std::uint32_t descriptionWords = 0;
    std::uint16_t flags = 0; // order - 2 in bits 0-3; curve display 4, polygon 5, rational 6, closed 7
    std::uint16_t poleCount = 0;
    std::uint16_t knotCount = 0;
    int order() const { return (flags & 0x0F) + 2; }
    bool rational() const { return (flags & 0x40) != 0; }
    bool closed() const { return (flags & 0x80) != 0; }
    bool operator==(const BSplineCurveHeader&) const = default;
};

// Type 24.
struct BSplineSurfaceHeader {
    std::uint32_t descriptionWords = 0;
    std::uint16_t uFlags = 0;
    std::uint16_t uPoleCount = 0;
    std::uint16_t uKnotCount = 0;
    std::uint16_t uRuleCount = 0;
    std::uint16_t vFlags = 0;
    std::uint16_t vPoleCount = 0;
    std::uint16_t vKnotCount = 0;
    std::uint16_t vRuleCount = 0;
    std::uint16_t boundaryCount = 0;
    bool operator==(const BSplineSurfaceHeader&) const = default;
};

// Type 25: points in the surface's (u, v) space scaled by 2^31 - 1.
struct BSplineBoundary {
    std::uint16_t number = 0;
    std::vector<std::array<std::int32_t, 2>> points;
    bool operator==(const BSplineBoundary&) const = default;
};

// Types 26 (knots) and 28 (weights): values scaled by 2^31 - 1.
struct BSplineValues {
    std::vector<std::int32_t> values;
    bool operator==(const BSplineValues&) const = default;
};

// Type 87.
struct RasterHeader {
    std::uint32_t totalWords = 0;
    std::uint16_t flags = 0;
    std::uint8_t foreground = 0;
    std::uint8_t background = 0;
    std::uint16_t xExtent = 0;
    std::uint16_t yExtent = 0;
    std::array<std::uint16_t, 2> reserved{};
    double resolution = 0;
    double scale = 0; // UOR per pixel
    IntPoint origin;
    std::vector<IntPoint> clip;
    int format() const { return (flags >> 3) & 0x1F; }
    bool operator==(const RasterHeader&) const = default;
};

// Type 88.
struct RasterData {
    std::uint16_t flags = 0;
    std::uint8_t foreground = 0;
    std::uint8_t background = 0;
    std::uint16_t xOffset = 0;
    std::uint16_t yOffset = 0;
    std::uint16_t pixelCount = 0;
    std::vector<std::byte> pixels;
    bool operator==(const RasterData&) const = default;
};

using Body = std::variant<RawBody, Tcb, DigitizerSetup, LevelSymbology, ColourTable, GroupData, CellHeader,
                          Line, Vertices, TextNode, ComplexHeader, SurfaceHeader, Ellipse, Arc, Text,
                          PointString, Cone, BSplineCurveHeader, BSplineSurfaceHeader, BSplineBoundary,
                          BSplineValues, RasterHeader, RasterData>;

// The bytes of one element inside a buffer it shares ownership of (the
// whole file, as the reader read it). An element keeps its bytes alive:
// it may outlive the reader and the file's buffer, and copies cheaply.
class ElementBytes {
public:
    using Buffer = std::shared_ptr<const std::vector<std::byte>>;

    ElementBytes() = default;
    // A buffer of its own.
    explicit ElementBytes(std::vector<std::byte> bytes)
        : m_buffer(std::make_shared<const std::vector<std::byte>>(std::move(bytes))), m_size(m_buffer->size())
    {
    }
    // `size` bytes at `offset` in a shared buffer; the caller keeps them inside it.
    ElementBytes(Buffer buffer, std::size_t offset, std::size_t size)
        : m_buffer(std::move(buffer)), m_offset(offset), m_size(size)
    {
    }

    std::span<const std::byte> span() const
    {
        return m_buffer ? std::span<const std::byte>(m_buffer->data() + m_offset, m_size) : std::span<const std::byte>();
    }
    operator std::span<const std::byte>() const { return span(); }
    const std::byte* begin() const { return span().data(); }
    const std::byte* end() const { return begin() + m_size; }
    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }

private:
    Buffer m_buffer;
    std::size_t m_offset = 0;
    std::size_t m_size = 0;
};

struct Element {
    Header header;
    Body body;
    // Where the element was read: its byte offset and index (0-based, the
    // design header's elements included), and its bytes. `source` is empty
    // for elements made in memory. The writer starts from these bytes so
    // that whatever no record describes (reserved words, padding) is written
    // back unchanged.
    std::size_t offset = 0;
    std::size_t index = 0;
    ElementBytes source;

    ElementType type() const { return header.type; }
    template <typename T> const T* as() const { return std::get_if<T>(&body); }
    template <typename T> T* as() { return std::get_if<T>(&body); }
};

// Whether elements of this type carry the display header (graphic group,
// attribute index, properties, symbology).
bool hasDisplayHeader(ElementType type);

// Whether the type starts a complex element whose components follow it.
bool isComplexHeader(ElementType type);

} // namespace Kora::Dgn::V7
