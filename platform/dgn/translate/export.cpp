// DgnExport::ExportDgnFile: a drawing's model space, and each paper-space
// layout with viewports, written as V7 designs. The choices are described
// in docs/dgn-export.md.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>

#include "exportelements.h"
#include "kora/atomicfile.h"
#include "kora/dgn/hostservices.h"
#include "kora/dgn/translate.h"
#include "kora/dgn/v7/writer.h"
#include "kora/dxf/dxf.h"
#include "kora/editor.h"

using namespace Kora::Dgn;
using namespace Kora::Dgn::ExportDetail;

namespace {

// What each design starts from: the seed's header and colour tables, and
// the colour table its colours are matched against.
struct Seed {
    std::optional<std::vector<std::byte>> bytes; // none: a header made by the writer
    V7::Units units;
    bool is3d = false;
    V7::ColourTable colours;
    bool addColourTable = false; // the seed has none: the drawing palette is written
    KoString description;
};

// Colour i of the table is palette colour i; white (7) is also colour 0,
// which V7 tools draw as their foreground colour.
V7::ColourTable paletteTable()
{
    V7::ColourTable table;
    table.stored[0] = {0, 0, 0};
    table.stored[1] = {255, 255, 255};
    for (int i = 1; i < 255; ++i) {
        const std::uint32_t rgb = kocmPaletteRgb(i);
        table.stored[i + 1] = {static_cast<std::uint8_t>(rgb >> 16), static_cast<std::uint8_t>(rgb >> 8),
                               static_cast<std::uint8_t>(rgb)};
    }
    return table;
}

std::expected<Seed, KoString> loadSeed(const KoString& seedFile, bool seedIs3d)
{
    std::filesystem::path path(seedFile.toUtf8());
    if (seedFile.isEmpty()) {
        path = std::filesystem::path(koraInstalledSeedFolder().toUtf8())
               / (seedIs3d ? "V7-Metric-Seed3D.dgn" : "V7-Metric-Seed2D.dgn");
        if (!std::filesystem::is_regular_file(path)) {
            Seed seed;
            seed.units = {"m", "mm", 1000, 100, {}};
            seed.is3d = seedIs3d;
            seed.colours = paletteTable();
            seed.addColourTable = true;
            seed.description = KoString(L"no seed file (metric units, ") + (seedIs3d ? L"3D)" : L"2D)");
            return seed;
        }
    }
    const KoString shown = KoString::fromUtf8(path.string());
    auto bytes = V7::readFileBytes(path);
    if (!bytes) return std::unexpected(L"Seed file " + shown + L": " + KoString::fromUtf8(bytes.error().describe()));
    auto design = V7::readDesign(*bytes);
    if (!design) return std::unexpected(L"Seed file " + shown + L": " + KoString::fromUtf8(design.error().describe()));
    Seed seed;
    seed.units = design->info.units;
    seed.is3d = design->info.is3d;
    seed.addColourTable = !design->colourTable;
    seed.colours = design->colourTable ? *design->colourTable : paletteTable();
    seed.bytes = std::move(*bytes);
    seed.description = L"seed " + shown;
    return seed;
}

std::expected<V7::Writer, std::string> startDesign(const Seed& seed)
{
    V7::Writer writer = V7::Writer::create(seed.is3d, seed.units);
    if (seed.bytes) {
        auto fromSeed = V7::Writer::fromSeed(*seed.bytes, V7::SeedCopy::HeaderAndColours);
        if (!fromSeed) return std::unexpected(fromSeed.error().describe());
        writer = std::move(*fromSeed);
    }
    if (seed.addColourTable) {
        V7::Element table;
        table.header.type = V7::ElementType::GroupData;
        table.header.level = 1;
        table.body = seed.colours;
        if (auto done = writer.append(table); !done) return std::unexpected(done.error());
    }
    return writer;
}

// One design file of the export.
struct Output {
    std::filesystem::path path;
    KoDbObjectId block; // model space or a layout's block
    bool write = true;
    std::vector<std::byte> bytes;
};

// "plan.dgn" and "Layout1" give "plan - Layout1.dgn": the layout's name
// goes before the file name's last dot (at the end when it has none).
std::filesystem::path layoutPath(const std::filesystem::path& path, const KoString& layout)
{
    std::string name = layout.toUtf8();
    std::replace(name.begin(), name.end(), '/', '_');
    const std::string file = path.string();
    const std::size_t slash = file.rfind('/');
    std::size_t dot = file.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) dot = file.size();
    return file.substr(0, dot) + " - " + name + file.substr(dot);
}

// The sheets that have viewports, in tab order.
std::vector<std::pair<KoString, KoDbObjectId>> layoutsToWrite(const KoDbDatabase& database)
{
    struct Sheet {
        int order;
        KoString name;
        KoDbObjectId block;
    };
    std::vector<Sheet> sheets;
    KoDbObjectPointer<KoDbDictionary> layouts(database.layoutDictionaryId());
    if (!layouts) return {};
    for (auto it = layouts->newIterator(); !it->done(); it->next()) {
        KoDbObjectPointer<KoDbLayout> layout(it->objectId());
        if (!layout || layout->modelType() || layout->getViewportArray().empty()) continue;
        sheets.push_back({layout->getTabOrder(), layout->getLayoutName(), layout->getBlockTableRecordId()});
    }
    std::stable_sort(sheets.begin(), sheets.end(), [](const Sheet& a, const Sheet& b) { return a.order < b.order; });
    std::vector<std::pair<KoString, KoDbObjectId>> out;
    for (const Sheet& s : sheets) out.emplace_back(s.name, s.block);
    return out;
}

std::size_t entityCount(KoDbObjectId block)
{
    KoDbObjectPointer<KoDbBlockTableRecord> record(block);
    return record ? record->entityIds().size() : 0;
}

void print(const KoString& line) { koutPrintf(L"%s\n", line.c_str()); }

} // namespace

int DgnExport::ExportDgnFile(const KoString& path, KoDbDatabase* database, bool v7, KxDgnExportInternalService* service)
{
    m_report = {};
    m_report.direction = DgnTranslationReport::Direction::Export;
    auto fail = [&](const KoString& message) {
        print(message);
        for (const KoString& line : m_report.summary()) print(line);
        return KORTERROR;
    };
    if (!v7) {
        print(L"This platform cannot write DGN V8 files yet; export the drawing as DGN V7.");
        return KORTERROR;
    }
    if (!database || path.isEmpty()) return fail(L"DGN export: no drawing or no file name given.");

    auto seed = loadSeed(seedFile, seedIs3d);
    if (!seed) return fail(L"DGN export failed: " + seed.error());

    // The files: model space, then each sheet that has viewports.
    std::vector<Output> outputs;
    const std::filesystem::path target(path.toUtf8());
    outputs.push_back({target, database->modelSpaceId(), true, {}});
    for (const auto& [name, block] : layoutsToWrite(*database)) outputs.push_back({layoutPath(target, name), block, true, {}});

    // Sheet files that exist are settled before anything is built, so that
    // a cancel costs nothing and leaves every file as it was. The main file
    // is the caller's choice and is written; so is a sheet file with nothing
    // in it (the caller's write probe leaves it so).
    const bool ask = existingXRefOperation != kDgnExistingKeep && existingXRefOperation != kDgnExistingOverwrite;
    bool replaceAll = existingXRefOperation == kDgnExistingOverwrite;
    for (Output& out : outputs) {
        if (&out == &outputs.front()) continue;
        std::error_code ec;
        const auto size = std::filesystem::file_size(out.path, ec);
        if (ec || size == 0 || replaceAll) continue;
        int choice = kDgnOverwriteKeep;
        if (ask && service && service->isEnabled()) choice = service->promptFileOverwrite(KoString::fromUtf8(out.path.string()));
        if (choice == kDgnOverwriteReplaceAll) replaceAll = true;
        else if (choice == kDgnOverwriteKeep) out.write = false;
        else if (choice != kDgnOverwriteReplace) {
            m_report.cancelled = true;
            return fail(L"DGN export cancelled; no file was written.");
        }
        if (!out.write) m_report.notes.push_back(L"Kept the existing file (not written): " + KoString::fromUtf8(out.path.string()));
    }

    SymbologyMapper symbology(*database, *this, seed->colours, m_report);
    const double drawingToMaster = useMasterUnits || seed->units.subPerMaster == 0 ? 1.0 : 1.0 / seed->units.subPerMaster;

    std::size_t total = 0, done = 0;
    for (const Output& out : outputs)
        if (out.write) total += entityCount(out.block);
    using Clock = std::chrono::steady_clock;
    auto lastReport = Clock::now();
    auto keepGoing = [&](bool force) {
        if (!progress) return true;
        const auto now = Clock::now();
        if (!force && now - lastReport < std::chrono::milliseconds(250)) return true;
        lastReport = now;
        return progress(total == 0 ? 1.0 : static_cast<double>(done) / static_cast<double>(total));
    };
    auto cancelled = [&] {
        m_report.cancelled = true;
        return fail(L"DGN export cancelled; no file was written.");
    };
    if (!keepGoing(true)) return cancelled();

    for (Output& out : outputs) {
        if (!out.write) continue;
        const KoString shown = KoString::fromUtf8(out.path.string());
        auto writer = startDesign(*seed);
        if (!writer) return fail(L"DGN export failed: " + KoString::fromUtf8(writer.error()));
        // Most entities make one element of a few dozen words.
        writer->reserve(entityCount(out.block) * 128);
        ElementBuilder builder(writer->units(), writer->is3d(), drawingToMaster, symbology, m_report);
        KoDbObjectPointer<KoDbBlockTableRecord> block(out.block);
        std::vector<Node> nodes;
        for (auto it = block ? block->newIterator() : nullptr; it && !it->done(); it->step()) {
            ++done;
            if ((done & 255) == 0 && !keepGoing(false)) return cancelled();
            KoDbObjectId id;
            if (it->getEntityId(id) != Kora::eOk) continue;
            KoDbObjectPointer<KoDbEntity> entity(id);
            if (!entity) continue;
            ++m_report.itemsRead;
            nodes.clear();
            try {
                builder.convert(*entity.object(), {}, {}, nodes);
            } catch (const OutsidePlane& e) {
                return fail(L"DGN export failed, no file was written: " + shown + L": " + KoString::fromUtf8(e.what())
                            + L". Choose a seed with a coarser resolution or export in master units.");
            }
            for (Node& node : nodes) {
                auto written = appendNode(*writer, node);
                if (written) m_report.itemsWritten += *written;
                else m_report.skip(kodbDxfName(entity.object()), written.error());
            }
        }
        out.bytes = writer->finish();
    }
    if (!keepGoing(true)) return cancelled();

    for (const Output& out : outputs) {
        if (!out.write) continue;
        if (auto written = Kora::writeFileAtomically(out.path, out.bytes); !written)
            return fail(L"DGN export failed: " + KoString::fromUtf8(written.error().message));
        m_report.filesWritten.push_back(KoString::fromUtf8(out.path.string()));
    }
    m_report.notes.push_back(L"Started from " + seed->description + L".");
    for (const KoString& line : m_report.summary()) print(line);
    return KORTNORM;
}
