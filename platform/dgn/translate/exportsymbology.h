// How the export gives each entity its DGN level, colour, weight and line
// style: the caller's mapping tables first, then the rules of
// docs/dgn-export.md. Shared by every file of one export, so that model
// space and the layouts use the same levels for the same layers.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "kora/db/database.h"
#include "kora/dgn/translate.h"
#include "kora/dgn/v7/elements.h"

namespace Kora::Dgn::ExportDetail {

// The level layers go to when every level 1..63 is taken.
inline constexpr int OverflowLevel = 63;

// What an entity drawn through block references takes for its ByBlock
// colour, linetype and lineweight: the reference's own resolved values;
// and an entity on layer "0" takes the reference's layer. Outside any
// reference ByBlock means white, Continuous and the default weight.
struct ByBlock {
    KoDbObjectId layer; // null outside references
    KoCmColor colour = KoCmColor::fromIndex(7);
    KoString linetype = L"Continuous";
    int lineWeight = KoDb::kLnWtByLwDefault;
    friend bool operator==(const ByBlock&, const ByBlock&) = default;
};

struct Symbol {
    std::uint8_t level = 1;
    V7::Symbology symbology;
};

class SymbologyMapper {
public:
    // Assigns the levels of every layer of `database`; layers that find no
    // level are named in report.notes.
    SymbologyMapper(const KoDbDatabase& database, const DgnExport& settings, const V7::ColourTable& colours,
                    DgnTranslationReport& report);

    Symbol symbolOf(const KoDbEntity& entity, const ByBlock& byBlock);
    // What the entities of a block take for ByBlock when drawn through `reference`.
    ByBlock byBlockOf(const KoDbEntity& reference, const ByBlock& outer);

    int levelOfLayer(const KoString& name) const;
    // The colour table index nearest to an RGB value (0x00RRGGBB), among
    // 0..254: 255 shows with the background.
    std::uint8_t nearestColour(std::uint32_t rgb);

private:
    struct Layer {
        std::uint8_t level = 1;
        KoCmColor colour;
        KoString linetype;
        int lineWeight = KoDb::kLnWtByLwDefault;
    };
    const Layer& layerOf(const KoDbEntity& entity, const ByBlock& byBlock);
    KoDbObjectId m_layerZero;
    KoCmColor resolvedColour(const KoDbEntity& entity, const ByBlock& byBlock);
    KoString resolvedLinetype(const KoDbEntity& entity, const ByBlock& byBlock);
    int resolvedLineWeight(const KoDbEntity& entity, const ByBlock& byBlock);
    std::uint8_t colourIndex(const KoCmColor& colour);
    std::uint8_t style(const KoString& linetype);
    std::uint8_t weight(int lineWeight);

    const V7::ColourTable& m_colours;
    std::unordered_map<KoString, KoString> m_colourMap, m_lineTypeMap, m_lineWeightMap; // upper-cased keys
    std::unordered_map<KoDbObjectId, Layer> m_layers;
    std::unordered_map<KoString, int> m_levelByName; // upper-cased layer name
    struct Linetype {
        KoString name;
        bool byLayer = false, byBlock = false;
    };
    std::unordered_map<KoDbObjectId, Linetype> m_linetypes;
    std::unordered_map<std::uint32_t, std::uint8_t> m_nearest;
    std::unordered_map<KoString, std::uint8_t> m_styles;
    std::int16_t m_aci[256];
    // The symbol last worked out and what it was worked out from: runs of
    // entities drawn alike are the rule, and each would look up its layer
    // up to four times.
    struct Last {
        KoDbObjectId layer, linetype;
        KoCmColor colour;
        int lineWeight = 0;
        ByBlock byBlock;
        Symbol symbol;
    };
    std::optional<Last> m_last;
};

} // namespace Kora::Dgn::ExportDetail
