// What the import and export managers share: the mapping setups they offer
// and the setup chosen among them, with the store operations the dialogs
// run on that list (reload, rename, delete).
#pragma once

#include "kora/kostring.h"
#include "mapping/DgnMappingSetup.h"

class CKoraDgnDlgManger {
public:
    virtual ~CKoraDgnDlgManger() = default;

    DgnMappingSetupStore& setups() { return m_setups; }
    const DgnMappingSetupStore& setups() const { return m_setups; }
    const KoString& mappingSetupName() const { return m_mappingSetupName; }
    void setMappingSetupName(const KoString& name) { m_mappingSetupName = name; }

    // Reads the setup store file again (the standard setup first).
    void reloadSetups();
    // The store file operations; false when no setup has the name.
    bool deleteSetup(const KoString& name);
    bool renameSetup(const KoString& oldName, const KoString& newName);

    // The setup a translation uses: the chosen one, or the standard setup
    // when the chosen name no longer names a setup.
    const DgnMappingSetup& chosenSetup() const;

private:
    DgnMappingSetupStore m_setups;
    KoString m_mappingSetupName;
    DgnMappingSetup m_standard = Kora::DgnCommands::standardMappingSetup();
};
