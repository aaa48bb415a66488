// Reading a DXF drawing and auditing it before it replaces a database's
// contents; the public entry points (kora/dxf/dxf.h) come through here.
#pragma once

#include "dxftagreader.h"
#include "kora/dxf/dxf.h"

namespace Kora::Dxf {

// Reads `in` into `target` (dxfreader.cpp); a failure leaves `target` whole.
Kora::ErrorStatus readDxf(TagReader& in, KoDbDatabase& target, const KoString& name, KoString* message,
                          KoDbDxfReadReport* report);

// Reads, audits and, unless strict mode refuses the result, replaces
// `target` with what was read.
Kora::ErrorStatus readAudited(TagReader& in, KoDbDatabase& target, const KoString& name, KoString* message,
                              KoDbDxfReadReport* report, KoDbDxfReadMode mode);

}  // namespace Kora::Dxf
