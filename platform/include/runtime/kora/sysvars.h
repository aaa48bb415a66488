// The host's system variables (the module reads and writes them through
// koedGetVar / koedSetVar). Host-side registration and listing.
#pragma once

#include <vector>

#include "kora/kostring.h"
#include "kora/status.h"

struct KoSysVarInfo {
    KoString name;
    short type;  // KORTSHORT, KORTLONG, KORTREAL or KORTSTR
    KoString description;
};

// Registers a variable with its default. Variables of the same name are
// not registered twice. Short and long variables may carry a range.
KORA_API void koraRegisterSysVar(const KoSysVarInfo& info, const KoString& defaultValue, int minimum = 0, int maximum = -1);
// Removes a variable (a module that registered one removes it when it is
// unloaded); asking for it afterwards answers KORTERROR.
KORA_API void koraUnregisterSysVar(const wchar_t* name);
// All variables, by name.
KORA_API std::vector<KoSysVarInfo> koraSysVars();
// True when a variable of that name (any case) exists.
KORA_API bool koraSysVarExists(const wchar_t* name);
// The value as text, as SETVAR and GETVAR show it; empty when unknown.
KORA_API KoString koraSysVarText(const wchar_t* name);
// Sets a variable from text as a user typed it; answers KORTNORM or
// KORTERROR (unknown name, not a number, out of range).
KORA_API int koraSetSysVarText(const wchar_t* name, const KoString& text);
// Puts every variable back to its default.
KORA_API void koraResetSysVars();
