// DXF files: ASCII DXF of release 2000 (AC1015) and later is read; files
// are written as AC1027.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "kora/db/audit.h"
#include "kora/db/database.h"
#include "kora/diagnostics.h"

namespace Kora::Dxf {

// What the DXF reader can meet. A read that fails reports one of the
// errors last; repairs are reported as it goes on.
enum class ReadCode : unsigned char {
    // Errors: the file is not read.
    kCannotOpen,         // the file could not be opened
    kEmptyFile,
    kBinaryFile,         // binary DXF, which is not read
    kDrawingBusy,        // the target drawing has objects open
    kOutOfMemory,
    kMalformedTag,       // a line that is no group code, or an unknown code
    kTruncated,          // the file ends inside a record or section
    kBadValue,           // a value that does not suit its group code
    kUnexpectedTag,      // a tag the file's structure has no place for
    kOldRelease,         // older than AC1015
    kBadStructure,       // sections, tables or blocks out of place or missing
    kBadExtendedData,
    kBadHatch,           // hatch boundary data that cannot be followed
    // Repairs: the drawing is read with the change the message names.
    kDuplicateHandle,
    kUndefinedName,      // a layer or linetype used but never defined
    kDuplicateRecord,
    kUnterminatedSequence,
    kOrphanEntries,      // dictionary entries without their objects
    kMisplacedRecord,    // a record of the file's structure met among entities
};

}  // namespace Kora::Dxf

// What a read met that the database keeps without modelling it, and the
// problems it met.
struct KoDbDxfReadReport {
    std::string version;                          // $ACADVER
    std::map<std::string, int> unknownEntities;   // DXF name -> count, kept opaque
    std::map<std::string, int> unknownObjects;    // DXF name -> count, kept opaque
    int preservedTags = 0;                        // tags of known classes kept as read
    Kora::Diagnostics<Kora::Dxf::ReadCode> diagnostics;
    Kora::Diagnostics<Kora::Db::AuditCode> audit; // what the audit after reading found
};

// What a read does with a drawing that has problems. Recover keeps what can
// be read, repairs the rest (the reader while reading, the audit of
// kora/db/audit.h after) and says so in the report; it is what users expect
// of opening a drawing. Strict refuses a drawing that needed any repair:
// the database stays as it was, the read fails with eBadDxfFile, and the
// report holds every problem found.
enum class KoDbDxfReadMode { kRecover, kStrict };

// Reads DXF text from memory into `database` (whose contents it replaces).
// `name` stands for the source in messages. On failure `message` says
// "name, line N: what" (or "name: what" where no line applies), and the
// report's last diagnostic holds the same problem as a record.
KORA_API Kora::ErrorStatus kodbReadDxf(KoDbDatabase& database, std::string_view bytes, const KoString& name,
                                       KoString* message = nullptr, KoDbDxfReadReport* report = nullptr,
                                       KoDbDxfReadMode mode = KoDbDxfReadMode::kRecover);
KORA_API Kora::ErrorStatus kodbReadDxfFile(KoDbDatabase& database, const KoString& path, KoString* message = nullptr,
                                           KoDbDxfReadReport* report = nullptr,
                                           KoDbDxfReadMode mode = KoDbDxfReadMode::kRecover);
// Writes `database` as DXF text.
KORA_API Kora::ErrorStatus kodbWriteDxf(const KoDbDatabase& database, std::string& out);
// Writes `database` to a DXF file through the platform's atomic writer
// (kora/atomicfile.h): a failure leaves the old file as it was, and
// `message` names the file and the reason. The file becomes the
// database's filename().
KORA_API Kora::ErrorStatus kodbWriteDxfFile(const KoDbDatabase& database, const KoString& path,
                                            KoString* message = nullptr);

// The DXF name of an entity's kind ("LINE", "DGNUNDERLAY", ...); entities
// kept as read answer the name they were read with, and "" stands for a
// kind no file can hold.
KORA_API std::string kodbDxfName(const KoDbEntity* entity);
