#include "kora/resources.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "kora/instance.h"
#include "kora/kostring.h"

namespace fs = std::filesystem;

namespace {

KoInstanceHandle g_currentResource = nullptr;

// Resource libraries are loaded once and kept for the life of the process,
// so the handles given out never dangle.
std::map<std::string, std::unique_ptr<KoInstance>>& loadedResources()
{
    static std::map<std::string, std::unique_ptr<KoInstance>> libraries;
    return libraries;
}

std::string toPlatformName(const std::string& name)
{
    const std::string dll = ".dll";
    if (name.size() > dll.size()) {
        std::string tail = name.substr(name.size() - dll.size());
        for (char& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (tail == dll) return name.substr(0, name.size() - dll.size()) + ".so";
    }
    return name;
}

std::vector<std::string> searchFolders()
{
    std::vector<std::string> folders;
    if (!Kora::loadingModuleFolder().empty()) folders.push_back(Kora::loadingModuleFolder());
    if (const char* extra = std::getenv("KORA_RESOURCE_PATH")) {
        std::string list(extra);
        size_t start = 0;
        while (start <= list.size()) {
            const size_t end = std::min(list.find(':', start), list.size());
            if (end > start) folders.push_back(list.substr(start, end - start));
            start = end + 1;
        }
    }
    return folders;
}

}  // namespace

namespace Kora {

bool readStringTable(KoInstance& instance)
{
    auto fn = reinterpret_cast<KoResourceStringsFn>(dlsym(instance.library, KORA_RESOURCE_STRINGS_SYMBOL));
    if (!fn) return false;
    size_t count = 0;
    const KoResourceString* table = fn(&count);
    for (size_t i = 0; table && i < count; ++i) instance.strings.emplace(table[i].id, table[i].text);
    return true;
}

std::string& loadingModuleFolder()
{
    static std::string folder;
    return folder;
}

std::string executableFolder()
{
    std::error_code ec;
    const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    return ec ? std::string(".") : exe.parent_path().string();
}

}  // namespace Kora

KoInstanceHandle LoadResourceDll(const wchar_t* fileName)
{
    if (!fileName || !*fileName) return nullptr;
    const std::string name = toPlatformName(KoString(fileName).toUtf8());
    std::vector<std::string> candidates;
    if (name.find('/') != std::string::npos) candidates.push_back(name);
    else
        for (const std::string& folder : searchFolders()) candidates.push_back(folder + "/" + name);

    for (const std::string& candidate : candidates) {
        std::error_code ec;
        if (!fs::is_regular_file(candidate, ec)) continue;
        const std::string key = fs::weakly_canonical(candidate, ec).string();
        auto& loaded = loadedResources();
        if (auto it = loaded.find(key); it != loaded.end()) return it->second.get();
        void* library = dlopen(key.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!library) continue;
        auto instance = std::make_unique<KoInstance>();
        instance->path = key;
        instance->library = library;
        if (!Kora::readStringTable(*instance)) {
            dlclose(library);
            continue;
        }
        return loaded.emplace(key, std::move(instance)).first->second.get();
    }
    return nullptr;
}

KoInstanceHandle koraCurrentResourceHandle() { return g_currentResource; }

KoInstanceHandle koraSetResourceHandle(KoInstanceHandle handle)
{
    KoInstanceHandle previous = g_currentResource;
    g_currentResource = handle;
    return previous;
}

const wchar_t* koraLoadResourceString(KoInstanceHandle handle, unsigned id)
{
    if (!handle) return nullptr;
    const auto it = handle->strings.find(id);
    return it == handle->strings.end() ? nullptr : it->second;
}

const wchar_t* GetOemProductName() { return L"KORA"; }

bool koraLoadString(unsigned id, KoString& text)
{
    const wchar_t* found = koraLoadResourceString(koraCurrentResourceHandle(), id);
    text = KoString(found ? found : L"");
    return found != nullptr && *found != 0;
}
