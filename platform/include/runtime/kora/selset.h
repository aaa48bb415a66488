// Selection sets as modules use them: the pick-first selection, prompted
// selections, filters, and entity names that turn into object ids.
#pragma once

#include <cstdint>

#include "kora/db/object.h"
#include "kora/editor.h"

// An entity name or a selection-set name.
using koads_name = int64_t[2];

// Builds a koresbuf chain from (type, value) pairs ended by 0: KORTDXF0
// and the DXF group 8 (layer) take a wide string, KORTSHORT an int,
// KORTLONG an int32_t, KORTREAL a double. Free it with koutRelRb.
KORA_API koresbuf* koutBuildList(int type, ...);

// Selects entities of the working database's current space into a new
// selection set. Modes:
//   nullptr or ""  asks "Select objects: " until Enter;
//   ":$"           the same with the prompt given as pt1, a
//                  `const wchar_t* const[2]` (selection prompt, removal prompt);
//   "_I"           the implied (pick-first) selection, without asking;
//   "_X"           every entity of the drawing that passes the filter;
//   "_L"           the last entity added.
// At the prompt a reply is an entity handle, "ALL", "L" (last) or a list
// of those separated by spaces; Enter ends the selection. The filter (may
// be null) keeps entities whose DXF type matches a KORTDXF0 entry (a
// comma-separated list, "*" as wildcard) and whose layer matches a group 8
// entry. Answers KORTNORM with a set that is not empty, KORTERROR when
// nothing was selected, KORTCAN when cancelled.
KORA_API int koedSSGet(const wchar_t* mode, const void* pt1, const void* pt2, const koresbuf* filter, koads_name ss);
KORA_API int koedSSLength(const koads_name ss, int32_t* length);
KORA_API int koedSSName(const koads_name ss, int32_t index, koads_name entity);
KORA_API int koedSSFree(const koads_name ss);
// Makes a set the current document's pick-first selection (null clears it).
KORA_API int koedSSSetFirst(const koads_name pickfirst, const koads_name unused);

KORA_API Kora::ErrorStatus kodbGetObjectId(KoDbObjectId& id, const koads_name entity);
KORA_API Kora::ErrorStatus kodbGetAdsName(koads_name entity, KoDbObjectId id);
