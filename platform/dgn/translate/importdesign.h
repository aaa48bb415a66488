// The design import shared by DgnFile::doDgnImport and the bind service.
#pragma once

#include <functional>

#include "kora/db/database.h"
#include "kora/dgn/translate.h"

namespace Kora::Dgn {

// Where an import puts what it makes besides what the state asks.
struct ImportTarget {
    // Not empty: the whole design goes into a new block of this name (made
    // unique) and nothing is placed in model space; the state's target
    // mode is not used.
    KoString blockName;
    // Put before every layer, linetype and block name the import makes
    // ("site$0$" when a bind keeps the names apart from the drawing's).
    KoString namePrefix;
};

// Imports `state.file` into `database`. Answers KORTNORM or KORTERROR
// (unreadable file, cancelled: nothing is left in the database then); on
// success `blockId` is the block made for ImportTarget::blockName. The
// report is filled but not printed.
int importDesign(const DgnImportState& state, KoDbDatabase* database, KxDgnExportInternalService* service,
                 const ImportTarget& target, DgnTranslationReport& report, KoDbObjectId* blockId = nullptr);

// Calls `visit` with every live entity of every block of the database.
void forEachEntity(KoDbDatabase* database, const std::function<void(KoDbObjectId)>& visit);

// Prints each summary line at the command line.
void printSummary(const DgnTranslationReport& report);

// The name `base`, or the first of "base_2", "base_3", ... that no block of
// the database has.
KoString uniqueBlockName(KoDbDatabase* database, const KoString& base);

} // namespace Kora::Dgn
