#include "kora/profile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "kora/kostring.h"
#include "profile_internal.h"

namespace {

enum class Encoding : unsigned char { Utf8, Utf16LE, Utf16BE };
enum class Eol : unsigned char { None, Lf, CrLf };
enum class LineKind : unsigned char { Other, Section, Key };

struct Line {
    std::string raw;  // the line's bytes in the file's encoding, without its end
    Eol eol = Eol::None;
    LineKind kind = LineKind::Other;
};
using LineIt = std::list<Line>::iterator;

// Positions of names: an open-addressing table (linear probing) of slots
// that hold a position, the hash of the name's folded form (see fold())
// and how many lines or sections have the name. Only the first of them is
// held, the one that counts; duplicates are rare, and found by a scan when
// the first one goes. Names are not stored: a slot whose hash matches is
// confirmed against the line itself. A look-up so touches one slot, and
// adding a name allocates nothing but the table's occasional growth.
template <typename Pos>
class NameIndex {
public:
    struct Slot {
        Pos pos;
        uint32_t hash = 0;
        uint32_t count = 0;  // 0 marks an empty slot
    };

    // The slot of the name with this hash whose position `is` confirms.
    template <typename Is>
    Slot* find(uint32_t hash, Is is)
    {
        if (m_slots.empty()) return nullptr;
        for (size_t i = hash & mask();; i = (i + 1) & mask()) {
            Slot& slot = m_slots[i];
            if (slot.count == 0) return nullptr;
            if (slot.hash == hash && is(slot.pos)) return &slot;
        }
    }

    // Adds a name that is not in the index.
    void insert(uint32_t hash, Pos pos)
    {
        if ((m_size + 1) * 2 > m_slots.size()) grow();
        size_t i = hash & mask();
        while (m_slots[i].count != 0) i = (i + 1) & mask();
        m_slots[i] = {pos, hash, 1};
        ++m_size;
    }

    // Removes a slot, moving back the slots behind it that would otherwise
    // no longer be reached from their home slot.
    void erase(Slot& slot)
    {
        size_t hole = static_cast<size_t>(&slot - m_slots.data());
        for (size_t i = (hole + 1) & mask(); m_slots[i].count != 0; i = (i + 1) & mask()) {
            const size_t home = m_slots[i].hash & mask();
            // The slot may move to the hole unless its home lies after the hole, up to the slot itself.
            const bool homeBetween = hole < i ? hole < home && home <= i : hole < home || home <= i;
            if (homeBetween) continue;
            m_slots[hole] = m_slots[i];
            hole = i;
        }
        m_slots[hole] = Slot{};
        --m_size;
    }

    void clear()
    {
        m_slots.clear();
        m_size = 0;
    }

private:
    size_t mask() const { return m_slots.size() - 1; }

    void grow()
    {
        std::vector<Slot> old(std::max<size_t>(16, m_slots.size() * 2));
        old.swap(m_slots);
        for (const Slot& slot : old) {
            if (slot.count == 0) continue;
            size_t i = slot.hash & mask();
            while (m_slots[i].count != 0) i = (i + 1) & mask();
            m_slots[i] = slot;
        }
    }

    std::vector<Slot> m_slots;  // a power of two of them, at most half used
    size_t m_size = 0;
};

struct Section {
    LineIt header;
    LineIt lastKey;  // new keys go after it; the header while there is none
    LineIt recent;   // the key last found or added (see keyLine()); the header while there is none
    bool duplicates = false;  // a key name is on more than one line
    NameIndex<LineIt> keys;
};
using SectionIt = std::list<Section>::iterator;

// A parsed file. Lines keep their original bytes, so every line a write
// does not touch goes back to disk exactly as it was read, encoding errors
// included. Lines live in a list and sections and keys are indexed by their
// folded names, so finding, appending and deleting cost O(1) however many
// keys a batch writes.
struct Document {
    Encoding encoding = Encoding::Utf8;
    std::string bom;
    Eol style = Eol::Lf;  // the line end of new lines: the file's first one
    std::list<Line> lines;
    std::list<Section> sections;  // file order
    NameIndex<SectionIt> index;
    // Calls come in runs on one section: the one last found, and its folded
    // name, are checked before the index.
    Section* recentSection = nullptr;
    std::string recentSectionName;
};

// Line text is handled as ASCII bytes or as decoded wide text (see
// withText()), so the text helpers take either.
template <typename Ch>
using Text = std::basic_string_view<Ch>;

template <typename Ch>
bool isBlank(Ch ch)
{
    return ch == ' ' || ch == '\t' || ch == '\r' || ch == '\v' || ch == '\f';
}

template <typename Ch>
Text<Ch> trimmed(Text<Ch> text)
{
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

// The form names are compared in: upper-cased, then one byte for an ASCII
// character and five bytes with the high bit set for any other, so that
// two names share a form only when they match without regard to case, and
// ASCII names, which are nearly all names, fit a string without allocating.
// ASCII is upper-cased here: the locale's mapping gives the same and costs
// far more, per character, than the rest of a look-up.
template <typename Ch>
void fold(Text<Ch> name, std::string& out)
{
    out.resize(name.size());  // one byte a character while they are ASCII
    char* p = out.data();     // written through a local pointer, which the writes cannot move
    for (Ch ch : name) {
        auto up = static_cast<uint32_t>(static_cast<std::make_unsigned_t<Ch>>(ch));
        if (up >= 0x80) up = static_cast<uint32_t>(koToUpper(static_cast<wchar_t>(ch)));
        else if (up >= 'a' && up <= 'z') up -= 'a' - 'A';
        if (up < 0x80) {
            *p++ = static_cast<char>(up);
            continue;
        }
        const auto at = p - out.data();
        out.resize(out.size() + 4);
        p = out.data() + at;
        for (int shift = 28; shift >= 0; shift -= 7) *p++ = static_cast<char>(0x80 | ((up >> shift) & 0x7F));
    }
}

size_t unitSize(Encoding encoding) { return encoding == Encoding::Utf8 ? 1 : 2; }

// The code unit at byte offset i (which must hold a whole unit).
unsigned unitAt(std::string_view bytes, size_t i, Encoding encoding)
{
    const auto b = [&](size_t k) { return static_cast<unsigned>(static_cast<unsigned char>(bytes[k])); };
    switch (encoding) {
    case Encoding::Utf16LE: return b(i) | (b(i + 1) << 8);
    case Encoding::Utf16BE: return (b(i) << 8) | b(i + 1);
    case Encoding::Utf8: break;
    }
    return b(i);
}

std::wstring decode(std::string_view raw, Encoding encoding)
{
    if (encoding == Encoding::Utf8) return KoString::fromUtf8(raw).str();
    std::wstring out;
    out.reserve(raw.size() / 2);
    size_t i = 0;
    for (; i + 1 < raw.size(); i += 2) {
        const unsigned unit = unitAt(raw, i, encoding);
        if (unit >= 0xD800 && unit < 0xDC00 && i + 3 < raw.size()) {
            const unsigned low = unitAt(raw, i + 2, encoding);
            if (low >= 0xDC00 && low < 0xE000) {
                out += static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
                i += 2;
                continue;
            }
        }
        out += static_cast<wchar_t>(unit);
    }
    if (i < raw.size()) out += L'\xFFFD';  // half a code unit at the end of a damaged file
    return out;
}

bool isAscii(unsigned ch) { return ch < 0x80; }

// Appends text in the file's encoding. ASCII, which nearly all text in
// these files is, is copied as it stands into a UTF-8 file.
void appendEncoded(std::string& out, std::wstring_view text, Encoding encoding)
{
    if (encoding == Encoding::Utf8) {
        size_t ascii = 0;
        while (ascii < text.size() && isAscii(text[ascii])) ++ascii;
        const size_t at = out.size();
        out.resize(at + ascii);
        std::transform(text.data(), text.data() + ascii, out.data() + at,
                       [](wchar_t ch) { return static_cast<char>(ch); });
        if (ascii < text.size()) out += KoString(text.substr(ascii)).toUtf8();
        return;
    }
    const auto put = [&](unsigned unit) {
        const char lo = static_cast<char>(unit & 0xFF), hi = static_cast<char>(unit >> 8);
        if (encoding == Encoding::Utf16LE) { out += lo; out += hi; }
        else { out += hi; out += lo; }
    };
    for (wchar_t ch : text) {
        auto cp = static_cast<unsigned>(ch);
        if (cp > 0x10FFFF) cp = 0xFFFD;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            put(0xD800 + (cp >> 10));
            put(0xDC00 + (cp & 0x3FF));
        } else {
            put(cp);
        }
    }
}

std::string encode(std::wstring_view text, Encoding encoding)
{
    std::string out;
    appendEncoded(out, text, encoding);
    return out;
}

// Hands a line's text to `use`: the bytes themselves when they are ASCII
// in a UTF-8 file, as nearly every line is, and the decoded text otherwise.
// Deciding per line keeps the meaning of damaged bytes exactly as decoding
// gives it.
template <typename Use>
auto withText(std::string_view raw, Encoding encoding, Use use)
{
    if (encoding == Encoding::Utf8
        && std::all_of(raw.begin(), raw.end(), [](char b) { return isAscii(static_cast<unsigned char>(b)); }))
        return use(raw);
    const std::wstring text = decode(raw, encoding);
    return use(std::wstring_view(text));
}

template <typename Ch>
struct Classified {
    LineKind kind = LineKind::Other;
    Text<Ch> name;  // section or key name, trimmed
};

// What a line is: "[name]" (the name runs to the last "]"), "key=value",
// or anything else (blank, ";" comment, a damaged "[section" line), which
// is kept but has no meaning.
template <typename Ch>
Classified<Ch> classify(Text<Ch> text)
{
    const Text<Ch> t = trimmed(text);
    if (t.empty() || t.front() == ';') return {};
    if (t.front() == '[') {
        const size_t close = t.rfind(']');
        if (close == Text<Ch>::npos) return {};
        return {LineKind::Section, trimmed(t.substr(1, close - 1))};
    }
    const size_t eq = t.find('=');
    if (eq == Text<Ch>::npos) return {};
    return {LineKind::Key, trimmed(t.substr(0, eq))};
}

// The value of a key line's text, trimmed of blanks and, for callers that
// want it, of one pair of enclosing quotes.
template <typename Ch>
Text<Ch> valueOf(Text<Ch> text, bool stripQuotes)
{
    Text<Ch> value = trimmed(text.substr(text.find('=') + 1));
    if (stripQuotes && value.size() >= 2 && value.front() == value.back()
        && (value.front() == '"' || value.front() == '\''))
        value = value.substr(1, value.size() - 2);
    return value;
}

// The folded name of a section or key line.
void foldLineName(const Line& line, Encoding encoding, std::string& out)
{
    withText(line.raw, encoding, [&](auto text) { fold(classify(text).name, out); });
}

// A name sought or added: its folded form, in the one buffer all look-ups
// reuse (they run under the profile mutex, and the form is valid until
// the next call), and the hash of that form.
struct FoldedName {
    const std::string& text;
    uint32_t hash;
};

template <typename Ch>
FoldedName foldedName(Text<Ch> name)
{
    static auto* buffer = new std::string;
    fold(name, *buffer);
    return {*buffer, static_cast<uint32_t>(std::hash<std::string>{}(*buffer))};
}

// Whether a section or key line has the name.
bool hasName(const Line& line, Encoding encoding, const FoldedName& name)
{
    static auto* buffer = new std::string;
    foldLineName(line, encoding, *buffer);
    return *buffer == name.text;
}

const Line& lineOf(LineIt line) { return *line; }
const Line& lineOf(SectionIt section) { return *section->header; }

template <typename Pos>
typename NameIndex<Pos>::Slot* findNamed(NameIndex<Pos>& index, const Document& doc, const FoldedName& name)
{
    return index.find(name.hash, [&](Pos pos) { return hasName(lineOf(pos), doc.encoding, name); });
}

// Counts one more key line or section of a name, which is indexed when it
// is the first. Keys and sections are only ever added after those of the
// same name, so the first in the index stays the first in file order.
// Answers how many there are now.
template <typename Pos>
unsigned addNamed(NameIndex<Pos>& index, const Document& doc, const FoldedName& name, Pos pos)
{
    if (auto* slot = findNamed(index, doc, name)) return ++slot->count;
    index.insert(name.hash, pos);
    return 1;
}

// Byte offset of a key line's value: past the "=" and the blanks after it,
// so a rewrite keeps the key's spelling and spacing.
size_t valueOffset(std::string_view raw, Encoding encoding)
{
    const size_t unit = unitSize(encoding);
    size_t i = 0;
    while (i + unit <= raw.size() && unitAt(raw, i, encoding) != L'=') i += unit;
    i += unit;
    while (i + unit <= raw.size() && (unitAt(raw, i, encoding) == L' ' || unitAt(raw, i, encoding) == L'\t'))
        i += unit;
    return std::min(i, raw.size());
}

Section& addSection(Document& doc, LineIt header, const FoldedName& name)
{
    doc.sections.push_back({.header = header, .lastKey = header, .recent = header, .duplicates = false, .keys = {}});
    const SectionIt section = std::prev(doc.sections.end());
    addNamed(doc.index, doc, name, section);
    return *section;
}

void addKey(Document& doc, Section& section, LineIt line, const FoldedName& name)
{
    if (addNamed(section.keys, doc, name, line) > 1) section.duplicates = true;
    section.lastKey = line;
}

// The line of a key (the first with the name), or null. Keys are mostly
// read and rewritten in file order, so the key after the one last found is
// tried before the index, whose slots lie all over memory. In a section
// that has a name twice that key need not be the first of its name, so
// there the index always answers.
Line* keyLine(Document& doc, Section& s, const FoldedName& name)
{
    const LineIt next = std::next(s.recent);
    if (!s.duplicates && next != doc.lines.end() && next->kind == LineKind::Key
        && hasName(*next, doc.encoding, name)) {
        s.recent = next;
        return &*next;
    }
    const auto* k = findNamed(s.keys, doc, name);
    if (!k) return nullptr;
    s.recent = k->pos;
    return &*k->pos;
}

void appendParsedLine(Document& doc, Line line)
{
    doc.lines.push_back(std::move(line));
    const LineIt it = std::prev(doc.lines.end());
    withText(it->raw, doc.encoding, [&](auto text) {
        const auto c = classify(text);
        // Keys above the first section belong to no section: kept, never read.
        it->kind = c.kind == LineKind::Key && doc.sections.empty() ? LineKind::Other : c.kind;
        if (it->kind == LineKind::Section) addSection(doc, it, foldedName(c.name));
        else if (it->kind == LineKind::Key) addKey(doc, doc.sections.back(), it, foldedName(c.name));
    });
}

void parse(Document& doc, const std::string& bytes)
{
    size_t start = 0;
    if (bytes.starts_with("\xEF\xBB\xBF")) {
        start = 3;
    } else if (bytes.starts_with("\xFF\xFE")) {
        doc.encoding = Encoding::Utf16LE;
        start = 2;
    } else if (bytes.starts_with("\xFE\xFF")) {
        doc.encoding = Encoding::Utf16BE;
        start = 2;
    }
    doc.bom = bytes.substr(0, start);
    const size_t unit = unitSize(doc.encoding);
    bool styleSeen = false;
    while (start < bytes.size()) {
        size_t nl = start;
        if (unit == 1) {
            const void* found = std::memchr(bytes.data() + start, '\n', bytes.size() - start);
            nl = found ? static_cast<size_t>(static_cast<const char*>(found) - bytes.data()) : bytes.size();
        } else {
            while (nl + 1 < bytes.size() && unitAt(bytes, nl, doc.encoding) != L'\n') nl += 2;
            if (nl + 1 >= bytes.size()) nl = bytes.size();
        }
        Line line;
        if (nl == bytes.size()) {
            line.raw.assign(bytes, start, nl - start);
            start = nl;
        } else {
            size_t end = nl;
            line.eol = Eol::Lf;
            if (end >= start + unit && unitAt(bytes, end - unit, doc.encoding) == L'\r') {
                end -= unit;
                line.eol = Eol::CrLf;
            }
            line.raw.assign(bytes, start, end - start);
            if (!styleSeen) doc.style = line.eol;
            styleSeen = true;
            start = nl + unit;
        }
        appendParsedLine(doc, std::move(line));
    }
}

LineIt insertLine(Document& doc, LineIt pos, std::string raw, LineKind kind)
{
    // Only the last line of a file can lack its line end; it needs one now.
    if (pos == doc.lines.end() && !doc.lines.empty() && doc.lines.back().eol == Eol::None)
        doc.lines.back().eol = doc.style;
    return doc.lines.insert(pos, Line{std::move(raw), doc.style, kind});
}

// The section of a name (the first with it), or null. A section found in
// the index stays the first of its name as long as it lives, as sections
// are only ever added at the end.
Section* findSection(Document& doc, std::wstring_view name)
{
    const FoldedName folded = foldedName(trimmed(name));
    if (doc.recentSection && doc.recentSectionName == folded.text) return doc.recentSection;
    const auto* found = findNamed(doc.index, doc, folded);
    if (!found) return nullptr;
    doc.recentSection = &*found->pos;
    doc.recentSectionName = folded.text;
    return doc.recentSection;
}

const Line* findKey(Document& doc, std::wstring_view section, std::wstring_view key)
{
    Section* s = findSection(doc, section);
    return s ? keyLine(doc, *s, foldedName(trimmed(key))) : nullptr;
}

// The line after a section's last line.
LineIt sectionEnd(Document& doc, SectionIt section)
{
    const auto next = std::next(section);
    return next == doc.sections.end() ? doc.lines.end() : next->header;
}

Section& appendSection(Document& doc, std::wstring_view name)
{
    std::string header = encode(L"[", doc.encoding);
    appendEncoded(header, trimmed(name), doc.encoding);
    appendEncoded(header, L"]", doc.encoding);
    const LineIt line = insertLine(doc, doc.lines.end(), std::move(header), LineKind::Section);
    return addSection(doc, line, foldedName(trimmed(name)));
}

// Each edit answers whether it changed the document.
bool setKey(Document& doc, std::wstring_view section, std::wstring_view key, std::wstring_view value)
{
    const std::wstring_view name = trimmed(key);
    Section* found = findSection(doc, section);
    Section& s = found ? *found : appendSection(doc, section);
    const FoldedName folded = foldedName(name);
    if (Line* existing = keyLine(doc, s, folded)) {
        Line& line = *existing;
        const size_t offset = valueOffset(line.raw, doc.encoding);
        const std::string encoded = encode(value, doc.encoding);
        if (std::string_view(line.raw).substr(offset) == encoded) return false;
        line.raw.replace(offset, std::string::npos, encoded);
        return true;
    }
    std::string text;
    text.reserve(name.size() + 1 + value.size());  // exact for ASCII
    appendEncoded(text, name, doc.encoding);
    appendEncoded(text, L"=", doc.encoding);
    appendEncoded(text, value, doc.encoding);
    s.lastKey = insertLine(doc, std::next(s.lastKey), std::move(text), LineKind::Key);
    s.keys.insert(folded.hash, s.lastKey);
    s.recent = s.lastKey;
    return true;
}

bool deleteKey(Document& doc, std::wstring_view section, std::wstring_view key)
{
    Section* found = findSection(doc, section);
    if (!found) return false;
    Section& s = *found;
    const FoldedName name = foldedName(trimmed(key));
    auto* k = findNamed(s.keys, doc, name);
    if (!k) return false;
    const LineIt line = k->pos;
    if (--k->count > 0) {
        // The duplicate behind it shows now.
        do ++k->pos; while (k->pos->kind != LineKind::Key || !hasName(*k->pos, doc.encoding, name));
    } else {
        s.keys.erase(*k);
    }
    if (line == s.lastKey) {
        LineIt before = line;
        do --before; while (before != s.header && before->kind != LineKind::Key);
        s.lastKey = before;
    }
    if (line == s.recent) s.recent = s.header;
    doc.lines.erase(line);
    return true;
}

bool deleteSection(Document& doc, std::wstring_view section)
{
    const FoldedName name = foldedName(trimmed(section));
    auto* found = findNamed(doc.index, doc, name);
    if (!found) return false;
    const SectionIt s = found->pos;
    if (--found->count > 0) {
        // So does a section of the same name further on.
        do ++found->pos; while (!hasName(*found->pos->header, doc.encoding, name));
    } else {
        doc.index.erase(*found);
    }
    if (doc.recentSection == &*s) doc.recentSection = nullptr;
    doc.lines.erase(s->header, sectionEnd(doc, s));
    doc.sections.erase(s);
    return true;
}

// Replaces everything from the header to the section's last key; blank and
// comment lines after the last key stay, as they usually introduce what
// follows.
bool replaceSection(Document& doc, std::wstring_view section, const std::vector<std::wstring_view>& entries)
{
    if (entries.empty()) return deleteSection(doc, section);
    Section* found = findSection(doc, section);
    Section& s = found ? *found : appendSection(doc, section);
    doc.lines.erase(std::next(s.header), std::next(s.lastKey));
    s.keys.clear();
    s.lastKey = s.recent = s.header;
    s.duplicates = false;
    LineIt cursor = s.header;
    for (std::wstring_view entry : entries) {
        const auto c = classify(entry);
        cursor = insertLine(doc, std::next(cursor), encode(entry, doc.encoding), c.kind);
        if (c.kind == LineKind::Key) addKey(doc, s, cursor, foldedName(c.name));
    }
    return true;
}

bool isOneLine(std::wstring_view text)
{
    return std::none_of(text.begin(), text.end(), [](wchar_t ch) { return ch == L'\r' || ch == L'\n'; });
}

template <typename Ch>
unsigned copyText(Text<Ch> text, wchar_t* buffer, unsigned size)
{
    const size_t n = std::min<size_t>(text.size(), size - 1);
    std::copy_n(text.data(), n, buffer);
    buffer[n] = 0;
    return static_cast<unsigned>(n);
}

// Writes names into a caller's buffer as a zero-separated list ended by an
// extra zero. A list that does not fit is cut and still ends with two
// zeros; the writer takes no names after that, so asking with a buffer too
// small costs no more than the buffer holds.
class ListWriter {
public:
    ListWriter(wchar_t* buffer, unsigned size) : m_buffer(buffer), m_size(size) {}

    // Answers whether the list has room for more.
    template <typename Ch>
    bool add(Text<Ch> name)
    {
        if (m_full) return false;
        if (m_used + name.size() + 2 <= m_size) {
            std::copy(name.begin(), name.end(), m_buffer + m_used);
            m_used += name.size();
            m_buffer[m_used++] = 0;
            return true;
        }
        if (m_used + 2 < m_size) std::copy_n(name.begin(), m_size - 2 - m_used, m_buffer + m_used);
        m_full = true;
        return false;
    }

    // Ends the list and answers the number of characters it holds before
    // its final zero (size - 2 for a cut list).
    unsigned finish()
    {
        if (!m_full) {
            m_buffer[m_used] = 0;
            if (m_used == 0 && m_size > 1) m_buffer[1] = 0;  // an empty list reads as "\0\0" too
            return static_cast<unsigned>(m_used);
        }
        if (m_size < 2) {
            m_buffer[0] = 0;
            return 0;
        }
        m_buffer[m_size - 2] = 0;
        m_buffer[m_size - 1] = 0;
        return m_size - 2;
    }

private:
    wchar_t* m_buffer;
    unsigned m_size;
    size_t m_used = 0;
    bool m_full = false;
};

// Calls use(name) with each section name in file order while it answers true.
template <typename Use>
void forEachSectionName(const Document& doc, Use use)
{
    for (const Section& s : doc.sections) {
        if (!withText(s.header->raw, doc.encoding, [&](auto text) { return use(classify(text).name); })) return;
    }
}

// Calls use(name) with each key name of a section in file order while it
// answers true.
template <typename Use>
void forEachKeyName(Document& doc, std::wstring_view section, Use use)
{
    const Section* s = findSection(doc, section);
    if (!s) return;
    const LineIt end = std::next(s->lastKey);
    for (LineIt it = s->header; it != end; ++it) {
        if (it->kind != LineKind::Key) continue;
        if (!withText(it->raw, doc.encoding, [&](auto text) { return use(classify(text).name); })) return;
    }
}

// The leading decimal integer of a value (blanks skipped, optional sign),
// 0 when there is none.
template <typename Ch>
unsigned leadingInteger(Text<Ch> v)
{
    size_t i = 0;
    while (i < v.size() && isBlank(v[i])) ++i;
    const bool negative = i < v.size() && v[i] == '-';
    if (i < v.size() && (v[i] == '-' || v[i] == '+')) ++i;
    unsigned n = 0;
    for (; i < v.size() && v[i] >= '0' && v[i] <= '9'; ++i) n = n * 10 + static_cast<unsigned>(v[i] - '0');
    return negative ? 0u - n : n;
}

}  // namespace

// One cached file. The cache answers reads without touching the file as
// long as the file's identity and modification stamp are unchanged.
struct KoProfileFile {
    std::string path;  // absolute, UTF-8
    Document doc;
    bool exists = false;      // the parsed copy is of a file on disk
    bool unreadable = false;  // there is a file we cannot read: never replace it
    // The file we parsed stays open so its inode number cannot be reused by
    // a later file, which makes (device, inode, size, mtime) a safe stamp.
    int heldFd = -1;
    struct stat stamp {};
    int lockFd = -1;  // open while we hold the file's lock
    int batchDepth = 0;
    bool checkedInBatch = false;  // the running batch has checked the parsed copy against the file
    bool dirty = false;           // the parsed copy has writes the file has not
};

namespace {

std::mutex& profileMutex()
{
    static std::mutex mutex;
    return mutex;
}

// Lets absolute names be looked up as given, without a copy.
struct WideNameHash {
    using is_transparent = void;
    size_t operator()(std::wstring_view name) const { return std::hash<std::wstring_view>{}(name); }
};

// The cache entry of a file name, or null for a name that cannot name a
// file. Relative names are made absolute so that one file has one entry;
// absolute names, which do not depend on the working folder, are also
// remembered as given, which spares every later call the normalisation.

KoProfileFile* cachedFile(const wchar_t* fileName)
{
    static auto* files = new std::unordered_map<std::string, std::unique_ptr<KoProfileFile>>;
    static auto* absoluteNames = new std::unordered_map<std::wstring, KoProfileFile*, WideNameHash, std::equal_to<>>;
    // Calls come in runs on one file: the last absolute name is checked first.
    static std::pair<const std::wstring*, KoProfileFile*> last{nullptr, nullptr};
    if (!fileName || !*fileName) return nullptr;
    const bool absolute = fileName[0] == L'/';
    if (absolute) {
        if (last.first && std::wcscmp(last.first->c_str(), fileName) == 0) return last.second;
        const auto known = absoluteNames->find(std::wstring_view(fileName));
        if (known != absoluteNames->end()) {
            last = {&known->first, known->second};
            return known->second;
        }
    }
    std::filesystem::path path(KoString(fileName).toUtf8());
    if (!absolute) {
        std::error_code ec;
        const std::filesystem::path cwd = std::filesystem::current_path(ec);
        if (ec) return nullptr;
        path = cwd / path;
    }
    path = path.lexically_normal();
    if (!path.has_filename()) return nullptr;
    std::unique_ptr<KoProfileFile>& entry = (*files)[path.string()];
    if (!entry) {
        entry = std::make_unique<KoProfileFile>();
        entry->path = path.string();
    }
    if (absolute) absoluteNames->emplace(fileName, entry.get());
    return entry.get();
}

void forget(KoProfileFile& file)
{
    file.doc = Document{};
    file.exists = false;
    file.unreadable = false;
    file.dirty = false;
    if (file.heldFd >= 0) close(file.heldFd);
    file.heldFd = -1;
}

bool sameStamp(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size
        && a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

bool readAll(int fd, std::string& bytes)
{
    char chunk[65536];
    for (;;) {
        const ssize_t n = read(fd, chunk, sizeof chunk);
        if (n == 0) return true;
        if (n < 0 && errno != EINTR) return false;
        if (n > 0) bytes.append(chunk, static_cast<size_t>(n));
    }
}

bool writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t n = write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno != EINTR) return false;
        if (n > 0) bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

// Writes the parsed copy out a megabyte at a time: a copy of a big file in
// memory would only add its size to what the process needs.
bool writeDocument(int fd, const Document& doc)
{
    constexpr size_t kChunk = 1 << 20;
    const std::string lf = encode(L"\n", doc.encoding), crlf = encode(L"\r\n", doc.encoding);
    std::string out = doc.bom;
    for (const Line& line : doc.lines) {
        out += line.raw;
        if (line.eol == Eol::Lf) out += lf;
        else if (line.eol == Eol::CrLf) out += crlf;
        if (out.size() >= kChunk) {
            if (!writeAll(fd, out)) return false;
            out.clear();
        }
    }
    return writeAll(fd, out);
}

void load(KoProfileFile& file)
{
    const int fd = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        const bool missing = errno == ENOENT || errno == ENOTDIR;
        forget(file);
        file.unreadable = !missing;
        return;
    }
    struct stat st;
    std::string bytes;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || !readAll(fd, bytes)) {
        close(fd);
        forget(file);
        file.unreadable = true;
        return;
    }
    forget(file);
    parse(file.doc, bytes);
    file.exists = true;
    file.stamp = st;
    file.heldFd = fd;
}

void syncWithDisk(KoProfileFile& file)
{
    struct stat st;
    if (file.exists && stat(file.path.c_str(), &st) == 0 && sameStamp(st, file.stamp)) return;
    load(file);
}

// While we hold the lock nobody else replaces the file, and the parsed copy
// may hold a batch's writes that the disk has not: it is the truth then.
// A batch that only reads checks the file at its first call and answers
// from that state to its end, without taking the lock: a store read key by
// key then costs one stat() rather than one per key, and sees one state
// of the file rather than a mix of two.
void refresh(KoProfileFile& file)
{
    if (file.lockFd >= 0 || file.checkedInBatch) return;
    syncWithDisk(file);
    file.checkedInBatch = file.batchDepth > 0;
}

// The lock is taken on a sidecar "<file>.lock" rather than on the file
// itself: every write replaces the file with a new inode, so a lock on the
// file would guard an inode that is about to be dropped. flock locks are
// released by the kernel when a process dies, so a crash never leaves the
// file locked; the sidecar is never removed, because removing it would let
// two processes lock two different sidecars.
bool acquireLock(KoProfileFile& file)
{
    const int fd = open((file.path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    while (flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) {
            close(fd);
            return false;
        }
    }
    file.lockFd = fd;
    syncWithDisk(file);  // another process may have written before we got the lock
    return true;
}

void releaseLock(KoProfileFile& file)
{
    close(file.lockFd);
    file.lockFd = -1;
}

// Replaces the file with the parsed copy: a temporary file in the same
// folder, flushed to disk, then renamed over the file, so readers see the
// old file or the new one and never a part. A file reached through a
// symbolic link is replaced where it really lives, keeping the link.
bool flush(KoProfileFile& file)
{
    static unsigned counter = 0;
    std::filesystem::path target(file.path);
    if (char* real = realpath(file.path.c_str(), nullptr)) {
        target = real;
        std::free(real);
    }
    const std::string prefix = (target.parent_path() / ("." + target.filename().string())).string()
                             + "." + std::to_string(getpid()) + ".";
    std::string temp;
    int fd = -1;
    for (int attempt = 0; fd < 0 && attempt < 100; ++attempt) {
        temp = prefix + std::to_string(++counter) + ".tmp";
        fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST) return false;
    }
    if (fd < 0) return false;
    struct stat st;
    const bool ok = (!file.exists || fchmod(fd, file.stamp.st_mode & 07777) == 0)
                 && writeDocument(fd, file.doc) && fsync(fd) == 0 && fstat(fd, &st) == 0
                 && rename(temp.c_str(), target.c_str()) == 0;
    if (!ok) {
        unlink(temp.c_str());
        close(fd);
        return false;
    }
    if (file.heldFd >= 0) close(file.heldFd);
    file.heldFd = fd;
    file.stamp = st;
    file.exists = true;
    file.dirty = false;
    return true;
}

// Runs one edit under the file's lock. Outside a batch the file is
// replaced before the lock is released; inside one the edit stays in the
// parsed copy and the batch keeps the lock until it ends.
template <typename Edit>
bool modify(const wchar_t* fileName, Edit edit)
{
    std::lock_guard guard(profileMutex());
    KoProfileFile* file = cachedFile(fileName);
    if (!file) return false;
    if (file->lockFd < 0 && !acquireLock(*file)) return false;
    bool ok = !file->unreadable;
    if (ok && edit(file->doc)) file->dirty = true;
    if (file->batchDepth == 0) {
        if (file->dirty && !flush(*file)) {
            forget(*file);  // drop the edit: the next call reads what the disk has
            ok = false;
        }
        releaseLock(*file);
    }
    return ok;
}

// Runs a read on the up-to-date parsed copy (an empty one for a bad name).
template <typename Read>
auto inspect(const wchar_t* fileName, Read read)
{
    std::lock_guard guard(profileMutex());
    Document none;
    KoProfileFile* file = cachedFile(fileName);
    if (file) refresh(*file);
    return read(file ? file->doc : none);
}

// Calls use(value) with a key's value (see valueOf()) on the up-to-date
// parsed copy; answers false, without calling it, when the key is missing.
template <typename Use>
bool withValue(const wchar_t* section, const wchar_t* key, const wchar_t* fileName, bool stripQuotes, Use use)
{
    if (!section || !key) return false;
    return inspect(fileName, [&](Document& doc) {
        const Line* line = findKey(doc, section, key);
        if (!line) return false;
        withText(line->raw, doc.encoding, [&](auto text) { use(valueOf(text, stripQuotes)); });
        return true;
    });
}

}  // namespace

unsigned koGetPrivateProfileString(const wchar_t* section, const wchar_t* key, const wchar_t* defaultValue,
                                   wchar_t* buffer, unsigned size, const wchar_t* fileName)
{
    if (!buffer || size == 0) return 0;
    if (!section || !key) {
        ListWriter list(buffer, size);
        inspect(fileName, [&](Document& doc) {
            const auto add = [&](auto name) { return list.add(name); };
            if (!section) forEachSectionName(doc, add);
            else forEachKeyName(doc, section, add);
        });
        return list.finish();
    }
    unsigned copied = 0;
    if (withValue(section, key, fileName, true, [&](auto value) { copied = copyText(value, buffer, size); }))
        return copied;
    // A default loses its trailing blanks, as values do.
    std::wstring_view fallback = defaultValue ? defaultValue : L"";
    while (!fallback.empty() && isBlank(fallback.back())) fallback.remove_suffix(1);
    return copyText(fallback, buffer, size);
}

unsigned koGetPrivateProfileInt(const wchar_t* section, const wchar_t* key, int defaultValue, const wchar_t* fileName)
{
    auto result = static_cast<unsigned>(defaultValue);
    withValue(section, key, fileName, true, [&](auto value) {
        if (!value.empty()) result = leadingInteger(value);
    });
    return result;
}

bool koWritePrivateProfileString(const wchar_t* section, const wchar_t* key, const wchar_t* value,
                                 const wchar_t* fileName)
{
    if (!section) return false;
    const std::wstring_view sectionName = section;
    if (!isOneLine(sectionName)) return false;
    if (!key) return modify(fileName, [&](Document& doc) { return deleteSection(doc, sectionName); });
    if (!kora::detail::profileCanStore(key, value)) return false;
    const std::wstring_view keyName = key;
    if (!value) return modify(fileName, [&](Document& doc) { return deleteKey(doc, sectionName, keyName); });
    const std::wstring_view text = value;
    return modify(fileName, [&](Document& doc) { return setKey(doc, sectionName, keyName, text); });
}

bool koWritePrivateProfileSection(const wchar_t* section, const wchar_t* content, const wchar_t* fileName)
{
    if (!section || !isOneLine(section)) return false;
    std::vector<std::wstring_view> entries;
    for (const wchar_t* p = content; p && *p; p += entries.back().size() + 1) {
        entries.emplace_back(p);
        if (!isOneLine(entries.back()) || classify(entries.back()).kind == LineKind::Section) return false;
    }
    return modify(fileName, [&](Document& doc) { return replaceSection(doc, section, entries); });
}

KoProfileBatch::KoProfileBatch(const wchar_t* fileName)
{
    std::lock_guard guard(profileMutex());
    m_file = cachedFile(fileName);
    if (m_file) ++m_file->batchDepth;
}

KoProfileBatch::~KoProfileBatch()
{
    if (!m_file) return;
    std::lock_guard guard(profileMutex());
    if (--m_file->batchDepth > 0) return;
    m_file->checkedInBatch = false;
    if (m_file->dirty && !flush(*m_file)) forget(*m_file);
    if (m_file->lockFd >= 0) releaseLock(*m_file);
}

namespace kora::detail {

std::optional<std::wstring> profileRawValue(const wchar_t* section, const wchar_t* key, const wchar_t* fileName)
{
    std::optional<std::wstring> raw;
    withValue(section, key, fileName, false, [&](auto value) { raw.emplace(value.begin(), value.end()); });
    return raw;
}

std::vector<std::wstring> profileSectionNames(const wchar_t* fileName)
{
    std::vector<std::wstring> names;
    inspect(fileName, [&](Document& doc) {
        forEachSectionName(doc, [&](auto name) {
            names.emplace_back(name.begin(), name.end());
            return true;
        });
    });
    return names;
}

bool profileCanStore(const wchar_t* key, const wchar_t* value)
{
    const std::wstring_view k = trimmed(std::wstring_view(key ? key : L""));
    return isOneLine(k) && k.find(L'=') == std::wstring_view::npos
        && (k.empty() || (k.front() != L';' && k.front() != L'[')) && (!value || isOneLine(value));
}

}  // namespace kora::detail
