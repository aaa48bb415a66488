// How V7 levels, line styles, weights and colours are named to users.
//
// V7 files carry numbers, not names; the codec knows only the numbers. The import, export and mapping dialogs
// all show and store these names, so they come from here and nowhere else:
//   levels      "1" .. "63"       (the level number)
//   line styles "Solid", "Dotted", "Medium Dashed", "Long Dashed",
//               "Dot Dashed", "Short Dashed", "Dash Double Dot",
//               "Long Dash Short Dash"  (styles 0 .. 7)
//   weights     "0" .. "31"
//   colours     "0" .. "255"      (the colour table index)
// Parsing takes exactly these names, line style names without regard to
// case, and also the plain numbers "0" .. "7" for line styles. Anything else
// (out of range, blanks, signs, leading zeros) is refused.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "kora/export.h"

namespace Kora::Dgn {

inline constexpr int MinLevel = 1;
inline constexpr int MaxLevel = 63;
inline constexpr int LineStyleCount = 8;
inline constexpr int WeightCount = 32;
inline constexpr int ColourCount = 256;

// Each name function returns an empty string for a number out of range.
KORA_API std::string levelName(int level);
KORA_API std::string lineStyleName(int style);
KORA_API std::string weightName(int weight);
KORA_API std::string colourName(int colour);

KORA_API std::optional<int> levelFromName(std::string_view name);
KORA_API std::optional<int> lineStyleFromName(std::string_view name);
KORA_API std::optional<int> weightFromName(std::string_view name);
KORA_API std::optional<int> colourFromName(std::string_view name);

} // namespace Kora::Dgn
