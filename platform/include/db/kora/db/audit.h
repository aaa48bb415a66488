// The audit of a drawing database: checks what a drawing needs to hang
// together and puts right what it can. It runs on a database already in
// memory, whatever filled it (a file reader, a program), so every source of
// drawings gets the same checks.
#pragma once

#include "kora/db/database.h"
#include "kora/diagnostics.h"

namespace Kora::Db {

enum class AuditCode : unsigned char {
    kMissingTable,             // no block, layer or linetype table or no named-objects dictionary (not repaired)
    kMissingLayerZero,         // layer "0" was added
    kMissingLinetype,          // ByBlock, ByLayer or Continuous was added
    kMissingModelSpace,        // no "*Model_Space" block (not repaired)
    kMissingLayoutDictionary,  // "ACAD_LAYOUT" was added to the named-objects dictionary
    kMissingPaperSpace,        // a first sheet ("Layout1") was added
    kLayoutWithoutBlock,       // a sheet got a new, empty paper-space block
    kWrongOwner,               // an entity or a record named an owner other than the one holding it
    kUndefinedLayer,           // the entity was moved to layer "0"
    kUndefinedLinetype,        // the entity's linetype became ByLayer
    kUndefinedBlock,           // a reference to a block that does not exist was erased
    kNonFiniteCoordinate,      // an entity with a NaN or infinite coordinate was erased
};

// Checks `database` and repairs what it can: each problem put right is a
// kRepaired record whose message says how, each one left is kError. No
// object of the database may be open. Places name the object's handle as
// its element.
KORA_API Kora::Diagnostics<AuditCode> audit(KoDbDatabase& database);

}  // namespace Kora::Db
