#include "importsymbology.h"

#include <charconv>
#include <string>
#include <unordered_map>

#include "kora/dgn/naming.h"

namespace Kora::Dgn {

namespace {

// The drawing palette (index 0 unused), 0xRRGGBB.
constexpr std::array<std::uint32_t, 256> kPalette = {
0x000000, 0xFF0000, 0xFFFF00, 0x00FF00, 0x00FFFF, 0x0000FF, 0xFF00FF, 0xFFFFFF,
0x808080, 0xC0C0C0, 0xFF0000, 0xFF7F7F, 0xA50000, 0xA55252, 0x7F0000, 0x7F3F3F,
0x4C0000, 0x4C2626, 0x260000, 0x261313, 0xFF3F00, 0xFF9F7F, 0xA52900, 0xA56752,
0x7F1F00, 0x7F4F3F, 0x4C1300, 0x4C2F26, 0x260900, 0x261713, 0xFF7F00, 0xFFBF7F,
0xA55200, 0xA57C52, 0x7F3F00, 0x7F5F3F, 0x4C2600, 0x4C3926, 0x261300, 0x261C13,
0xFFBF00, 0xFFDF7F, 0xA57C00, 0xA59152, 0x7F5F00, 0x7F6F3F, 0x4C3900, 0x4C4226,
0x261C00, 0x262113, 0xFFFF00, 0xFFFF7F, 0xA5A500, 0xA5A552, 0x7F7F00, 0x7F7F3F,
0x4C4C00, 0x4C4C26, 0x262600, 0x262613, 0xBFFF00, 0xDFFF7F, 0x7CA500, 0x91A552,
0x5F7F00, 0x6F7F3F, 0x394C00, 0x424C26, 0x1C2600, 0x212613, 0x7FFF00, 0xBFFF7F,
0x52A500, 0x7CA552, 0x3F7F00, 0x5F7F3F, 0x264C00, 0x394C26, 0x132600, 0x1C2613,
0x3FFF00, 0x9FFF7F, 0x29A500, 0x67A552, 0x1F7F00, 0x4F7F3F, 0x134C00, 0x2F4C26,
0x092600, 0x172613, 0x00FF00, 0x7FFF7F, 0x00A500, 0x52A552, 0x007F00, 0x3F7F3F,
0x004C00, 0x264C26, 0x002600, 0x132613, 0x00FF3F, 0x7FFF9F, 0x00A529, 0x52A567,
0x007F1F, 0x3F7F4F, 0x004C13, 0x264C2F, 0x002609, 0x135817, 0x00FF7F, 0x7FFFBF,
0x00A552, 0x52A57C, 0x007F3F, 0x3F7F5F, 0x004C26, 0x264C39, 0x002613, 0x13581C,
0x00FFBF, 0x7FFFDF, 0x00A57C, 0x52A591, 0x007F5F, 0x3F7F6F, 0x004C39, 0x264C42,
0x00261C, 0x135858, 0x00FFFF, 0x7FFFFF, 0x00A5A5, 0x52A5A5, 0x007F7F, 0x3F7F7F,
0x004C4C, 0x264C4C, 0x002626, 0x135858, 0x00BFFF, 0x7FDFFF, 0x007CA5, 0x5291A5,
0x005F7F, 0x3F6F7F, 0x00394C, 0x26427E, 0x001C26, 0x135858, 0x007FFF, 0x7FBFFF,
0x0052A5, 0x527CA5, 0x003F7F, 0x3F5F7F, 0x00264C, 0x26397E, 0x001326, 0x131C58,
0x003FFF, 0x7F9FFF, 0x0029A5, 0x5267A5, 0x001F7F, 0x3F4F7F, 0x00134C, 0x262F7E,
0x000926, 0x131758, 0x0000FF, 0x7F7FFF, 0x0000A5, 0x5252A5, 0x00007F, 0x3F3F7F,
0x00004C, 0x26267E, 0x000026, 0x131358, 0x3F00FF, 0x9F7FFF, 0x2900A5, 0x6752A5,
0x1F007F, 0x4F3F7F, 0x13004C, 0x2F267E, 0x090026, 0x171358, 0x7F00FF, 0xBF7FFF,
0x5200A5, 0x7C52A5, 0x3F007F, 0x5F3F7F, 0x26004C, 0x39267E, 0x130026, 0x1C1358,
0xBF00FF, 0xDF7FFF, 0x7C00A5, 0x9152A5, 0x5F007F, 0x6F3F7F, 0x39004C, 0x42264C,
0x1C0026, 0x581358, 0xFF00FF, 0xFF7FFF, 0xA500A5, 0xA552A5, 0x7F007F, 0x7F3F7F,
0x4C004C, 0x4C264C, 0x260026, 0x581358, 0xFF00BF, 0xFF7FDF, 0xA5007C, 0xA55291,
0x7F005F, 0x7F3F6F, 0x4C0039, 0x4C2642, 0x26001C, 0x581358, 0xFF007F, 0xFF7FBF,
0xA50052, 0xA5527C, 0x7F003F, 0x7F3F5F, 0x4C0026, 0x4C2639, 0x260013, 0x58131C,
0xFF003F, 0xFF7F9F, 0xA50029, 0xA55267, 0x7F001F, 0x7F3F4F, 0x4C0013, 0x4C262F,
0x260009, 0x581317, 0x000000, 0x656565, 0x666666, 0x999999, 0xCCCCCC, 0xFFFFFF
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
        for (int i = 1; i < 256; ++i) index.try_emplace(kPalette[static_cast<std::size_t>(i)], i);
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
    if (!table) return KoCmColor::fromIndex(index == 0 ? 7 : index);
    const V7::ColourTable::Rgb rgb = table->colour(static_cast<std::uint8_t>(index));
    const std::uint32_t value = (std::uint32_t{rgb.r} << 16) | (std::uint32_t{rgb.g} << 8) | rgb.b;
    if (const int aci = paletteIndexOf(value)) return KoCmColor::fromIndex(aci);
    return KoCmColor::fromRGB(rgb.r, rgb.g, rgb.b);
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
