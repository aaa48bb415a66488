#include "kora/dgn/v8/container.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "bytes.h"
#include "kora/dgn/wholefile.h"

namespace Kora::Dgn::V8 {

namespace {

constexpr std::byte Signature[SignatureBytes] = {std::byte{0xD0}, std::byte{0xCF}, std::byte{0x11}, std::byte{0xE0},
                                                 std::byte{0xA1}, std::byte{0xB1}, std::byte{0x1A}, std::byte{0xE1}};
constexpr std::uint32_t MaxRegularSector = 0xFFFFFFFA;
constexpr std::uint32_t EndOfChain = 0xFFFFFFFE;
constexpr std::uint32_t NoStream = 0xFFFFFFFF;
constexpr std::size_t HeaderDifatEntries = 109;
constexpr std::size_t DirectoryEntrySize = 128;
constexpr std::size_t MiniSectorSize = 64;


// A directory entry's name (UTF-16 in the file) as UTF-8. Names are short
// and mostly ASCII ("Dgn~H", "$1", "\5SummaryInformation").
std::string entryName(std::span<const std::byte> entry)
{
    const std::size_t length = std::min<std::size_t>(readU16(entry, 64), 64);
    std::u16string units;
    for (std::size_t i = 0; i + 1 < length; i += 2) {
        const char16_t unit = readU16(entry, i);
        if (unit == 0) break;
        units += unit;
    }
    return utf16ToUtf8(units);
}

} // namespace

std::string ReadError::describe() const
{
    return message + " (element " + std::to_string(elementIndex) + " at byte offset " + std::to_string(offset) + ")";
}

bool hasCompoundSignature(std::span<const std::byte> firstBytes)
{
    return firstBytes.size() >= SignatureBytes && std::equal(Signature, Signature + SignatureBytes, firstBytes.begin());
}

std::expected<std::vector<std::uint32_t>, ReadError> CompoundFile::chain(std::uint32_t start,
                                                                         const std::vector<std::uint32_t>& table,
                                                                         const char* what) const
{
    std::vector<std::uint32_t> sectors;
    std::vector<bool> seen(table.size());
    for (std::uint32_t sector = start; sector != EndOfChain;) {
        if (sector >= table.size())
            return std::unexpected(readError(ReadError::Code::BadContainer,
                                         std::string(what) + " names sector " + std::to_string(sector)
                                             + " outside its table of " + std::to_string(table.size())));
        if (seen[sector])
            return std::unexpected(readError(ReadError::Code::ChainLoop, std::string(what) + " comes back to sector "
                                                                         + std::to_string(sector)));
        seen[sector] = true;
        sectors.push_back(sector);
        sector = table[sector];
    }
    return sectors;
}

std::expected<std::vector<std::byte>, ReadError> CompoundFile::readRegular(std::uint32_t start, std::uint64_t size) const
{
    if (size > m_bytes.size())
        return std::unexpected(readError(ReadError::Code::StreamPastEnd,
                                     "a stream of " + std::to_string(size) + " bytes in a file of "
                                         + std::to_string(m_bytes.size())));
    auto sectors = chain(start, m_fat, "a stream's sector chain");
    if (!sectors) return std::unexpected(sectors.error());
    if (sectors->size() * m_sectorSize < size)
        return std::unexpected(readError(ReadError::Code::StreamPastEnd,
                                     "a stream of " + std::to_string(size) + " bytes has only "
                                         + std::to_string(sectors->size()) + " sectors"));
    std::vector<std::byte> data;
    data.reserve(size);
    for (const std::uint32_t sector : *sectors) {
        if (data.size() >= size) break;
        const std::size_t from = (std::size_t{sector} + 1) * m_sectorSize;
        const std::size_t take = std::min<std::size_t>(m_sectorSize, size - data.size());
        if (sector >= m_sectorCount || from + take > m_bytes.size())
            return std::unexpected(readError(ReadError::Code::Truncated,
                                         "sector " + std::to_string(sector) + " lies past the end of the file",
                                         from));
        data.insert(data.end(), m_bytes.begin() + from, m_bytes.begin() + from + take);
    }
    return data;
}

std::expected<CompoundFile, ReadError> CompoundFile::open(std::vector<std::byte> bytes)
{
    if (!hasCompoundSignature(bytes))
        return std::unexpected(readError(ReadError::Code::NotDgn, "not a compound document"));
    constexpr std::size_t HeaderSize = 512;
    if (bytes.size() < HeaderSize)
        return std::unexpected(readError(ReadError::Code::Truncated, "the file ends inside the compound-document header",
                                     bytes.size()));
    CompoundFile file;
    file.m_bytes = std::move(bytes);
    const std::span<const std::byte> all(file.m_bytes);
    const std::span<const std::byte> header = all.first(HeaderSize);

    const std::uint16_t major = readU16(header, 0x1A);
    const std::uint16_t sectorShift = readU16(header, 0x1E);
    if (readU16(header, 0x1C) != 0xFFFE || !((major == 3 && sectorShift == 9) || (major == 4 && sectorShift == 12))
        || readU16(header, 0x20) != 6)
        return std::unexpected(readError(ReadError::Code::BadContainer,
                                     "unsupported compound-document version " + std::to_string(major)
                                         + " with sector shift " + std::to_string(sectorShift)));
    file.m_sectorSize = std::size_t{1} << sectorShift;
    if (file.m_bytes.size() < file.m_sectorSize)
        return std::unexpected(readError(ReadError::Code::Truncated, "the file ends inside its first sector",
                                     file.m_bytes.size()));
    file.m_sectorCount = file.m_bytes.size() / file.m_sectorSize - 1;
    file.m_miniCutoff = readU32(header, 0x38);

    // The allocation table's sectors: 109 in the header, the rest in the
    // DIFAT chain (each sector lists its entries and, last, the next one).
    const std::uint32_t fatSectors = readU32(header, 0x2C);
    if (fatSectors > file.m_sectorCount)
        return std::unexpected(readError(ReadError::Code::BadContainer,
                                     std::to_string(fatSectors) + " allocation-table sectors in a file of "
                                         + std::to_string(file.m_sectorCount)));
    std::vector<std::uint32_t> fatList;
    for (std::size_t i = 0; i < HeaderDifatEntries && fatList.size() < fatSectors; ++i)
        fatList.push_back(readU32(header, 0x4C + 4 * i));
    const std::size_t perSector = file.m_sectorSize / 4;
    std::vector<bool> seenDifat(file.m_sectorCount);
    for (std::uint32_t difat = readU32(header, 0x44); fatList.size() < fatSectors;) {
        if (difat >= file.m_sectorCount)
            return std::unexpected(readError(ReadError::Code::BadContainer,
                                         "the DIFAT chain names sector " + std::to_string(difat)));
        if (seenDifat[difat])
            return std::unexpected(readError(ReadError::Code::ChainLoop,
                                         "the DIFAT chain comes back to sector " + std::to_string(difat)));
        seenDifat[difat] = true;
        const auto sector = all.subspan((std::size_t{difat} + 1) * file.m_sectorSize, file.m_sectorSize);
        for (std::size_t i = 0; i + 1 < perSector && fatList.size() < fatSectors; ++i)
            fatList.push_back(readU32(sector, 4 * i));
        difat = readU32(sector, 4 * (perSector - 1));
    }
    file.m_fat.reserve(fatList.size() * perSector);
    for (const std::uint32_t sector : fatList) {
        if (sector >= file.m_sectorCount)
            return std::unexpected(readError(ReadError::Code::Truncated, "allocation-table sector "
                                                                         + std::to_string(sector)
                                                                         + " lies past the end of the file"));
        const auto data = all.subspan((std::size_t{sector} + 1) * file.m_sectorSize, file.m_sectorSize);
        for (std::size_t i = 0; i < perSector; ++i) file.m_fat.push_back(readU32(data, 4 * i));
    }
    // Sector numbers in the table beyond the file's end are kept: a chain
    // that reaches one fails when it is read, not before.
    for (auto& next : file.m_fat)
        if (next > MaxRegularSector && next != EndOfChain) next = NoStream;

    // The directory: 128-byte entries; the root entry first.
    const std::uint32_t directoryStart = readU32(header, 0x30);
    auto directorySectors = file.chain(directoryStart, file.m_fat, "the directory chain");
    if (!directorySectors) return std::unexpected(directorySectors.error());
    auto directory = file.readRegular(directoryStart, directorySectors->size() * file.m_sectorSize);
    if (!directory) return std::unexpected(directory.error());
    const std::size_t entryCount = directory->size() / DirectoryEntrySize;
    if (entryCount == 0)
        return std::unexpected(readError(ReadError::Code::BadContainer, "the directory is empty"));
    const std::span<const std::byte> entries(*directory);
    auto entryAt = [&](std::size_t i) { return entries.subspan(i * DirectoryEntrySize, DirectoryEntrySize); };

    const auto root = entryAt(0);
    if (static_cast<std::uint8_t>(root[66]) != 5)
        return std::unexpected(readError(ReadError::Code::BadContainer, "the first directory entry is no root"));

    // Version 3 files may leave garbage in a stream size's high half.
    auto sizeOf = [&](std::span<const std::byte> entry) {
        const std::uint64_t size = readU64(entry, 120);
        return major == 3 ? size & 0xFFFFFFFFu : size;
    };

    // The tree: each storage's children hang from its child entry, linked
    // left and right. Every entry may be met once.
    std::vector<bool> seen(entryCount);
    struct Pending {
        std::uint32_t index;
        std::string parent;
    };
    std::vector<Pending> pending;
    const std::uint32_t rootChild = readU32(root, 76);
    if (rootChild != NoStream) pending.push_back({rootChild, ""});
    seen[0] = true;
    while (!pending.empty()) {
        const Pending at = std::move(pending.back());
        pending.pop_back();
        if (at.index >= entryCount)
            return std::unexpected(readError(ReadError::Code::BadContainer,
                                         "the directory names entry " + std::to_string(at.index) + " of "
                                             + std::to_string(entryCount)));
        if (seen[at.index])
            return std::unexpected(readError(ReadError::Code::ChainLoop,
                                         "the directory tree comes back to entry " + std::to_string(at.index)));
        seen[at.index] = true;
        const auto entry = entryAt(at.index);
        const auto type = static_cast<std::uint8_t>(entry[66]);
        if (type != 1 && type != 2)
            return std::unexpected(readError(ReadError::Code::BadContainer,
                                         "directory entry " + std::to_string(at.index) + " has type "
                                             + std::to_string(type)));
        const std::string path = at.parent + "/" + entryName(entry);
        file.m_entries[path] = Entry{type == 1, readU32(entry, 116), sizeOf(entry)};
        for (const std::size_t link : {68u, 72u})
            if (const std::uint32_t next = readU32(entry, link); next != NoStream) pending.push_back({next, at.parent});
        if (type == 1)
            if (const std::uint32_t child = readU32(entry, 76); child != NoStream) pending.push_back({child, path});
    }

    // The mini stream (the root's data) and its allocation table.
    const std::uint64_t miniSize = sizeOf(root);
    if (miniSize > 0) {
        auto mini = file.readRegular(readU32(root, 116), miniSize);
        if (!mini) return std::unexpected(mini.error());
        file.m_miniStream = std::move(*mini);
        const std::uint32_t miniFatStart = readU32(header, 0x3C);
        if (miniFatStart != EndOfChain) {
            auto sectors = file.chain(miniFatStart, file.m_fat, "the mini allocation table's chain");
            if (!sectors) return std::unexpected(sectors.error());
            auto table = file.readRegular(miniFatStart, sectors->size() * file.m_sectorSize);
            if (!table) return std::unexpected(table.error());
            for (std::size_t i = 0; i + 4 <= table->size(); i += 4) file.m_miniFat.push_back(readU32(*table, i));
        }
    }
    return file;
}

bool CompoundFile::hasStream(std::string_view path) const
{
    const auto it = m_entries.find(path);
    return it != m_entries.end() && !it->second.storage;
}

bool CompoundFile::hasStorage(std::string_view path) const
{
    const auto it = m_entries.find(path);
    return it != m_entries.end() && it->second.storage;
}

std::vector<std::string> CompoundFile::children(std::string_view storage) const
{
    std::vector<std::string> names;
    const std::string prefix = std::string(storage) + "/";
    for (auto it = m_entries.lower_bound(prefix); it != m_entries.end() && it->first.starts_with(prefix); ++it)
        if (it->first.find('/', prefix.size()) == std::string::npos) names.push_back(it->first.substr(prefix.size()));
    return names;
}

std::expected<std::vector<std::byte>, ReadError> CompoundFile::read(std::string_view path) const
{
    const auto it = m_entries.find(path);
    if (it == m_entries.end() || it->second.storage)
        return std::unexpected(readError(ReadError::Code::MissingStream, "no stream " + std::string(path)));
    const Entry& entry = it->second;
    if (entry.size >= m_miniCutoff) return readRegular(entry.start, entry.size);

    if (entry.size > m_miniStream.size())
        return std::unexpected(readError(ReadError::Code::StreamPastEnd,
                                     std::string(path) + " is longer than the mini stream"));
    auto sectors = chain(entry.start, m_miniFat, "a mini stream chain");
    if (!sectors) return std::unexpected(sectors.error());
    if (sectors->size() * MiniSectorSize < entry.size)
        return std::unexpected(readError(ReadError::Code::StreamPastEnd,
                                     std::string(path) + " is longer than its mini sectors"));
    std::vector<std::byte> data;
    data.reserve(entry.size);
    for (const std::uint32_t sector : *sectors) {
        if (data.size() >= entry.size) break;
        const std::size_t from = std::size_t{sector} * MiniSectorSize;
        const std::size_t take = std::min<std::size_t>(MiniSectorSize, entry.size - data.size());
        if (from + take > m_miniStream.size())
            return std::unexpected(readError(ReadError::Code::StreamPastEnd,
                                         std::string(path) + " names a mini sector past the mini stream"));
        data.insert(data.end(), m_miniStream.begin() + from, m_miniStream.begin() + from + take);
    }
    return data;
}

std::expected<std::vector<std::byte>, ReadError> readFileBytes(const std::filesystem::path& path)
{
    return readWholeFile<ReadError>(
        path, SignatureBytes, MaxUnsizedFileBytes,
        [&](const std::vector<std::byte>& head) -> std::optional<ReadError> {
            if (hasCompoundSignature(head)) return std::nullopt;
            return readError(ReadError::Code::NotDgn, path.string() + ": not a V8 design file");
        },
        [](WholeFileProblem problem, std::string message) {
            return readError(problem == WholeFileProblem::Access ? ReadError::Code::FileAccess : ReadError::Code::TooLong,
                             std::move(message));
        });
}

} // namespace Kora::Dgn::V8
