#include "kora/status.h"

namespace Kora {

const wchar_t* errorStatusName(ErrorStatus status)
{
    switch (status) {
#define KORA_STATUS_NAME(name) case name: return L## #name;
    KORA_STATUS_NAME(eOk)
    KORA_STATUS_NAME(eNotImplementedYet)
    KORA_STATUS_NAME(eNotApplicable)
    KORA_STATUS_NAME(eInvalidInput)
    KORA_STATUS_NAME(eInvalidIndex)
    KORA_STATUS_NAME(eKeyNotFound)
    KORA_STATUS_NAME(eDuplicateKey)
    KORA_STATUS_NAME(eNullObjectId)
    KORA_STATUS_NAME(eNullObjectPointer)
    KORA_STATUS_NAME(eNullPtr)
    KORA_STATUS_NAME(eWasErased)
    KORA_STATUS_NAME(eWasNotErased)
    KORA_STATUS_NAME(eWasOpenForRead)
    KORA_STATUS_NAME(eWasOpenForWrite)
    KORA_STATUS_NAME(eWasOpenForNotify)
    KORA_STATUS_NAME(eNotOpenForWrite)
    KORA_STATUS_NAME(eNotOpenForRead)
    KORA_STATUS_NAME(eWasNotOpenForWrite)
    KORA_STATUS_NAME(eInvalidOpenState)
    KORA_STATUS_NAME(eNotThatKindOfClass)
    KORA_STATUS_NAME(eAlreadyInDb)
    KORA_STATUS_NAME(eNotInDatabase)
    KORA_STATUS_NAME(eWrongDatabase)
    KORA_STATUS_NAME(eNoDatabase)
    KORA_STATUS_NAME(eSelfReference)
    KORA_STATUS_NAME(eLockViolation)
    KORA_STATUS_NAME(eOutOfMemory)
    KORA_STATUS_NAME(eFileNotFound)
    KORA_STATUS_NAME(eFileAccessErr)
    KORA_STATUS_NAME(eFileSharingViolation)
    KORA_STATUS_NAME(eFileInternalErr)
    KORA_STATUS_NAME(eFileWriteError)
    KORA_STATUS_NAME(eBadDxfFile)
    KORA_STATUS_NAME(eBadDgnFile)
    KORA_STATUS_NAME(eUnsupportedFileFormat)
    KORA_STATUS_NAME(eInvalidDwgVersion)
    KORA_STATUS_NAME(eAmbiguousInput)
    KORA_STATUS_NAME(eBufferTooSmall)
    KORA_STATUS_NAME(eLoadFailed)
    KORA_STATUS_NAME(eUnloadFailed)
    KORA_STATUS_NAME(eNotLoaded)
    KORA_STATUS_NAME(eAlreadyLoaded)
    KORA_STATUS_NAME(eInvalidResourceHandle)
    KORA_STATUS_NAME(eUserBreak)
    KORA_STATUS_NAME(eSubSelectionSetEmpty)
    KORA_STATUS_NAME(eOutOfRange)
    KORA_STATUS_NAME(eNotApplicableToObject)
#undef KORA_STATUS_NAME
    }
    return L"eUnknownStatus";
}

}  // namespace Kora
