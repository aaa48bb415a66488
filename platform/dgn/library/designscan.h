// One pass over a DGN file that collects everything the property reader,
// the underlay loader and the underlay service need from it.
#pragma once

#include <cstdint>

#include "kora/db/geometry.h"
#include "kora/dgn/dgnfile.h"
#include "kora/status.h"

namespace Kora::Dgn {

struct DesignScan {
    DgnFileProp properties;
    // The range of the graphic elements in master units, measured from the
    // global origin; invalid when no element has a range.
    KoDbExtents masterExtents;
    std::int32_t subPerMaster = 1;
};

// eOk, or the status that says why the file is not a readable V7 design:
// eFileNotFound, eFileAccessErr, eUnsupportedFileFormat, eBadDgnFile.
ErrorStatus scanDesignFile(const KoString& path, DesignScan& scan);

// A unit label pair as the model reports it: the vocabulary's spellings
// when the labels and the ratio identify standard units, else the labels.
void identifyUnits(const KoString& masterLabel, const KoString& subLabel, std::int32_t subPerMaster,
                   DgnModelProp& model);

}  // namespace Kora::Dgn
