// What a DGN file tells about itself before anything is translated: its
// version, dimension, models with their working units, and the names of the
// levels, line styles, weights and colours its elements use. The import,
// export and mapping dialogs read this to show units and to offer names.
#pragma once

#include <vector>

#include "kora/db/units.h"
#include "kora/export.h"
#include "kora/kostring.h"

// The version flag used wherever a DGN version is chosen or compared.
enum DgnVersion : int {
    kDgnVersionUnknown = -1,
    kDgnVersionV8 = 0,
    kDgnVersionV7 = 1,
};

// One model and its working units. A unit is reported in the spelling of
// the units vocabulary ("m", "mm", "ft", "in", ...) when the file's labels
// and sub-per-master ratio identify a standard unit, otherwise as the file
// labels it. The codes are the drawing units (KoDb::UnitsValue) of the
// reported spelling, kUnitsUndefined for a unit that has none.
struct DgnModelProp {
    KoString name;
    KoString masterUnit;
    KoString subUnit;
    int masterUnits = KoDb::kUnitsUndefined;
    int subUnits = KoDb::kUnitsUndefined;
};

// The properties of one DGN file. The four name lists hold the values that
// the file's graphic elements use, in ascending number order, named as the
// DGN library names them (kora/dgn/naming.h): levels "1".."63", line styles
// "Solid".."Long Dash Short Dash", weights "0".."31", colours "0".."255".
struct DgnFileProp {
    int version = kDgnVersionUnknown;
    bool is3d = false;
    std::vector<DgnModelProp> models;  // file order; a V7 file has one, "Default"; a V8 file its named models
    std::vector<KoString> levels;
    std::vector<KoString> lineStyles;
    std::vector<KoString> weights;
    std::vector<KoString> colours;
};

struct DgnImportState;
struct DgnTranslationReport;
class KoDbDatabase;
class KxDgnExportInternalService;

class KORA_API DgnFile {
public:
    // Reads the file's properties into `prop`, replacing what it held, and
    // answers KORTNORM. A file that cannot be read as a V7 or V8 design (a
    // cell library, anything that is not a DGN file, a damaged or
    // unreadable one) answers KORTERROR and leaves `prop` as it was;
    // KoDbDgnUnderlayService::LoadDgnUnderlayFile tells which of these it is.
    static int addPropFromDgnFile(const KoString& path, DgnFileProp& prop);

    // Imports the model `state` names of the design `state.file` into
    // `database` (kora/dgn/translate.h). Answers KORTNORM when the import
    // ran to its end; KORTERROR when the file cannot be read or the import
    // was cancelled, and then nothing of it is left in the database. The
    // summary is printed at the end and, when `report` is given, returned.
    static int doDgnImport(const DgnImportState& state, KoDbDatabase* database,
                           KxDgnExportInternalService* service, DgnTranslationReport* report = nullptr);
};
