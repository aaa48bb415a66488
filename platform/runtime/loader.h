// The module loader behind KoRxDynamicLinker.
#pragma once

#include <memory>
#include <vector>

#include "kora/instance.h"
#include "kora/commandstack.h"
#include "kora/rxmodule.h"

namespace Kora::Runtime {

class DynamicLinker final : public KoRxDynamicLinker {
public:
    // The registry's linker.
    static DynamicLinker& instance();

    bool unlockApplication(void* appId) override;
    bool lockApplication(void* appId) override;
    bool isApplicationLocked(const wchar_t* path) const override;
    bool registerAppMDIAware(void* appId) override;
    Kora::ErrorStatus loadModule(const wchar_t* path, bool printErrors) override;
    Kora::ErrorStatus unloadModule(const wchar_t* path, bool printErrors) override;
    std::vector<KoString> loadedModules() const override;

    // The instance of a loaded module named by path or by file name.
    KoInstanceHandle findModule(const wchar_t* name) const;
    // Unloads every module, newest first (host shutdown).
    void unloadAll();

private:
    struct Module {
        KoInstance instance;
        KoRxEntryPointFn entryPoint = nullptr;
        KoRxLibraryRoutineFn detach = nullptr;
        bool locked = true;
        bool mdiAware = false;
    };
    Module* find(const wchar_t* name) const;
    Module* byAppId(void* appId) const;
    void unload(Module& module);

    std::vector<std::unique_ptr<Module>> m_modules;
};

}  // namespace Kora::Runtime
