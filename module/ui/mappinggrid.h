// The grid of one mapping table (layers, linetypes, lineweights or
// colours): the source side on the left, the target side on the right,
// edited in place. It keeps the table it was given up to date as each
// cell changes; the dialog owning it decides when the table is saved.
#pragma once

#include <vector>

#include "kora/ui/grid.h"
#include "mapping/DgnMappingSetup.h"

namespace Kora::DgnCommands {

class CDgnMappingTabList : public KxMappingTabListBase {
public:
    enum Kind : int { kLayer = 0, kLineType = 1, kLineWeight = 2, kColour = 3 };
    enum Command : int { kCopy = 1, kPaste = 2, kAddColour = 3, kRemoveRow = 4 };

    // Both at once; fill() afterwards.
    void setKindAndDirection(Kind kind, bool import, DgnMappingTable& table);
    // Rebuilds the columns and rows from the table.
    void fill();

    void copyCell();
    // Pastes the clipboard's text into the focused cell; false when the
    // cell takes no paste.
    bool paste();
    void removeRow();
    void addColour();

protected:
    bool validateCell(int row, int column, const KoString& text) override;
    void cellCommitted(int row, int column, const KoString& text) override;
    bool clipboardKey(int key) override;
    void contextMenu(Kora::Ui::Point at, bool fromKeyboard) override;

private:
    void addRow(const KoString& key, const KoString& source, const KoString& target);
    void offer(const KoString& choice);
    // The table's value for a target cell's text (lineweights are shown
    // as millimetres and stored in hundredths).
    KoString storedValue(const KoString& shown) const;

    Kind m_kind = kLayer;
    bool m_import = true;
    DgnMappingTable* m_table = nullptr;
    std::vector<KoString> m_rowKeys;  // the table key each row shows
    std::vector<KoString> m_choices;
};

}  // namespace Kora::DgnCommands
