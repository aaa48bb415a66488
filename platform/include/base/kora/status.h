// Status values that cross every boundary between the host and a module.
// Nothing here throws: every call that can fail says so through one of these.
#pragma once

#include "kora/export.h"

namespace Kora {

// Database and platform call status. eOk is the only success value.
enum ErrorStatus : int {
    eOk = 0,
    eNotImplementedYet,
    eNotApplicable,
    eInvalidInput,
    eInvalidIndex,
    eKeyNotFound,
    eDuplicateKey,
    eNullObjectId,
    eNullObjectPointer,
    eNullPtr,
    eWasErased,
    eWasNotErased,
    eWasOpenForRead,
    eWasOpenForWrite,
    eWasOpenForNotify,
    eNotOpenForWrite,
    eNotOpenForRead,
    eWasNotOpenForWrite,
    eInvalidOpenState,
    eNotThatKindOfClass,
    eAlreadyInDb,
    eNotInDatabase,
    eWrongDatabase,
    eNoDatabase,
    eSelfReference,
    eLockViolation,
    eOutOfMemory,
    eFileNotFound,
    eFileAccessErr,
    eFileSharingViolation,
    eFileInternalErr,
    eFileWriteError,
    eBadDxfFile,
    eBadDgnFile,
    eUnsupportedFileFormat,
    eInvalidDwgVersion,
    eAmbiguousInput,
    eBufferTooSmall,
    eLoadFailed,
    eUnloadFailed,
    eNotLoaded,
    eAlreadyLoaded,
    eInvalidResourceHandle,
    eUserBreak,
    eSubSelectionSetEmpty,
    eOutOfRange,
    eNotApplicableToObject,
};

// A short English name of a status ("eOk", "eWasErased", ...), for messages
// and test output.
KORA_API const wchar_t* errorStatusName(ErrorStatus status);

}  // namespace Kora

// Result codes of prompts and queries (koedGetString, koedGetKword,
// koedGetVar, ...).
enum KoResultCode : int {
    KORTNORM = 5100,            // normal: a value was given
    KORTNONE = 5000,            // no input: the user pressed Enter
    KORTERROR = -5001,          // error
    KORTCAN = -5002,            // cancelled
    KORTREJ = -5003,            // request rejected (bad arguments)
    KORTKWORD = -5005,          // a keyword was entered where a value was asked
    KORTINPUTTRUNCATED = -5008, // the answer did not fit the caller's buffer
};

// Value type codes of a koresbuf.
enum KoValueType : short {
    KORTREAL = 5001,
    KORTPOINT = 5002,
    KORTSHORT = 5003,
    KORTANG = 5004,
    KORTSTR = 5005,
    KORTENAME = 5006,
    KORTPICKS = 5007,
    KORTORINT = 5008,
    KORT3DPOINT = 5009,
    KORTLONG = 5010,
    KORTDXF0 = 5020,  // a selection filter's entity type (DXF group 0)
};
