#include "DgnAttachCommand.h"

#include "DgnAttachDialogs.h"
#include "DgnFileLocation.h"
#include "DgnModelUnits.h"
#include "DgnUnderlayCreation.h"
#include "KoEdDgnAttachJig.h"
#include "commandline.h"
#include "kora/docman.h"
#include "kora/editor.h"
#include "kora/ui/application.h"
#include "module.h"

KORX_DEFINE_MEMBERS(DgnAttachCommand, KoEdCommand)

void DgnAttachCommand::run()
{
    ResourceScope scope;
    const int fileDia = fileDialogSetting();
    if (m_commandLineMode) Kora::DgnCommands::attachAtCommandLine();
    else Kora::DgnCommands::attachWithDialog(fileDia);
}

int DgnAttachCommand::fileDialogSetting()
{
    koresbuf value;
    // A host that cannot answer FILEDIA is treated as one that shows dialogs.
    return koedGetVar(L"FILEDIA", &value) == KORTNORM ? value.resval.rint : 1;
}

namespace Kora::DgnCommands {

void attachWithDialog(int fileDia)
{
    KoDbUnderlayFile file;
    KoString dgnPath;
    Located located = fileDia == 0 ? locateByPrompt(false, Report::kMessageBox, file, dgnPath) : Located::kFileDialog;
    // FILEDIA values other than 0 and 1 go straight to the options with no file.
    if (fileDia == 0 || fileDia == 1) {
        if (located == Located::kFileDialog) located = locateByDialog(file, dgnPath);
        if (located == Located::kNoDisplay) Kora::Ui::reportNeedsDisplay(L"DGNATTACH", L"-DGNATTACH");
        if (located != Located::kLoaded) return;
    }
    attachWithOptionsDialog(dgnPath, file);
}

void attachAtCommandLine()
{
    KoDbUnderlayFile file;
    KoString dgnPath;
    Located located = locateByPrompt(true, Report::kCommandLine, file, dgnPath);
    if (located == Located::kFileDialog) located = locateByDialog(file, dgnPath);
    if (located == Located::kNoDisplay) reportFileDialogNeedsDisplay();
    if (located != Located::kLoaded) return;

    KoString modelName;
    if (!chooseModel(file, modelName, dgnPath)) return;
    bool useMasterUnits = true;
    if (!chooseUnits(useMasterUnits)) return;
    const KoString definitionName = nameDefinition(dgnPath, modelName);
    if (!definitionNameIsFree(definitionName)) return;
    double scale = 1.0;
    unitScale(file, modelName, useMasterUnits, scale);

    KoEdDgnAttachJig jig(kodbHostApplicationServices()->workingDatabase());
    jig.setPickFlags(true, true, true);
    jig.setInsertionPoint(KoGePoint3d::kOrigin());
    jig.setScale(scale);
    jig.setDefaultScale(scale);
    jig.setRotation(0.0);
    jig.setSourceFileName(dgnPath);
    jig.setActiveFileName(dgnPath);
    jig.setDefinitionName(definitionName);
    jig.setModelName(modelName);
    jig.setUseMasterUnits(useMasterUnits);
    jig.run();
}

}  // namespace Kora::DgnCommands
