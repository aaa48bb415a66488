#include "kora/dgn/v8/reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "bytes.h"
#include "decode.h"

namespace Kora::Dgn::V8 {

namespace {

constexpr std::size_t PageHeaderSize = 16;
// The model header stream: a 4096-byte block, then the framed type-66
// model element.
constexpr std::size_t ModelElementOffset = 0x1004;
constexpr std::uint32_t TwoDModelFlag = 0x00800000;
constexpr std::uint16_t TableHeaderType = 96;
constexpr std::uint16_t TableEntryType = 95;
constexpr std::uint32_t LevelTableClass = 1;


// The numbered pages of a storage ("$1", "$2", ...), in number order.
std::vector<std::string> pageNames(const CompoundFile& file, const std::string& storage)
{
    std::vector<std::pair<unsigned long, std::string>> pages;
    for (const auto& name : file.children(storage)) {
        unsigned long number = 0;
        if (name.size() < 2 || name[0] != '$') continue;
        const auto [end, ec] = std::from_chars(name.data() + 1, name.data() + name.size(), number);
        if (ec == std::errc{} && end == name.data() + name.size()) pages.emplace_back(number, storage + "/" + name);
    }
    std::sort(pages.begin(), pages.end());
    std::vector<std::string> names;
    for (auto& page : pages) names.push_back(std::move(page.second));
    return names;
}

// A page's elements: after the 16-byte page header, zlib data; inflated, a
// 4-byte frame before each element, whose length (in words) is its second
// word.
std::expected<std::vector<std::byte>, ReadError> inflatePage(const CompoundFile& file, const std::string& path)
{
    auto stream = file.read(path);
    if (!stream) return std::unexpected(stream.error());
    if (stream->size() < PageHeaderSize)
        return std::unexpected(readError(ReadError::Code::Truncated, path + " is shorter than its page header"));
    if (stream->size() == PageHeaderSize) return std::vector<std::byte>{};
    auto page = inflate(std::span<const std::byte>(*stream).subspan(PageHeaderSize), inflateBound(file.fileSize()));
    if (!page) {
        ReadError failed = page.error();
        failed.message = path + ": " + failed.message;
        return std::unexpected(std::move(failed));
    }
    return page;
}

template <typename Visit>
std::expected<void, ReadError> forEachElement(std::span<const std::byte> page, const std::string& path,
                                              std::size_t& index, Visit&& visit)
{
    std::size_t offset = 0;
    while (offset < page.size()) {
        const std::size_t left = page.size() - offset;
        const std::size_t length = left >= 12 ? std::size_t{readU32(page, offset + 8)} * 2 : 0;
        if (left < 16 || length < 12 || length > left - 4)
            return std::unexpected(readError(ReadError::Code::ElementOverrun,
                                         path + ": an element of " + std::to_string(length)
                                             + " bytes where " + std::to_string(left < 4 ? 0 : left - 4)
                                             + " are left of the page",
                                         offset, index));
        visit(page.subspan(offset + 4, length), offset);
        offset += 4 + length;
        ++index;
    }
    return {};
}

std::expected<Model, Diagnostic> readModelHeader(const CompoundFile& file, const std::string& storage)
{
    auto fail = [&](std::string why) {
        return std::unexpected(Diagnostic{Diagnostic::Code::NoModelHeader, Diagnostic::Severity::Error, 0, 0,
                                          storage + ": " + why});
    };
    auto stream = file.read(storage + "/Dgn~Mh");
    if (!stream) return fail(stream.error().message);
    auto header = inflate(*stream, inflateBound(file.fileSize()));
    if (!header) return fail(header.error().message);
    const std::span<const std::byte> all(*header);
    if (all.size() < ModelElementOffset + 0xE8) return fail("the model header is too short");
    const std::size_t length = std::size_t{readU32(all, ModelElementOffset + 4)} * 2;
    if (length < 0xE8 || length > all.size() - ModelElementOffset)
        return fail("the model element's length does not fit its stream");
    const auto e = all.subspan(ModelElementOffset, length);

    Model model;
    model.storage = storage;
    model.id = readU64(e, 0x18);
    model.is3d = (readU32(e, 0) & TwoDModelFlag) == 0;
    // Units: how many of the unit make a metre, as a ratio of two doubles.
    auto perMetre = [&](std::size_t at) {
        const double numerator = readDouble(e, at), denominator = readDouble(e, at + 8);
        return numerator > 0 && denominator > 0 && std::isfinite(numerator / denominator) ? numerator / denominator
                                                                                          : 1.0;
    };
    model.master.perMetre = perMetre(0x50);
    model.sub.perMetre = perMetre(0x60);
    model.globalOrigin = {readDouble(e, 0xC8), readDouble(e, 0xD0), readDouble(e, 0xD8)};
    const double uorPerMaster = readDouble(e, 0xE0);
    model.uorPerMaster = uorPerMaster > 0 && std::isfinite(uorPerMaster) ? uorPerMaster : 1.0;
    if (!std::isfinite(model.globalOrigin.x) || !std::isfinite(model.globalOrigin.y)
        || !std::isfinite(model.globalOrigin.z))
        model.globalOrigin = {};
    model.name = linkageString(e, 1);
    model.description = linkageString(e, 2);
    model.master.label = linkageString(e, 0x13);
    model.sub.label = linkageString(e, 0x14);
    return model;
}

} // namespace

FileKind recognise(const CompoundFile& file)
{
    return file.hasStream("/Dgn~H") && file.hasStorage("/Dgn-Md") ? FileKind::V8 : FileKind::CompoundNotDgn;
}

std::expected<File, ReadError> File::open(std::vector<std::byte> bytes)
{
    auto container = CompoundFile::open(std::move(bytes));
    if (!container) return std::unexpected(container.error());
    if (recognise(*container) != FileKind::V8)
        return std::unexpected(readError(ReadError::Code::NotDgn, "a compound document that is not a DGN"));
    File file(std::move(*container));
    const CompoundFile& c = file.m_container;

    for (const auto& name : c.children("/Dgn-Md")) {
        const std::string storage = "/Dgn-Md/" + name;
        if (!c.hasStorage(storage)) continue;
        auto model = readModelHeader(c, storage);
        if (model) file.m_models.push_back(std::move(*model));
        else file.m_diagnostics.push_back(std::move(model.error()));
    }

    // File-level pages: the level table (a table header of class 1 and its
    // entries: level id at 0x20, the name in a string linkage) and the
    // shared cell definitions (type 34 and their components).
    const Model fallback;
    const Model& units = file.m_models.empty() ? fallback : file.m_models.front();
    std::size_t index = 0;
    for (const auto& path : pageNames(c, "/Dgn^Nm")) {
        auto page = inflatePage(c, path);
        if (!page) return std::unexpected(page.error());
        std::uint32_t tableClass = 0;
        SharedCellDefinition* definition = nullptr;
        auto done = forEachElement(*page, path, index, [&](std::span<const std::byte> e, std::size_t) {
            const auto type = static_cast<std::uint16_t>(readU32(e, 0) & 0xFFFF);
            const bool component = (readU32(e, 0) & ComponentFlag) != 0;
            if (type == TableHeaderType) tableClass = readU32(e, 0x0C);
            if (type == TableEntryType && component && tableClass == LevelTableClass && e.size() >= 0x24)
                file.m_levels.push_back({readU32(e, 0x20), linkageString(e, 1)});
            if (!component) definition = nullptr;
            if (type == 34 && !component) {
                file.m_sharedCells.push_back({linkageString(e, 1), {}});
                definition = &file.m_sharedCells.back();
            }
            if (definition) {
                Diagnostic problem;
                definition->elements.push_back(decodeElement(e, units, problem));
            }
        });
        if (!done) return std::unexpected(done.error());
    }
    for (SharedCellDefinition& definition : file.m_sharedCells)
        linkComponents(definition.elements, file.m_diagnostics);
    return file;
}

std::string File::levelName(std::uint32_t id) const
{
    for (const Level& level : m_levels)
        if (level.id == id && !level.name.empty()) return level.name;
    return std::to_string(id);
}

std::expected<ModelContents, ReadError> File::readModel(std::size_t modelIndex) const
{
    if (modelIndex >= m_models.size())
        return std::unexpected(readError(ReadError::Code::NoSuchModel,
                                     "model " + std::to_string(modelIndex) + " of " + std::to_string(m_models.size())));
    const Model& model = m_models[modelIndex];
    ModelContents contents;
    std::size_t index = 0;
    for (const auto& path : pageNames(m_container, model.storage + "/Dgn^G")) {
        auto page = inflatePage(m_container, path);
        if (!page) return std::unexpected(page.error());
        auto done = forEachElement(*page, path, index, [&](std::span<const std::byte> e, std::size_t offset) {
            Diagnostic problem;
            contents.elements.push_back(decodeElement(e, model, problem));
            if (problem.code != Diagnostic::Code::None) {
                problem.offset = offset;
                problem.elementIndex = contents.elements.size() - 1;
                contents.diagnostics.push_back(std::move(problem));
            }
        });
        if (!done) return std::unexpected(done.error());
    }
    linkComponents(contents.elements, contents.diagnostics);
    return contents;
}

} // namespace Kora::Dgn::V8
