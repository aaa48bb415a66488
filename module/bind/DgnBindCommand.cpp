#include "DgnBindCommand.h"

#include <algorithm>
#include <map>
#include <vector>

#include "commandline.h"
#include "kora/db/underlay.h"
#include "kora/dbutil.h"
#include "kora/dgn/translate.h"
#include "kora/dgn/underlayservice.h"
#include "kora/docman.h"
#include "kora/editor.h"
#include "kora/selset.h"
#include "module.h"

KORX_DEFINE_MEMBERS(DgnBindCommand, KoEdCommand)

void DgnBindCommand::run()
{
    ResourceScope scope;
    if (m_commandLineMode) Kora::DgnCommands::bindByName();
    else Kora::DgnCommands::bindBySelection();
}

namespace Kora::DgnCommands {

namespace {

using DefinitionsByName = std::map<KoString, KoDbObjectId>;

// Each report and listed name on a line of its own.
void say(const KoString& text)
{
    koedPrompt(L"\n" + text);
}

DefinitionsByName definitionsByName(const KoDbDatabase* database)
{
    std::vector<KxUnderlayItemInfo> items;
    KoDbDgnUnderlayService::collectUnderlayItems(database, items);
    DefinitionsByName byName;
    for (const KxUnderlayItemInfo& item : items) byName.emplace(item.definitionName, item.definitionId);
    return byName;
}

void choose(std::vector<KoDbObjectId>& chosen, const KoDbObjectId& id)
{
    if (std::find(chosen.begin(), chosen.end(), id) == chosen.end()) chosen.push_back(id);
}

// The definitions of the DGN underlay references in a selection set.
void collect(const koads_name ss, std::vector<KoDbObjectId>& chosen)
{
    int32_t length = 0;
    koedSSLength(ss, &length);
    for (int32_t i = 0; i < length; ++i) {
        koads_name entity = {};
        KoDbObjectId id;
        if (koedSSName(ss, i, entity) != KORTNORM || kodbGetObjectId(id, entity) != Kora::eOk) continue;
        KoDbObjectPointer<KoDbDgnReference> reference(id, KoDb::kForRead);
        if (reference.openStatus() == Kora::eOk) choose(chosen, reference->definitionId());
    }
}

// The bind type; false when the user cancels.
bool askInsertMode(bool& insertMode)
{
    for (;;) {
        KoString reply;
        const int result = askKeyword(loadLocalString(721, L"Bind Insert _Bind Insert"),
                                      loadLocalString(720, L"Please set bind type[Bind(B)/Insert(I)]<Bind>:"), reply);
        if (result == KORTCAN || result == KORTERROR) return false;
        if (result == KORTNONE || (result == KORTNORM && reply.equalsNoCase(L"Bind"))) {
            insertMode = false;
            return true;
        }
        if (result == KORTNORM && reply.equalsNoCase(L"Insert")) {
            insertMode = true;
            return true;
        }
    }
}

void bindChosen(const DefinitionsByName& byName, const std::vector<KoDbObjectId>& chosen)
{
    bool insertMode = false;
    if (!askInsertMode(insertMode)) return;
    std::vector<KoString> failedNames;
    for (const KoDbObjectId& id : chosen) {
        const auto named = std::find_if(byName.begin(), byName.end(), [&](const auto& entry) { return entry.second == id; });
        if (named == byName.end()) continue;
        bool onLockedLayer = false;
        if (!doDgnBind(id, named->first, onLockedLayer, insertMode)) failedNames.push_back(named->first);
        if (onLockedLayer)
            koedPrompt(KoString::format(loadLocalString(907, L"\n%s is on lock layer,cannot be detached."),
                                        named->first.c_str()));
    }
    if (chosen.size() == 1) {
        say(failedNames.empty() ? loadLocalString(717, L"Bind Success!") : loadLocalString(722, L"Bind Failed!"));
    } else if (failedNames.size() == chosen.size()) {
        say(loadLocalString(724, L"All Bind Failed!"));
    } else if (!failedNames.empty()) {
        say(KoString::format(loadLocalString(725, L"There are %d dgnreferences bind success!\r\n"
                                                  L"The following dgnreference bind failed:"),
                             static_cast<int>(chosen.size() - failedNames.size())));
        for (const KoString& name : failedNames) say(name);
    } else {
        say(loadLocalString(723, L"All Bind Success!"));
    }
}

KoDbDatabase* workingDatabase()
{
    KoDbHostApplicationServices* services = kodbHostApplicationServices();
    return services ? services->workingDatabase() : nullptr;
}

}  // namespace

void bindBySelection()
{
    KoDbDatabase* database = workingDatabase();
    if (!database) return;
    const DefinitionsByName byName = definitionsByName(database);
    koresbuf* filter = koutBuildList(KORTDXF0, L"DGNUNDERLAY", 0);
    std::vector<KoDbObjectId> chosen;
    koads_name ss = {};
    if (koedSSGet(L"_I", nullptr, nullptr, filter, ss) == KORTNORM) {
        collect(ss, chosen);
        koedSSFree(ss);
    }
    if (chosen.empty()) {
        const KoString prompt = loadLocalString(718, L"Please select dgnreference objects to bind:");
        const wchar_t* const prompts[2] = {prompt.c_str(), L""};
        const int result = koedSSGet(L":$", prompts, nullptr, filter, ss);
        if (result == KORTNORM) {
            collect(ss, chosen);
            koedSSFree(ss);
        }
    }
    koutRelRb(filter);
    if (!chosen.empty()) bindChosen(byName, chosen);
}

void bindByName()
{
    KoDbDatabase* database = workingDatabase();
    if (!database) return;
    const DefinitionsByName byName = definitionsByName(database);
    std::vector<KoDbObjectId> chosen;
    for (;;) {
        KoString reply;
        if (askString(loadLocalString(715, L"Specify dgnreference name to bind <?>:"), reply) != KORTNORM) return;
        reply.trim();
        if (reply.isEmpty() || reply == L"?") {
            for (const auto& [name, id] : byName) say(name);
            continue;
        }
        std::vector<KoString> parts;
        if (!KxDbUtil::SplitString(reply, L',', parts)) {
            say(loadLocalString(716, L"Invalid Input!"));
            continue;
        }
        std::vector<KoString> invalidNames;
        for (const KoString& part : parts) {
            const auto found = byName.find(part);
            if (found == byName.end()) invalidNames.push_back(part);
            else choose(chosen, found->second);
        }
        if (!invalidNames.empty()) {
            say(loadLocalString(719, L"Invalid names:"));
            for (const KoString& name : invalidNames) say(name);
        }
        if (invalidNames.size() == parts.size()) continue;
        if (chosen.empty()) return;
        bindChosen(byName, chosen);
        return;
    }
}

}  // namespace Kora::DgnCommands
