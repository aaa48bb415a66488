// Module-wide state of the DGN commands module and the helpers every
// command uses to reach its resource library.
#pragma once

#include "kora/kostring.h"
#include "kora/resources.h"

namespace Kora::DgnCommands {

// Set once while the library is attached, read everywhere.
struct ModuleState {
    KoInstanceHandle moduleInstance = nullptr;    // this module
    KoInstanceHandle resourceInstance = nullptr;  // its resource library; never released
    KoInstanceHandle previousResourceHandle = nullptr;  // the resource source when the module started
    bool extensionModuleInitialised = false;
};
ModuleState& moduleState();

// The name of the resource library that belongs to a module file: the base
// name (no folder, no extension) followed by "Res" and ".dll". A path of
// four characters or fewer is answered unchanged.
KoString resourceLibraryName(const KoString& modulePath);

// The group all commands of the module are registered in.
inline constexpr const wchar_t* kCommandGroup = L"KRX_DGN";

// Registers the nine commands, in table order.
void registerCommands();

}  // namespace Kora::DgnCommands

// Switches the resource source to the module's resource library (or to
// the module itself when it has none) for the scope's lifetime.
class ResourceScope {
public:
    ResourceScope();
    ~ResourceScope();
    ResourceScope(const ResourceScope&) = delete;
    ResourceScope& operator=(const ResourceScope&) = delete;

private:
    KoInstanceHandle m_saved;
};

// The localised string `id`, or `fallback` when the resource library has
// none (and the fallback is not empty).
KoString loadLocalString(unsigned id, const wchar_t* fallback);
