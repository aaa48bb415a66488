#include "kora/dgn/naming.h"

#include <array>
#include <cctype>

namespace Kora::Dgn {

namespace {

constexpr std::array<const char*, LineStyleCount> LineStyleNames = {
    "Solid", "Dotted", "Medium Dashed", "Long Dashed", "Dot Dashed", "Short Dashed", "Dash Double Dot", "Long Dash Short Dash",
};

std::string numberName(int value, int low, int high)
{
    return value >= low && value <= high ? std::to_string(value) : std::string();
}

// Plain decimal numbers only: no sign, no blanks, no leading zeros.
std::optional<int> numberFromName(std::string_view name, int low, int high)
{
    if (name.empty() || name.size() > 3 || (name.size() > 1 && name[0] == '0')) return std::nullopt;
    int value = 0;
    for (const char c : name) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + (c - '0');
    }
    if (value < low || value > high) return std::nullopt;
    return value;
}

bool equalNoCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
    return true;
}

} // namespace

std::string levelName(int level)
{
    return numberName(level, MinLevel, MaxLevel);
}

std::string lineStyleName(int style)
{
    return style >= 0 && style < LineStyleCount ? LineStyleNames[static_cast<std::size_t>(style)] : std::string();
}

std::string weightName(int weight)
{
    return numberName(weight, 0, WeightCount - 1);
}

std::string colourName(int colour)
{
    return numberName(colour, 0, ColourCount - 1);
}

std::optional<int> levelFromName(std::string_view name)
{
    return numberFromName(name, MinLevel, MaxLevel);
}

std::optional<int> lineStyleFromName(std::string_view name)
{
    for (std::size_t i = 0; i < LineStyleNames.size(); ++i)
        if (equalNoCase(name, LineStyleNames[i])) return static_cast<int>(i);
    return numberFromName(name, 0, LineStyleCount - 1);
}

std::optional<int> weightFromName(std::string_view name)
{
    return numberFromName(name, 0, WeightCount - 1);
}

std::optional<int> colourFromName(std::string_view name)
{
    return numberFromName(name, 0, ColourCount - 1);
}

} // namespace Kora::Dgn
