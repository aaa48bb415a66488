#include "dgn_test_support.h"

#include <optional>
#include <tuple>

#include "kora/dgn/v7/writer.h"

using namespace Kora::Dgn::V7;
using namespace Kora::Test;

namespace {

// The bytes of a design up to its end: the 0xFFFF word or the end of the file.
std::size_t designEnd(const Design& d)
{
    return d.elements.empty() ? 0 : d.elements.back().offset + d.elements.back().source.size();
}

} // namespace

TEST(DgnWriter, WritesEverySampleBackByteForByte)
{
    // Normalised: whatever follows the end-of-design word (block padding)
    // is not written, and a design ending with the file gets the word.
    for (const char* name : {"smalltest.dgn", "seed_2d.dgn", "seed_3d.dgn", "seed3d-metric.dgn", "mixed-elements.dgn",
                             "malformed/knot_oob.dgn"}) {
        SCOPED_TRACE(name);
        const std::vector<std::byte> file = sampleBytes(name);
        auto design = readDesign(file);
        ASSERT_TRUE(design);
        std::vector<std::byte> expected(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(designEnd(*design)));
        expected.push_back(std::byte{0xFF});
        expected.push_back(std::byte{0xFF});

        std::vector<std::byte> written;
        for (const Element& e : design->elements) {
            auto bytes = encodeElement(e, design->info.is3d);
            ASSERT_TRUE(bytes) << bytes.error();
            EXPECT_TRUE(std::equal(bytes->begin(), bytes->end(), e.source.begin(), e.source.end())) << "element " << e.index;
            written.insert(written.end(), bytes->begin(), bytes->end());
        }
        written.push_back(std::byte{0xFF});
        written.push_back(std::byte{0xFF});
        EXPECT_EQ(written, expected);

        auto copy = Writer::fromSeed(file, SeedCopy::Everything);
        ASSERT_TRUE(copy);
        EXPECT_EQ(copy->finish(), expected);
    }
}

TEST(DgnWriter, ElementsOutliveTheReaderAndTheBufferTheyCameFrom)
{
    // Elements kept from a reader, and a copy of a design, after the reader,
    // the design and their buffers are gone: each is still written back
    // byte for byte over its own bytes.
    std::vector<Element> kept;
    bool keptIs3d = false;
    std::optional<Design> copy;
    {
        auto reader = Reader::open(sampleBytes("mixed-elements.dgn"));
        ASSERT_TRUE(reader);
        keptIs3d = reader->info().is3d;
        Element e;
        while (reader->next(e)) kept.push_back(e);
        auto design = readDesignFile(sample("smalltest.dgn"));
        ASSERT_TRUE(design);
        copy = *design;
    }
    for (const auto& [name, elements, is3d] : {std::tuple{"mixed-elements.dgn", &kept, keptIs3d},
                                               std::tuple{"smalltest.dgn", &copy->elements, copy->info.is3d}}) {
        SCOPED_TRACE(name);
        ASSERT_FALSE(elements->empty());
        const std::vector<std::byte> file = sampleBytes(name);
        for (const Element& e : *elements) {
            auto bytes = encodeElement(e, is3d);
            ASSERT_TRUE(bytes) << bytes.error();
            ASSERT_LE(e.offset + bytes->size(), file.size());
            EXPECT_TRUE(std::equal(bytes->begin(), bytes->end(), file.begin() + static_cast<std::ptrdiff_t>(e.offset)))
                << "element " << e.index;
        }
    }
}

TEST(DgnWriter, EditedElementsKeepWhatTheRecordDoesNotSay)
{
    const std::vector<std::byte> file = sampleBytes("mixed-elements.dgn");
    auto design = readDesign(file);
    ASSERT_TRUE(design);
    Writer writer = *Writer::fromSeed(file);
    // Move the first text, give it a new colour and level; its linkages stay.
    Element text = design->elements[7];
    text.as<Text>()->origin.x += 80000;
    text.as<Text>()->text = "moved";
    text.header.range.reset();
    text.header.level = 20;
    text.header.symbology.colour = 200;
    ASSERT_TRUE(writer.append(text));
    // A line string that loses a vertex, so its size changes.
    Element line = design->elements[4];
    line.as<Vertices>()->points.pop_back();
    line.header.range.reset();
    ASSERT_TRUE(writer.append(line));
    auto again = readDesign(writer.finish());
    ASSERT_TRUE(again) << again.error().describe();
    ASSERT_EQ(again->elements.size(), 5u);
    const Element& t = again->elements[3];
    EXPECT_EQ(t.as<Text>()->text, "moved");
    EXPECT_EQ(t.as<Text>()->origin, text.as<Text>()->origin);
    EXPECT_EQ(t.header.level, 20);
    EXPECT_EQ(t.header.symbology.colour, 200);
    EXPECT_EQ(t.header.attributes, design->elements[7].header.attributes);
    EXPECT_EQ(t.as<Text>()->orientation, design->elements[7].as<Text>()->orientation);
    const Element& l = again->elements[4];
    EXPECT_EQ(l.as<Vertices>()->points, line.as<Vertices>()->points);
    // The range was recomputed from the two points left.
    EXPECT_EQ(l.header.range->high.x, 6000 * 80000);
    EXPECT_EQ(l.header.range->low.z, 100 * 80000);
}

TEST(DgnWriter, ComputesCountsRangesAndRefusesWhatDoesNotFit)
{
    const Units units{"m", "mm", 1000, 10, {}};
    Writer writer = Writer::create(false, units);
    Element chain;
    chain.header.type = ElementType::ComplexChainHeader;
    chain.header.level = 3;
    chain.body = ComplexHeader{};
    Element a;
    a.header.type = ElementType::Line;
    a.header.level = 3;
    a.body = Line{{-100, -50, 0}, {200, 300, 0}};
    Element b = a;
    b.body = Line{{200, 300, 0}, {900, 10, 0}};
    const Element components[] = {a, b};
    ASSERT_TRUE(writer.appendComplex(chain, components));
    auto design = readDesign(writer.finish());
    ASSERT_TRUE(design);
    ASSERT_EQ(design->elements.size(), 6u);
    const Element& head = design->elements[3];
    EXPECT_EQ(head.as<ComplexHeader>()->componentCount, 2);
    EXPECT_EQ(head.as<ComplexHeader>()->totalWords, (48 - 38 + 2 * 52) / 2);
    EXPECT_EQ(head.header.range->low, (IntPoint{-100, -50, std::numeric_limits<std::int32_t>::min()}));
    EXPECT_EQ(head.header.range->high, (IntPoint{900, 300, std::numeric_limits<std::int32_t>::max()}));
    EXPECT_TRUE(design->elements[4].header.complex);
    EXPECT_TRUE(design->elements[5].header.complex);
    EXPECT_FALSE(head.header.complex);

    Element text;
    text.header.type = ElementType::Text;
    Text longText;
    longText.text = std::string(256, 'x');
    text.body = longText;
    EXPECT_FALSE(writer.append(text));
    Element cone;
    cone.header.type = ElementType::Cone;
    cone.body = Cone{};
    EXPECT_FALSE(Writer::create(false, units).append(cone)); // cones are 3D only
    Element tooMany;
    tooMany.header.type = ElementType::LineString;
    tooMany.body = Vertices{std::vector<IntPoint>(20000)};
    EXPECT_NE(Writer::create(false, units).append(tooMany).error().find("too long"), std::string::npos);
    EXPECT_FALSE(writer.appendComplex(a, components)); // a line heads nothing

    // Master units and UOR, with a global origin.
    const Units shifted{"ft", "in", 12, 8000, {1000, -2000, 0}};
    IntPoint p;
    ASSERT_TRUE(shifted.toUor({1.5, -2.25, 0}, p));
    EXPECT_EQ(p, (IntPoint{1000 + 144000, -2000 - 216000, 0}));
    EXPECT_EQ(shifted.toMaster(p), (DoublePoint{1.5, -2.25, 0}));
    EXPECT_FALSE(shifted.toUor({1e9, 0, 0}, p)); // off the design plane
}

