#include <fstream>
#include <sstream>

#include "commandstack_impl.h"
#include "commandstate.h"
#include "drawingcommands.h"
#include "kora/docman.h"
#include "kora/editor.h"
#include "kora/host.h"
#include "kora/resources.h"
#include "kora/sysvars.h"
#include "loader.h"
#include "scriptbackend.h"

namespace {

bool g_quit = false;
constexpr size_t kReplySize = 1024;

KoEdCommandStack* commandStack()
{
    return KoEdCommandStack::cast(korxSysRegistry()->at(KORX_COMMAND_DOCK));
}

KoString askString(const wchar_t* prompt, bool spacesAllowed)
{
    wchar_t reply[kReplySize] = {};
    return koedGetString(spacesAllowed ? 1 : 0, prompt, reply, kReplySize) == KORTNORM ? KoString(reply).trimmed() : KoString();
}

// Asks for a variable's new value, showing the current one as default.
void changeVariable(const KoString& name)
{
    const KoString prompt = KoString::format(L"\nEnter new value for %s <%s>: ", name.upper().c_str(), koraSysVarText(name).c_str());
    wchar_t reply[kReplySize] = {};
    if (koedGetString(0, prompt, reply, kReplySize) != KORTNORM || !*reply) return;
    if (koraSetSysVarText(name, reply) != KORTNORM) koutPrintf(L"\nInvalid value for %s: %s", name.upper().c_str(), reply);
}

void cmdSetvar()
{
    const KoString name = askString(L"\nEnter variable name or [?]: ", false);
    if (name == L"?") {
        for (const KoSysVarInfo& v : koraSysVars()) koutPrintf(L"\n%-20s %s", v.name.c_str(), koraSysVarText(v.name).c_str());
        return;
    }
    if (name.isEmpty()) return;
    if (!koraSysVarExists(name)) {
        koutPrintf(L"\nUnknown variable name: %s", name.c_str());
        return;
    }
    changeVariable(name);
}

void cmdGetvar()
{
    const KoString name = askString(L"\nEnter variable name: ", false);
    if (name.isEmpty()) return;
    koresbuf value;
    if (koedGetVar(name, &value) != KORTNORM) {
        koutPrintf(L"\nUnknown variable name: %s", name.c_str());
        return;
    }
    if (value.restype == KORTSTR) std::free(value.resval.rstring);
    koutPrintf(L"\n%s = %s", name.upper().c_str(), koraSysVarText(name).c_str());
}

void cmdAppload()
{
    const KoString path = askString(L"\nEnter module file name: ", true);
    if (path.isEmpty()) return;
    if (Kora::Runtime::DynamicLinker::instance().loadModule(path, true) == Kora::eOk)
        koutPrintf(L"\n\"%s\" loaded.", path.c_str());
}

void cmdAppunload()
{
    const KoString path = askString(L"\nEnter module file name to unload: ", true);
    if (path.isEmpty()) return;
    if (Kora::Runtime::DynamicLinker::instance().unloadModule(path, true) == Kora::eOk)
        koutPrintf(L"\n\"%s\" unloaded.", path.c_str());
}

void cmdScript()
{
    const KoString path = askString(L"\nEnter script file name: ", true);
    if (path.isEmpty()) return;
    if (koraRunScript(path) != Kora::eOk) koutPrintf(L"\nCannot read script file \"%s\".", path.c_str());
}

void cmdHelp()
{
    KoEdCommandStack* stack = commandStack();
    for (const KoString& group : stack->groupNames()) {
        koutPrintf(L"\n%s:", group.c_str());
        for (KoEdCommand* c : stack->groupCommands(group)) {
            if (KoString(c->localName()).equalsNoCase(c->globalName())) koutPrintf(L"\n  %s", c->globalName());
            else koutPrintf(L"\n  %s (%s)", c->globalName(), c->localName());
        }
    }
}

void cmdQuit() { g_quit = true; }

void runCommand(KoEdCommand& command)
{
    // While a module's command runs, strings come from its resources.
    const KoInstanceHandle previous = koraSetResourceHandle(static_cast<KoInstanceHandle>(command.resourceInstance().handle()));
    ++Kora::Runtime::commandDepth();
    try {
        command.functionAddr()();
    } catch (...) {
        koutPrintf(L"\nThe command %s ended with an error.", command.globalName());
    }
    --Kora::Runtime::commandDepth();
    koraSetResourceHandle(previous);
    // Work the command handed to the application context runs now, before
    // the next command (a script's next line included).
    koDocManagerPtr()->runPendingJobs();
}

}  // namespace

void koraRegisterHostCommands()
{
    KoEdCommandStack* stack = commandStack();
    if (stack->lookupGlobalCmd(L"SETVAR")) return;
    const struct {
        const wchar_t* name;
        KoRxFunctionPtr function;
    } commands[] = {
        {L"SETVAR", cmdSetvar}, {L"GETVAR", cmdGetvar}, {L"APPLOAD", cmdAppload}, {L"APPUNLOAD", cmdAppunload},
        {L"SCRIPT", cmdScript}, {L"HELP", cmdHelp},     {L"QUIT", cmdQuit},
    };
    for (const auto& c : commands) stack->addCommand(L"KORA", c.name, c.name, KORX_CMD_MODAL, c.function);
    Kora::Runtime::registerDrawingCommands(*stack);
}

bool koraRunCommand(const wchar_t* name)
{
    const KoString typed = KoString(name).trimmed();
    if (typed.isEmpty()) return true;
    if (KoEdCommand* command = commandStack()->lookupCmd(typed)) {
        runCommand(*command);
        return true;
    }
    if (koraSysVarExists(typed)) {
        changeVariable(typed);
        return true;
    }
    koutPrintf(L"\nUnknown command \"%s\".  Type HELP for a list of commands.", typed.upper().c_str());
    return false;
}

bool koraProcessCommand()
{
    wchar_t typed[kReplySize] = {};
    const int rc = koedGetString(0, L"\nCommand: ", typed, kReplySize);
    if (rc == KORTCAN) return false;
    if (rc == KORTNORM) koraRunCommand(typed);
    return true;
}

Kora::ErrorStatus koraRunScript(const wchar_t* fileName)
{
    std::ifstream in(KoString(fileName).toUtf8(), std::ios::binary);
    if (!in) return Kora::eFileNotFound;
    std::stringstream bytes;
    bytes << in.rdbuf();
    if (in.bad()) return Kora::eFileAccessErr;
    std::string text = bytes.str();
    if (text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);

    koraRunScriptText(KoString::fromUtf8(text));
    return Kora::eOk;
}

void koraRunScriptText(const KoString& text)
{
    Kora::Runtime::ScriptBackend script(text.str(), koraEditorBackend());
    KoEditorBackend* previous = koraSetEditorBackend(&script);
    while (!script.atEnd() && !g_quit) koraProcessCommand();
    koraSetEditorBackend(previous);
}

bool koraQuitRequested() { return g_quit; }

void koraUnloadAllModules() { Kora::Runtime::DynamicLinker::instance().unloadAll(); }
