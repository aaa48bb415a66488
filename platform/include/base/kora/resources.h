// Resource libraries: the localised strings (and, later, dialog texts) of a
// module live in a separate shared library that the module loads at attach
// time. A resource library exports one C function, koraResourceStrings,
// that answers its string table.
//
// File names: modules ask for a resource library by the name they would use
// on any host, "<Base>Res.dll". On this platform the ".dll" suffix maps to
// ".so": LoadResourceDll(L"DgnCommandsRes.dll") loads "DgnCommandsRes.so".
#pragma once

#include <cstddef>

#include "kora/export.h"
#include "kora/kostring.h"

// An opaque handle of a loaded module or resource library ("instance").
struct KoInstance;
using KoInstanceHandle = KoInstance*;

// One numbered string of a resource library.
struct KoResourceString {
    unsigned id;
    const wchar_t* text;
};

// The function every resource library exports.
using KoResourceStringsFn = const KoResourceString* (*)(size_t* count);
#define KORA_RESOURCE_STRINGS_SYMBOL "koraResourceStrings"

// Finds and loads a resource library by file name. A bare name is searched
// in the folder of the module being loaded, then in the folders of
// KORA_RESOURCE_PATH (':'-separated); never elsewhere, so a module cannot
// pick up another installation's library of the same name. A name with a
// "/" is loaded from that path only. Answers null when nothing was found or
// the library has no string table. Handles stay valid for the process.
KORA_API KoInstanceHandle LoadResourceDll(const wchar_t* fileName);

// The resource source strings are loaded from while a module's code runs.
// Commands switch it (ResourceScope in a module); the host sets it to the
// command's own resource instance before calling a registered command.
KORA_API KoInstanceHandle koraCurrentResourceHandle();
// Installs a new source and answers the one it replaced.
KORA_API KoInstanceHandle koraSetResourceHandle(KoInstanceHandle handle);

// The text of string `id` of an instance, or null when the instance has
// no such string (or the handle is null).
KORA_API const wchar_t* koraLoadResourceString(KoInstanceHandle handle, unsigned id);

// Loads string `id` of the current resource source into `text`. Leaves
// `text` empty and answers false when the source has no such string.
KORA_API bool koraLoadString(unsigned id, KoString& text);

// The product name shown as the caption of the host's message boxes.
KORA_API const wchar_t* GetOemProductName();
