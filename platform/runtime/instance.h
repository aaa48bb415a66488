// What libkora knows of a loaded module or resource library.
#pragma once

#include <string>
#include <unordered_map>

#include "kora/resources.h"

struct KoInstance {
    std::string path;  // full path of the shared object, UTF-8
    void* library = nullptr;  // dlopen handle
    std::unordered_map<unsigned, const wchar_t*> strings;
};

namespace kora::detail {

// Reads the string table of a loaded shared object into `instance`;
// answers false when the object exports none.
bool readStringTable(KoInstance& instance);

// The folder of the module the loader is attaching right now (empty
// outside an attach): the first place LoadResourceDll looks.
std::string& loadingModuleFolder();

// The folder of the running executable.
std::string executableFolder();

}  // namespace kora::detail
