#include "commandline.h"

#include <algorithm>

#include "kora/config.h"
#include "kora/editor.h"
#include "module.h"

namespace Kora::DgnCommands {

namespace {

constexpr int kConfigBranch = 4;

KoString initialDirectoryKey(const wchar_t* dialog)
{
    return KoString(L"UserInterfaceSettings\\") + dialog + L"\\InitialDirectory";
}

// The setup of `kind` (or the standard one) that `name` names, in any case.
const DgnMappingSetup* acceptedSetup(const DgnMappingSetupStore& store, int kind, const KoString& name)
{
    const DgnMappingSetup* setup = store.find(name);
    if (!setup) return nullptr;
    return setup->isImport == kind || isStandardSetupName(setup->name) ? setup : nullptr;
}

}  // namespace

int askString(const KoString& prompt, KoString& reply)
{
    wchar_t buffer[kReplyChars] = {};
    const int result = koedGetString(1, prompt, buffer, kReplyChars);
    reply = buffer;
    return result;
}

int askKeyword(const KoString& keywords, const KoString& prompt, KoString& reply)
{
    koedInitGet(0, keywords);
    wchar_t buffer[kReplyChars] = {};
    const int result = koedGetKword(prompt, buffer, kReplyChars);
    reply = buffer;
    return result;
}

void printLine(const KoString& message) { koutPrintf(L"%s\n", message.c_str()); }

void reportFileDialogNeedsDisplay() { printLine(L"\nThe file dialog needs a display; type the file's path instead."); }

void printOutcome(int result, const DgnTranslationReport& report)
{
    if (report.cancelled) printLine(loadLocalString(164, L"\nTranslation cancelled."));
    else if (result == KORTNORM) printLine(loadLocalString(120, L"\nTranslation successful."));
    else printLine(loadLocalString(121, L"\nTranslation failed."));
}

int shortVariable(const wchar_t* name, int fallback)
{
    koresbuf value;
    return koedGetVar(name, &value) == KORTNORM ? value.resval.rint : fallback;
}

void setShortVariable(const wchar_t* name, int value)
{
    koresbuf rb;
    rb.restype = KORTSHORT;
    rb.resval.rint = static_cast<short>(value);
    koedSetVar(name, &rb);
}

KoString folderOf(const KoString& path)
{
    const int slash = std::max(path.reverseFind(L'/'), path.reverseFind(L'\\'));
    return slash < 0 ? KoString() : path.left(slash + 1);
}

bool askUnits(int& subUnits)
{
    const KoString shown = subUnits == 0 ? loadLocalString(414, L"Master") : loadLocalString(415, L"Sub");
    KoString reply;
    const int result = askKeyword(loadLocalString(412, L"Master Sub _Master Sub"),
                                  KoString::format(loadLocalString(413, L"Specify conversion units [Master/Sub] <%s>: "),
                                                   shown.c_str()),
                                  reply);
    if (result == KORTNONE) return true;
    if (result != KORTNORM) return false;
    subUnits = reply.equalsNoCase(L"Sub") ? 1 : 0;
    return true;
}

bool readInitialDirectory(const wchar_t* dialog, KoString& folder)
{
    KoraVariant value;
    if (koraConfig()->getValue(kConfigBranch, initialDirectoryKey(dialog), value) != eOk) return false;
    folder = value.stringValue();
    return true;
}

void storeInitialDirectory(const wchar_t* dialog, const KoString& folder)
{
    koraConfig()->setValue(kConfigBranch, initialDirectoryKey(dialog), KoraVariant(folder));
}

bool askMappingSetup(const DgnMappingSetupStore& store, int kind, const KoString& heading, KoString defaultName,
                     bool listedBecomesDefault, KoString& chosen)
{
    for (;;) {
        const KoString prompt = KoString::format(loadLocalString(416, L"Specify mapping setup or [?] <%s>:"), defaultName.c_str());
        KoString reply;
        if (askString(prompt, reply) != KORTNORM) return false;
        if (reply.isEmpty()) reply = defaultName;
        if (reply != L"?") {
            if (const DgnMappingSetup* setup = acceptedSetup(store, kind, reply)) {
                chosen = setup->name;
                return true;
            }
            koedPrompt(KoString::format(loadLocalString(419, L"%s not found"), reply.c_str()) + L"\n");
            continue;
        }
        KoString pattern;
        const int listed = askString(loadLocalString(417, L"Enter mapping setup(s) to list <*>:"), pattern);
        if (listed == KORTCAN) continue;
        if (listed != KORTNORM) return false;
        if (pattern.isEmpty() || pattern == L"*") {
            koedTextScr();
            if (!heading.isEmpty()) printLine(heading);
            for (const auto& [key, setup] : store) {
                if (setup.isImport == kind) printLine(setup.name);
            }
        } else if (const DgnMappingSetup* setup = acceptedSetup(store, kind, pattern)) {
            printLine(setup->name);
            if (listedBecomesDefault) defaultName = setup->name;
        } else {
            koedPrompt(KoString::format(loadLocalString(419, L"%s not found"), pattern.c_str()) + L"\n");
        }
    }
}

}  // namespace Kora::DgnCommands
