#include "mapping/DgnMappingSetup.h"

#include <utility>

#include "kora/dgn/translate.h"
#include "module.h"

bool DgnMappingSetupStore::insert(DgnMappingSetup setup)
{
    return m_setups.try_emplace(keyOf(setup.name), std::move(setup)).second;
}

DgnMappingSetup* DgnMappingSetupStore::find(const KoString& name)
{
    const auto found = m_setups.find(keyOf(name));
    return found == m_setups.end() ? nullptr : &found->second;
}

const DgnMappingSetup* DgnMappingSetupStore::find(const KoString& name) const
{
    const auto found = m_setups.find(keyOf(name));
    return found == m_setups.end() ? nullptr : &found->second;
}

bool DgnMappingSetupStore::erase(const KoString& name) { return m_setups.erase(keyOf(name)) > 0; }

namespace Kora::DgnCommands {

DgnMappingSetup standardMappingSetup()
{
    DgnMappingSetup setup;
    setup.name = loadLocalString(128, L"Standard");
    setup.description = loadLocalString(129, L"Standard mapping setup");
    setup.isImport = -1;
    return setup;
}

bool isStandardSetupName(const KoString& name) { return name.equalsNoCase(loadLocalString(128, L"Standard")); }

void fillDefaultLineWeights(DgnMappingTable& table, bool import) { table = Kora::Dgn::defaultLineWeightMap(import); }

}  // namespace Kora::DgnCommands
