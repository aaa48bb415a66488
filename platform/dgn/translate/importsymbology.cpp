#include "importsymbology.h"

#include <charconv>
#include <string>
#include <unordered_map>

#include "kora/db/color.h"
#include "kora/dgn/naming.h"

namespace Kora::Dgn {

namespace {

// The colours of a design without a colour table, by index, 0xRRGGBB.
constexpr std::array<std::uint32_t, 256> kDefaultColours = {
0xFFFFFF, 0x0000FF, 0x00FF00, 0xFF0000, 0xFFFF00, 0xFF00FF, 0xFF7F00, 0x00FFFF,
0x404040, 0xC0C0C0, 0xFE0060, 0xA0E000, 0x00FEA0, 0x8000A0, 0xB0B0B0, 0x00F0F0,
0xF0F0F0, 0x0000F0, 0x00F000, 0xF00000, 0xF0F000, 0xF000F0, 0xF07A00, 0x00F0F0,
0xF0F0F0, 0x0000F0, 0x00F000, 0xF00000, 0xF0F000, 0xF000F0, 0xF07A00, 0x00E1E1,
0xE1E1E1, 0x0000E1, 0x00E100, 0xE10000, 0xE1E100, 0xE100E1, 0xE17500, 0x00E1E1,
0xE1E1E1, 0x0000E1, 0x00E100, 0xE10000, 0xE1E100, 0xE100E1, 0xE17500, 0x00D2D2,
0xD2D2D2, 0x0000D2, 0x00D200, 0xD20000, 0xD2D200, 0xD200D2, 0xD27000, 0x00D2D2,
0xD2D2D2, 0x0000D2, 0x00D200, 0xD20000, 0xD2D200, 0xD200D2, 0xD27000, 0x00C3C3,
0xC3C3C3, 0x0000C3, 0x00C300, 0xC30000, 0xC3C300, 0xC300C3, 0xC36B00, 0x00C3C3,
0xC3C3C3, 0x0000C3, 0x00C300, 0xC30000, 0xC3C300, 0xC300C3, 0xC36B00, 0x00B4B4,
0xB4B4B4, 0x0000B4, 0x00B400, 0xB40000, 0xB4B400, 0xB400B4, 0xB46600, 0x00B4B4,
0xB4B4B4, 0x0000B4, 0x00B400, 0xB40000, 0xB4B400, 0xB400B4, 0xB46600, 0x00A5A5,
0xA5A5A5, 0x0000A5, 0x00A500, 0xA50000, 0xA5A500, 0xA500A5, 0xA56100, 0x00A5A5,
0xA5A5A5, 0x0000A5, 0x00A500, 0xA50000, 0xA5A500, 0xA500A5, 0xA56100, 0x009696,
0x969696, 0x000096, 0x009600, 0x960000, 0x969600, 0x960096, 0x965C00, 0x009696,
0x969696, 0x000096, 0x009600, 0x960000, 0x969600, 0x960096, 0x965C00, 0x008787,
0x878787, 0x000087, 0x008700, 0x870000, 0x878700, 0x870087, 0x875700, 0x008787,
0x878787, 0x000087, 0x008700, 0x870000, 0x878700, 0x870087, 0x875700, 0x007878,
0x787878, 0x000078, 0x007800, 0x780000, 0x787800, 0x780078, 0x785200, 0x007878,
0x787878, 0x000078, 0x007800, 0x780000, 0x787800, 0x780078, 0x785200, 0x006969,
0x696969, 0x000069, 0x006900, 0x690000, 0x696900, 0x690069, 0x694D00, 0x006969,
0x696969, 0x000069, 0x006900, 0x690000, 0x696900, 0x690069, 0x694D00, 0x005A5A,
0x5A5A5A, 0x00005A, 0x005A00, 0x5A0000, 0x5A5A00, 0x5A005A, 0x5A4800, 0x005A5A,
0x5A5A5A, 0x00005A, 0x005A00, 0x5A0000, 0x5A5A00, 0x5A005A, 0x5A4800, 0x004B4B,
0x4B4B4B, 0x00004B, 0x004B00, 0x4B0000, 0x4B4B00, 0x4B004B, 0x4B4300, 0x004B4B,
0x4B4B4B, 0x00004B, 0x004B00, 0x4B0000, 0x4B4B00, 0x4B004B, 0x4B4300, 0x003C3C,
0x3C3C3C, 0x00003C, 0x003C00, 0x3C0000, 0x3C3C00, 0x3C003C, 0x3C3E00, 0x003C3C,
0x3C3C3C, 0x00003C, 0x003C00, 0x3C0000, 0x3C3C00, 0x3C003C, 0x3C3E00, 0x002D2D,
0x2D2D2D, 0x00002D, 0x002D00, 0x2D0000, 0x2D2D00, 0x2D002D, 0x2D3900, 0x002D2D,
0x2D2D2D, 0x00002D, 0x002D00, 0x2D0000, 0x2D2D00, 0x2D002D, 0x2D3900, 0x001E1E,
0x1E1E1E, 0x00001E, 0x001E00, 0x1E0000, 0x1E1E00, 0x1E001E, 0x1E3400, 0x001E1E,
0x1E1E1E, 0x00001E, 0x001E00, 0x1E0000, 0x1E1E00, 0x1E001E, 0xC0C0C0, 0x1C0064
};

std::optional<int> parseInt(const std::string& text)
{
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (ec != std::errc() || ptr != end || text.empty()) return std::nullopt;
    return value;
}

// The mapping table's target for a DGN name; empty when there is none.
std::string target(const DgnNameMap& map, const std::string& dgnName)
{
    const auto found = map.find(KoString::fromUtf8(dgnName));
    return found == map.end() ? std::string() : found->second.trimmed().toUtf8();
}

int paletteIndexOf(std::uint32_t rgb)
{
    static const std::unordered_map<std::uint32_t, int> byRgb = [] {
        std::unordered_map<std::uint32_t, int> index;
        for (int i = 1; i < 256; ++i) index.try_emplace(kocmPaletteRgb(i), i);
        return index;
    }();
    const auto found = byRgb.find(rgb);
    return found == byRgb.end() ? 0 : found->second;
}

} // namespace

KoCmColor importColour(const DgnNameMap& map, const std::optional<V7::ColourTable>& table, int index)
{
    const std::string mapped = target(map, colourName(index));
    if (mapped == "ByLayer") return KoCmColor::byLayer();
    if (mapped == "ByBlock") return KoCmColor::byBlock();
    if (const auto aci = parseInt(mapped); aci && *aci >= 1 && *aci <= 255) return KoCmColor::fromIndex(*aci);
    std::uint32_t value = kDefaultColours[static_cast<std::size_t>(index & 0xFF)];
    if (table) {
        const V7::ColourTable::Rgb rgb = table->colour(static_cast<std::uint8_t>(index));
        value = (std::uint32_t{rgb.r} << 16) | (std::uint32_t{rgb.g} << 8) | rgb.b;
    }
    if (const int aci = paletteIndexOf(value)) return KoCmColor::fromIndex(aci);
    return KoCmColor::fromRGB(static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 8),
                              static_cast<std::uint8_t>(value));
}

KoDb::LineWeight importLineWeight(const DgnNameMap& map, int weight)
{
    const std::string name = weightName(weight);
    std::string mapped = target(map, name);
    if (mapped.empty()) mapped = target(defaultLineWeightMap(true), name);
    if (mapped == "ByLayer") return KoDb::kLnWtByLayer;
    if (mapped == "ByBlock") return KoDb::kLnWtByBlock;
    if (const auto value = parseInt(mapped); value && *value >= 0 && *value <= 211) {
        // A value between the standard weights takes the next thinner one.
        static constexpr int kStandard[] = {0,  5,  9,  13, 15, 18, 20,  25,  30,  35,  40,  50,
                                            53, 60, 70, 80, 90, 100, 106, 120, 140, 158, 200, 211};
        int chosen = 0;
        for (const int w : kStandard)
            if (w <= *value) chosen = w;
        return static_cast<KoDb::LineWeight>(chosen);
    }
    return KoDb::kLnWtByLwDefault;
}

std::vector<KoDbLinetypeDash> lineStyleDashes(int style)
{
    // Dashes positive, gaps negative, dots zero; the proportions of the
    // eight standard styles as they are drawn on screen.
    static const std::vector<double> kPatterns[LineStyleCount] = {
        {},                                // Solid
        {0.0, -0.1},                       // Dotted
        {0.5, -0.25},                      // Medium Dashed
        {1.0, -0.25},                      // Long Dashed
        {0.5, -0.2, 0.0, -0.2},            // Dot Dashed
        {0.25, -0.15},                     // Short Dashed
        {0.5, -0.15, 0.0, -0.15, 0.0, -0.15}, // Dash Double Dot
        {1.0, -0.2, 0.25, -0.2},           // Long Dash Short Dash
    };
    std::vector<KoDbLinetypeDash> dashes;
    if (style < 0 || style >= LineStyleCount) return dashes;
    for (const double length : kPatterns[style]) {
        KoDbLinetypeDash dash;
        dash.length = length;
        dashes.push_back(dash);
    }
    return dashes;
}

std::optional<int> fillColour(const V7::Header& header)
{
    // User linkages carry their length in words (minus one) in their first
    // byte and the 0x10 bit in the second; the fill linkage has the id
    // 0x0041 and the colour in its ninth byte. Other linkages are 8 bytes.
    const auto& a = header.attributes;
    std::size_t at = 0;
    while (at + 4 <= a.size()) {
        const auto b0 = std::to_integer<unsigned>(a[at]);
        const auto b1 = std::to_integer<unsigned>(a[at + 1]);
        if (b0 == 0 && b1 == 0) break;
        const bool user = (b1 & 0x10) != 0;
        const std::size_t size = user ? b0 * 2 + 2 : 8;
        const unsigned id = std::to_integer<unsigned>(a[at + 2]) | (std::to_integer<unsigned>(a[at + 3]) << 8);
        if (user && id == 0x0041 && size >= 9 && at + 9 <= a.size()) return std::to_integer<int>(a[at + 8]);
        at += size;
    }
    return std::nullopt;
}

} // namespace Kora::Dgn
