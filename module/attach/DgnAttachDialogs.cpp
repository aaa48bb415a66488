#include "DgnAttachDialogs.h"

#include "DgnUnderlayCreation.h"
#include "KoEdDgnAttachJig.h"
#include "kora/docman.h"
#include "kora/editor.h"
#include "kora/ui/application.h"
#include "kora/ui/attachdialog.h"
#include "kora/ui/filedialog.h"
#include "module.h"

namespace Kora::DgnCommands {

namespace {

std::vector<KoString> modelNames(const KoDbUnderlayFile& file)
{
    std::vector<KoString> names;
    for (const DgnModelProp& model : file.properties().models) names.push_back(model.name);
    return names;
}

}  // namespace

std::vector<KoString> modelsOf(const KoString& path)
{
    KoDbUnderlayFile file;
    if (KoDbDgnUnderlayService::LoadDgnUnderlayFile(path, file) != Kora::eOk) return {};
    return modelNames(file);
}

Located locateByDialog(KoDbUnderlayFile& file, KoString& dgnPath)
{
    // The last argument names the folder the dialog remembers; it is the
    // same whatever language the title is in.
    const KoString title = loadLocalString(20650, L"Select Reference File");
    const KoString filters = loadLocalString(22667, L"Microstation DGN(*.dgn)|All DGN File(*.*)");
    for (;;) {
        KoString chosen;
        const int result = getFileNameByFileDialog(title, L"", L"dgn;*", 0x10080002, filters, chosen, nullptr,
                                                   L"Select Reference File");
        if (result == Kora::Ui::kNeedsDisplay) return Located::kNoDisplay;
        if (result != 0 || chosen.isEmpty()) return Located::kCancelled;
        if (loadDgn(chosen, file, Report::kMessageBox) == LoadResult::kLoaded) {
            dgnPath = chosen;
            return Located::kLoaded;
        }
    }
}

void attachWithOptionsDialog(const KoString& dgnPath, const KoDbUnderlayFile& file)
{
    KoDbDatabase* database = kodbHostApplicationServices()->workingDatabase();
    KoUiDgnAttachSource source;
    source.path = dgnPath;
    if (!dgnPath.isEmpty()) source.models = modelNames(file);
    std::vector<KxUnderlayItemInfo> items;
    KoDbDgnUnderlayService::collectUnderlayItems(database, items);
    for (const KxUnderlayItemInfo& item : items) source.existingItems.push_back(item.definitionName);
    source.modelsOf = modelsOf;

    // A dialog attach starts with the insertion point and the scale given
    // on screen and the rotation typed, in master units.
    KoUiDgnAttachData data;
    data.scale = 1.0;
    data.rotation = 0.0;
    data.pickInsertion = 1;
    data.pickRotation = 0;
    data.pickScale = 1;
    data.useMasterUnits = 1;
    const int answer = koraDgnAttachOptionsDialog(source, data);
    if (answer == Kora::Ui::kNeedsDisplay) Kora::Ui::reportNeedsDisplay(L"DGNATTACH", L"-DGNATTACH");
    if (answer != KOID_OK || data.chosenModels.empty()) return;

    const KoString& modelName = data.chosenModels.front();
    const KoString definitionName = nameDefinition(data.sourcePath, modelName);
    if (!definitionNameIsFree(definitionName)) return;

    KoEdDgnAttachJig jig(database);
    jig.setPickFlags(data.pickInsertion != 0, data.pickScale != 0, data.pickRotation != 0);
    jig.setInsertionPoint({data.insertionPoint[0], data.insertionPoint[1], data.insertionPoint[2]});
    jig.setScale(data.scale);
    jig.setDefaultScale(data.scale);
    jig.setRotation(data.rotation);
    jig.setSourceFileName(data.sourcePath);
    jig.setActiveFileName(data.activePath);
    jig.setDefinitionName(definitionName);
    jig.setModelName(modelName);
    jig.setUseMasterUnits(data.useMasterUnits != 0);
    jig.run();
}

}  // namespace Kora::DgnCommands
