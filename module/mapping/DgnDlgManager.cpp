#include "mapping/DgnDlgManager.h"

#include "mapping/DgnSetupFile.h"

using namespace Kora::DgnCommands;

void CKoraDgnDlgManger::reloadSetups() { loadMappingSetups(m_setups); }

bool CKoraDgnDlgManger::deleteSetup(const KoString& name) { return deleteMappingSetup(m_setups, name); }

bool CKoraDgnDlgManger::renameSetup(const KoString& oldName, const KoString& newName)
{
    return renameMappingSetup(m_setups, oldName, newName);
}

const DgnMappingSetup& CKoraDgnDlgManger::chosenSetup() const
{
    const DgnMappingSetup* setup = m_setups.find(m_mappingSetupName);
    return setup ? *setup : m_standard;
}
