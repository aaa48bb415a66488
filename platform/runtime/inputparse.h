// Parsing of typed coordinates and numbers, shared by the editor's input
// functions and the jigs.
#pragma once

#include <optional>

#include "kora/db/geometry.h"
#include "kora/kostring.h"

namespace Kora::Runtime {

// "x,y" or "x,y,z"; "@dx,dy[,dz]" is relative to `base` (or to the last
// point when base is null).
std::optional<KoGePoint3d> parsePoint(const KoString& text, const KoGePoint3d* base);
// A whole-text decimal number.
std::optional<double> parseReal(const KoString& text);
// The last point given at any prompt (the origin at first).
KoGePoint3d& lastPoint();

}  // namespace Kora::Runtime
