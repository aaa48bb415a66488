// The base of the module's four command classes. The host's command
// interface is satisfied with inert bodies: the module never hands these
// objects to the host, it builds one on the stack per invocation, sets its
// mode and runs it.
#pragma once

#include "kora/commandstack.h"

namespace Kora::DgnCommands {

class CommandObject : public KoEdCommand {
public:
    void commandUndef(bool) override {}
    KoRxFunctionPtr functionAddr() const override { return nullptr; }
    void functionAddr(KoRxFunctionPtr) override {}
    int commandFlags() const override { return 0; }
    int functionCode() const override { return 0; }
    KoEdUIContext* UIContext() const override { return nullptr; }
    void functionCode(int) override {}
    bool commandUndefined() const override { return false; }
    const wchar_t* globalName() const override { return L""; }
    const wchar_t* localName() const override { return L""; }
    void* commandApp() const override { return nullptr; }
    KoRxResourceInstance resourceInstance() const override { return KoRxResourceInstance(static_cast<void*>(nullptr)); }

    // False for the dialog (or selection) variant, true for the "-" variant.
    bool commandLineMode() const { return m_commandLineMode; }

protected:
    bool m_commandLineMode = false;
};

}  // namespace Kora::DgnCommands
