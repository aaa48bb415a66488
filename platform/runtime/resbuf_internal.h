// What the runtime's result-buffer functions share.
#pragma once

#include "kora/status.h"

namespace Kora::Runtime {

// Whether a buffer of this type holds text that it owns (allocated with
// malloc(), freed by koutRelRb()): strings, and the entity type (0) and
// layer name (8) of a selection filter.
inline bool resbufHoldsText(int restype) { return restype == KORTSTR || restype == KORTDXF0 || restype == 8; }

}  // namespace Kora::Runtime
