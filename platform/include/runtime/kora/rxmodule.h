// What a loadable module (.krx) exports, and the messages the host sends it.
//
// A module is a shared object exporting, with C linkage:
//   int      korxEntryPoint(int message, void* appId);   // required
//   unsigned korxGetApiVersion();                        // required
//   int      korxLibraryAttach(KoInstanceHandle self);   // optional: 1 to go on, 0 to refuse the load
//   int      korxLibraryDetach(KoInstanceHandle self);   // optional
// The loader calls korxLibraryAttach right after mapping the library (the
// counterpart of a process-attach routine), then checks the API version,
// then sends kInitAppMsg. Unloading sends kUnloadAppMsg, then calls
// korxLibraryDetach, then unmaps the library.
#pragma once

#include "kora/export.h"
#include "kora/resources.h"

enum KoRxAppMsgCode : int {
    kInitAppMsg = 1,
    kUnloadAppMsg = 2,
};

// The host API version modules are built for. The high 16 bits name the
// release; the host refuses a module of another release.
constexpr unsigned KORX_API_VERSION = 132448366u;  // 0x07E5006E

using KoRxEntryPointFn = int (*)(int message, void* appId);
using KoRxApiVersionFn = unsigned (*)();
using KoRxLibraryRoutineFn = int (*)(KoInstanceHandle self);

// The full path of the shared object that contains `address` (any
// function or object of a module), as UTF-8-converted wide text. Answers
// the number of characters written, 0 when unknown or the buffer is too
// small.
KORA_API unsigned koraGetModuleFileName(const void* address, wchar_t* buffer, unsigned size);
