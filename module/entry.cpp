// The library's entry points: attach and detach, the host's application
// messages, the API version, and the command table.
#include "attach/DgnAttachCommand.h"
#include "bind/DgnBindCommand.h"
#include "export/DgnExportCommand.h"
#include "import/DgnImportCommand.h"
#include "kora/commandstack.h"
#include "kora/rxmodule.h"
#include "module.h"
#include "ui/mappingsetupsdialog.h"

namespace {

void dgnExport()
{
    DgnExportCommand command;
    command.setCommandLineMode(false);
    command.run();
}

void dgnExportCommandLine()
{
    DgnExportCommand command;
    command.setCommandLineMode(true);
    command.run();
}

void dgnMapping()
{
    ResourceScope scope;
    Kora::DgnCommands::runMappingSetupsDialog();
}

void dgnImport()
{
    DgnImportCommand command;
    command.setCommandLineMode(false);
    command.run();
}

void dgnImportCommandLine()
{
    DgnImportCommand command;
    command.setCommandLineMode(true);
    command.run();
}

void dgnBind()
{
    DgnBindCommand command;
    command.run();
}

void dgnBindByName()
{
    DgnBindCommand command;
    command.setCommandLineMode();
    command.run();
}

void dgnAttach()
{
    DgnAttachCommand command;
    command.setCommandLineMode(false);
    command.run();
}

void dgnAttachCommandLine()
{
    DgnAttachCommand command;
    command.setCommandLineMode(true);
    command.run();
}

struct CommandRow {
    const wchar_t* globalName;
    unsigned localNameId;
    const wchar_t* fallbackLocalName;
    int flags;
    KoRxFunctionPtr function;
};

// Registration order is this table's order. -DGNBIND falls back to the
// local name "DGNBIND" (without the dash) when its string is missing.
const CommandRow kCommands[] = {
    {L"DGNEXPORT", 110, L"DGNEXPORT", KORX_CMD_MODAL, dgnExport},
    {L"-DGNEXPORT", 112, L"-DGNEXPORT", KORX_CMD_MODAL, dgnExportCommandLine},
    {L"DGNMAPPING", 111, L"DGNMAPPING", KORX_CMD_MODAL, dgnMapping},
    {L"DGNIMPORT", 113, L"DGNIMPORT", KORX_CMD_REDRAW, dgnImport},
    {L"-DGNIMPORT", 109, L"-DGNIMPORT", KORX_CMD_MODAL, dgnImportCommandLine},
    {L"DGNBIND", 905, L"DGNBIND", KORX_CMD_USEPICKSET, dgnBind},
    {L"-DGNBIND", 906, L"DGNBIND", KORX_CMD_MODAL, dgnBindByName},
    {L"DGNATTACH", 903, L"DGNATTACH", KORX_CMD_MODAL, dgnAttach},
    {L"-DGNATTACH", 904, L"-DGNATTACH", KORX_CMD_MODAL, dgnAttachCommandLine},
};

template <typename T>
T* registryObject(const wchar_t* key)
{
    return T::cast(korxSysRegistry()->at(key));
}

// Restores the resource source when registration ends, however it ends.
struct ResourceSwitch {
    explicit ResourceSwitch(KoInstanceHandle handle) : saved(koraSetResourceHandle(handle)) {}
    ~ResourceSwitch() { koraSetResourceHandle(saved); }
    KoInstanceHandle saved;
};

void initApplication(void* appId)
{
    registryObject<KoRxDynamicLinker>(KORX_DYNAMIC_LINKER)->unlockApplication(appId);
    registryObject<KoRxDynamicLinker>(KORX_DYNAMIC_LINKER)->registerAppMDIAware(appId);
    ResourceSwitch toModule(Kora::DgnCommands::moduleState().moduleInstance);
    Kora::DgnCommands::registerCommands();
}

void unloadApplication()
{
    registryObject<KoEdCommandStack>(KORX_COMMAND_DOCK)->removeGroup(Kora::DgnCommands::kCommandGroup);
}

}  // namespace

namespace Kora::DgnCommands {

KoString resourceLibraryName(const KoString& modulePath)
{
    if (modulePath.length() <= 4) return modulePath;
    const int slash = modulePath.reverseFind(L'/');
    const int dot = modulePath.reverseFind(L'.');
    return modulePath.mid(slash + 1, dot - slash - 1) + L"Res" + L".dll";
}

void registerCommands()
{
    for (const CommandRow& row : kCommands) {
        KoEdCommandStack* stack = registryObject<KoEdCommandStack>(KORX_COMMAND_DOCK);
        const KoString localName = loadLocalString(row.localNameId, row.fallbackLocalName);
        stack->addCommand(kCommandGroup, row.globalName, localName, row.flags, row.function, nullptr, -1,
                          KoRxResourceInstance(moduleState().moduleInstance));
    }
}

}  // namespace Kora::DgnCommands

KORX_EXPORT int korxLibraryAttach(KoInstanceHandle self)
{
    Kora::DgnCommands::ModuleState& state = Kora::DgnCommands::moduleState();
    if (!state.resourceInstance) {
        wchar_t path[1024] = {};
        if (koraGetModuleFileName(reinterpret_cast<const void*>(&korxLibraryAttach), path, 1024) < 1) return 0;
        state.resourceInstance = LoadResourceDll(Kora::DgnCommands::resourceLibraryName(path));
        if (!state.resourceInstance) return 0;
    }
    if (!state.extensionModuleInitialised) {
        state.extensionModuleInitialised = true;
        state.previousResourceHandle = koraCurrentResourceHandle();
        state.moduleInstance = self;
    }
    return 1;
}

KORX_EXPORT int korxLibraryDetach(KoInstanceHandle)
{
    Kora::DgnCommands::moduleState().extensionModuleInitialised = false;
    return 1;
}

KORX_EXPORT int korxEntryPoint(int message, void* appId)
{
    switch (message) {
    case kInitAppMsg:
        initApplication(appId);
        break;
    case kUnloadAppMsg:
        unloadApplication();
        break;
    default:
        break;
    }
    return 0;
}

KORX_EXPORT unsigned korxGetApiVersion() { return KORX_API_VERSION; }
