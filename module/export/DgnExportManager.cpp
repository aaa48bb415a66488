#include "export/DgnExportManager.h"

#include "kora/db/database.h"
#include "mapping/DgnUnits.h"

using namespace Kora::DgnCommands;

void CKoraDgnExportManger::initialise(int version)
{
    m_version = version;
    m_seeds.clear();
    loadSeedList(version, m_seeds);
    reloadSetups();
    loadExportChoices(m_choices);
    setMappingSetupName(m_choices.mappingSetupName);
}

bool CKoraDgnExportManger::save()
{
    m_choices.mappingSetupName = mappingSetupName();
    const bool written = saveExportChoices(m_choices);
    savePersistedSeeds(m_version, m_seeds);
    return written;
}

bool CKoraDgnExportManger::addSeed(const KoString& path)
{
    if (!isValidSeedFile(path)) return false;
    m_seeds.insert(path);
    return true;
}

void CKoraDgnExportManger::buildMapping(KoDbDatabase* database, DgnExport& target) const
{
    buildExportMapping(chosenSetup(), database, target);
}

namespace Kora::DgnCommands {

void buildExportMapping(const DgnMappingSetup& setup, KoDbDatabase* database, DgnExport& target)
{
    target.layerMap = setup.layerMap;
    target.lineTypeMap = setup.lineTypeMap;
    target.lineWeightMap = setup.lineWeightMap;
    target.colourMap = setup.colorMap;
    if (target.lineWeightMap.empty()) fillDefaultLineWeights(target.lineWeightMap, false);
    if (!database) return;

    std::vector<KoString> layers, linetypes;
    symbolTableNames(database->layerTableId(), layers);
    symbolTableNames(database->linetypeTableId(), linetypes);
    const bool standard = isStandardSetupName(setup.name);
    for (const KoString& layer : layers) {
        KoString level = layer;
        const int dollar = layer.reverseFind(L'$');
        if (!standard && dollar >= 0 && !setup.layerMap.contains(layer)) {
            const auto own = setup.layerMap.find(layer.mid(dollar + 1));
            if (own != setup.layerMap.end()) level = own->second;
        }
        target.layerMap.emplace(layer, level);
    }
    for (const KoString& linetype : linetypes) target.lineTypeMap.emplace(linetype, linetype);
}

}  // namespace Kora::DgnCommands
