// The V8 reader on damaged files: the sample's bytes cut, pointed past
// their end, corrupted and looped, and a compound document that is no DGN.
// Each is refused with its own code; none crashes or allocates without
// bound.
#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "v8_test_support.h"

using namespace Kora::Dgn::V8;

namespace {

constexpr std::size_t SectorSize = 512;
// The sample's graphic page: "$1" of 1496 bytes in the model storage.
constexpr std::uint32_t GraphicPageSize = 1496;

std::uint32_t u32(const std::vector<std::byte>& b, std::size_t at)
{
    std::uint32_t v = 0;
    std::memcpy(&v, b.data() + at, 4);
    return v;
}

void putU32(std::vector<std::byte>& b, std::size_t at, std::uint32_t v) { std::memcpy(b.data() + at, &v, 4); }

// The byte offset of the directory entry named `name` (ASCII) whose
// stream has `size` bytes.
std::size_t directoryEntry(const std::vector<std::byte>& file, const std::string& name, std::uint32_t size)
{
    for (std::size_t at = SectorSize; at + 128 <= file.size(); at += 128) {
        bool same = u32(file, at + 120) == size;
        for (std::size_t i = 0; same && i < name.size(); ++i)
            same = file[at + 2 * i] == static_cast<std::byte>(name[i]) && file[at + 2 * i + 1] == std::byte{0};
        if (same) return at;
    }
    ADD_FAILURE() << "no directory entry " << name;
    return 0;
}

// Where each 64-byte piece of the graphic page lies in the file: the page
// is a small stream, kept in 64-byte mini sectors that need not follow one
// another; each piece is found by its bytes (compressed data, so unique).
std::vector<std::size_t> graphicPagePieces(const std::vector<std::byte>& file, const std::vector<std::byte>& page)
{
    std::vector<std::size_t> pieces;
    for (std::size_t from = 0; from < page.size(); from += 64) {
        const auto end = page.begin() + static_cast<std::ptrdiff_t>(std::min(page.size(), from + 64));
        const auto at = std::search(file.begin(), file.end(), page.begin() + static_cast<std::ptrdiff_t>(from), end);
        EXPECT_NE(at, file.end());
        pieces.push_back(static_cast<std::size_t>(at - file.begin()));
    }
    return pieces;
}

// Writes a new page over the old one's mini sectors.
void writeGraphicPage(std::vector<std::byte>& file, const std::vector<std::size_t>& pieces,
                      const std::vector<std::byte>& page)
{
    ASSERT_LE(page.size(), pieces.size() * 64);
    for (std::size_t from = 0; from < page.size(); from += 64)
        std::memcpy(file.data() + pieces[from / 64], page.data() + from, std::min<std::size_t>(64, page.size() - from));
}

std::vector<std::byte> graphicPage()
{
    auto container = CompoundFile::open(Kora::Test::v8SampleBytes());
    EXPECT_TRUE(container);
    auto page = container->read("/Dgn-Md/#000000/Dgn^G/$1");
    EXPECT_TRUE(page);
    EXPECT_EQ(page->size(), GraphicPageSize);
    return *page;
}

// Opening and reading the first model: the error, if any.
std::optional<ReadError> readAll(std::vector<std::byte> bytes)
{
    auto file = File::open(std::move(bytes));
    if (!file) return file.error();
    if (file->models().empty()) return std::nullopt;
    auto contents = file->readModel(0);
    if (!contents) return contents.error();
    return std::nullopt;
}

TEST(V8Damaged, TruncatedFiles)
{
    const auto sample = Kora::Test::v8SampleBytes();
    EXPECT_FALSE(readAll(sample)) << "the sample itself reads";
    // Inside the header, and inside the sectors the chains name.
    for (const std::size_t cut : {std::size_t{8}, std::size_t{300}, std::size_t{1024}, sample.size() / 2,
                                  sample.size() - 1}) {
        const auto error = readAll({sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(cut)});
        ASSERT_TRUE(error) << "cut at " << cut;
        EXPECT_TRUE(error->code == ReadError::Code::Truncated || error->code == ReadError::Code::StreamPastEnd)
            << cut << ": " << error->message;
    }
}

TEST(V8Damaged, StreamPastTheEnd)
{
    auto bytes = Kora::Test::v8SampleBytes();
    // The page claims more bytes than the file holds.
    putU32(bytes, directoryEntry(bytes, "$1", GraphicPageSize) + 120, 0x7FFFFFF0);
    const auto error = readAll(bytes);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ReadError::Code::StreamPastEnd) << error->message;

    // A start sector outside the allocation table.
    bytes = Kora::Test::v8SampleBytes();
    const std::size_t entry = directoryEntry(bytes, "$1", GraphicPageSize);
    putU32(bytes, entry + 120, 8000); // a regular stream now, its chain from sector 0x00FFFFF0
    putU32(bytes, entry + 116, 0x00FFFFF0);
    const auto outside = readAll(bytes);
    ASSERT_TRUE(outside);
    EXPECT_EQ(outside->code, ReadError::Code::BadContainer) << outside->message;
}

TEST(V8Damaged, PageThatDoesNotInflate)
{
    auto bytes = Kora::Test::v8SampleBytes();
    const std::size_t entry = directoryEntry(bytes, "$1", GraphicPageSize);
    // Cut short: the zlib data ends early.
    putU32(bytes, entry + 120, 400);
    auto error = readAll(bytes);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ReadError::Code::InflateFailed) << error->message;
    EXPECT_NE(error->message.find("Dgn^G/$1"), std::string::npos) << error->message;

    // Corrupted: the zlib header's check bits broken.
    bytes = Kora::Test::v8SampleBytes();
    bytes[graphicPagePieces(bytes, graphicPage()).front() + 17] ^= std::byte{0xFF};
    error = readAll(bytes);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ReadError::Code::InflateFailed) << error->message;
}

TEST(V8Damaged, ElementLongerThanItsPage)
{
    const auto original = graphicPage();
    auto inflated = inflate(std::span<const std::byte>(original).subspan(16), 1 << 20);
    ASSERT_TRUE(inflated);
    // The first element says it has 0xFFFF words.
    for (const std::uint32_t words : {0xFFFFu, 2u}) {
        auto changed = *inflated;
        putU32(changed, 8, words);
        uLongf size = compressBound(changed.size());
        std::vector<std::byte> packed(size);
        ASSERT_EQ(compress2(reinterpret_cast<Bytef*>(packed.data()), &size,
                            reinterpret_cast<const Bytef*>(changed.data()), changed.size(), 9),
                  Z_OK);
        auto bytes = Kora::Test::v8SampleBytes();
        std::vector<std::byte> page(original.begin(), original.begin() + 16);
        page.insert(page.end(), packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(size));
        writeGraphicPage(bytes, graphicPagePieces(bytes, original), page);
        putU32(bytes, directoryEntry(bytes, "$1", GraphicPageSize) + 120, static_cast<std::uint32_t>(size + 16));
        const auto error = readAll(bytes);
        ASSERT_TRUE(error) << words;
        EXPECT_EQ(error->code, ReadError::Code::ElementOverrun) << error->message;
        EXPECT_EQ(error->elementIndex, 0u);
    }
}

TEST(V8Damaged, LoopInASectorChain)
{
    auto bytes = Kora::Test::v8SampleBytes();
    // The directory's first sector names itself as the next one.
    const std::uint32_t directory = u32(bytes, 0x30);
    const std::uint32_t fatSector = u32(bytes, 0x4C);
    putU32(bytes, (fatSector + 1) * SectorSize + 4 * directory, directory);
    auto error = readAll(bytes);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ReadError::Code::ChainLoop) << error->message;

    // A directory entry that is its own sibling.
    bytes = Kora::Test::v8SampleBytes();
    const std::size_t entry = directoryEntry(bytes, "$1", GraphicPageSize);
    const std::uint32_t self = static_cast<std::uint32_t>((entry - (directory + 1) * SectorSize) / 128);
    putU32(bytes, entry + 68, self);
    error = readAll(bytes);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ReadError::Code::ChainLoop) << error->message;
}

// A compound document of one empty stream, built by hand: sector 0 the
// allocation table, sector 1 the directory.
std::vector<std::byte> compoundDocument()
{
    std::vector<std::byte> bytes(3 * SectorSize);
    const unsigned char signature[] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    std::memcpy(bytes.data(), signature, 8);
    auto put16 = [&](std::size_t at, std::uint16_t v) { std::memcpy(bytes.data() + at, &v, 2); };
    put16(0x18, 0x3E);
    put16(0x1A, 3);
    put16(0x1C, 0xFFFE);
    put16(0x1E, 9);
    put16(0x20, 6);
    putU32(bytes, 0x2C, 1);          // one allocation-table sector
    putU32(bytes, 0x30, 1);          // the directory in sector 1
    putU32(bytes, 0x38, 4096);
    putU32(bytes, 0x3C, 0xFFFFFFFE); // no mini table
    putU32(bytes, 0x44, 0xFFFFFFFE);
    for (std::size_t i = 0; i < 109; ++i) putU32(bytes, 0x4C + 4 * i, i == 0 ? 0 : 0xFFFFFFFF);
    const std::size_t fat = SectorSize;
    putU32(bytes, fat, 0xFFFFFFFD);
    putU32(bytes, fat + 4, 0xFFFFFFFE);
    for (std::size_t i = 2; i < 128; ++i) putU32(bytes, fat + 4 * i, 0xFFFFFFFF);
    auto entry = [&](std::size_t index, const std::string& name, std::uint8_t type, std::uint32_t child) {
        const std::size_t at = 2 * SectorSize + 128 * index;
        for (std::size_t i = 0; i < name.size(); ++i) bytes[at + 2 * i] = static_cast<std::byte>(name[i]);
        put16(at + 64, static_cast<std::uint16_t>(2 * name.size() + 2));
        bytes[at + 66] = static_cast<std::byte>(type);
        putU32(bytes, at + 68, 0xFFFFFFFF);
        putU32(bytes, at + 72, 0xFFFFFFFF);
        putU32(bytes, at + 76, child);
        putU32(bytes, at + 116, 0xFFFFFFFE);
    };
    entry(0, "Root Entry", 5, 1);
    entry(1, "Book", 2, 0xFFFFFFFF);
    return bytes;
}

TEST(V8Damaged, CompoundDocumentThatIsNoDgn)
{
    auto container = CompoundFile::open(compoundDocument());
    ASSERT_TRUE(container) << container.error().message;
    EXPECT_TRUE(container->hasStream("/Book"));
    EXPECT_EQ(recognise(*container), FileKind::CompoundNotDgn);
    const auto error = readAll(compoundDocument());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ReadError::Code::NotDgn);
    EXPECT_NE(error->message.find("not a DGN"), std::string::npos);

    // No signature at all.
    auto text = std::vector<std::byte>(600, std::byte{'x'});
    EXPECT_EQ(readAll(text)->code, ReadError::Code::NotDgn);
}

// Files are known by their first bytes before the rest is read: an endless
// device and a V7 design are refused at once, a missing file is named.
TEST(V8Damaged, FilesThatAreNoV8DesignAreRefusedBeforeTheyAreRead)
{
    const auto device = readFileBytes("/dev/zero");
    ASSERT_FALSE(device);
    EXPECT_EQ(device.error().code, ReadError::Code::NotDgn);
    const auto v7 = readFileBytes(std::filesystem::path(KORA_TEST_DATA_DIR) / "dgn" / "smalltest.dgn");
    ASSERT_FALSE(v7);
    EXPECT_EQ(v7.error().code, ReadError::Code::NotDgn);
    const auto missing = readFileBytes(std::filesystem::path(KORA_TEST_DATA_DIR) / "dgn" / "v8" / "no-such-file.dgn");
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, ReadError::Code::FileAccess);
    EXPECT_NE(missing.error().message.find("no-such-file.dgn"), std::string::npos);
    EXPECT_EQ(Kora::Test::v8SampleBytes().size(), std::filesystem::file_size(Kora::Test::v8Sample()));
}

} // namespace
