#include "exportsymbology.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "kora/dgn/naming.h"

namespace Kora::Dgn::ExportDetail {

namespace {

std::unordered_map<KoString, KoString> upperKeys(const DgnNameMap& map)
{
    std::unordered_map<KoString, KoString> out;
    for (const auto& [key, value] : map)
        if (!value.isEmpty()) out.emplace(key.upper(), value);
    return out;
}

const KoString* find(const std::unordered_map<KoString, KoString>& map, const KoString& key)
{
    const auto it = map.find(key.upper());
    return it == map.end() ? nullptr : &it->second;
}

KoString linetypeName(KoDbObjectId id)
{
    KoDbObjectPointer<KoDbLinetypeTableRecord> record(id);
    return record ? record->getName() : KoString(L"Continuous");
}

} // namespace

SymbologyMapper::SymbologyMapper(const KoDbDatabase& database, const DgnExport& settings, const V7::ColourTable& colours,
                                 DgnTranslationReport& report)
    : m_layerZero(database.layerZero()), m_colours(colours), m_colourMap(upperKeys(settings.colourMap)), m_lineTypeMap(upperKeys(settings.lineTypeMap)),
      m_lineWeightMap(upperKeys(settings.lineWeightMap))
{
    std::fill(std::begin(m_aci), std::end(m_aci), std::int16_t{-1});
    const auto layerMap = upperKeys(settings.layerMap);
    struct Named {
        KoString name;
        KoDbObjectId id;
    };
    std::vector<Named> unmapped;
    bool taken[MaxLevel + 1] = {};
    KoDbLayerTable* table = nullptr;
    if (database.getLayerTable(table, KoDb::kForRead) == Kora::eOk) {
        for (auto it = table->newIterator(); !it->done(); it->step()) {
            KoDbLayerTableRecord* record = nullptr;
            if (it->getRecord(record) != Kora::eOk) continue;
            Layer layer{1, record->color(), linetypeName(record->linetypeObjectId()), record->lineWeight()};
            const KoString name = record->getName();
            const KoDbObjectId id = record->objectId();
            record->close();
            if (const KoString* target = find(layerMap, name)) {
                if (const auto level = levelFromName(target->toUtf8())) {
                    layer.level = static_cast<std::uint8_t>(*level);
                    taken[*level] = true;
                } else {
                    report.notes.push_back(L"Layer " + name + L": \"" + *target
                                           + L"\" is not a DGN level (1 to 63); the layer takes a free level.");
                    unmapped.push_back({name, id});
                }
            } else {
                unmapped.push_back({name, id});
            }
            m_layers.emplace(id, layer);
            m_levelByName.emplace(name.upper(), layer.level);
        }
        table->close();
    }
    std::sort(unmapped.begin(), unmapped.end(), [](const Named& a, const Named& b) {
        const int c = a.name.compareNoCase(b.name);
        return c != 0 ? c < 0 : a.name < b.name;
    });
    int next = MinLevel;
    KoString overflow;
    std::size_t overflowCount = 0;
    for (const Named& layer : unmapped) {
        while (next <= MaxLevel && taken[next]) ++next;
        int level = OverflowLevel;
        if (next <= MaxLevel) {
            level = next;
            taken[next] = true;
        } else {
            overflow += (overflowCount++ ? L", " : L"") + layer.name;
        }
        m_layers[layer.id].level = static_cast<std::uint8_t>(level);
        m_levelByName[layer.name.upper()] = level;
    }
    if (overflowCount > 0)
        report.notes.push_back(KoString::fromUtf8(std::to_string(overflowCount) + " layer(s) found no free DGN level and "
                                                  "were written on level " + std::to_string(OverflowLevel) + ": ")
                               + overflow);
}

int SymbologyMapper::levelOfLayer(const KoString& name) const
{
    const auto it = m_levelByName.find(name.upper());
    return it == m_levelByName.end() ? 0 : it->second;
}

const SymbologyMapper::Layer& SymbologyMapper::layerOf(const KoDbEntity& entity, const ByBlock& byBlock)
{
    KoDbObjectId layer = entity.layerId();
    // An entity whose layer is gone is drawn as if on layer "0", and
    // inside a block layer "0" is the reference's layer.
    if (!m_layers.contains(layer)) layer = m_layerZero;
    if (layer == m_layerZero && !byBlock.layer.isNull()) layer = byBlock.layer;
    const auto it = m_layers.find(layer);
    if (it != m_layers.end()) return it->second;
    static const Layer none{1, KoCmColor::fromIndex(7), L"Continuous", KoDb::kLnWtByLwDefault};
    return none;
}

KoCmColor SymbologyMapper::resolvedColour(const KoDbEntity& entity, const ByBlock& byBlock)
{
    const KoCmColor& c = entity.color();
    if (c.isByLayer()) return layerOf(entity, byBlock).colour;
    if (c.isByBlock()) return byBlock.colour;
    if (c.colorMethod() == KoCmColor::kForeground) return KoCmColor::fromIndex(7);
    return c;
}

KoString SymbologyMapper::resolvedLinetype(const KoDbEntity& entity, const ByBlock& byBlock)
{
    const KoDbObjectId id = entity.linetypeId();
    auto it = m_linetypes.find(id);
    if (it == m_linetypes.end()) {
        const KoString name = id.isNull() ? KoString(L"ByLayer") : linetypeName(id);
        it = m_linetypes.emplace(id, Linetype{name, name.equalsNoCase(L"ByLayer"), name.equalsNoCase(L"ByBlock")}).first;
    }
    if (it->second.byLayer) return layerOf(entity, byBlock).linetype;
    if (it->second.byBlock) return byBlock.linetype;
    return it->second.name;
}

int SymbologyMapper::resolvedLineWeight(const KoDbEntity& entity, const ByBlock& byBlock)
{
    const int w = entity.lineWeight();
    if (w == KoDb::kLnWtByLayer) return layerOf(entity, byBlock).lineWeight;
    if (w == KoDb::kLnWtByBlock) return byBlock.lineWeight;
    return w;
}

std::uint8_t SymbologyMapper::nearestColour(std::uint32_t rgb)
{
    const auto cached = m_nearest.find(rgb);
    if (cached != m_nearest.end()) return cached->second;
    const int r = (rgb >> 16) & 0xFF, g = (rgb >> 8) & 0xFF, b = rgb & 0xFF;
    int best = 0;
    long bestDistance = std::numeric_limits<long>::max();
    for (int i = 0; i < 255; ++i) {
        const V7::ColourTable::Rgb c = m_colours.colour(static_cast<std::uint8_t>(i));
        const long dr = c.r - r, dg = c.g - g, db = c.b - b;
        const long d = dr * dr + dg * dg + db * db;
        if (d < bestDistance) bestDistance = d, best = i;
    }
    m_nearest.emplace(rgb, static_cast<std::uint8_t>(best));
    return static_cast<std::uint8_t>(best);
}

std::uint8_t SymbologyMapper::colourIndex(const KoCmColor& colour)
{
    if (colour.isByColor()) return nearestColour(colour.rgb());
    const int aci = std::clamp(colour.colorIndex(), 1, 255);
    if (m_aci[aci] < 0) {
        const KoString* target = find(m_colourMap, KoString::fromUtf8(std::to_string(aci)));
        const auto mapped = target ? colourFromName(target->toUtf8()) : std::nullopt;
        m_aci[aci] = static_cast<std::int16_t>(mapped ? *mapped : nearestColour(kocmPaletteRgb(aci)));
    }
    return static_cast<std::uint8_t>(m_aci[aci]);
}

std::uint8_t SymbologyMapper::style(const KoString& linetype)
{
    const auto cached = m_styles.find(linetype);
    if (cached != m_styles.end()) return cached->second;
    std::uint8_t style = 0; // Continuous, and every linetype the table does not name
    if (const KoString* target = find(m_lineTypeMap, linetype))
        style = static_cast<std::uint8_t>(lineStyleFromName(target->toUtf8()).value_or(0));
    m_styles.emplace(linetype, style);
    return style;
}

std::uint8_t SymbologyMapper::weight(int lineWeight)
{
    if (lineWeight < 0) return 0; // the default lineweight draws with the thinnest weight
    if (const KoString* target = find(m_lineWeightMap, KoString::fromUtf8(std::to_string(lineWeight))))
        if (const auto mapped = weightFromName(target->toUtf8())) return static_cast<std::uint8_t>(*mapped);
    // Seven weights to the millimetre, the slope of the default weight table.
    return static_cast<std::uint8_t>(std::clamp(std::lround(lineWeight * 0.07), 0L, static_cast<long>(WeightCount - 1)));
}

Symbol SymbologyMapper::symbolOf(const KoDbEntity& entity, const ByBlock& byBlock)
{
    if (m_last && m_last->layer == entity.layerId() && m_last->linetype == entity.linetypeId() &&
        m_last->colour == entity.color() && m_last->lineWeight == entity.lineWeight() && m_last->byBlock == byBlock)
        return m_last->symbol;
    Symbol s;
    s.level = layerOf(entity, byBlock).level;
    s.symbology.colour = colourIndex(resolvedColour(entity, byBlock));
    s.symbology.style = style(resolvedLinetype(entity, byBlock));
    s.symbology.weight = weight(resolvedLineWeight(entity, byBlock));
    m_last = Last{entity.layerId(), entity.linetypeId(), entity.color(), entity.lineWeight(), byBlock, s};
    return s;
}

ByBlock SymbologyMapper::byBlockOf(const KoDbEntity& reference, const ByBlock& outer)
{
    KoDbObjectId layer = reference.layerId();
    if (!m_layers.contains(layer) || layer == m_layerZero) layer = outer.layer.isNull() ? m_layerZero : outer.layer;
    return {layer, resolvedColour(reference, outer), resolvedLinetype(reference, outer), resolvedLineWeight(reference, outer)};
}

} // namespace Kora::Dgn::ExportDetail
