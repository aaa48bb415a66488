#include "commandstack_impl.h"

#include <algorithm>

#include "loader.h"

KORX_DEFINE_MEMBERS(KoEdCommand, KoRxObject)
KORX_DEFINE_MEMBERS(KoEdCommandStack, KoRxObject)
KORX_DEFINE_MEMBERS(KoRxDynamicLinker, KoRxObject)

namespace {

// The system registry holds the runtime's linker and command stack from
// the moment the runtime is loaded, before any module or host code asks.
const bool g_registered = [] {
    korxSysRegistry()->atPut(KORX_DYNAMIC_LINKER, new Kora::Runtime::DynamicLinker);
    korxSysRegistry()->atPut(KORX_COMMAND_DOCK, new Kora::Runtime::CommandStack);
    return true;
}();

}  // namespace

KoRxResourceInstance::KoRxResourceInstance(const wchar_t* moduleName)
    : m_handle(Kora::Runtime::DynamicLinker::instance().findModule(moduleName))
{
}

namespace Kora::Runtime {

Kora::ErrorStatus CommandStack::addCommand(const wchar_t* groupName, const wchar_t* globalName, const wchar_t* localName,
                                           int commandFlags, KoRxFunctionPtr function, KoEdUIContext* uiContext,
                                           int functionCode, KoRxResourceInstance resourceInstance,
                                           KoEdCommand** returnedCommand)
{
    if (!groupName || !*groupName || !globalName || !*globalName || !function) return Kora::eInvalidInput;
    const KoString local = localName && *localName ? KoString(localName) : KoString(globalName);
    // A global name is unique across all groups: the host could not tell
    // two such commands apart when a user types "_NAME".
    if (lookupGlobalCmd(globalName)) return Kora::eDuplicateKey;
    m_commands.push_back(std::make_unique<RegisteredCommand>(groupName, globalName, local, commandFlags, function,
                                                             uiContext, functionCode, resourceInstance));
    if (returnedCommand) *returnedCommand = m_commands.back().get();
    return Kora::eOk;
}

Kora::ErrorStatus CommandStack::removeCmd(const wchar_t* groupName, const wchar_t* globalName)
{
    const auto it = std::find_if(m_commands.begin(), m_commands.end(), [&](const auto& c) {
        return c->group().equalsNoCase(groupName) && KoString(c->globalName()).equalsNoCase(globalName);
    });
    if (it == m_commands.end()) return Kora::eKeyNotFound;
    m_commands.erase(it);
    return Kora::eOk;
}

Kora::ErrorStatus CommandStack::removeGroup(const wchar_t* groupName)
{
    const auto removed = std::erase_if(m_commands, [&](const auto& c) { return c->group().equalsNoCase(groupName); });
    return removed ? Kora::eOk : Kora::eKeyNotFound;
}

KoEdCommand* CommandStack::lookupGlobalCmd(const wchar_t* name) const
{
    for (const auto& c : m_commands)
        if (KoString(c->globalName()).equalsNoCase(name)) return c.get();
    return nullptr;
}

KoEdCommand* CommandStack::lookupLocalCmd(const wchar_t* name) const
{
    for (const auto& c : m_commands)
        if (KoString(c->localName()).equalsNoCase(name)) return c.get();
    return nullptr;
}

KoEdCommand* CommandStack::lookupCmd(const wchar_t* name) const
{
    if (!name) return nullptr;
    if (name[0] == L'_') return lookupGlobalCmd(name + 1);
    if (KoEdCommand* c = lookupLocalCmd(name)) return c;
    return lookupGlobalCmd(name);
}

std::vector<KoString> CommandStack::groupNames() const
{
    std::vector<KoString> groups;
    for (const auto& c : m_commands)
        if (std::none_of(groups.begin(), groups.end(), [&](const KoString& g) { return g.equalsNoCase(c->group()); }))
            groups.push_back(c->group());
    return groups;
}

std::vector<KoEdCommand*> CommandStack::groupCommands(const wchar_t* groupName) const
{
    std::vector<KoEdCommand*> commands;
    for (const auto& c : m_commands)
        if (c->group().equalsNoCase(groupName)) commands.push_back(c.get());
    return commands;
}

}  // namespace Kora::Runtime
