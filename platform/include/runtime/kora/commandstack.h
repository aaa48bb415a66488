// The host's command stack and dynamic linker, as modules see them through
// the system registry (korxSysRegistry()).
#pragma once

#include <vector>

#include "kora/rxobject.h"

// A resource source for a command: a loaded module or resource library,
// named by handle or by module name. An empty one means "the host's own".
class KORA_API KoRxResourceInstance {
public:
    KoRxResourceInstance() = default;
    KoRxResourceInstance(void* handle) : m_handle(handle) {}
    KoRxResourceInstance(const wchar_t* moduleName);
    void* handle() const { return m_handle; }
    bool isEmpty() const { return m_handle == nullptr; }

private:
    void* m_handle = nullptr;
};

using KoRxFunctionPtr = void (*)();
class KoEdUIContext;

// Command flag bits.
enum KoRxCommandFlags : int {
    KORX_CMD_MODAL = 0,        // an ordinary command: runs alone
    KORX_CMD_TRANSPARENT = 1,  // may run while another command waits for input
    KORX_CMD_USEPICKSET = 2,   // keeps the selection made before the command started
    KORX_CMD_REDRAW = 4,       // keeps that selection and redraws it when the command ends
};

// A registered command. The command stack makes one for every addCommand;
// modules derive their own command classes from it too.
class KORA_API KoEdCommand : public KoRxObject {
public:
    KORX_DECLARE_MEMBERS(KoEdCommand)
    virtual void commandUndef(bool undefine) = 0;
    virtual KoRxFunctionPtr functionAddr() const = 0;
    virtual void functionAddr(KoRxFunctionPtr function) = 0;
    virtual int commandFlags() const = 0;
    virtual int functionCode() const = 0;
    virtual KoEdUIContext* UIContext() const = 0;
    virtual void functionCode(int code) = 0;
    virtual bool commandUndefined() const = 0;
    virtual const wchar_t* globalName() const = 0;
    virtual const wchar_t* localName() const = 0;
    virtual void* commandApp() const = 0;
    virtual KoRxResourceInstance resourceInstance() const = 0;
};

class KORA_API KoEdCommandStack : public KoRxObject {
public:
    KORX_DECLARE_MEMBERS(KoEdCommandStack)
    virtual Kora::ErrorStatus addCommand(const wchar_t* groupName, const wchar_t* globalName, const wchar_t* localName,
                                         int commandFlags, KoRxFunctionPtr function, KoEdUIContext* uiContext = nullptr,
                                         int functionCode = -1, KoRxResourceInstance resourceInstance = {},
                                         KoEdCommand** returnedCommand = nullptr) = 0;
    virtual Kora::ErrorStatus removeCmd(const wchar_t* groupName, const wchar_t* globalName) = 0;
    virtual Kora::ErrorStatus removeGroup(const wchar_t* groupName) = 0;
    // Look-ups ignore case. lookupCmd takes what a user types: a leading
    // "_" asks for the global name only; otherwise local names are tried
    // before global ones.
    virtual KoEdCommand* lookupGlobalCmd(const wchar_t* name) const = 0;
    virtual KoEdCommand* lookupLocalCmd(const wchar_t* name) const = 0;
    virtual KoEdCommand* lookupCmd(const wchar_t* name) const = 0;
    // Groups in the order they were first used, and a group's commands in
    // registration order.
    virtual std::vector<KoString> groupNames() const = 0;
    virtual std::vector<KoEdCommand*> groupCommands(const wchar_t* groupName) const = 0;
};

// Loads and unloads modules; modules use it to declare how they may be
// handled. The application handle is the module's instance handle.
class KORA_API KoRxDynamicLinker : public KoRxObject {
public:
    KORX_DECLARE_MEMBERS(KoRxDynamicLinker)
    // Allows the module to be unloaded (APPUNLOAD) later.
    virtual bool unlockApplication(void* appId) = 0;
    virtual bool lockApplication(void* appId) = 0;
    virtual bool isApplicationLocked(const wchar_t* path) const = 0;
    // Declares the module safe to use with several open drawings.
    virtual bool registerAppMDIAware(void* appId) = 0;
    virtual Kora::ErrorStatus loadModule(const wchar_t* path, bool printErrors) = 0;
    virtual Kora::ErrorStatus unloadModule(const wchar_t* path, bool printErrors) = 0;
    // Full paths of the loaded modules, in load order.
    virtual std::vector<KoString> loadedModules() const = 0;
};
