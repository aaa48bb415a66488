#include "loader.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>

#include "kora/editor.h"

namespace fs = std::filesystem;

namespace Kora::Runtime {

namespace {

void report(bool printErrors, const KoString& message)
{
    if (printErrors) koedPrompt(message);
}

// Resolves what a user typed at APPLOAD: the path as given, else with
// ".krx" added, else the same names in the host's own folder.
std::string resolveModulePath(const std::string& typed)
{
    std::vector<std::string> candidates{typed, typed + ".krx"};
    if (typed.find('/') == std::string::npos) {
        candidates.push_back(executableFolder() + "/" + typed);
        candidates.push_back(executableFolder() + "/" + typed + ".krx");
    }
    for (const std::string& c : candidates) {
        std::error_code ec;
        if (fs::is_regular_file(c, ec)) return fs::canonical(c, ec).string();
    }
    return {};
}

}  // namespace

DynamicLinker& DynamicLinker::instance()
{
    return *static_cast<DynamicLinker*>(korxSysRegistry()->at(KORX_DYNAMIC_LINKER));
}

DynamicLinker::Module* DynamicLinker::find(const wchar_t* name) const
{
    if (!name) return nullptr;
    const std::string wanted = KoString(name).toUtf8();
    std::error_code ec;
    const std::string canonical = fs::weakly_canonical(wanted, ec).string();
    for (const auto& m : m_modules) {
        const fs::path p(m->instance.path);
        if (m->instance.path == canonical || p.filename() == wanted || p.stem() == wanted) return m.get();
    }
    return nullptr;
}

DynamicLinker::Module* DynamicLinker::byAppId(void* appId) const
{
    for (const auto& m : m_modules)
        if (&m->instance == appId) return m.get();
    return nullptr;
}

KoInstanceHandle DynamicLinker::findModule(const wchar_t* name) const
{
    Module* m = find(name);
    return m ? &m->instance : nullptr;
}

bool DynamicLinker::unlockApplication(void* appId)
{
    Module* m = byAppId(appId);
    if (m) m->locked = false;
    return m != nullptr;
}

bool DynamicLinker::lockApplication(void* appId)
{
    Module* m = byAppId(appId);
    if (m) m->locked = true;
    return m != nullptr;
}

bool DynamicLinker::isApplicationLocked(const wchar_t* path) const
{
    const Module* m = find(path);
    return m && m->locked;
}

bool DynamicLinker::registerAppMDIAware(void* appId)
{
    Module* m = byAppId(appId);
    if (m) m->mdiAware = true;
    return m != nullptr;
}

Kora::ErrorStatus DynamicLinker::loadModule(const wchar_t* path, bool printErrors)
{
    const KoString typed(path ? path : L"");
    const std::string resolved = resolveModulePath(typed.toUtf8());
    if (resolved.empty()) {
        report(printErrors, KoString::format(L"\nCannot find module \"%s\".", typed.c_str()));
        return Kora::eFileNotFound;
    }
    const KoString shown = KoString::fromUtf8(resolved);
    if (find(shown)) {
        report(printErrors, KoString::format(L"\n\"%s\" is already loaded.", shown.c_str()));
        return Kora::eAlreadyLoaded;
    }
    void* library = dlopen(resolved.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        report(printErrors, KoString::format(L"\nCannot load \"%s\": %hs", shown.c_str(), dlerror()));
        return Kora::eLoadFailed;
    }
    auto module = std::make_unique<Module>();
    module->instance.path = resolved;
    module->instance.library = library;
    readStringTable(module->instance);
    module->entryPoint = reinterpret_cast<KoRxEntryPointFn>(dlsym(library, "korxEntryPoint"));
    auto version = reinterpret_cast<KoRxApiVersionFn>(dlsym(library, "korxGetApiVersion"));
    auto attach = reinterpret_cast<KoRxLibraryRoutineFn>(dlsym(library, "korxLibraryAttach"));
    module->detach = reinterpret_cast<KoRxLibraryRoutineFn>(dlsym(library, "korxLibraryDetach"));
    if (!module->entryPoint || !version) {
        dlclose(library);
        report(printErrors, KoString::format(L"\n\"%s\" is not a KORA module.", shown.c_str()));
        return Kora::eLoadFailed;
    }

    // The attach routine may load the module's resource library: a bare
    // resource file name is looked for beside the module first.
    loadingModuleFolder() = fs::path(resolved).parent_path().string();
    const int attached = attach ? attach(&module->instance) : 1;
    loadingModuleFolder().clear();
    if (!attached) {
        dlclose(library);
        report(printErrors,
               KoString::format(L"\nCannot load \"%s\": the module could not start (is its resource library missing?).",
                                shown.c_str()));
        return Kora::eLoadFailed;
    }
    if ((version() >> 16) != (KORX_API_VERSION >> 16)) {
        if (module->detach) module->detach(&module->instance);
        dlclose(library);
        report(printErrors, KoString::format(L"\n\"%s\" was built for another host release (API version %u).",
                                             shown.c_str(), version()));
        return Kora::eLoadFailed;
    }
    Module& m = *m_modules.emplace_back(std::move(module));
    m.entryPoint(kInitAppMsg, &m.instance);
    return Kora::eOk;
}

void DynamicLinker::unload(Module& module)
{
    module.entryPoint(kUnloadAppMsg, &module.instance);
    if (module.detach) module.detach(&module.instance);
    dlclose(module.instance.library);
    std::erase_if(m_modules, [&](const auto& m) { return m.get() == &module; });
}

Kora::ErrorStatus DynamicLinker::unloadModule(const wchar_t* path, bool printErrors)
{
    Module* m = find(path);
    if (!m) {
        report(printErrors, KoString::format(L"\n\"%s\" is not loaded.", path ? path : L""));
        return Kora::eNotLoaded;
    }
    if (m->locked) {
        report(printErrors, KoString::format(L"\n\"%s\" cannot be unloaded.", KoString::fromUtf8(m->instance.path).c_str()));
        return Kora::eUnloadFailed;
    }
    unload(*m);
    return Kora::eOk;
}

std::vector<KoString> DynamicLinker::loadedModules() const
{
    std::vector<KoString> paths;
    for (const auto& m : m_modules) paths.push_back(KoString::fromUtf8(m->instance.path));
    return paths;
}

void DynamicLinker::unloadAll()
{
    while (!m_modules.empty()) unload(*m_modules.back());
}

}  // namespace Kora::Runtime

unsigned koraGetModuleFileName(const void* address, wchar_t* buffer, unsigned size)
{
    Dl_info info{};
    if (!buffer || size == 0 || !dladdr(address, &info) || !info.dli_fname) return 0;
    std::error_code ec;
    const KoString path = KoString::fromUtf8(fs::weakly_canonical(info.dli_fname, ec).string());
    if (static_cast<unsigned>(path.length()) >= size) return 0;
    std::copy_n(path.c_str(), path.length() + 1, buffer);
    return static_cast<unsigned>(path.length());
}
