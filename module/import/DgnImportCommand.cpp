#include "DgnImportCommand.h"

#include "commandline.h"
#include "export/DgnExportService.h"
#include "import/DgnImportManager.h"
#include "kora/docman.h"
#include "kora/editor.h"
#include "kora/progress.h"
#include "kora/ui/application.h"
#include "kora/ui/filedialog.h"
#include "module.h"

KORX_DEFINE_MEMBERS(DgnImportCommand, KoEdCommand)

void DgnImportCommand::run()
{
    ResourceScope scope;
    if (m_commandLineMode) Kora::DgnCommands::importAtCommandLine();
    else Kora::DgnCommands::importWithDialogs();
}

namespace Kora::DgnCommands {

namespace {

constexpr const wchar_t* kImportDialog = L"DgnImportFileDlg";

// The file navigation dialog, opened in the folder of the last import; the
// chosen file's folder is kept for the next one. Answers KORTNORM with
// `path`, KORTCAN, or KORTERROR when there is no display.
int importFileByDialog(KoString& path)
{
    KoString folder;
    readInitialDirectory(kImportDialog, folder);
    koresbuf* chosen = nullptr;
    const int result = koedGetFileNavDialog(loadLocalString(124, L"Import a dgn file"), folder, L"dgn", 0, &chosen);
    if (result != KORTNORM) return result;
    path = chosen->resval.rstring;
    koutRelRb(chosen);
    storeInitialDirectory(kImportDialog, folderOf(path));
    return KORTNORM;
}

// Where the import settings dialog goes once it is built; until then the
// dialog form ends here and points to the command-line form.
void importWithSettingsDialog(const KoString&)
{
    printLine(L"\nThe DGN import settings dialog is not available yet; use -DGNIMPORT to import at the command line.");
}

// Asks for the file until the host finds a DGN file the library can read,
// and loads it into the manager. False when the user cancels.
bool askImportFile(CKoraDgnImportManger& manager)
{
    KoString prompt = loadLocalString(125, L"Enter filename for DGN import:");
    for (;;) {
        KoString reply;
        if (askString(prompt, reply) != KORTNORM) return false;
        if (reply.isEmpty()) continue;
        if (reply == L"~") {
            const int chosen = importFileByDialog(reply);
            if (chosen == KORTERROR) reportFileDialogNeedsDisplay();
            if (chosen != KORTNORM) return false;
        }
        const int dot = reply.reverseFind(L'.');
        if (dot < folderOf(reply).length()) {
            reply += L".dgn";
        } else if (!reply.mid(dot + 1).equalsNoCase(L"dgn")) {
            prompt = loadLocalString(426, L"An unsupported DGN file was detected. Only V7 and V8 DGN files are "
                                          L"supported. Please enter the file name for DGN input:");
            continue;
        }
        wchar_t found[kReplyChars] = {};
        if (koedFindFile(reply, found, kReplyChars) == KORTNORM) {
            manager.load(found);
            if (manager.fileProperties().version != kDgnVersionUnknown) {
                storeInitialDirectory(kImportDialog, folderOf(found));
                return true;
            }
        }
        printLine(loadLocalString(126, L"Invalid or unsupported DGN file."));
    }
}

// The file's own spelling of a model name given in any letter case.
const KoString* heldModel(const CKoraDgnImportManger& manager, const KoString& name)
{
    for (const auto& [model, units] : manager.models()) {
        if (model.equalsNoCase(name)) return &model;
    }
    return nullptr;
}

bool askModel(const CKoraDgnImportManger& manager, KoString& model)
{
    // "Default" stands for the file's first model.
    const KoString defaultName = loadLocalString(409, L"Default");
    const KoString* named = heldModel(manager, L"Model");
    const KoString offered = named ? *named : defaultName;
    const KoString prompt = KoString::format(loadLocalString(408, L"Enter name of model or [?] <%s>:"), offered.c_str());
    const auto sayMissing = [&](const KoString& name) {
        printLine(KoString::format(loadLocalString(410, L"There is no %s in <%s>:"), name.c_str(), manager.path().c_str()));
    };
    for (;;) {
        KoString reply;
        if (askString(prompt, reply) != KORTNORM) return false;
        if (reply.isEmpty()) reply = offered;
        if (reply != L"?") {
            if (const KoString* held = heldModel(manager, reply)) {
                model = *held;
                return true;
            }
            if (reply.equalsNoCase(defaultName)) {
                model = defaultName;
                return true;
            }
            sayMissing(reply);
            continue;
        }
        KoString pattern;
        if (askString(loadLocalString(411, L"Enter model(s) to list <*>:"), pattern) != KORTNORM) return false;
        if (pattern.isEmpty() || pattern == L"*") {
            koedTextScr();
            for (const auto& [name, units] : manager.models()) printLine(name);
        } else if (const KoString* held = heldModel(manager, pattern)) {
            printLine(*held);
        } else if (!pattern.equalsNoCase(defaultName)) {
            sayMissing(pattern);
        }
    }
}

int importInto(DgnImportState state, KoDbDatabase* database)
{
    KoProgressMeter meter;
    meter.begin(loadLocalString(165, L"Importing DGN file"));
    state.progress = [&meter](double fraction) { return meter.set(fraction); };
    KxDgnExportInternalServiceImp service;
    DgnTranslationReport report;
    const int result = DgnFile::doDgnImport(state, database, &service, &report);
    meter.end();
    printOutcome(result, report);
    return result;
}

// The job that imports into a new drawing once the command has ended.
void importIntoNewDrawing(void* data)
{
    const std::unique_ptr<DgnImportState> state(static_cast<DgnImportState*>(data));
    ResourceScope scope;
    KoApDocManager* documents = koDocManagerPtr();
    if (documents->appContextNewDocument() != eOk) return;
    KoApDocument* document = documents->curDocument();
    const KoString commandName = loadLocalString(162, L"Group of commands");
    if (documents->lockDocument(document, KoAp::kWrite, commandName, commandName) != eOk) return;
    importInto(*state, document->database());
    documents->unlockDocument(document);
}

}  // namespace

void importWithDialogs()
{
    if (shortVariable(L"FILEDIA", 1) == 0) {
        importAtCommandLine();
        return;
    }
    KoString path;
    const int chosen = importFileByDialog(path);
    if (chosen == KORTERROR) Kora::Ui::reportNeedsDisplay(L"DGNIMPORT", L"-DGNIMPORT");
    if (chosen == KORTNORM) importWithSettingsDialog(path);
}

void importAtCommandLine()
{
    CKoraDgnImportManger manager;
    if (!askImportFile(manager)) return;
    KoString model;
    if (!askModel(manager, model)) return;
    DgnImportChoices& choices = manager.choices();
    if (!askUnits(choices.units)) return;
    const KoString defaultSetup =
        choices.mappingSetupName.isEmpty() ? loadLocalString(128, L"standard") : choices.mappingSetupName;
    KoString setup;
    if (!askMappingSetup(manager.setups(), 1, loadLocalString(418, L"Import mapping setups:"), defaultSetup, false, setup)) return;
    manager.setMappingSetupName(setup);
    manager.save();

    auto state = std::make_unique<DgnImportState>(
        manager.importState(model, CKoraDgnImportManger::DefaultWeights::ForStandardOnly));
    if (choices.importIntoCurrent) {
        if (KoDbDatabase* database = kodbHostApplicationServices()->workingDatabase()) importInto(*state, database);
        return;
    }
    koDocManagerPtr()->executeInApplicationContext(importIntoNewDrawing, state.release());
}

}  // namespace Kora::DgnCommands
