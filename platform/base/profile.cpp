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
#include <utility>
#include <vector>

#include "kora/atomicfile.h"
#include "kora/kostring.h"
#include "profile_internal.h"

namespace {

enum class Encoding : unsigned char { Utf8, Utf16LE, Utf16BE };
enum class Eol : unsigned char { None, Lf, CrLf };
enum class LineKind : unsigned char { Other, Section, Key };

// Lines are numbered by their place among the document's line records
// (see LineRecords); kNoLine stands for no line (the end of the file).
using LineId = uint32_t;
constexpr LineId kNoLine = UINT32_MAX;

struct Line {
    char* text = nullptr;  // the line's bytes in the file's encoding, without its end (in the TextStore)
    uint32_t size = 0;
    LineId prev = kNoLine;
    LineId next = kNoLine;
    Eol eol = Eol::None;
    LineKind kind = LineKind::Other;

    std::string_view raw() const { return {text, size}; }
};

// Line records in blocks of a fixed count: a record never moves, and a
// file that grows to millions of lines never has its records copied.
class LineRecords {
public:
    Line& operator[](LineId id) { return m_blocks[id >> kShift][id & kMask]; }
    const Line& operator[](LineId id) const { return m_blocks[id >> kShift][id & kMask]; }
    LineId size() const { return m_size; }

    // A new record at the end.
    LineId add()
    {
        if ((m_size & kMask) == 0) m_blocks.push_back(std::make_unique_for_overwrite<Line[]>(kMask + 1));
        return m_size++;
    }

private:
    static constexpr unsigned kShift = 14;
    static constexpr LineId kMask = (LineId{1} << kShift) - 1;
    std::vector<std::unique_ptr<Line[]>> m_blocks;
    LineId m_size = 0;
};

// The bytes of all lines of a document. A parsed file's lines point into
// the bytes read from disk, and new text goes into large blocks, so neither
// parsing nor writing a key allocates memory per line. Text that a rewrite
// or a deletion gives up is only counted; once it outweighs the live text
// the document copies its lines into a fresh store (see compactText()).
class TextStore {
public:
    // Keeps the bytes of a file; answers where they now are.
    char* adopt(std::string bytes)
    {
        m_file = std::make_unique<std::string>(std::move(bytes));
        m_live += m_file->size();
        return m_file->data();
    }

    // Room for n bytes, which the caller fills.
    char* allocate(size_t n)
    {
        m_live += n;
        if (m_blocks.empty() || m_blocks.back().capacity - m_blocks.back().used < n) {
            // Blocks grow with the text, so a small file costs a small block.
            const size_t capacity = std::max(n, std::clamp(m_live, kMinBlock, kMaxBlock));
            m_blocks.push_back({std::make_unique_for_overwrite<char[]>(capacity), capacity, 0});
        }
        Block& block = m_blocks.back();
        char* at = block.data.get() + block.used;
        block.used += n;
        return at;
    }

    void release(size_t n)
    {
        m_live -= n;
        m_dead += n;
    }

    bool wasteful() const { return m_dead > kMaxBlock && m_dead > m_live; }

private:
    static constexpr size_t kMinBlock = 4096;
    static constexpr size_t kMaxBlock = size_t{4} << 20;

    struct Block {
        std::unique_ptr<char[]> data;
        size_t capacity = 0;
        size_t used = 0;
    };

    std::unique_ptr<std::string> m_file;  // on the heap: lines point into it wherever the store moves
    std::vector<Block> m_blocks;
    size_t m_live = 0;  // bytes of the lines, and of the line ends of the file
    size_t m_dead = 0;  // bytes given up
};

// Positions of names: an open-addressing table (linear probing) of slots
// that hold a position and the hash of the name's folded form (see
// fold()). Only the first line or section of a name is held, the one that
// counts; duplicates are rare, and found by a scan when the first one
// goes. Names are not stored: a slot whose hash matches is confirmed
// against the line itself. Beside the slots, one byte per slot tells
// whether it is used and, if so, seven more bits of its hash: probing
// reads those bytes, a table an eighth the size of the slots that stays in
// the cache, and reaches a slot only on a likely match. A look-up of a new
// name, which every key a save adds is, so rarely waits for memory, and
// adding a name allocates nothing but the table's occasional growth.
template <typename Pos>
class NameIndex {
public:
    struct Slot {
        Pos pos;
        uint32_t hash;
    };

    // The slot of the name with this hash whose position `is` confirms.
    template <typename Is>
    Slot* find(uint32_t hash, Is is)
    {
        if (m_capacity == 0) return nullptr;
        const uint8_t tag = tagOf(hash);
        for (size_t i = hash & mask(); m_tags[i] != kEmpty; i = (i + 1) & mask()) {
            if (m_tags[i] == tag && m_slots[i].hash == hash && is(m_slots[i].pos)) return &m_slots[i];
        }
        return nullptr;
    }

    // Adds a name that is not in the index.
    void insert(uint32_t hash, Pos pos)
    {
        if ((m_size + 1) * 2 > m_capacity) grow();
        place({pos, hash});
        ++m_size;
    }

    // Removes a slot, moving back the slots behind it that would otherwise
    // no longer be reached from their home slot.
    void erase(Slot& slot)
    {
        size_t hole = static_cast<size_t>(&slot - m_slots.get());
        for (size_t i = (hole + 1) & mask(); m_tags[i] != kEmpty; i = (i + 1) & mask()) {
            const size_t home = m_slots[i].hash & mask();
            // The slot may move to the hole unless its home lies after the hole, up to the slot itself.
            const bool homeBetween = hole < i ? hole < home && home <= i : hole < home || home <= i;
            if (homeBetween) continue;
            m_slots[hole] = m_slots[i];
            m_tags[hole] = m_tags[i];
            hole = i;
        }
        m_tags[hole] = kEmpty;
        --m_size;
    }

    void clear() { *this = NameIndex{}; }

private:
    static constexpr uint8_t kEmpty = 0;

    static uint8_t tagOf(uint32_t hash) { return static_cast<uint8_t>(0x80 | (hash >> 25)); }
    size_t mask() const { return m_capacity - 1; }

    void place(const Slot& slot)
    {
        size_t i = slot.hash & mask();
        while (m_tags[i] != kEmpty) i = (i + 1) & mask();
        m_tags[i] = tagOf(slot.hash);
        m_slots[i] = slot;
    }

    void grow()
    {
        const size_t oldCapacity = m_capacity;
        const auto oldTags = std::move(m_tags);
        const auto oldSlots = std::move(m_slots);
        m_capacity = std::max<size_t>(16, oldCapacity * 2);
        m_tags = std::make_unique<uint8_t[]>(m_capacity);  // zeroed: all empty
        m_slots = std::make_unique_for_overwrite<Slot[]>(m_capacity);
        for (size_t i = 0; i < oldCapacity; ++i) {
            if (oldTags[i] != kEmpty) place(oldSlots[i]);
        }
    }

    std::unique_ptr<uint8_t[]> m_tags;  // kEmpty, or the tag of the slot's hash
    std::unique_ptr<Slot[]> m_slots;    // valid where the tag is not kEmpty
    size_t m_capacity = 0;  // a power of two, at most half used
    size_t m_size = 0;
};

struct Section {
    LineId header;
    LineId lastKey;  // new keys go after it; the header while there is none
    LineId recent;   // the key last found or added (see keyLine()); the header while there is none
    bool duplicates = false;  // a key name is, or was, on more than one line
    NameIndex<LineId> keys;
};
using SectionIt = std::list<Section>::iterator;

// A parsed file. Lines keep their original bytes, so every line a write
// does not touch goes back to disk exactly as it was read, encoding errors
// included. Lines are records linked in file order and sections and keys
// are indexed by their folded names, so finding, appending and deleting
// cost O(1) however many keys a batch writes.
struct Document {
    Encoding encoding = Encoding::Utf8;
    std::string bom;
    Eol style = Eol::Lf;  // the line end of new lines: the file's first one
    LineRecords lines;
    LineId first = kNoLine;
    LineId last = kNoLine;
    LineId freeLines = kNoLine;  // records of deleted lines, linked through `next`, for reuse
    TextStore text;
    std::list<Section> sections;  // file order
    bool duplicateSections = false;  // a section name is, or was, on more than one section
    NameIndex<Section*> index;
    // Calls come in runs on one section: the one last found is checked
    // first, by the name it was asked for as given, which spares folding.
    Section* recentSection = nullptr;
    std::wstring recentSectionName;
    Kora::Diagnostics<KoProfileCode> problems;  // what reading the file met
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
// far more, per character, than the rest of a look-up. Answers the hash of
// the form, taken on the way (FNV-1a, its bits then mixed so that both the
// low ones, which place a name in an index, and the high ones spread).
template <typename Ch>
uint32_t fold(Text<Ch> name, std::string& out)
{
    out.resize(name.size());  // one byte a character while they are ASCII
    char* p = out.data();     // written through a local pointer, which the writes cannot move
    uint32_t hash = 2166136261u;
    const auto put = [&](uint32_t byte) {
        *p++ = static_cast<char>(byte);
        hash = (hash ^ byte) * 16777619u;
    };
    for (Ch ch : name) {
        auto up = static_cast<uint32_t>(static_cast<std::make_unsigned_t<Ch>>(ch));
        if (up >= 0x80) up = static_cast<uint32_t>(koToUpper(static_cast<wchar_t>(ch)));
        else if (up >= 'a' && up <= 'z') up -= 'a' - 'A';
        if (up < 0x80) {
            put(up);
            continue;
        }
        const auto at = p - out.data();
        out.resize(out.size() + 4);
        p = out.data() + at;
        for (int shift = 28; shift >= 0; shift -= 7) put(0x80 | ((up >> shift) & 0x7F));
    }
    hash ^= hash >> 16;
    hash *= 0x85EBCA6Bu;
    hash ^= hash >> 13;
    hash *= 0xC2B2AE35u;
    return hash ^ (hash >> 16);
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

// Copies text to p, one byte a character, and answers whether it was all
// ASCII, in which case the copy is its UTF-8. Nearly all text in these
// files is, so text is copied at once and only made UTF-8 again when a
// character was not ASCII.
bool copyAscii(std::wstring_view text, char*& p)
{
    unsigned bits = 0;
    for (wchar_t ch : text) {
        bits |= static_cast<unsigned>(ch);
        *p++ = static_cast<char>(ch);
    }
    return isAscii(bits);
}

// Appends text in the file's encoding.
void appendEncoded(std::string& out, std::wstring_view text, Encoding encoding)
{
    if (encoding == Encoding::Utf8) {
        const size_t at = out.size();
        out.resize(at + text.size());
        char* p = out.data() + at;
        if (copyAscii(text, p)) return;
        out.resize(at);
        out += KoString(text).toUtf8();
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

// Writes a key line, "name=value", in the file's encoding into `out`, in
// one step when the file is UTF-8 and the text ASCII, as a store's keys
// all are. Answers where the value starts.
size_t encodeKeyLine(std::string& out, std::wstring_view name, std::wstring_view value, Encoding encoding)
{
    if (encoding == Encoding::Utf8) {
        out.resize(name.size() + 1 + value.size());
        char* p = out.data();
        const bool asciiName = copyAscii(name, p);
        *p++ = '=';
        if (copyAscii(value, p) && asciiName) return name.size() + 1;
    }
    out.clear();
    appendEncoded(out, name, encoding);
    appendEncoded(out, L"=", encoding);
    const size_t valueStart = out.size();
    appendEncoded(out, value, encoding);
    return valueStart;
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
    withText(line.raw(), encoding, [&](auto text) { fold(classify(text).name, out); });
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
    const uint32_t hash = fold(name, *buffer);
    return {*buffer, hash};
}

// Whether a section or key line has the name.
bool hasName(const Line& line, Encoding encoding, const std::string& name)
{
    static auto* buffer = new std::string;
    foldLineName(line, encoding, *buffer);
    return *buffer == name;
}

const Line& lineOf(const Document& doc, LineId line) { return doc.lines[line]; }
const Line& lineOf(const Document& doc, const Section* section) { return doc.lines[section->header]; }

template <typename Index>
auto* findNamed(Index& index, const Document& doc, const FoldedName& name)
{
    return index.find(name.hash, [&](auto pos) { return hasName(lineOf(doc, pos), doc.encoding, name.text); });
}

// Indexes a key line or section when it is the first of its name; answers
// false for a duplicate. Keys and sections are only ever added after those
// of the same name, so the first in the index stays the first in file order.
template <typename Index, typename Pos>
bool addNamed(Index& index, const Document& doc, const FoldedName& name, Pos pos)
{
    if (findNamed(index, doc, name)) return false;
    index.insert(name.hash, pos);
    return true;
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

Section& addSection(Document& doc, LineId header, const FoldedName& name)
{
    Section& section = doc.sections.emplace_back(
        Section{.header = header, .lastKey = header, .recent = header, .duplicates = false, .keys = {}});
    if (!addNamed(doc.index, doc, name, &section)) doc.duplicateSections = true;
    return section;
}

void addKey(Document& doc, Section& section, LineId line, const FoldedName& name)
{
    if (!addNamed(section.keys, doc, name, line)) section.duplicates = true;
    section.lastKey = line;
}

// The line of a key (the first with the name), or kNoLine. Keys are mostly
// read and rewritten in file order, so the key after the one last found is
// tried before the index, whose slots lie all over memory. In a section
// that has a name twice that key need not be the first of its name, so
// there the index always answers.
LineId keyLine(Document& doc, Section& s, const FoldedName& name)
{
    const LineId next = doc.lines[s.recent].next;
    if (!s.duplicates && next != kNoLine && doc.lines[next].kind == LineKind::Key
        && hasName(doc.lines[next], doc.encoding, name.text))
        return s.recent = next;
    const auto* k = findNamed(s.keys, doc, name);
    if (!k) return kNoLine;
    return s.recent = k->pos;
}

// A record for a line of `size` bytes whose text the caller fills, not yet
// linked into the file.
LineId newLine(Document& doc, size_t size, Eol eol, LineKind kind)
{
    LineId id = doc.freeLines;
    if (id != kNoLine) {
        doc.freeLines = doc.lines[id].next;
    } else {
        id = doc.lines.add();
    }
    doc.lines[id] = {.text = doc.text.allocate(size), .size = static_cast<uint32_t>(size), .prev = kNoLine,
                     .next = kNoLine, .eol = eol, .kind = kind};
    return id;
}

// Links a line in after another, or first when `after` is kNoLine.
void link(Document& doc, LineId id, LineId after)
{
    Line& line = doc.lines[id];
    line.prev = after;
    line.next = after == kNoLine ? doc.first : doc.lines[after].next;
    (line.next == kNoLine ? doc.last : doc.lines[line.next].prev) = id;
    (after == kNoLine ? doc.first : doc.lines[after].next) = id;
}

// Removes the lines from `from` up to, not including, `to` (kNoLine: to the
// end of the file).
void eraseLines(Document& doc, LineId from, LineId to)
{
    if (from == to) return;
    const LineId before = doc.lines[from].prev;
    for (LineId id = from; id != to;) {
        Line& line = doc.lines[id];
        const LineId next = line.next;
        doc.text.release(line.size);
        line = Line{};
        line.next = doc.freeLines;
        doc.freeLines = id;
        id = next;
    }
    (before == kNoLine ? doc.first : doc.lines[before].next) = to;
    (to == kNoLine ? doc.last : doc.lines[to].prev) = before;
}

// Copies the live text into a fresh store, dropping what rewrites gave up.
void compactText(Document& doc)
{
    TextStore fresh;
    for (LineId id = 0; id < doc.lines.size(); ++id) {
        Line& line = doc.lines[id];
        if (line.size == 0) {
            line.text = nullptr;  // a blank line, or a record for reuse: nothing to keep
            continue;
        }
        char* text = fresh.allocate(line.size);
        std::memcpy(text, line.text, line.size);
        line.text = text;
    }
    doc.text = std::move(fresh);
}

void problem(Document& doc, KoProfileCode code, LineId id, std::string message)
{
    Kora::Place place;
    if (id != kNoLine) place.line = id + 1;
    doc.problems.push_back({code, Kora::Severity::kWarning, place, std::move(message)});
}

void classifyParsedLine(Document& doc, LineId id)
{
    withText(doc.lines[id].raw(), doc.encoding, [&](auto text) {
        const auto c = classify(text);
        // Keys above the first section belong to no section: kept, never read.
        const LineKind kind = c.kind == LineKind::Key && doc.sections.empty() ? LineKind::Other : c.kind;
        doc.lines[id].kind = kind;
        if (kind == LineKind::Other) {
            const auto t = trimmed(text);
            // While the file is parsed, line records are numbered in file order.
            if (c.kind == LineKind::Key)
                problem(doc, KoProfileCode::kKeyOutsideSection, id, "a key above the first section: kept, never read");
            else if (!t.empty() && t.front() != ';')
                problem(doc, KoProfileCode::kMeaninglessLine, id,
                        "neither a section, a key nor a comment: kept, never read");
        }
        if (kind == LineKind::Section) addSection(doc, id, foldedName(c.name));
        else if (kind == LineKind::Key) addKey(doc, doc.sections.back(), id, foldedName(c.name));
    });
}

void parse(Document& doc, std::string fileBytes)
{
    size_t start = 0;
    std::string_view bytes = fileBytes;
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
    char* const data = doc.text.adopt(std::move(fileBytes));
    bytes = {data, bytes.size()};
    const size_t unit = unitSize(doc.encoding);
    bool styleSeen = false;
    while (start < bytes.size()) {
        size_t nl = start;
        if (unit == 1) {
            const void* found = std::memchr(data + start, '\n', bytes.size() - start);
            nl = found ? static_cast<size_t>(static_cast<const char*>(found) - data) : bytes.size();
        } else {
            while (nl + 1 < bytes.size() && unitAt(bytes, nl, doc.encoding) != L'\n') nl += 2;
            if (nl + 1 >= bytes.size()) nl = bytes.size();
        }
        Line line{.text = data + start};
        if (nl == bytes.size()) {
            line.size = static_cast<uint32_t>(nl - start);
            start = nl;
        } else {
            size_t end = nl;
            line.eol = Eol::Lf;
            if (end >= start + unit && unitAt(bytes, end - unit, doc.encoding) == L'\r') {
                end -= unit;
                line.eol = Eol::CrLf;
            }
            line.size = static_cast<uint32_t>(end - start);
            if (!styleSeen) doc.style = line.eol;
            styleSeen = true;
            start = nl + unit;
        }
        const LineId id = doc.lines.add();
        line.prev = doc.last;
        doc.lines[id] = line;
        (doc.last == kNoLine ? doc.first : doc.lines[doc.last].next) = id;
        doc.last = id;
        classifyParsedLine(doc, id);
    }
    if (unit == 2 && (bytes.size() - doc.bom.size()) % 2 != 0)
        problem(doc, KoProfileCode::kDamagedText, doc.last, "the file ends in half a character");
}

// Adds a line of new text after another (kNoLine: first) with the file's
// line end.
LineId insertLine(Document& doc, LineId after, std::string_view text, LineKind kind)
{
    // Only the last line of a file can lack its line end; it needs one now.
    if (after != kNoLine && after == doc.last && doc.lines[after].eol == Eol::None) doc.lines[after].eol = doc.style;
    const LineId id = newLine(doc, text.size(), doc.style, kind);
    std::memcpy(doc.lines[id].text, text.data(), text.size());
    link(doc, id, after);
    return id;
}

// The section of a name (the first with it), or null. A section found in
// the index stays the first of its name as long as it lives, as sections
// are only ever added at the end.
Section* findSection(Document& doc, std::wstring_view name)
{
    name = trimmed(name);
    if (doc.recentSection && doc.recentSectionName == name) return doc.recentSection;
    const auto* found = findNamed(doc.index, doc, foldedName(name));
    if (!found) return nullptr;
    doc.recentSection = found->pos;
    doc.recentSectionName = name;
    return doc.recentSection;
}

const Line* findKey(Document& doc, std::wstring_view section, std::wstring_view key)
{
    Section* s = findSection(doc, section);
    if (!s) return nullptr;
    const LineId line = keyLine(doc, *s, foldedName(trimmed(key)));
    return line == kNoLine ? nullptr : &doc.lines[line];
}

// The line after a section's last line.
LineId sectionEnd(Document& doc, SectionIt section)
{
    const auto next = std::next(section);
    return next == doc.sections.end() ? kNoLine : next->header;
}

// Text in the file's encoding, in one buffer that edits reuse (under the
// profile mutex) so that writing a key allocates nothing.
std::string& encodeScratch()
{
    static auto* buffer = new std::string;
    buffer->clear();
    return *buffer;
}

Section& appendSection(Document& doc, std::wstring_view name)
{
    std::string& header = encodeScratch();
    appendEncoded(header, L"[", doc.encoding);
    appendEncoded(header, trimmed(name), doc.encoding);
    appendEncoded(header, L"]", doc.encoding);
    const LineId line = insertLine(doc, doc.last, header, LineKind::Section);
    return addSection(doc, line, foldedName(trimmed(name)));
}

// Gives a key line a new value after its first `keep` bytes: in place when
// it fits, as a value rewritten with one of the same length does.
void replaceValue(Document& doc, Line& line, size_t keep, std::string_view value)
{
    const size_t size = keep + value.size();
    if (size <= line.size) {
        doc.text.release(line.size - size);
    } else {
        char* text = doc.text.allocate(size);
        std::memcpy(text, line.text, keep);
        doc.text.release(line.size);
        line.text = text;
    }
    std::memcpy(line.text + keep, value.data(), value.size());
    line.size = static_cast<uint32_t>(size);
}

// Each edit answers whether it changed the document.
bool setKey(Document& doc, std::wstring_view section, std::wstring_view key, std::wstring_view value)
{
    const std::wstring_view name = trimmed(key);
    Section* found = findSection(doc, section);
    Section& s = found ? *found : appendSection(doc, section);
    const FoldedName foldedKey = foldedName(name);
    std::string& line = encodeScratch();
    const size_t valueStart = encodeKeyLine(line, name, value, doc.encoding);
    if (const LineId existing = keyLine(doc, s, foldedKey); existing != kNoLine) {
        Line& old = doc.lines[existing];
        const size_t offset = valueOffset(old.raw(), doc.encoding);
        const std::string_view encoded = std::string_view(line).substr(valueStart);
        if (old.raw().substr(offset) == encoded) return false;
        replaceValue(doc, old, offset, encoded);
        return true;
    }
    s.lastKey = s.recent = insertLine(doc, s.lastKey, line, LineKind::Key);
    s.keys.insert(foldedKey.hash, s.lastKey);
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
    const LineId line = k->pos;
    // A duplicate behind it shows now.
    LineId next = kNoLine;
    if (s.duplicates) {
        const LineId end = doc.lines[s.lastKey].next;
        for (LineId id = doc.lines[line].next; id != end && next == kNoLine; id = doc.lines[id].next) {
            if (doc.lines[id].kind == LineKind::Key && hasName(doc.lines[id], doc.encoding, name.text)) next = id;
        }
    }
    if (next != kNoLine) k->pos = next;
    else s.keys.erase(*k);
    if (line == s.lastKey) {
        LineId before = line;
        do before = doc.lines[before].prev;
        while (before != s.header && doc.lines[before].kind != LineKind::Key);
        s.lastKey = before;
    }
    if (line == s.recent) s.recent = s.header;
    eraseLines(doc, line, doc.lines[line].next);
    return true;
}

bool deleteSection(Document& doc, std::wstring_view section)
{
    const FoldedName name = foldedName(trimmed(section));
    auto* found = findNamed(doc.index, doc, name);
    if (!found) return false;
    const auto s = std::find_if(doc.sections.begin(), doc.sections.end(),
                                [&](const Section& candidate) { return &candidate == found->pos; });
    // A section of the same name further on shows now.
    const auto next = !doc.duplicateSections ? doc.sections.end()
                    : std::find_if(std::next(s), doc.sections.end(), [&](const Section& candidate) {
                          return hasName(doc.lines[candidate.header], doc.encoding, name.text);
                      });
    if (next != doc.sections.end()) found->pos = &*next;
    else doc.index.erase(*found);
    if (doc.recentSection == &*s) doc.recentSection = nullptr;
    eraseLines(doc, s->header, sectionEnd(doc, s));
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
    eraseLines(doc, doc.lines[s.header].next, doc.lines[s.lastKey].next);
    s.keys.clear();
    s.lastKey = s.recent = s.header;
    s.duplicates = false;
    LineId cursor = s.header;
    for (std::wstring_view entry : entries) {
        const auto c = classify(entry);
        std::string& encoded = encodeScratch();
        appendEncoded(encoded, entry, doc.encoding);
        cursor = insertLine(doc, cursor, encoded, c.kind);
        if (c.kind == LineKind::Key) addKey(doc, s, cursor, foldedName(c.name));
    }
    return true;
}

bool isOneLine(std::wstring_view text)
{
    for (wchar_t ch : text) {
        // Nearly every character fails the first test, and so costs one.
        if (ch <= L'\r' && (ch == L'\r' || ch == L'\n')) return false;
    }
    return true;
}

// A key name reads back as written when it is one line without "=" that
// does not look like a comment or a section header.
bool canStoreKey(std::wstring_view key)
{
    const std::wstring_view k = trimmed(key);
    if (!k.empty() && (k.front() == L';' || k.front() == L'[')) return false;
    for (wchar_t ch : k) {
        if (ch <= L'=' && (ch == L'=' || ch == L'\r' || ch == L'\n')) return false;
    }
    return true;
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
        const auto name = [&](auto text) { return use(classify(text).name); };
        if (!withText(doc.lines[s.header].raw(), doc.encoding, name)) return;
    }
}

// Calls use(name) with each key name of a section in file order while it
// answers true.
template <typename Use>
void forEachKeyName(Document& doc, std::wstring_view section, Use use)
{
    const Section* s = findSection(doc, section);
    if (!s) return;
    const LineId end = doc.lines[s->lastKey].next;
    for (LineId id = s->header; id != end; id = doc.lines[id].next) {
        const Line& line = doc.lines[id];
        if (line.kind != LineKind::Key) continue;
        if (!withText(line.raw(), doc.encoding, [&](auto text) { return use(classify(text).name); })) return;
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

void forget(KoProfileFile& file);

// At most this many files stay parsed, each holding its descriptor: a
// program that reads many files one after another would otherwise keep
// every one of them open. The least recently used goes first, unless a
// batch runs on it or it holds writes the disk has not; a dropped file is
// simply read again at its next use.
constexpr size_t kParsedFiles = 16;

void markUsed(KoProfileFile* file)
{
    static auto* recent = new std::vector<KoProfileFile*>;  // least recently used first
    if (!recent->empty() && recent->back() == file) return;
    std::erase(*recent, file);
    recent->push_back(file);
    for (auto it = recent->begin(); recent->size() > kParsedFiles && it != recent->end() - 1;) {
        KoProfileFile& old = **it;
        if (old.batchDepth > 0 || old.dirty || old.lockFd >= 0) {
            ++it;
            continue;
        }
        forget(old);
        it = recent->erase(it);
    }
}

// The cache entry of a file name, or null for a name that cannot name a
// file. Relative names are made absolute so that one file has one entry;
// absolute names, which do not depend on the working folder, are also
// remembered as given, which spares every later call the normalisation.
KoProfileFile* lookUp(const wchar_t* fileName)
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

KoProfileFile* cachedFile(const wchar_t* fileName)
{
    KoProfileFile* file = lookUp(fileName);
    if (file) markUsed(file);
    return file;
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

// Writes the parsed copy out a megabyte at a time: a copy of a big file in
// memory would only add its size to what the process needs.
bool writeDocument(Kora::AtomicFileWriter& out, const Document& doc)
{
    constexpr size_t kChunk = 1 << 20;
    const std::string ends[] = {"", encode(L"\n", doc.encoding), encode(L"\r\n", doc.encoding)};  // by Eol
    std::string chunk = doc.bom;
    for (LineId id = doc.first; id != kNoLine; id = doc.lines[id].next) {
        const Line& line = doc.lines[id];
        chunk.append(line.raw()).append(ends[static_cast<size_t>(line.eol)]);
        if (chunk.size() >= kChunk) {
            if (!out.write(chunk)) return false;
            chunk.clear();
        }
    }
    return out.write(chunk).has_value();
}

// A file that is there but cannot be read: kept from ever being replaced.
void refuse(KoProfileFile& file, KoProfileCode code, std::string message)
{
    forget(file);
    file.unreadable = true;
    file.doc.problems.push_back({code, Kora::Severity::kError, {}, std::move(message)});
}

void load(KoProfileFile& file)
{
    const int fd = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR) forget(file);
        else refuse(file, KoProfileCode::kCannotRead, std::strerror(error));
        return;
    }
    struct stat st;
    std::string bytes;
    if (fstat(fd, &st) != 0) {
        const int error = errno;
        close(fd);
        refuse(file, KoProfileCode::kCannotRead, std::strerror(error));
        return;
    }
    if (!S_ISREG(st.st_mode)) {
        close(fd);
        refuse(file, KoProfileCode::kNotAFile, S_ISDIR(st.st_mode) ? "a folder, not a file" : "not a regular file");
        return;
    }
    // Lines are counted and measured in 32 bits: a file of 4 GiB or more is
    // not for us to read, and so never replaced either.
    if (static_cast<uint64_t>(st.st_size) >= kNoLine) {
        close(fd);
        refuse(file, KoProfileCode::kTooLarge, "4 GiB or more, which is not read");
        return;
    }
    bytes.reserve(static_cast<size_t>(st.st_size));
    if (!readAll(fd, bytes) || bytes.size() >= kNoLine) {
        const int error = errno;
        close(fd);
        refuse(file, KoProfileCode::kCannotRead,
               bytes.size() >= kNoLine ? "4 GiB or more, which is not read" : std::strerror(error));
        return;
    }
    forget(file);
    parse(file.doc, std::move(bytes));
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

// Replaces the file with the parsed copy through the platform's atomic
// writer. The new file is opened again and held, as a parsed file is, so
// its stamp stays safe.
bool flush(KoProfileFile& file)
{
    auto out = Kora::AtomicFileWriter::create(file.path);
    if (!out || !writeDocument(*out, file.doc)) return false;
    const auto written = out->commit();
    if (!written) return false;
    if (file.heldFd >= 0) close(file.heldFd);
    file.heldFd = open(out->target().c_str(), O_RDONLY | O_CLOEXEC);
    file.stamp = *written;
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
    if (ok && edit(file->doc)) {
        file->dirty = true;
        if (file->doc.text.wasteful()) compactText(file->doc);
    }
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
        withText(line->raw(), doc.encoding, [&](auto text) { use(valueOf(text, stripQuotes)); });
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

Kora::Diagnostics<KoProfileCode> koProfileDiagnostics(const wchar_t* fileName)
{
    std::lock_guard guard(profileMutex());
    KoProfileFile* file = cachedFile(fileName);
    if (!file) return {};
    refresh(*file);
    return file->doc.problems;
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
    const std::wstring_view keyName = key;
    if (!canStoreKey(keyName)) return false;
    if (!value) return modify(fileName, [&](Document& doc) { return deleteKey(doc, sectionName, keyName); });
    const std::wstring_view text = value;
    if (!isOneLine(text)) return false;
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

KoProfileBatch::~KoProfileBatch() { end(); }

bool KoProfileBatch::end()
{
    if (!m_file) return true;
    std::lock_guard guard(profileMutex());
    KoProfileFile& file = *std::exchange(m_file, nullptr);
    if (--file.batchDepth > 0) return true;
    file.checkedInBatch = false;
    const bool written = !file.dirty || flush(file);
    const int error = errno;
    if (!written) forget(file);
    if (file.lockFd >= 0) releaseLock(file);
    errno = error;
    return written;
}

namespace Kora {

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
    return canStoreKey(key ? key : L"") && (!value || isOneLine(value));
}

}  // namespace Kora
