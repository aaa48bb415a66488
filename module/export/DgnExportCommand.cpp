#include "DgnExportCommand.h"

#include <filesystem>

#include "commandline.h"
#include "export/DgnExportManager.h"
#include "export/DgnExportService.h"
#include "export/DgnSeedCatalogue.h"
#include "export/DrawingExportScan.h"
#include "kora/docman.h"
#include "kora/editor.h"
#include "kora/progress.h"
#include "kora/ui/application.h"
#include "kora/ui/filedialog.h"
#include "kora/userpaths.h"
#include "mapping/DgnSetupFile.h"
#include "mapping/DgnTranslationSettings.h"
#include "module.h"

KORX_DEFINE_MEMBERS(DgnExportCommand, KoEdCommand)

void DgnExportCommand::run()
{
    ResourceScope scope;
    if (m_commandLineMode) Kora::DgnCommands::exportAtCommandLine();
    else Kora::DgnCommands::exportWithDialogs();
}

namespace Kora::DgnCommands {

namespace {

constexpr const wchar_t* kExportDialog = L"DgnExportFileDlg";
constexpr const wchar_t* kExportType = L"_KX_DGNEXPORTTYPE";

// What every run knows before its first prompt.
struct ExportStart {
    KoDbDatabase* database = nullptr;
    DrawingExportScan scan;
    KoString lastFolder;
    int version = kDgnVersionV8;
};

ExportStart startExport()
{
    ExportStart start;
    start.database = kodbHostApplicationServices()->workingDatabase();
    if (!start.database) return start;
    start.scan = scanDrawingForExport(start.database);
    if (!readInitialDirectory(kExportDialog, start.lastFolder)) start.lastFolder = koraUserDocumentsFolder() + L"/";
    start.version = shortVariable(kExportType, kDgnVersionV8) == kDgnVersionV7 ? kDgnVersionV7 : kDgnVersionV8;
    return start;
}

bool pathExists(const KoString& path)
{
    std::error_code error;
    return std::filesystem::exists(std::filesystem::path(path.toUtf8()), error);
}

// The current drawing's file name without folder and extension.
KoString drawingBaseName()
{
    const KoApDocument* document = koDocManagerPtr()->curDocument();
    if (!document || document->fileName().isEmpty()) return KoString();
    KoString name = document->fileName().mid(folderOf(document->fileName()).length());
    const int dot = name.reverseFind(L'.');
    return dot < 0 ? name : name.left(dot);
}

bool askVersion(int& version)
{
    KoString reply;
    const int result = askKeyword(loadLocalString(420, L"V7 V8 7 8 _V7 V8 7 8 "),
                                  KoString::format(loadLocalString(421, L"输入 DGN 文件格式 [V7/V8] <%s>: "),
                                                   version == kDgnVersionV7 ? L"V7" : L"V8"),
                                  reply);
    if (result == KORTNORM) {
        if (reply.equalsNoCase(L"V7") || reply == L"7") version = kDgnVersionV7;
        else if (reply.equalsNoCase(L"V8") || reply == L"8") version = kDgnVersionV8;
    } else if (result != KORTNONE) {
        return false;
    }
    setShortVariable(kExportType, version);
    return true;
}

// Asks for the output file until one is accepted: its folder exists, and
// the user agreed to replace it when it exists. "~" opens the file dialog
// at `dialogStart`, offering only `version`. False when the user cancels.
bool askOutputFile(const KoString& defaultFile, const KoString& dialogStart, int version, KoString& output)
{
    const KoString prompt =
        KoString::format(loadLocalString(115, L"Enter filename for DGN export <%s>: "), defaultFile.c_str());
    KoString reply;
    if (askString(prompt, reply) == KORTCAN) return false;
    for (;;) {
        if (reply.isEmpty()) {
            if (defaultFile.length() >= kReplyChars) return false;
            reply = defaultFile;
        }
        // A file from the dialog is in a folder the dialog has shown.
        const bool fromDialog = reply == L"~";
        if (fromDialog) {
            KoString chosen;
            const int result = getFileNameByFileDialog(loadLocalString(114, L"Export a dgn file"), dialogStart, L"dgn",
                                                       0x8008005, version == kDgnVersionV7 ? L"V7 DGN (*.dgn)" : L"V8 DGN (*.dgn)",
                                                       chosen);
            if (result == Kora::Ui::kNeedsDisplay) reportFileDialogNeedsDisplay();
            if (result != 0 || chosen.length() >= kReplyChars) return false;
            reply = chosen;
        }
        // A bare name is looked for as it stands: it passes only when
        // something of that name exists in the current folder.
        const KoString folder = folderOf(reply);
        if (!fromDialog && !pathExists(folder.isEmpty() ? reply : folder)) {
            printLine(loadLocalString(116, L"Invalid path."));
            if (askString(prompt, reply) == KORTCAN) return false;
            continue;
        }
        const int dot = reply.reverseFind(L'.');
        if (dot < 0 || !reply.mid(dot + 1).equalsNoCase(L"dgn")) reply += L".dgn";
        if (pathExists(reply)) {
            printLine(loadLocalString(117, L"A file with this name already exists."));
            KoString answer;
            const int result = askKeyword(L"Yes No", loadLocalString(118, L"Do you want to replace it? [Yes/No] <No>: "), answer);
            if (result == KORTCAN) return false;
            if ((result == KORTNORM && answer == L"No") || result == KORTNONE) {
                if (askString(prompt, reply) == KORTCAN) return false;
                continue;
            }
        }
        output = reply;
        return true;
    }
}

bool askSeed(int version, const KoString& storedSeed, KoString& seed)
{
    DgnSeedCatalogue catalogue;
    buildSeedCatalogue(version, catalogue);
    const KoString defaultSeed = defaultSeedFile(version, storedSeed);
    const KoString prompt = KoString::format(loadLocalString(422, L"Specify seed file or [?] <%s>"), defaultSeed.c_str());
    const KoString invalid = loadLocalString(424, L"Invalid file.");
    for (;;) {
        KoString reply;
        if (askString(prompt, reply) != KORTNORM) return false;
        if (reply.isEmpty()) {
            seed = defaultSeed;
            return true;
        }
        if (reply == L"?") {
            const int listed = askString(loadLocalString(423, L"Enter seed file(s) to list <*>:"), reply);
            if (listed == KORTCAN) continue;
            if (listed != KORTNORM) return false;
            if (reply.isEmpty() || reply == L"*") {
                koedTextScr();
                listSeedCatalogue(catalogue);
                continue;
            }
        }
        if (isValidSeedFile(reply)) {
            seed = reply;
            return true;
        }
        printLine(invalid);
    }
}

// Only an explicit "No" stops the export: Enter goes on, whatever the
// prompt shows as its default.
bool continueDespiteUnsupported()
{
    KoString reply;
    const int result = askKeyword(L"Yes No",
                                  loadLocalString(123, L"This Drawing contains entities Which cannot output to DGN, "
                                                       L"Do you want to continue? [Yes/No] <No>: "),
                                  reply);
    return !(result == KORTNORM && reply == L"No");
}

bool probeOutputFiles(KoDbDatabase* database, const KoString& output, int version)
{
    std::vector<KoString> files{output};
    if (version == kDgnVersionV7) {
        const std::vector<KoString> layouts = layoutFileList(database, output);
        files.insert(files.end(), layouts.begin(), layouts.end());
    }
    for (const KoString& file : files) {
        if (!probeWrite(file)) {
            printLine(loadLocalString(427, L"File access error."));
            return false;
        }
    }
    return true;
}

int exportDrawing(DgnExport& parameters, const KoString& output, KoDbDatabase* database, bool v7)
{
    KoProgressMeter meter;
    meter.begin(loadLocalString(166, L"Exporting DGN file"));
    parameters.progress = [&meter](double fraction) { return meter.set(fraction); };
    KxDgnExportInternalServiceImp service;
    const int result = parameters.ExportDgnFile(output, database, v7, &service);
    meter.end();
    printOutcome(result, parameters.report());
    return result;
}

// Where the export settings dialog goes once it is built; until then the
// dialog form ends here and points to the command-line form.
void exportWithSettingsDialog(const ExportStart&, const KoString&)
{
    printLine(L"\nThe DGN export settings dialog is not available yet; use -DGNEXPORT to export at the command line.");
}

}  // namespace

void exportWithDialogs()
{
    if (shortVariable(L"FILEDIA", 1) == 0) {
        exportAtCommandLine();
        return;
    }
    ExportStart start = startExport();
    if (!start.database) return;
    // The filter index is the version: V8 first, V7 second.
    int version = start.version;
    KoString output;
    const int result = getFileNameByFileDialog(loadLocalString(114, L"Export a dgn file"), start.lastFolder + drawingBaseName(),
                                               L"dgn;dgn", 0x8088005, L"V8 DGN (*.dgn)|V7 DGN (*.dgn)", output, &version);
    if (result == Kora::Ui::kNeedsDisplay) Kora::Ui::reportNeedsDisplay(L"DGNEXPORT", L"-DGNEXPORT");
    if (result != 0) return;
    start.version = version == kDgnVersionV7 ? kDgnVersionV7 : kDgnVersionV8;
    setShortVariable(kExportType, start.version);
    storeInitialDirectory(kExportDialog, folderOf(output));
    exportWithSettingsDialog(start, output);
}

void exportAtCommandLine()
{
    ExportStart start = startExport();
    if (!start.database) return;
    if (!askVersion(start.version)) return;
    KoString output;
    if (!askOutputFile(start.lastFolder + drawingBaseName() + L".dgn", start.lastFolder + drawingBaseName(), start.version, output))
        return;
    storeInitialDirectory(kExportDialog, folderOf(output));

    DgnExportChoices choices;
    loadExportChoices(choices);
    if (!askUnits(choices.useSubUnits)) return;
    DgnMappingSetupStore setups;
    loadMappingSetups(setups);
    const KoString defaultSetup =
        choices.mappingSetupName.isEmpty() ? loadLocalString(128, L"standard") : choices.mappingSetupName;
    if (!askMappingSetup(setups, 0, KoString(), defaultSetup, true, choices.mappingSetupName)) return;
    KoString seed;
    if (!askSeed(start.version, choices.seedFileName, seed)) return;
    choices.seedFileName = seed;
    if (start.scan.hasUnsupportedEntities && !continueDespiteUnsupported()) return;
    if (!probeOutputFiles(start.database, output, start.version)) return;
    saveExportChoices(choices);

    DgnExport parameters;
    parameters.translationOption = choices.translationOption;
    parameters.useMasterUnits = choices.useSubUnits == 0;
    parameters.seedFile = choices.seedFileName;
    buildExportMapping(*setups.find(choices.mappingSetupName), start.database, parameters);
    exportDrawing(parameters, output, start.database, start.version == kDgnVersionV7);
}

}  // namespace Kora::DgnCommands
