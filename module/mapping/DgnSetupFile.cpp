#include "mapping/DgnSetupFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "kora/editor.h"
#include "kora/profile.h"
#include "kora/userpaths.h"
#include "module.h"

namespace Kora::DgnCommands {

namespace {

// The classic listing and value buffers are 2046 characters: longer values
// are cut to 2045 and section names past that much text are not seen.
constexpr unsigned kBufferSize = 2046;

// The four tables of a setup as the file spells them.
struct TableKeys {
    const wchar_t* countKey;
    const wchar_t* dgnPrefix;
    const wchar_t* dwgPrefix;
    DgnMappingTable DgnMappingSetup::*table;
    int DgnMappingSetup::*count;
};

constexpr TableKeys kTables[] = {
    {L"LayerCount", L"DGNLevel", L"DWGLayer", &DgnMappingSetup::layerMap, &DgnMappingSetup::layerCount},
    {L"LTCount", L"DGNLStyle", L"DWGLType", &DgnMappingSetup::lineTypeMap, &DgnMappingSetup::lineTypeCount},
    {L"LWCount", L"DGNLWeight", L"DWGLWeight", &DgnMappingSetup::lineWeightMap, &DgnMappingSetup::lineWeightCount},
    {L"ColorCount", L"DGNColor", L"DWGColor", &DgnMappingSetup::colorMap, &DgnMappingSetup::colorCount},
};

// The keys "<prefix>0", "<prefix>1", ... in turn, each made from the one
// before by counting up its digits in place: a store of millions of pairs
// names every key this way, so naming one costs a character or two.
class KeyCounter {
public:
    explicit KeyCounter(const wchar_t* prefix)
    {
        while (prefix[m_digits] && m_digits < std::size(m_key) - 12) {
            m_key[m_digits] = prefix[m_digits];
            ++m_digits;
        }
        m_key[m_digits] = L'0';
        m_length = m_digits + 1;
        m_key[m_length] = 0;
    }

    const wchar_t* key() const { return m_key; }

    void next()
    {
        size_t i = m_length;
        while (i > m_digits && m_key[i - 1] == L'9') m_key[--i] = L'0';
        if (i > m_digits) {
            ++m_key[i - 1];
            return;
        }
        // All nines: one digit more.
        m_key[m_digits] = L'1';
        m_key[m_length++] = L'0';
        m_key[m_length] = 0;
    }

private:
    wchar_t m_key[48];
    size_t m_digits = 0;  // where the digits start
    size_t m_length = 0;
};

KoString readText(const KoString& section, const wchar_t* key, wchar_t* buffer)
{
    koGetPrivateProfileString(section, key, L"", buffer, kBufferSize, dgnSetupFilePath());
    return KoString(buffer);
}

int readInt(const KoString& section, const wchar_t* key, int defaultValue)
{
    return static_cast<int>(koGetPrivateProfileInt(section, key, defaultValue, dgnSetupFilePath()));
}

// A zero-separated list ("a\0b\0\0") as names.
std::vector<KoString> splitList(const wchar_t* list)
{
    std::vector<KoString> names;
    for (const wchar_t* p = list; *p; p += names.back().length() + 1) names.emplace_back(p);
    return names;
}

// The buffer a load lists key names in, kept from one section to the
// next: a large setup needs megabytes, which are better asked for once
// than once per section.
struct KeyListing {
    std::unique_ptr<wchar_t[]> buffer;
    size_t size = 0;
};

// A section's key names (or, for no section, the file's section names),
// however many there are, as a zero-separated list. The buffer is first
// made as big as the names expected need, so a large setup is listed once.
const wchar_t* allNames(const wchar_t* section, size_t expectedNames, KeyListing& listing)
{
    size_t wanted = std::clamp<size_t>(expectedNames * 16 + 1024, 16384, size_t{1} << 24);
    for (;;) {
        if (listing.size < wanted) {
            // Not zero-filled: the platform writes the list and its terminators.
            listing.buffer = std::make_unique_for_overwrite<wchar_t[]>(wanted);
            listing.size = wanted;
        }
        const unsigned capacity = static_cast<unsigned>(std::min<size_t>(listing.size, UINT32_MAX));
        // A list that does not fit answers size - 2.
        if (koGetPrivateProfileString(section, nullptr, L"", listing.buffer.get(), capacity, dgnSetupFilePath()) + 2
            < capacity)
            return listing.buffer.get();
        wanted = listing.size * 4;
    }
}

// Key prefixes are ASCII upper and lower case letters: ASCII is folded
// here, anything else as the file folds names.
wchar_t foldAscii(wchar_t ch)
{
    if (ch >= 0x80) return koToUpper(ch);
    return ch >= L'a' && ch <= L'z' ? static_cast<wchar_t>(ch - 32) : ch;
}

// The index of a key "<prefix><decimal>", with the prefix compared as the
// file compares key names (without regard to case), or -1 for any other
// key. Leading zeros do not name an index: "DGNLevel07" is not index 7.
int keyIndex(std::wstring_view key, std::wstring_view prefix)
{
    if (key.size() <= prefix.size()) return -1;
    for (size_t i = 0; i < prefix.size(); ++i) {
        if (foldAscii(key[i]) != foldAscii(prefix[i])) return -1;
    }
    const std::wstring_view digits = key.substr(prefix.size());
    if (digits.size() > 9 || (digits.size() > 1 && digits.front() == L'0')) return -1;
    int index = 0;
    for (wchar_t ch : digits) {
        if (ch < L'0' || ch > L'9') return -1;
        index = index * 10 + (ch - L'0');
    }
    return index;
}

// For each table, one past the highest index any of its keys has in the
// section. Indexes from there on read as an empty pair, so a damaged count
// of two billion costs no more than the keys that are really there.
std::array<int, std::size(kTables)> indexesPresent(const wchar_t* keys)
{
    std::array<int, std::size(kTables)> ends{};
    for (std::wstring_view name = keys; !name.empty(); name = name.data() + name.size() + 1) {
        // Only a key that ends in a digit can carry an index.
        if (name.back() < L'0' || name.back() > L'9') continue;
        for (size_t t = 0; t < ends.size(); ++t) {
            const int index = std::max(keyIndex(name, kTables[t].dgnPrefix), keyIndex(name, kTables[t].dwgPrefix));
            ends[t] = std::max(ends[t], index + 1);
        }
    }
    return ends;
}

// Reads one table of a setup. Each index gives a pair; a missing key reads
// as empty text; a source already in the table keeps its first target.
void readTable(DgnMappingSetup& setup, const TableKeys& table, int indexEnd, wchar_t* buffer)
{
    const int count = setup.*table.count;
    if (count <= 0) return;
    const bool import = setup.isImport != 0;
    const wchar_t* sourcePrefix = import ? table.dgnPrefix : table.dwgPrefix;
    const wchar_t* targetPrefix = import ? table.dwgPrefix : table.dgnPrefix;
    DgnMappingTable& map = setup.*table.table;
    const int present = std::min(count, indexEnd);
    KeyCounter sourceKey(sourcePrefix), targetKey(targetPrefix);
    for (int i = 0; i < present; ++i, sourceKey.next(), targetKey.next()) {
        KoString source = readText(setup.section, sourceKey.key(), buffer);
        map.emplace(std::move(source), readText(setup.section, targetKey.key(), buffer));
    }
    if (count > present) map.emplace(KoString(), KoString());
}

// The setup of one section, or nothing when the section has no name.
bool readSetup(const KoString& section, DgnMappingSetup& setup, wchar_t* buffer, KeyListing& listing)
{
    setup.name = readText(section, L"Name", buffer);
    if (setup.name.isEmpty()) return false;
    setup.section = section;
    setup.isImport = readInt(section, L"isImport", -1);
    setup.description = readText(section, L"Description", buffer);
    for (const TableKeys& table : kTables) setup.*table.count = readInt(section, table.countKey, -1);
    const bool anyPairs = std::any_of(std::begin(kTables), std::end(kTables),
                                      [&](const TableKeys& t) { return setup.*t.count > 0; });
    if (!anyPairs) return true;
    size_t expectedKeys = 0;
    for (const TableKeys& table : kTables) expectedKeys += 2 * static_cast<size_t>(std::clamp(setup.*table.count, 0, 1 << 20));
    const auto indexEnds = indexesPresent(allNames(section, expectedKeys, listing));
    for (size_t t = 0; t < std::size(kTables); ++t) readTable(setup, kTables[t], indexEnds[t], buffer);
    return true;
}

void writeSetup(SetupFileUpdate& update, const KoString& section, const DgnMappingSetup& setup)
{
    update.write(section, L"Name", setup.name);
    update.write(section, L"isImport", std::to_wstring(setup.isImport));
    update.write(section, L"Description", setup.description);
    for (const TableKeys& table : kTables)
        update.write(section, table.countKey, std::to_wstring((setup.*table.table).size()));
    const bool import = setup.isImport != 0;
    for (const TableKeys& table : kTables) {
        const wchar_t* sourcePrefix = import ? table.dgnPrefix : table.dwgPrefix;
        const wchar_t* targetPrefix = import ? table.dwgPrefix : table.dgnPrefix;
        KeyCounter sourceKey(sourcePrefix), targetKey(targetPrefix);
        for (const auto& [source, target] : setup.*table.table) {
            update.write(section, sourceKey.key(), source);
            update.write(section, targetKey.key(), target);
            sourceKey.next();
            targetKey.next();
        }
    }
}

bool holdsSetupNamed(const KoString& section, const KoString& name, wchar_t* buffer)
{
    return DgnMappingSetupStore::keyOf(readText(section, L"Name", buffer)) == DgnMappingSetupStore::keyOf(name);
}

// Every setup section of the file holding a setup of this name, the ones
// past the classic listing included: once sections before them go, a
// later load reads those too.
std::vector<KoString> sectionsHoldingSetup(const KoString& name)
{
    KeyListing listing;
    wchar_t buffer[kBufferSize];
    std::vector<KoString> sections;
    for (const KoString& section : splitList(allNames(nullptr, 0, listing))) {
        if (section.find(L"MappingSetup") >= 0 && holdsSetupNamed(section, name, buffer)) sections.push_back(section);
    }
    return sections;
}

// True when the section holds a setup this store does not know: one whose
// section name did not fit in the listing, or one another process added
// since the store was read. Writing over it would lose that setup.
bool holdsUnknownSetup(const DgnMappingSetupStore& store, const KoString& section, wchar_t* buffer)
{
    const KoString name = readText(section, L"Name", buffer);
    return !name.isEmpty() && !isStandardSetupName(name) && !store.find(name);
}

}  // namespace

SetupFileUpdate::SetupFileUpdate() : m_batch(dgnSetupFilePath()) {}

// Values without line breaks, nearly all, are looked at only once.
void SetupFileUpdate::write(const wchar_t* section, const wchar_t* key, const KoString& value)
{
    errno = 0;  // a refusal that is not the system's leaves it so
    bool written = koWritePrivateProfileString(section, key, value, dgnSetupFilePath());
    if (!written && value.findOneOf(L"\r\n") >= 0) {
        KoString oneLine = value;
        oneLine.replace(L"\r\n", L" ");
        oneLine.replace(L'\r', L' ');
        oneLine.replace(L'\n', L' ');
        written = koWritePrivateProfileString(section, key, oneLine, dgnSetupFilePath());
    }
    if (!written && !m_error) m_error = errno ? errno : EIO;
}

bool SetupFileUpdate::finish()
{
    if (!m_batch.end() && !m_error) m_error = errno ? errno : EIO;
    if (!m_error) return true;
    const KoString& path = dgnSetupFilePath();
    koutPrintf(loadLocalString(22676, L"\nCannot save %s: %s.").c_str(),
               (path.isEmpty() ? KoString(L"DgnSetups.ini") : path).c_str(),
               KoString::fromUtf8(std::strerror(m_error)).c_str());
    return false;
}

const KoString& dgnSetupFilePath()
{
    // Without a support folder the path stays empty, which the platform's
    // functions treat as no file: nothing is read and nothing is written,
    // rather than a file appearing in whatever folder is current.
    static const KoString path = [] {
        wchar_t folder[1024] = {};
        if (!GetUserApplicationDataSupportPath(folder, 1024)) return KoString();
        return KoString(folder) + L"DgnSetups.ini";
    }();
    return path;
}

std::vector<KoString> setupFileSectionNames()
{
    wchar_t buffer[kBufferSize] = {};
    koGetPrivateProfileString(nullptr, nullptr, L"", buffer, kBufferSize, dgnSetupFilePath());
    return splitList(buffer);
}

void loadMappingSetups(DgnMappingSetupStore& store)
{
    store.clear();
    store.insert(standardMappingSetup());
    // One batch reads the whole store from one state of the file, checked once.
    KoProfileBatch batch(dgnSetupFilePath());
    std::vector<wchar_t> buffer(kBufferSize);
    KeyListing listing;
    for (const KoString& section : setupFileSectionNames()) {
        if (section.find(L"MappingSetup") < 0) continue;
        DgnMappingSetup setup;
        if (readSetup(section, setup, buffer.data(), listing)) store.insert(std::move(setup));
    }
}

bool saveMappingSetups(DgnMappingSetupStore& store)
{
    SetupFileUpdate update;
    std::vector<wchar_t> buffer(kBufferSize);
    std::vector<std::pair<DgnMappingSetup*, KoString>> written;
    int number = 0;
    for (auto& [key, setup] : store) {
        if (isStandardSetupName(setup.name)) continue;
        KoString section;
        do section = L"MappingSetup" + std::to_wstring(++number);
        while (holdsUnknownSetup(store, section, buffer.data()));
        writeSetup(update, section, setup);
        // Sections are never erased, so the section the setup was read from
        // stays in the file and, coming first, is the one the next load
        // reads: it gets the current content too, or an edit saved into
        // the new section alone would be undone by the next load.
        if (!setup.section.isEmpty() && setup.section.compareNoCase(section) != 0
            && holdsSetupNamed(setup.section, setup.name, buffer.data()))
            writeSetup(update, setup.section, setup);
        written.emplace_back(&setup, section);
    }
    // Each setup's section becomes the one the next load reads it from: the
    // first section of the listing that holds its name. That is not always
    // the one just written (an old section listed earlier, kept current
    // above) nor its old one (taken over by another setup, or listed after
    // a section that now holds it). A setup no listed section holds keeps
    // the section just written. A save that fails leaves the file, and so
    // every section field, as it was.
    std::vector<std::pair<DgnMappingSetup*, KoString>> read;
    for (const KoString& section : setupFileSectionNames()) {
        if (section.find(L"MappingSetup") < 0) continue;
        const DgnMappingSetup* setup = store.find(readText(section, L"Name", buffer.data()));
        const auto found = std::find_if(written.begin(), written.end(),
                                        [&](const auto& entry) { return entry.first == setup; });
        if (!setup || found == written.end()) continue;
        read.emplace_back(found->first, section);
        written.erase(found);
    }
    if (!update.finish()) return false;
    for (auto& [setup, section] : read) setup->section = section;
    for (auto& [setup, section] : written) setup->section = section;
    return true;
}

void removeSetupSection(const KoString& section)
{
    if (!section.isEmpty()) koWritePrivateProfileSection(section, nullptr, dgnSetupFilePath());
}

bool deleteMappingSetup(DgnMappingSetupStore& store, const KoString& name)
{
    const DgnMappingSetup* setup = store.find(name);
    if (!setup) return false;
    // Besides its own section, stale copies of the setup (a duplicate in
    // another letter case, a section a save left behind) go too: each would
    // bring the setup back once the sections before it are gone.
    if (!setup->section.isEmpty()) {
        KoProfileBatch batch(dgnSetupFilePath());
        removeSetupSection(setup->section);
        for (const KoString& section : sectionsHoldingSetup(setup->name)) removeSetupSection(section);
    }
    store.erase(name);
    return true;
}

bool renameMappingSetup(DgnMappingSetupStore& store, const KoString& oldName, const KoString& newName)
{
    const DgnMappingSetup* setup = store.find(oldName);
    if (!setup) return false;
    // Renaming onto another setup's name keeps that setup in the store (the
    // first insertion wins) and drops the renamed one; its section carries
    // the new name, so both stand in the file and the next load keeps the
    // one listed first. The naming rules of the dialogs prevent such clashes.
    DgnMappingSetup renamed = *setup;
    renamed.name = newName;
    store.erase(oldName);
    store.insert(renamed);
    // Stale copies under the old name are renamed with it, or the old name
    // would come back once the section before them goes.
    if (!renamed.section.isEmpty()) {
        SetupFileUpdate update;
        update.write(renamed.section, L"Name", newName);
        for (const KoString& section : sectionsHoldingSetup(oldName)) update.write(section, L"Name", newName);
        update.finish();
    }
    return true;
}

}  // namespace Kora::DgnCommands
