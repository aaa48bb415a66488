#include "dgn_test_support.h"

#include <cmath>
#include <random>

#include "kora/dgn/v7/reader.h"

using namespace Kora::Dgn::V7;
using Kora::Test::sample;
using Kora::Test::sampleBytes;

namespace {

std::vector<std::byte> bytesOf(std::initializer_list<unsigned> values)
{
    std::vector<std::byte> out;
    for (const unsigned v : values) out.push_back(std::byte(v));
    return out;
}

// Reads everything the reader yields; the test only cares that it ends
// cleanly, with or without an error.
std::size_t drain(std::vector<std::byte> bytes)
{
    auto reader = Reader::open(std::move(bytes));
    if (!reader) return 0;
    Element e;
    std::size_t n = 0;
    while (reader->next(e)) ++n;
    return n;
}

} // namespace

TEST(DgnReader, RecognisesFilesByTheirFirstBytes)
{
    EXPECT_EQ(recognise(sampleBytes("smalltest.dgn")), FileKind::V7Design2d);
    EXPECT_EQ(recognise(sampleBytes("seed_3d.dgn")), FileKind::V7Design3d);
    EXPECT_EQ(recognise(sampleBytes("v8/test_dgnv8.dgn")), FileKind::V8);
    EXPECT_EQ(recognise(bytesOf({0x08, 0x05, 0x17, 0x00, 0x00})), FileKind::V7CellLibrary);
    EXPECT_EQ(recognise(bytesOf({0x08, 0x09, 0xFE})), FileKind::NotDgn); // too short to tell
    EXPECT_EQ(recognise({}), FileKind::NotDgn);
    EXPECT_EQ(recognise(sampleBytes("v8/test_dgnv8_ref.csv")), FileKind::NotDgn);

    auto v8 = readDesignFile(sample("v8/test_dgnv8.dgn"));
    ASSERT_FALSE(v8);
    EXPECT_EQ(v8.error().code, ReadError::Code::UnsupportedV8);

    auto missing = readDesignFile(sample("no-such-file.dgn"));
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, ReadError::Code::FileAccess);

    // Files are recognised before they are read: an endless device and a
    // 5 GB file of zeros (sparse, no disk used) are refused at once.
    auto device = readFileBytes("/dev/zero");
    ASSERT_FALSE(device);
    EXPECT_EQ(device.error().code, ReadError::Code::NotDgn);
    const auto zeros = Kora::Test::scratch("zeros") / "zeros.dgn";
    std::ofstream(zeros).close();
    std::filesystem::resize_file(zeros, std::uintmax_t{5} << 30);
    auto big = readFileBytes(zeros);
    ASSERT_FALSE(big);
    EXPECT_EQ(big.error().code, ReadError::Code::NotDgn);
    EXPECT_EQ(readFileBytes(sample("v8/test_dgnv8.dgn")).error().code, ReadError::Code::UnsupportedV8);
    std::filesystem::remove(zeros);
}

TEST(DgnReader, ReadsTheDesignHeaderAndUnitsOfEachSample)
{
    const struct {
        const char* file;
        bool is3d;
        const char* master;
        const char* sub;
        int subPerMaster, uorPerSub;
        std::size_t elements;
    } table[] = {
        {"smalltest.dgn", false, "mu", "su", 10, 1000, 15},
        {"seed_2d.dgn", false, "ft", "tf", 10, 12, 12},
        {"seed_3d.dgn", true, "m", "mm", 1000, 1, 3},
        {"seed3d-metric.dgn", true, "M", "MM", 1000, 80, 45},
        {"mixed-elements.dgn", true, "M", "MM", 1000, 80, 16},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.file);
        auto design = readDesignFile(sample(row.file));
        ASSERT_TRUE(design) << design.error().describe();
        EXPECT_EQ(design->info.is3d, row.is3d);
        EXPECT_EQ(design->info.units.masterName, row.master);
        EXPECT_EQ(design->info.units.subName, row.sub);
        EXPECT_EQ(design->info.units.subPerMaster, row.subPerMaster);
        EXPECT_EQ(design->info.units.uorPerSub, row.uorPerSub);
        EXPECT_EQ(design->elements.size(), row.elements);
        ASSERT_FALSE(design->elements.empty());
        EXPECT_NE(design->elements[0].as<Tcb>(), nullptr);
        EXPECT_TRUE(design->diagnostics.empty()) << design->diagnostics.front().message;
    }
}

TEST(DgnReader, DecodesTheMeaningOfMixedElements)
{
    auto design = readDesignFile(sample("mixed-elements.dgn"));
    ASSERT_TRUE(design);
    const Units& u = design->info.units;
    const auto& e = design->elements;

    // The arc starts on its primary axis and sweeps 270 degrees counterclockwise.
    const Arc* arc = e[5].as<Arc>();
    ASSERT_NE(arc, nullptr);
    EXPECT_EQ(angleDegrees(arc->startAngle), 0.0);
    EXPECT_EQ(angleDegrees(arc->sweepAngle), 270.0);
    EXPECT_EQ(u.toMaster(arc->origin), (DoublePoint{2000, 3000, 500}));
    EXPECT_EQ(u.lengthToMaster(arc->primaryAxis), 2000.0);
    EXPECT_EQ(u.lengthToMaster(arc->secondaryAxis), 1000.0);

    // The texts say how far they are turned; the quaternion must agree.
    for (const auto& [index, degrees] : {std::pair{8, 30.0}, std::pair{9, 90.0}}) {
        const Text* text = e[static_cast<std::size_t>(index)].as<Text>();
        ASSERT_NE(text, nullptr);
        EXPECT_NE(text->text.find(std::to_string(static_cast<int>(degrees))), std::string::npos);
        const auto m = quaternionMatrix(text->orientation.quaternion);
        EXPECT_NEAR(std::atan2(m[1][0], m[0][0]) * 180 / M_PI, degrees, 1e-6);
    }
    // The first text has a linkage (a database link and a user linkage).
    EXPECT_EQ(e[7].header.attributes.size(), 24u);

    // A complex shape of two line strings, then a cell with two.
    const ComplexHeader* shape = e[10].as<ComplexHeader>();
    ASSERT_NE(shape, nullptr);
    EXPECT_EQ(shape->componentCount, 2);
    // Words after the length word: the rest of the header and both components.
    EXPECT_EQ(shape->totalWords, (64 - 38) / 2 + (74 + 74) / 2);
    EXPECT_TRUE(e[11].header.complex);
    const CellHeader* cell = e[13].as<CellHeader>();
    ASSERT_NE(cell, nullptr);
    EXPECT_EQ(u.toMaster(cell->origin), (DoublePoint{5000, 5000, 100}));
    EXPECT_EQ(e[13].header.symbology, (Symbology{0, 0, 0}));
    EXPECT_EQ(e[14].header.symbology, (Symbology{3, 1, 0}));
    EXPECT_EQ(e[14].header.level, 10);
}

TEST(DgnReader, KeepsTheColourTableAndOddElementsOfTheMetricSeed)
{
    auto design = readDesignFile(sample("seed3d-metric.dgn"));
    ASSERT_TRUE(design);
    ASSERT_TRUE(design->colourTable);
    EXPECT_EQ(design->colourTable->background(), (ColourTable::Rgb{0, 0, 0}));
    EXPECT_EQ(design->colourTable->colour(0), (ColourTable::Rgb{255, 255, 255}));
    EXPECT_EQ(design->colourTable->colour(1), (ColourTable::Rgb{0, 0, 255}));
    EXPECT_EQ(design->colourTable->colour(17), (ColourTable::Rgb{0, 0x78, 0xFF}));
    // Two solids of two shapes and four rule lines each, and point strings.
    const SurfaceHeader* solid = design->elements[28].as<SurfaceHeader>();
    ASSERT_NE(solid, nullptr);
    EXPECT_EQ(solid->componentCount, 6);
    const PointString* points = design->elements[35].as<PointString>();
    ASSERT_NE(points, nullptr);
    EXPECT_EQ(points->points.size(), 1u);
    EXPECT_EQ(points->orientations.size(), 1u);
    // Type 63 is not described anywhere; it stays raw.
    EXPECT_NE(design->elements[4].as<RawBody>(), nullptr);
}

TEST(DgnReader, MalformedBSplineIsReportedNotFollowed)
{
    auto design = readDesignFile(sample("malformed/knot_oob.dgn"));
    ASSERT_TRUE(design) << design.error().describe();
    ASSERT_EQ(design->elements.size(), 2u);
    EXPECT_EQ(design->elements[1].type(), ElementType::BSplineKnot);
    // The knot count comes from the element's own length.
    EXPECT_EQ(design->elements[1].as<BSplineValues>()->values.size(), 1u);
    ASSERT_EQ(design->diagnostics.size(), 2u);
    EXPECT_EQ(design->diagnostics[0].code, Diagnostic::Code::NoWorkingUnits);
    EXPECT_EQ(design->diagnostics[1].elementIndex, 1u);
    EXPECT_EQ(design->diagnostics[1].offset, 1536u);
    EXPECT_EQ(design->diagnostics[1].code, Diagnostic::Code::BSplineComponentAlone);
    // Units of 0 must not divide by zero: coordinates come out as UOR.
    EXPECT_EQ(design->info.units.toMaster(IntPoint{5, 6, 7}), (DoublePoint{5, 6, 7}));
}

TEST(DgnReader, StructuralFaultsSayWhatWhereAndWhichElement)
{
    std::vector<std::byte> file = sampleBytes("smalltest.dgn");
    file.resize(10424); // up to the end-of-design word

    // An element whose word count runs past the end of the file.
    auto cut = file;
    cut.resize(10372 + 20);
    auto design = readDesign(cut);
    ASSERT_FALSE(design);
    EXPECT_EQ(design.error().code, ReadError::Code::Truncated);
    EXPECT_EQ(design.error().offset, 10372u);
    EXPECT_EQ(design.error().elementIndex, 14u);
    EXPECT_NE(design.error().describe().find("element 14 at byte offset 10372"), std::string::npos);

    // The elements before the fault are still there for a streaming reader.
    auto reader = Reader::open(cut);
    ASSERT_TRUE(reader);
    Element e;
    std::size_t count = 0;
    while (reader->next(e)) ++count;
    EXPECT_EQ(count, 14u);
    ASSERT_TRUE(reader->error());

    // Three stray bytes where an element header should be.
    auto stray = file;
    stray.resize(10427, std::byte{0x11});
    design = readDesign(stray);
    ASSERT_FALSE(design);
    EXPECT_EQ(design.error().code, ReadError::Code::Truncated);
    EXPECT_EQ(design.error().offset, 10424u);

    // A TCB cut short; a TCB of another length is no V7 signature.
    auto shortTcb = file;
    shortTcb.resize(1000);
    EXPECT_EQ(readDesign(shortTcb).error().code, ReadError::Code::Truncated);
    auto otherTcb = file;
    otherTcb[2] = std::byte{0x10};
    EXPECT_EQ(readDesign(otherTcb).error().code, ReadError::Code::NotDgn);

    // A line with a word count too small for its points becomes raw, with a warning.
    auto shortLine = file;
    shortLine[10372 + 2] = std::byte{20};
    shortLine.resize(10372 + 44);
    shortLine.push_back(std::byte{0xFF});
    shortLine.push_back(std::byte{0xFF});
    design = readDesign(shortLine);
    ASSERT_TRUE(design) << design.error().describe();
    EXPECT_NE(design->elements[14].as<RawBody>(), nullptr);
    ASSERT_EQ(design->diagnostics.size(), 1u);
    EXPECT_EQ(design->diagnostics[0].code, Diagnostic::Code::ShortElement);
    EXPECT_EQ(design->diagnostics[0].elementIndex, 14u);
}

TEST(DgnReader, NeverReadsOutsideTheFileWhateverTheBytes)
{
    // Every prefix of every sample, and samples with bytes overwritten at
    // random: the reader ends with elements, a warning or an error, and the
    // sanitizer builds of the fuzzer check the same more thoroughly.
    std::mt19937 random(11);
    for (const char* name : {"smalltest.dgn", "mixed-elements.dgn", "seed3d-metric.dgn", "malformed/knot_oob.dgn"}) {
        const std::vector<std::byte> original = sampleBytes(name);
        for (std::size_t size = 0; size <= original.size(); size += 7) {
            drain({original.begin(), original.begin() + static_cast<std::ptrdiff_t>(size)});
        }
        for (int round = 0; round < 300; ++round) {
            std::vector<std::byte> damaged = original;
            for (int k = 0; k < 8; ++k)
                damaged[std::uniform_int_distribution<std::size_t>(4, damaged.size() - 1)(random)] =
                    std::byte(random() & 0xFF);
            drain(std::move(damaged));
        }
    }
    std::vector<std::byte> noise(5000);
    for (auto& b : noise) b = std::byte(random() & 0xFF);
    EXPECT_EQ(readDesign(noise).error().code, ReadError::Code::NotDgn);
    EXPECT_EQ(readDesign({}).error().code, ReadError::Code::NotDgn);
}
