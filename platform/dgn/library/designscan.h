// One pass over a DGN file that collects everything the property reader,
// the underlay loader and the underlay service need from it.
#pragma once

#include <cstdint>
#include <filesystem>

#include "kora/db/geometry.h"
#include "kora/dgn/dgnfile.h"
#include "kora/status.h"

namespace Kora::Dgn {

struct DesignScan {
    DgnFileProp properties;
    // The range of the graphic elements in master units, measured from the
    // global origin; invalid when no element has a range.
    KoDbExtents masterExtents;
    double subPerMaster = 1;
};

// eOk, or the status that says why the file is not a readable V7 or V8
// design: eFileNotFound, eFileAccessErr, eUnsupportedFileFormat,
// eBadDgnFile. The name lists, extents and sub units of a V8 file are
// those of the model named `model`, or of all its models together when
// it names none of them (V7 files have one model).
ErrorStatus scanDesignFile(const KoString& path, DesignScan& scan, const KoString& model = KoString());

// The V8 half of scanDesignFile.
ErrorStatus scanV8File(const std::filesystem::path& file, DesignScan& scan, const KoString& model);

// A unit label pair as the model reports it: the vocabulary's spellings
// when the labels and the ratio identify standard units, else the labels.
void identifyUnits(const KoString& masterLabel, const KoString& subLabel, double subPerMaster,
                   DgnModelProp& model);

}  // namespace Kora::Dgn
