#include "designscan.h"

#include <bitset>
#include <filesystem>
#include <string>

#include "kora/dgn/naming.h"
#include "kora/dgn/v7/reader.h"

namespace fs = std::filesystem;
using namespace Kora::Dgn::V7;

namespace Kora::Dgn {

namespace {

ErrorStatus statusOf(const ReadError& error)
{
    switch (error.code) {
    case ReadError::Code::NotDgn:
    case ReadError::Code::UnsupportedV8:
    case ReadError::Code::CellLibrary:
        return eUnsupportedFileFormat;
    case ReadError::Code::FileAccess:
    case ReadError::Code::TooLong:
        return eFileAccessErr;
    case ReadError::Code::Truncated:
        break;
    }
    return eBadDgnFile;
}

// Unit labels are two bytes of the TCB; they are taken byte for byte
// (Latin-1) so that no label is lost to a failed text conversion.
KoString label(const std::string& bytes)
{
    std::wstring text;
    for (const char c : bytes) text += static_cast<wchar_t>(static_cast<unsigned char>(c));
    return KoString(std::move(text));
}

// Elements that are drawn. Type 5 (colour tables and other group data) and
// type 66 (application data) carry a display header but hold no graphics,
// and neither do the elements on level 0 (types 61 to 63 of seed files,
// for one); graphic elements lie on levels 1 to 63.
bool isGraphic(const Header& header)
{
    return hasDisplayHeader(header.type) && header.type != ElementType::GroupData
        && header.type != ElementType::ApplicationElement && header.level >= MinLevel && header.level <= MaxLevel;
}

template <std::size_t N>
void mark(std::bitset<N>& used, unsigned value)
{
    if (value < N) used.set(value);
}

template <std::size_t N>
void appendNames(const std::bitset<N>& used, std::string (*name)(int), std::vector<KoString>& names)
{
    for (std::size_t i = 0; i < N; ++i)
        if (used[i]) names.push_back(KoString::fromUtf8(name(static_cast<int>(i))));
}

}  // namespace

ErrorStatus scanDesignFile(const KoString& path, DesignScan& scan, const KoString& v8Model)
{
    const fs::path file(path.toUtf8());
    std::error_code ec;
    if (path.isEmpty() || !fs::exists(file, ec)) return eFileNotFound;
    auto bytes = readFileBytes(file);
    if (!bytes && bytes.error().code == ReadError::Code::UnsupportedV8) return scanV8File(file, scan, v8Model);
    if (!bytes) return statusOf(bytes.error());
    auto reader = Reader::open(std::move(*bytes));
    if (!reader) return statusOf(reader.error());

    const DesignInfo& info = reader->info();
    DesignScan result;
    result.properties.version = kDgnVersionV7;
    result.properties.is3d = info.is3d;
    result.subPerMaster = info.units.subPerMaster;
    DgnModelProp model;
    model.name = L"Default";
    identifyUnits(label(info.units.masterName), label(info.units.subName), info.units.subPerMaster, model);
    result.properties.models.push_back(std::move(model));

    std::bitset<MaxLevel + 1> levels;
    std::bitset<LineStyleCount> styles;
    std::bitset<WeightCount> weights;
    std::bitset<ColourCount> colours;
    Element element;
    while (reader->next(element)) {
        const Header& header = element.header;
        if (header.deleted || !isGraphic(header)) continue;
        if (header.range) {
            for (const IntPoint& corner : {header.range->low, header.range->high}) {
                const DoublePoint p = info.units.toMaster(corner);
                result.masterExtents.addPoint({p.x, p.y, info.is3d ? p.z : 0.0});
            }
        }
        // A cell header only groups its components, which carry the
        // symbology the cell is drawn with.
        if (header.type == ElementType::CellHeader) continue;
        mark(levels, header.level);
        mark(styles, header.symbology.style);
        mark(weights, header.symbology.weight);
        mark(colours, header.symbology.colour);
    }
    // A design whose structure breaks off is refused rather than shown in
    // part.
    if (reader->error()) return eBadDgnFile;

    appendNames(levels, levelName, result.properties.levels);
    appendNames(styles, lineStyleName, result.properties.lineStyles);
    appendNames(weights, weightName, result.properties.weights);
    appendNames(colours, colourName, result.properties.colours);
    scan = std::move(result);
    return eOk;
}

}  // namespace Kora::Dgn
