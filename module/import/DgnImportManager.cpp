#include "import/DgnImportManager.h"

using namespace Kora::DgnCommands;

void CKoraDgnImportManger::load(const KoString& path)
{
    m_path = path;
    DgnFileProp file;
    std::map<KoString, DgnModelProp> models;
    if (DgnFile::addPropFromDgnFile(path, file) == KORTNORM) {
        for (const DgnModelProp& model : file.models) models.emplace(model.name, model);
    }
    m_file = std::move(file);
    m_models = std::move(models);
    reloadSetups();
    loadImportChoices(m_choices);
    setMappingSetupName(m_choices.mappingSetupName);
}

bool CKoraDgnImportManger::save()
{
    m_choices.mappingSetupName = mappingSetupName();
    return saveImportChoices(m_choices);
}

DgnImportState CKoraDgnImportManger::importState(const KoString& model, DefaultWeights weights) const
{
    DgnImportState state;
    state.file = m_path;
    state.model = model;
    state.explodeTextNodes = m_choices.explodeTextNode != 0 ? 1 : 0;
    state.existingXRefOperation = m_choices.existingXRefOperation;
    state.masterUnits = m_choices.units == 0 ? 1 : 0;
    setImportModes(m_choices, state);

    const DgnMappingSetup& setup = chosenSetup();
    DgnMappingTable lineWeights = setup.lineWeightMap;
    const bool fillWeights = weights == DefaultWeights::ForAnySetup || isStandardSetupName(setup.name);
    if (lineWeights.empty() && fillWeights) fillDefaultLineWeights(lineWeights, true);
    state.tables.levels = applySetupToNames(m_file.levels, setup.layerMap);
    state.tables.lineStyles = applySetupToNames(m_file.lineStyles, setup.lineTypeMap);
    state.tables.weights = applySetupToNames(m_file.weights, lineWeights);
    state.tables.colours = applySetupToNames(m_file.colours, setup.colorMap);
    return state;
}

namespace Kora::DgnCommands {

DgnNameMap applySetupToNames(const std::vector<KoString>& names, const DgnMappingTable& setupTable)
{
    DgnNameMap result;
    for (const KoString& name : names) {
        const auto entry = setupTable.find(name);
        const KoString target = entry == setupTable.end() ? KoString() : entry->second;
        result.emplace(name, target.isEmpty() ? name : target);
    }
    return result;
}

void setImportModes(const DgnImportChoices& choices, DgnImportState& state)
{
    if (choices.translationOption == 0) state.translationMode = 0;
    else if (choices.translationOption == 2) state.translationMode = choices.importIntoCurrent ? 2 : 1;
    state.targetMode = !choices.importIntoCurrent ? 0 : choices.importAlternative != 0 ? 1 : 2;
}

}  // namespace Kora::DgnCommands
