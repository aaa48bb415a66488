// Translating DGN designs to and from the drawing database.
//
// Import (DgnFile::doDgnImport, declared with DgnFile) reads a design into a
// database; export (DgnExport::ExportDgnFile) writes a database's model
// space, and for V7 each paper-space layout, to design files; doDgnBind
// turns an attached DGN underlay into drawing content. Each returns the
// host's result code and reports what it did as a DgnTranslationReport,
// which the commands print and tests assert.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "kora/db/database.h"
#include "kora/db/object.h"
#include "kora/dgn/exportservice.h"
#include "kora/export.h"
#include "kora/kostring.h"

// One mapping table: import maps DGN names (as kora/dgn/naming.h names
// them) to drawing names, export maps drawing names to DGN names. An
// absent or empty target leaves the name as it is.
using DgnNameMap = std::map<KoString, KoString>;

struct DgnMappingTables {
    DgnNameMap levels;     // levels <-> layers
    DgnNameMap lineStyles; // line styles <-> linetypes
    DgnNameMap weights;    // weights <-> lineweights
    DgnNameMap colours;    // colours <-> colours
};

// Called with the fraction done (0 to 1) a few times a second at most;
// answering false cancels the translation, which then leaves the database
// and the files as they were before it started.
using DgnProgress = std::function<bool(double fraction)>;

// What one translation did.
struct KORA_API DgnTranslationReport {
    // Elements (import) or entities (export) that could not be translated,
    // grouped by what they are and why ("3D surface", "not translatable").
    struct Skipped {
        std::string kind;
        std::string reason;
        std::size_t count = 0;
    };
    enum class Direction { Import, Export };
    Direction direction = Direction::Import;
    std::size_t itemsRead = 0;    // import: DGN elements; export: drawing entities
    std::size_t itemsWritten = 0; // import: entities created; export: DGN elements
    std::vector<Skipped> skipped;
    std::vector<KoString> referencesNotFound; // reference files that could not be found
    std::vector<KoString> filesWritten;       // export: every design file written
    std::vector<KoString> notes;              // anything else the user must hear (a layer with no level left)
    bool cancelled = false;

    void skip(const std::string& kind, const std::string& reason, std::size_t count = 1);
    // The summary printed at the end of a translation, one line per entry.
    std::vector<KoString> summary() const;
};

// What an import is asked to do.
struct DgnImportState {
    KoString file;
    KoString model;               // "" or "Default": the file's first model
    int explodeTextNodes = 0;     // 1: text nodes become single texts
    int existingXRefOperation = kDgnExistingAsk;
    int masterUnits = 1;          // 1: master units, 0: sub units
    int translationMode = 0;      // 0: master file only; 1, 2: references converted too
    int targetMode = 0;           // 0: a new drawing; 1, 2: the current drawing
    DgnMappingTables tables;
    DgnProgress progress;
};

// The export library's parameters, filled by the caller before the call.
class KORA_API DgnExport {
public:
    int translationOption = 2;
    int existingXRefOperation = kDgnExistingAsk;
    bool useMasterUnits = true;
    KoString seedFile;
    bool seedIs3d = true;
    DgnNameMap layerMap;      // drawing layer -> DGN level
    DgnNameMap lineTypeMap;   // linetype -> line style
    DgnNameMap lineWeightMap; // lineweight -> weight
    DgnNameMap colourMap;     // colour -> colour index
    DgnProgress progress;

    // Writes `database` to `path` (V7 when `v7`; V8 cannot be written yet
    // and answers KORTERROR). Answers KORTNORM on success; what was done is
    // in report() afterwards.
    int ExportDgnFile(const KoString& path, KoDbDatabase* database, bool v7, KxDgnExportInternalService* service);
    const DgnTranslationReport& report() const { return m_report; }

private:
    DgnTranslationReport m_report;
};

namespace Kora::Dgn {
// The default weight tables of the mapping setups: import maps weights
// "0".."31" (and "ByCell", "ByLevel") to lineweights in hundredths of a
// millimetre ("0".."211", "ByBlock", "ByLayer"); export maps lineweights
// back. The two are not each other's inverse. An import whose weight table
// names no target for a weight uses the import table.
KORA_API DgnNameMap defaultLineWeightMap(bool import);
} // namespace Kora::Dgn

// The host's bind service: binds (insertMode false) or inserts the DGN
// underlay definition `definitionId` named `name`. Answers false when it
// could not; sets `onLockedLayer` when a reference of the definition lies on
// a locked layer, in which case nothing is changed.
KORA_API bool doDgnBind(const KoDbObjectId& definitionId, const KoString& name, bool& onLockedLayer, bool insertMode,
                        DgnTranslationReport* report = nullptr);
