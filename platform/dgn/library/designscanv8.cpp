// The V8 half of the design scan: a V8 file's models, and the levels,
// line styles, weights and colours the graphic elements of the chosen
// models use.
#include <map>
#include <set>

#include "designscan.h"
#include "kora/dgn/naming.h"
#include "kora/dgn/v8/reader.h"

namespace V8 = Kora::Dgn::V8;

namespace Kora::Dgn {

namespace {

ErrorStatus statusOf(const V8::ReadError& error)
{
    switch (error.code) {
    case V8::ReadError::Code::NotDgn:
        return eUnsupportedFileFormat;
    case V8::ReadError::Code::FileAccess:
    case V8::ReadError::Code::TooLong:
        return eFileAccessErr;
    default:
        return eBadDgnFile;
    }
}

constexpr std::uint16_t CellHeaderType = 2;

}  // namespace

ErrorStatus scanV8File(const std::filesystem::path& file, DesignScan& scan, const KoString& modelName)
{
    auto bytes = V8::readFileBytes(file);
    if (!bytes) return statusOf(bytes.error());
    auto dgn = V8::File::open(std::move(*bytes));
    if (!dgn) return statusOf(dgn.error());
    const auto& models = dgn->models();

    DesignScan result;
    result.properties.version = kDgnVersionV8;
    std::vector<std::size_t> chosen;
    for (std::size_t i = 0; i < models.size(); ++i) {
        const V8::Model& m = models[i];
        DgnModelProp model;
        model.name = KoString::fromUtf8(m.name);
        identifyUnits(KoString::fromUtf8(m.master.label), KoString::fromUtf8(m.sub.label), m.subPerMaster(), model);
        if (!modelName.isEmpty() && model.name == modelName) chosen = {i};
        result.properties.models.push_back(std::move(model));
    }
    if (chosen.empty())
        for (std::size_t i = 0; i < models.size(); ++i) chosen.push_back(i);
    if (!chosen.empty()) {
        result.properties.is3d = models[chosen.front()].is3d;
        result.subPerMaster = models[chosen.front()].subPerMaster();
    }

    // Level ids and styles are open-ended in V8; weights and colours
    // outside the V7 ranges (true colours, by-level values) have no name
    // in a mapping and are not listed.
    std::set<std::uint32_t> levels;
    std::set<std::int32_t> styles;
    std::set<std::uint32_t> weights, colours;
    for (const std::size_t index : chosen) {
        auto contents = dgn->readModel(index);
        // A file whose structure breaks off is refused rather than shown in part.
        if (!contents) return eBadDgnFile;
        const bool is3d = models[index].is3d;
        for (const V8::Element& element : contents->elements) {
            if (element.level == 0 && element.type != CellHeaderType) continue;
            for (const V8::Point& p : {element.rangeLow, element.rangeHigh})
                result.masterExtents.addPoint({p.x, p.y, is3d ? p.z : 0.0});
            // A cell header only groups its components, which carry the
            // symbology the cell is drawn with.
            if (element.type == CellHeaderType) continue;
            levels.insert(element.level);
            styles.insert(element.style);
            if (element.weight < static_cast<std::uint32_t>(WeightCount)) weights.insert(element.weight);
            if (element.colour < static_cast<std::uint32_t>(ColourCount)) colours.insert(element.colour);
        }
    }
    for (const std::uint32_t level : levels) result.properties.levels.push_back(KoString::fromUtf8(dgn->levelName(level)));
    for (const std::int32_t style : styles)
        result.properties.lineStyles.push_back(KoString::fromUtf8(
            style >= 0 && style < LineStyleCount ? lineStyleName(style) : std::to_string(style)));
    for (const std::uint32_t weight : weights)
        result.properties.weights.push_back(KoString::fromUtf8(weightName(static_cast<int>(weight))));
    for (const std::uint32_t colour : colours)
        result.properties.colours.push_back(KoString::fromUtf8(colourName(static_cast<int>(colour))));
    scan = std::move(result);
    return eOk;
}

}  // namespace Kora::Dgn
