// Element types no sample file holds, assembled byte by byte from the
// published element structure (words little-endian, longs high word first,
// doubles VAX D-float, the range stored with 2^31 added). Each vector must
// decode to the values written beside its bytes, and encoding the decoded
// record must give the same bytes: over its own bytes and from the record
// alone.
#include "dgn_test_support.h"

#include "kora/dgn/v7/writer.h"

using namespace Kora::Dgn::V7;

namespace {

// Bytes in the file's order, written the way the element structure lays
// them out.
struct Bytes {
    std::vector<std::byte> v;
    Bytes& b(unsigned x)
    {
        v.push_back(std::byte(x & 0xFF));
        return *this;
    }
    Bytes& w(unsigned x) { return b(x).b(x >> 8); }
    Bytes& l(std::int32_t x)
    {
        const auto u = static_cast<std::uint32_t>(x);
        return w(u >> 16).w(u & 0xFFFF);
    }
    Bytes& raw(std::initializer_list<unsigned> xs)
    {
        for (unsigned x : xs) b(x);
        return *this;
    }
};

// VAX D-float bytes of the few values used below, worked out by hand: the
// first word holds the sign, the exponent (bias 128, the fraction read as
// 0.1f) and the top 7 fraction bits; words little-endian.
const std::initializer_list<unsigned> Vax0 = {0, 0, 0, 0, 0, 0, 0, 0};
const std::initializer_list<unsigned> Vax1 = {0x80, 0x40, 0, 0, 0, 0, 0, 0};     // 0.5 * 2^1
const std::initializer_list<unsigned> Vax2 = {0x00, 0x41, 0, 0, 0, 0, 0, 0};     // 0.5 * 2^2
const std::initializer_list<unsigned> Vax10 = {0x20, 0x42, 0, 0, 0, 0, 0, 0};    // 0.625 * 2^4
const std::initializer_list<unsigned> VaxMinus3 = {0x40, 0xC1, 0, 0, 0, 0, 0, 0}; // -(0.75 * 2^2)

// Element header, range and display header: 18 words. The words to follow
// count all but the first two; the attribute index counts the words after
// its own up to the linkages, that is the last two words of the display
// header and the record. `trailing` words after the record are no linkage.
Bytes header(unsigned level, unsigned type, unsigned recordWords, std::array<std::int32_t, 6> range, unsigned colour,
             unsigned weight, unsigned style, unsigned trailing = 0)
{
    Bytes out;
    out.b(level).b(type).w(16 + recordWords + trailing);
    for (const std::int32_t r : range) out.l(static_cast<std::int32_t>(static_cast<std::uint32_t>(r) ^ 0x80000000u));
    out.w(0);       // graphic group
    out.w(2 + recordWords); // index to the attribute linkage
    out.w(0);       // properties
    out.w((colour << 8) | (weight << 3) | style);
    return out;
}

struct Case {
    const char* name;
    bool is3d;
    std::vector<std::byte> bytes;
    ElementType type;
    Body expected;
};

void check(const Case& c)
{
    SCOPED_TRACE(c.name);
    ASSERT_EQ(c.bytes.size() % 2, 0u);
    Diagnostic problem;
    const Element e = decodeElement(ElementBytes(c.bytes), c.is3d, &problem);
    EXPECT_EQ(problem.code, Diagnostic::Code::None) << problem.message;
    EXPECT_EQ(e.type(), c.type);
    EXPECT_TRUE(e.body == c.expected) << "decoded record differs from the values the bytes were written with";

    auto over = encodeElement(e, c.is3d);
    ASSERT_TRUE(over) << over.error();
    EXPECT_EQ(*over, c.bytes) << "written over its own bytes";

    Element fresh = e;
    fresh.source = {};
    auto alone = encodeElement(fresh, c.is3d);
    ASSERT_TRUE(alone) << alone.error();
    EXPECT_EQ(*alone, c.bytes) << "written from the record alone";
}

} // namespace

TEST(DgnHandmadeElements, ComplexHeadersTextNodeSurfaceAndSolid)
{
    // Text node, 2D: 17 words of record after the display header.
    Bytes node = header(5, 7, 17, {100, 200, INT32_MIN, 100, 200, INT32_MAX}, 3, 1, 0);
    node.w(40)          // totwords: the words of the node's text elements
        .w(2)           // numstrngs
        .w(17)          // nodenumber
        .b(12).b(9)     // maxlngth, maxused
        .b(1).b(7)      // font, justification
        .l(500)         // linespc
        .l(6000)        // lngthmult
        .l(8000)        // hghtmult
        .l(-90000)      // rotation
        .l(100).l(200); // origin
    TextNode n;
    n.totalWords = 40, n.stringCount = 2, n.nodeNumber = 17, n.maxLength = 12, n.maxUsed = 9, n.font = 1,
    n.justification = 7, n.lineSpacing = 500, n.lengthMultiplier = 6000, n.heightMultiplier = 8000;
    n.orientation.angle = -90000;
    n.origin = {100, 200, 0};

    // Surface (18) and solid (19), 3D: identical but for their type; four
    // attribute words follow the record.
    auto surfaceBytes = [](unsigned type, unsigned surftype) {
        Bytes s = header(9, type, 3, {-10, -20, -30, 10, 20, 30}, 0, 0, 0, 4);
        s.w(120)          // totlength
            .w(3)         // numelems
            .b(surftype)  // surftype
            .b(1)         // boundelms: two boundary elements
            .w(0).w(0).w(0).w(0);
        return s.v;
    };
    const SurfaceHeader revolution{120, 3, 8, 1}; // 8: surface of revolution
    const SurfaceHeader boundary{120, 3, 2, 1};   // 2: volume defined by boundary elements

    for (const Case& c : {Case{"text node", false, node.v, ElementType::TextNode, n},
                          Case{"surface", true, surfaceBytes(18, 8), ElementType::SurfaceHeader, revolution},
                          Case{"solid", true, surfaceBytes(19, 2), ElementType::SolidHeader, boundary}})
        check(c);
}

TEST(DgnHandmadeElements, CurveAndBSplinePolesKnotsAndWeights)
{
    // Curve, 2D: the vertex count, then the points (the first two and last
    // two only shape the ends).
    Bytes curve = header(2, 11, 1 + 4 * 6, {0, 0, INT32_MIN, 50, 40, INT32_MAX}, 4, 2, 1);
    curve.w(6);
    const std::vector<IntPoint> curvePoints = {{0, 0, 0}, {10, 5, 0}, {20, 10, 0}, {30, 40, 0}, {40, 30, 0}, {50, 0, 0}};
    for (const IntPoint& p : curvePoints) curve.l(p.x).l(p.y);

    // Pole, 3D: three poles.
    Bytes pole = header(3, 21, 1 + 6 * 3, {-5, 0, 1, 5, 9, 3}, 0, 0, 0);
    pole.w(3);
    const std::vector<IntPoint> poles = {{-5, 0, 1}, {0, 9, 2}, {5, 0, 3}};
    for (const IntPoint& p : poles) pole.l(p.x).l(p.y).l(p.z);

    // Knots and weights: longs whose low bit is 1/(2^31-1), so 2^31-1 is 1.0.
    Bytes knot = header(3, 26, 2 * 3, {0, 0, INT32_MIN, 0, 0, INT32_MAX}, 0, 0, 0);
    knot.l(0x3FFFFFFF).l(0x7FFFFFFF).l(1);
    Bytes weight = header(3, 28, 2 * 2, {0, 0, INT32_MIN, 0, 0, INT32_MAX}, 0, 0, 0);
    weight.l(0x7FFFFFFF).l(0x40000000);

    for (const Case& c : {Case{"curve", false, curve.v, ElementType::Curve, Vertices{curvePoints}},
                          Case{"pole", true, pole.v, ElementType::BSplinePole, Vertices{poles}},
                          Case{"knot", false, knot.v, ElementType::BSplineKnot, BSplineValues{{0x3FFFFFFF, 0x7FFFFFFF, 1}}},
                          Case{"weight", false, weight.v, ElementType::BSplineWeight, BSplineValues{{0x7FFFFFFF, 0x40000000}}}})
        check(c);
}

TEST(DgnHandmadeElements, ConeAndRaster)
{
    // Cone, 3D: type word, quaternion, then centre and radius of each circle.
    Bytes cone = header(7, 23, 41, {-3, -3, 0, 3, 3, 10}, 12, 0, 0);
    cone.w(0x8001)                           // right cylinder (1), a surface (bit 15)
        .l(0x7FFFFFFF).l(0).l(0).l(0)        // the identity quaternion
        .raw(Vax0).raw(Vax0).raw(Vax0)       // centre 1 (0, 0, 0)
        .raw(Vax2)                           // radius 1
        .raw(Vax1).raw(VaxMinus3).raw(Vax10) // centre 2 (1, -3, 10)
        .raw(Vax2);                          // radius 2
    Cone c;
    c.coneType = 0x8001;
    c.quaternion = {0x7FFFFFFF, 0, 0, 0};
    c.centre1 = {0, 0, 0};
    c.radius1 = 2;
    c.centre2 = {1, -3, 10};
    c.radius2 = 2;

    // Raster header, 2D: the origin is a 3D point in both dimensions, the
    // clip polygon's vertices follow the design's dimension.
    Bytes raster = header(10, 87, 23 + 4 * 4, {0, -200, INT32_MIN, 400, 0, INT32_MAX}, 0, 0, 0);
    raster.l(300)              // totlength
        .w(0x0011)             // flags: right-justified, byte format (2 << 3 = 0x10)
        .b(15).b(0)            // foreground, background colours
        .w(40).w(20)           // x and y extents in pixels
        .w(0).w(0)             // reserved
        .raw(Vax0)             // resolution (unused)
        .raw(Vax10)            // scale: UOR per pixel
        .l(0).l(0).l(0)        // origin
        .w(4)                  // clip vertices
        .l(0).l(0).l(400).l(0).l(400).l(-200).l(0).l(-200);
    RasterHeader r;
    r.totalWords = 300, r.flags = 0x0011, r.foreground = 15, r.xExtent = 40, r.yExtent = 20, r.scale = 10;
    r.clip = {{0, 0, 0}, {400, 0, 0}, {400, -200, 0}, {0, -200, 0}};

    // Raster data: one scan line of five byte pixels, padded to a word.
    Bytes scan = header(10, 88, 5 + 3, {-5, -5, INT32_MIN, 45, 5, INT32_MAX}, 0, 0, 0);
    scan.w(0x0011).b(15).b(0).w(0).w(2).w(5).raw({1, 2, 3, 4, 5, 0});
    RasterData d;
    d.flags = 0x0011, d.foreground = 15, d.yOffset = 2, d.pixelCount = 5;
    d.pixels = {std::byte{1}, std::byte{2}, std::byte{3}, std::byte{4}, std::byte{5}, std::byte{0}};

    for (const Case& k : {Case{"cone", true, cone.v, ElementType::Cone, c},
                          Case{"raster header", false, raster.v, ElementType::RasterHeader, r},
                          Case{"raster data", false, scan.v, ElementType::RasterData, d}})
        check(k);
}
