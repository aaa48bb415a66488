// The host's command stack.
#pragma once

#include <memory>
#include <vector>

#include "kora/commandstack.h"

namespace Kora::Runtime {

// The record the stack keeps for each registered command.
class RegisteredCommand final : public KoEdCommand {
public:
    RegisteredCommand(KoString group, KoString globalName, KoString localName, int flags, KoRxFunctionPtr function,
                      KoEdUIContext* context, int functionCode, KoRxResourceInstance resource)
        : m_group(std::move(group)), m_global(std::move(globalName)), m_local(std::move(localName)), m_flags(flags),
          m_function(function), m_context(context), m_functionCode(functionCode), m_resource(resource)
    {
    }
    const KoString& group() const { return m_group; }

    void commandUndef(bool undefine) override { m_undefined = undefine; }
    KoRxFunctionPtr functionAddr() const override { return m_function; }
    void functionAddr(KoRxFunctionPtr function) override { m_function = function; }
    int commandFlags() const override { return m_flags; }
    int functionCode() const override { return m_functionCode; }
    KoEdUIContext* UIContext() const override { return m_context; }
    void functionCode(int code) override { m_functionCode = code; }
    bool commandUndefined() const override { return m_undefined; }
    const wchar_t* globalName() const override { return m_global.c_str(); }
    const wchar_t* localName() const override { return m_local.c_str(); }
    void* commandApp() const override { return m_resource.handle(); }
    KoRxResourceInstance resourceInstance() const override { return m_resource; }

private:
    KoString m_group, m_global, m_local;
    int m_flags;
    KoRxFunctionPtr m_function;
    KoEdUIContext* m_context;
    int m_functionCode;
    KoRxResourceInstance m_resource;
    bool m_undefined = false;
};

class CommandStack final : public KoEdCommandStack {
public:
    Kora::ErrorStatus addCommand(const wchar_t* groupName, const wchar_t* globalName, const wchar_t* localName,
                                 int commandFlags, KoRxFunctionPtr function, KoEdUIContext* uiContext, int functionCode,
                                 KoRxResourceInstance resourceInstance, KoEdCommand** returnedCommand) override;
    Kora::ErrorStatus removeCmd(const wchar_t* groupName, const wchar_t* globalName) override;
    Kora::ErrorStatus removeGroup(const wchar_t* groupName) override;
    KoEdCommand* lookupGlobalCmd(const wchar_t* name) const override;
    KoEdCommand* lookupLocalCmd(const wchar_t* name) const override;
    KoEdCommand* lookupCmd(const wchar_t* name) const override;
    std::vector<KoString> groupNames() const override;
    std::vector<KoEdCommand*> groupCommands(const wchar_t* groupName) const override;

private:
    std::vector<std::unique_ptr<RegisteredCommand>> m_commands;  // registration order
};

}  // namespace Kora::Runtime
