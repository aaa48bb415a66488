// kora: the console host. Loads the modules beside it, then reads commands
// from the terminal (with line editing and history), from standard input,
// or from a script file given with --script.
#include <editline/readline.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <vector>

#include "kora/commandstack.h"
#include "kora/dgn/hostservices.h"
#include "kora/docman.h"
#include "kora/editor.h"
#include "kora/host.h"
#include "kora/ui/application.h"

namespace fs = std::filesystem;

namespace {

void writeOut(const KoString& text)
{
    const std::string bytes = text.toUtf8();
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

// A terminal: replies are read with line editing and kept in the history.
// Ctrl-D cancels the prompt it is typed at.
class TerminalBackend final : public KoEditorBackend {
public:
    std::optional<KoString> readReply(const KoString& prompt, bool) override
    {
        // The editing library draws only the last line of a prompt itself.
        const int lastBreak = prompt.reverseFind(L'\n');
        writeOut(prompt.left(lastBreak + 1));
        std::fflush(stdout);
        char* line = readline(prompt.mid(lastBreak + 1).toUtf8().c_str());
        if (!line) {
            writeOut(L"*Cancel*");
            return std::nullopt;
        }
        if (*line) add_history(line);
        KoString reply = KoString::fromUtf8(line);
        std::free(line);
        return reply;
    }
    void print(const KoString& text) override
    {
        writeOut(text);
        std::fflush(stdout);
    }
};

// Output only: a script's own back end reads the replies and shows the
// dialogue through this one.
class OutputBackend final : public KoEditorBackend {
public:
    std::optional<KoString> readReply(const KoString& prompt, bool) override
    {
        print(prompt);
        return std::nullopt;
    }
    void print(const KoString& text) override { writeOut(text); }
};

std::vector<fs::path> modulesBeside(const fs::path& exe)
{
    std::vector<fs::path> modules;
    std::error_code ec;
    for (const fs::path& folder : {exe.parent_path(), exe.parent_path().parent_path() / "lib" / "kora"}) {
        for (const auto& entry : fs::directory_iterator(folder, ec))
            if (entry.path().extension() == ".krx") modules.push_back(entry.path());
    }
    std::sort(modules.begin(), modules.end());
    return modules;
}

int usage()
{
    std::cerr << "usage: kora [--script FILE] [--load MODULE]... [--no-autoload] [DRAWING.dxf]\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    std::string script;
    std::vector<std::string> extraModules;
    std::string drawing;
    bool autoload = true;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--script" && i + 1 < argc) script = argv[++i];
        else if (arg == "--load" && i + 1 < argc) extraModules.push_back(argv[++i]);
        else if (arg == "--no-autoload") autoload = false;
        else if (drawing.empty() && !arg.starts_with("-")) drawing = arg;
        else return usage();
    }

    OutputBackend output;
    TerminalBackend terminal;
    const bool interactive = script.empty() && isatty(STDIN_FILENO);
    koraSetEditorBackend(interactive ? static_cast<KoEditorBackend*>(&terminal) : &output);
    koraRegisterHostCommands();
    // Message boxes and help through the dialog kit. Its Qt application is
    // made only when the first dialog needs one and a display exists; until
    // then, and always without a display, the console is all there is.
    Kora::Ui::installHostServices();

    std::error_code ec;
    const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    koraInstallMissingSeeds(koraInstalledSeedFolder());
    std::vector<fs::path> modules = autoload ? modulesBeside(exe) : std::vector<fs::path>{};
    for (const std::string& m : extraModules) modules.emplace_back(m);
    KoRxDynamicLinker* linker = KoRxDynamicLinker::cast(korxSysRegistry()->at(KORX_DYNAMIC_LINKER));
    for (const fs::path& m : modules) linker->loadModule(KoString::fromUtf8(m.string()), true);

    // The session starts with the drawing named on the command line, or
    // with a new one.
    KoString message;
    if (!drawing.empty() && koDocManagerPtr()->appContextOpenDocument(KoString::fromUtf8(drawing), &message) != Kora::eOk)
        koutPrintf(L"\nCannot open the drawing. %s", message.c_str());
    if (!koDocManagerPtr()->curDocument()) koDocManagerPtr()->appContextNewDocument();

    int status = 0;
    if (!script.empty()) {
        if (koraRunScript(KoString::fromUtf8(script)) != Kora::eOk) {
            std::cerr << "kora: cannot read script file \"" << script << "\"\n";
            status = 1;
        }
    } else if (interactive) {
        while (!koraQuitRequested() && koraProcessCommand()) {
        }
    } else {
        // Piped input is read like a script.
        std::stringstream input;
        input << std::cin.rdbuf();
        koraRunScriptText(KoString::fromUtf8(input.str()));
    }
    writeOut(L"\n");
    koraUnloadAllModules();
    return status;
}
