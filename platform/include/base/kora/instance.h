// What the platform knows of a loaded module or resource library. For the
// host's own layers (the module loader fills these in); modules see only
// the opaque KoInstanceHandle of kora/resources.h.
#pragma once

#include <string>
#include <unordered_map>

#include "kora/export.h"
#include "kora/resources.h"

struct KoInstance {
    std::string path;  // full path of the shared object, UTF-8
    void* library = nullptr;  // dlopen handle
    std::unordered_map<unsigned, const wchar_t*> strings;
};

namespace Kora {

// Reads the string table of a loaded shared object into `instance`;
// answers false when the object exports none.
KORA_API bool readStringTable(KoInstance& instance);

// The folder of the module the loader is attaching right now (empty
// outside an attach): the first place LoadResourceDll looks.
KORA_API std::string& loadingModuleFolder();

// The folder of the running executable.
KORA_API std::string executableFolder();

}  // namespace Kora
