// Mapping setups: named correspondences of layers, linetypes, lineweights
// and colours between a DGN design file and a drawing, and the store that
// import, export and the mapping dialogs load them into.
#pragma once

#include <cstddef>
#include <map>

#include "kora/kostring.h"

// One property's correspondences, source text to target text. KoString
// orders ordinally, so "B" sorts before "a" and each key occurs once.
using DgnMappingTable = std::map<KoString, KoString>;

struct DgnMappingSetup {
    KoString section;  // the store-file section it was read from; empty when not read from the file
    // Counts as read from the file. Only the table sizes matter afterwards.
    int colorCount = 0;
    int lineTypeCount = 0;
    int lineWeightCount = 0;
    int layerCount = 0;
    // Keyed by the side the setup translates from: the DGN name in an
    // import setup, the drawing's name in an export setup.
    DgnMappingTable layerMap;
    DgnMappingTable lineTypeMap;
    DgnMappingTable lineWeightMap;
    DgnMappingTable colorMap;
    KoString name;     // as the user typed it
    int isImport = 0;  // non-zero import (the dialogs write 1), 0 export, -1 the standard setup
    KoString description;

    friend bool operator==(const DgnMappingSetup&, const DgnMappingSetup&) = default;
};

// All setups, keyed by the upper-cased name and ordered ordinally by that
// key, which is the order in which they are listed and written.
class DgnMappingSetupStore {
public:
    using Map = std::map<KoString, DgnMappingSetup>;

    // The key a name is stored under.
    static KoString keyOf(const KoString& name) { return name.upper(); }

    // The first setup put under a key stays: answers false and drops the
    // new one when the key is taken.
    bool insert(DgnMappingSetup setup);
    // Null when no setup has that name (in any letter case). Callers that
    // replace a setup assign through the pointer.
    DgnMappingSetup* find(const KoString& name);
    const DgnMappingSetup* find(const KoString& name) const;
    bool erase(const KoString& name);
    void clear() { m_setups.clear(); }

    size_t size() const { return m_setups.size(); }
    bool empty() const { return m_setups.empty(); }
    Map::iterator begin() { return m_setups.begin(); }
    Map::iterator end() { return m_setups.end(); }
    Map::const_iterator begin() const { return m_setups.begin(); }
    Map::const_iterator end() const { return m_setups.end(); }

    friend bool operator==(const DgnMappingSetupStore&, const DgnMappingSetupStore&) = default;

private:
    Map m_setups;
};

namespace Kora::DgnCommands {

// The built-in setup every loaded store starts with: localised name and
// description, kind -1, no mappings. It is never written to the file.
DgnMappingSetup standardMappingSetup();
// True for the standard setup's name in any letter case.
bool isStandardSetupName(const KoString& name);

// Empties a lineweight table and fills it with the default correspondence
// of one direction: DGN weights 0-31 to lineweights in hundredths of a
// millimetre on import, the reverse on export.
void fillDefaultLineWeights(DgnMappingTable& table, bool import);

}  // namespace Kora::DgnCommands
