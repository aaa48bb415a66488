// How the levels, colours, weights and line styles of a V7 design become
// layers, colours, lineweights and linetypes of a drawing.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "kora/db/database.h"
#include "kora/dgn/translate.h"
#include "kora/dgn/v7/elements.h"

namespace Kora::Dgn {

// The drawing colour of a colour index: the mapping table's target when it
// names one ("ByLayer", "ByBlock" or a palette index 1..255), else the
// design's colour table entry, as the palette index of the same RGB when
// there is one and as a true colour otherwise. A design without a colour
// table shows with the default V7 colours.
KoCmColor importColour(const DgnNameMap& map, const std::optional<V7::ColourTable>& table, int index);

// The lineweight of a weight: the mapping table's target ("0".."211",
// "ByLayer", "ByBlock", "Default"), else the default import table's.
KoDb::LineWeight importLineWeight(const DgnNameMap& map, int weight);

// The dash pattern standing for a line style (empty for Solid), in
// drawing units.
std::vector<KoDbLinetypeDash> lineStyleDashes(int style);

// The fill colour index of a shape's fill linkage, if it has one.
std::optional<int> fillColour(const V7::Header& header);

} // namespace Kora::Dgn
