#include "ui/mappinggrid.h"

#include <algorithm>
#include <cwchar>
#include <map>

#include "kora/msgbox.h"
#include "kora/ui/application.h"
#include "ui/setupnaming.h"

using namespace Kora::Ui;

namespace Kora::DgnCommands {

namespace {

constexpr int kRowHeight = 24;

// The two special weights of each side, as numbers: -1 and -2.
int weightNumber(const KoString& text, const wchar_t* byParent, const wchar_t* byBlock)
{
    if (text.equalsNoCase(byParent)) return -1;
    if (text.equalsNoCase(byBlock)) return -2;
    return static_cast<int>(std::wcstol(text.c_str(), nullptr, 10));
}

KoString dgnWeightText(int weight)
{
    return weight == -1 ? KoString(L"ByLevel") : weight == -2 ? KoString(L"ByCell") : KoString::format(L"%d", weight);
}

KoString dwgWeightText(int weight)
{
    if (weight == -1) return L"ByLayer";
    if (weight == -2) return L"ByBlock";
    return KoString::format(L"%.2lf ", weight / 100.0) + setupText(163);
}

}  // namespace

void CDgnMappingTabList::setKindAndDirection(Kind kind, bool import, DgnMappingTable& table)
{
    m_kind = kind;
    m_import = import;
    m_table = &table;
}

void CDgnMappingTabList::addRow(const KoString& key, const KoString& source, const KoString& target)
{
    const int row = insertItem(itemCount(), source);
    setItemText(row, 1, target);
    m_rowKeys.push_back(key);
    offer(target);
}

void CDgnMappingTabList::offer(const KoString& choice)
{
    if (std::find(m_choices.begin(), m_choices.end(), choice) == m_choices.end()) m_choices.push_back(choice);
}

void CDgnMappingTabList::fill()
{
    deleteAllItems();
    while (columnCount() > 0) deleteColumn(0);
    m_rowKeys.clear();
    m_choices.clear();
    // Half the client area each: the grid less its frame of two pixels a side.
    const int half = (rect().width - 4) / 2;
    insertColumn(0, m_import ? L"DGN" : L"DWG", half, Align::Centre);
    insertColumn(1, m_import ? L"DWG" : L"DGN", half, Align::Centre);
    setRowHeight(kRowHeight);
    setColumnEditor(1, Editor::Choice);

    if (m_kind == kLineWeight) {
        // Shown by number, so ByCell and ByLevel (-2, -1) come first.
        std::map<int, std::pair<KoString, int>> weights;
        for (const auto& [key, value] : *m_table) {
            const int source = m_import ? weightNumber(key, L"ByLevel", L"ByCell") : weightNumber(key, L"ByLayer", L"ByBlock");
            const int target = m_import ? weightNumber(value, L"ByLayer", L"ByBlock") : weightNumber(value, L"ByLevel", L"ByCell");
            weights.try_emplace(source, key, target);
        }
        for (const auto& [source, entry] : weights) {
            if (m_import) addRow(entry.first, dgnWeightText(source), dwgWeightText(entry.second));
            else addRow(entry.first, dwgWeightText(source), dgnWeightText(entry.second));
        }
    }
    else {
        for (const auto& [key, value] : *m_table) addRow(key, key, value);
    }
    if (m_kind == kLineType)
        for (const KoString& choice : {KoString(L"ByLayer"), KoString(L"ByBlock"), KoString(L"Continuous"), setupText(152)})
            offer(choice);
    setColumnChoices(1, m_choices);
    setColumnWidth(0, half);
    setColumnWidth(1, half);
}

KoString CDgnMappingTabList::storedValue(const KoString& shown) const
{
    if (m_kind != kLineWeight || !m_import || shown.equalsNoCase(L"ByLayer") || shown.equalsNoCase(L"ByBlock")) return shown;
    return KoString::format(L"%d", static_cast<int>(std::wcstod(shown.c_str(), nullptr) * 100.0 + 0.5));
}

bool CDgnMappingTabList::validateCell(int, int column, const KoString& text)
{
    if (text.trimmed().isEmpty()) return false;
    // A lineweight is one of the weights offered; "More..." names no linetype.
    if (m_kind == kLineWeight && column == 1) return std::find(m_choices.begin(), m_choices.end(), text) != m_choices.end();
    if (m_kind == kLineType && column == 1) return !text.equalsNoCase(setupText(152));
    return true;
}

void CDgnMappingTabList::cellCommitted(int row, int, const KoString& text)
{
    offer(text);
    setColumnChoices(1, m_choices);
    if (row < 0 || row >= static_cast<int>(m_rowKeys.size())) return;
    // A row whose key left the table changes only on screen.
    const auto entry = m_table->find(m_rowKeys[static_cast<size_t>(row)]);
    if (entry != m_table->end()) entry->second = storedValue(text);
}

void CDgnMappingTabList::copyCell()
{
    const int row = focusedRow();
    if (row < 0) return;
    const KoString text = itemText(row, focusedColumn());
    if (!text.isEmpty()) setClipboardText(text);
}

bool CDgnMappingTabList::paste()
{
    const int row = focusedRow();
    const int column = focusedColumn();
    if (row < 0 || (column != 1 && m_kind != kColour)) return true;
    const KoString text = clipboardText();
    if (text.isEmpty()) return true;
    if (m_kind == kLineWeight && std::find(m_choices.begin(), m_choices.end(), text) == m_choices.end()) return false;
    setItemText(row, column, text);
    // Even a colour's source cell sets the row's value: the pasted colour
    // is what the row's source now translates to.
    cellCommitted(row, column, text);
    return true;
}

bool CDgnMappingTabList::clipboardKey(int key)
{
    if (key == 'C') {
        copyCell();
        return true;
    }
    if (key == 'V') return paste();
    return false;
}

void CDgnMappingTabList::removeRow()
{
    const int row = focusedRow();
    if (row < 0) return;
    if (koraMessageBox(setupText(161), nullptr, KOMB_YESNO | KOMB_ICONQUESTION) != KOID_YES) return;
    const KoString key = m_rowKeys[static_cast<size_t>(row)];
    deleteItem(row);
    m_rowKeys.erase(m_rowKeys.begin() + row);
    m_table->erase(key);
}

void CDgnMappingTabList::addColour()
{
    // The lowest colour number the table does not map yet, to itself; the
    // user then edits its target.
    for (int colour = 0; colour < 256; ++colour) {
        const KoString name = KoString::format(L"%d", colour);
        if (m_table->count(name)) continue;
        (*m_table)[name] = name;
        fill();
        const auto at = std::find(m_rowKeys.begin(), m_rowKeys.end(), name);
        focusCell(static_cast<int>(at - m_rowKeys.begin()), 1);
        return;
    }
}

void CDgnMappingTabList::contextMenu(Point at, bool)
{
    const bool onRow = focusedRow() >= 0;
    std::vector<MenuItem> items{{kCopy, setupText(153), onRow}};
    if (focusedColumn() == 1 || m_kind == kColour) items.push_back({kPaste, setupText(154), onRow});
    items.push_back({});
    if (m_kind == kColour) items.push_back({kAddColour, setupText(155)});
    items.push_back({kRemoveRow, setupText(156), onRow});
    switch (trackPopupMenu(*this, at, items)) {
    case kCopy: copyCell(); break;
    case kPaste: paste(); break;
    case kAddColour: addColour(); break;
    case kRemoveRow: removeRow(); break;
    default: break;
    }
}

}  // namespace Kora::DgnCommands
