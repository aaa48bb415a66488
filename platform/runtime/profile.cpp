#include "kora/profile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
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

struct Section {
    LineIt header;
    LineIt lastKey;  // new keys go after it; the header while there is none
    // Upper-cased key name -> its lines in file order (the first one counts).
    std::unordered_map<std::wstring, std::vector<LineIt>> keys;
};
using SectionIt = std::list<Section>::iterator;

// A parsed file. Lines keep their original bytes, so every line a write
// does not touch goes back to disk exactly as it was read, encoding errors
// included. Lines live in a list and sections and keys are indexed by their
// upper-cased names, so finding, appending and deleting cost O(1) however
// many keys a batch writes.
struct Document {
    Encoding encoding = Encoding::Utf8;
    std::string bom;
    Eol style = Eol::Lf;  // the line end of new lines: the file's first one
    std::list<Line> lines;
    std::list<Section> sections;  // file order
    // Upper-cased section name -> its sections in file order.
    std::unordered_map<std::wstring, std::vector<SectionIt>> index;
};

bool isBlank(wchar_t ch)
{
    return ch == L' ' || ch == L'\t' || ch == L'\r' || ch == L'\v' || ch == L'\f';
}

std::wstring_view trimmed(std::wstring_view text)
{
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

std::wstring upper(std::wstring_view name)
{
    std::wstring out(name);
    for (wchar_t& ch : out) ch = koToUpper(ch);
    return out;
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

std::string encode(std::wstring_view text, Encoding encoding)
{
    if (encoding == Encoding::Utf8) return KoString(text).toUtf8();
    std::string out;
    out.reserve(text.size() * 2);
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
    return out;
}

struct Classified {
    LineKind kind = LineKind::Other;
    std::wstring_view name;  // section or key name, trimmed
};

// What a line is: "[name]" (the name runs to the last "]"), "key=value",
// or anything else (blank, ";" comment, a damaged "[section" line), which
// is kept but has no meaning.
Classified classify(std::wstring_view text)
{
    const std::wstring_view t = trimmed(text);
    if (t.empty() || t.front() == L';') return {};
    if (t.front() == L'[') {
        const size_t close = t.rfind(L']');
        if (close == std::wstring_view::npos) return {};
        return {LineKind::Section, trimmed(t.substr(1, close - 1))};
    }
    const size_t eq = t.find(L'=');
    if (eq == std::wstring_view::npos) return {};
    return {LineKind::Key, trimmed(t.substr(0, eq))};
}

// The value of a key line, trimmed of blanks and, for callers that want
// it, of one pair of enclosing quotes.
std::wstring valueOf(const Line& line, Encoding encoding, bool stripQuotes)
{
    const std::wstring text = decode(line.raw, encoding);
    std::wstring_view value = trimmed(std::wstring_view(text).substr(text.find(L'=') + 1));
    if (stripQuotes && value.size() >= 2 && value.front() == value.back()
        && (value.front() == L'"' || value.front() == L'\''))
        value = value.substr(1, value.size() - 2);
    return std::wstring(value);
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

void addSection(Document& doc, LineIt header, const std::wstring& upperName)
{
    doc.sections.push_back({header, header, {}});
    doc.index[upperName].push_back(std::prev(doc.sections.end()));
}

// Keys are only ever added after the section's last key, so each name's
// lines stay in file order.
void addKey(Section& section, LineIt line, const std::wstring& upperName)
{
    section.keys[upperName].push_back(line);
    section.lastKey = line;
}

void appendParsedLine(Document& doc, Line line)
{
    const std::wstring text = decode(line.raw, doc.encoding);
    const Classified c = classify(text);
    // Keys above the first section belong to no section: kept, never read.
    line.kind = c.kind == LineKind::Key && doc.sections.empty() ? LineKind::Other : c.kind;
    doc.lines.push_back(std::move(line));
    const LineIt it = std::prev(doc.lines.end());
    if (it->kind == LineKind::Section) addSection(doc, it, upper(c.name));
    else if (it->kind == LineKind::Key) addKey(doc.sections.back(), it, upper(c.name));
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

std::string serialize(const Document& doc)
{
    const std::string lf = encode(L"\n", doc.encoding), crlf = encode(L"\r\n", doc.encoding);
    size_t total = doc.bom.size();
    for (const Line& line : doc.lines) total += line.raw.size() + crlf.size();
    std::string out;
    out.reserve(total);
    out += doc.bom;
    for (const Line& line : doc.lines) {
        out += line.raw;
        if (line.eol == Eol::Lf) out += lf;
        else if (line.eol == Eol::CrLf) out += crlf;
    }
    return out;
}

LineIt insertLine(Document& doc, LineIt pos, std::wstring_view text, LineKind kind)
{
    // Only the last line of a file can lack its line end; it needs one now.
    if (pos == doc.lines.end() && !doc.lines.empty() && doc.lines.back().eol == Eol::None)
        doc.lines.back().eol = doc.style;
    return doc.lines.insert(pos, Line{encode(text, doc.encoding), doc.style, kind});
}

SectionIt* firstSection(Document& doc, std::wstring_view name)
{
    const auto found = doc.index.find(upper(trimmed(name)));
    return found == doc.index.end() ? nullptr : &found->second.front();
}

const Line* firstKey(Document& doc, std::wstring_view section, std::wstring_view key)
{
    SectionIt* s = firstSection(doc, section);
    if (!s) return nullptr;
    const auto found = (*s)->keys.find(upper(trimmed(key)));
    return found == (*s)->keys.end() ? nullptr : &*found->second.front();
}

// The line after a section's last line.
LineIt sectionEnd(Document& doc, SectionIt section)
{
    const auto next = std::next(section);
    return next == doc.sections.end() ? doc.lines.end() : next->header;
}

LineIt appendSection(Document& doc, std::wstring_view name)
{
    const std::wstring header = L"[" + std::wstring(trimmed(name)) + L"]";
    const LineIt line = insertLine(doc, doc.lines.end(), header, LineKind::Section);
    addSection(doc, line, upper(trimmed(name)));
    return line;
}

// Each edit answers whether it changed the document.
bool setKey(Document& doc, std::wstring_view section, std::wstring_view key, std::wstring_view value)
{
    const std::wstring name(trimmed(key));
    const std::wstring text = name + L"=" + std::wstring(value);
    SectionIt* found = firstSection(doc, section);
    if (!found) {
        appendSection(doc, section);
        addKey(doc.sections.back(), insertLine(doc, doc.lines.end(), text, LineKind::Key), upper(name));
        return true;
    }
    Section& s = **found;
    const auto k = s.keys.find(upper(name));
    if (k == s.keys.end()) {
        addKey(s, insertLine(doc, std::next(s.lastKey), text, LineKind::Key), upper(name));
        return true;
    }
    Line& line = *k->second.front();
    std::string raw = line.raw.substr(0, valueOffset(line.raw, doc.encoding)) + encode(value, doc.encoding);
    if (raw == line.raw) return false;
    line.raw = std::move(raw);
    return true;
}

bool deleteKey(Document& doc, std::wstring_view section, std::wstring_view key)
{
    SectionIt* found = firstSection(doc, section);
    if (!found) return false;
    Section& s = **found;
    const auto k = s.keys.find(upper(trimmed(key)));
    if (k == s.keys.end()) return false;
    const LineIt line = k->second.front();
    k->second.erase(k->second.begin());
    if (k->second.empty()) s.keys.erase(k);
    if (line == s.lastKey) {
        LineIt before = line;
        do --before; while (before != s.header && before->kind != LineKind::Key);
        s.lastKey = before;
    }
    doc.lines.erase(line);
    return true;
}

bool deleteSection(Document& doc, std::wstring_view section)
{
    const auto found = doc.index.find(upper(trimmed(section)));
    if (found == doc.index.end()) return false;
    const SectionIt s = found->second.front();
    found->second.erase(found->second.begin());
    if (found->second.empty()) doc.index.erase(found);
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
    SectionIt* found = firstSection(doc, section);
    if (!found) appendSection(doc, section);
    Section& s = found ? **found : doc.sections.back();
    doc.lines.erase(std::next(s.header), std::next(s.lastKey));
    s.keys.clear();
    s.lastKey = s.header;
    LineIt cursor = s.header;
    for (std::wstring_view entry : entries) {
        const Classified c = classify(entry);
        cursor = insertLine(doc, std::next(cursor), entry, c.kind);
        if (c.kind == LineKind::Key) addKey(s, cursor, upper(c.name));
    }
    return true;
}

bool isOneLine(std::wstring_view text) { return text.find_first_of(L"\r\n") == std::wstring_view::npos; }

unsigned copyText(std::wstring_view text, wchar_t* buffer, unsigned size)
{
    const size_t n = std::min<size_t>(text.size(), size - 1);
    std::copy_n(text.data(), n, buffer);
    buffer[n] = 0;
    return static_cast<unsigned>(n);
}

// Names as a zero-separated list ended by an extra zero. A list that does
// not fit is cut and still ends with two zeros.
unsigned copyList(const std::vector<std::wstring>& names, wchar_t* buffer, unsigned size)
{
    std::wstring list;
    for (const std::wstring& name : names) {
        list += name;
        list += L'\0';
    }
    if (list.size() + 1 <= size) {
        std::copy_n(list.data(), list.size(), buffer);
        buffer[list.size()] = 0;
        if (list.empty() && size > 1) buffer[1] = 0;  // an empty list reads as "\0\0" too
        return static_cast<unsigned>(list.size());
    }
    if (size < 2) {
        buffer[0] = 0;
        return 0;
    }
    std::copy_n(list.data(), size - 2, buffer);
    buffer[size - 2] = 0;
    buffer[size - 1] = 0;
    return size - 2;
}

std::vector<std::wstring> sectionNames(const Document& doc)
{
    std::vector<std::wstring> names;
    names.reserve(doc.sections.size());
    for (const Section& s : doc.sections)
        names.emplace_back(classify(decode(s.header->raw, doc.encoding)).name);
    return names;
}

std::vector<std::wstring> keyNames(Document& doc, std::wstring_view section)
{
    std::vector<std::wstring> names;
    SectionIt* s = firstSection(doc, section);
    if (!s) return names;
    const LineIt end = std::next((*s)->lastKey);
    for (LineIt it = (*s)->header; it != end; ++it) {
        if (it->kind == LineKind::Key) names.emplace_back(classify(decode(it->raw, doc.encoding)).name);
    }
    return names;
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
    bool dirty = false;  // the parsed copy has writes the file has not
};

namespace {

std::mutex& profileMutex()
{
    static std::mutex mutex;
    return mutex;
}

// The cache entry of a file name, or null for a name that cannot name a
// file. Relative names are made absolute so that one file has one entry;
// absolute names, which do not depend on the working folder, are also
// remembered as given, which spares every later call the normalisation.
KoProfileFile* cachedFile(const wchar_t* fileName)
{
    static auto* files = new std::unordered_map<std::string, std::unique_ptr<KoProfileFile>>;
    static auto* absoluteNames = new std::unordered_map<std::wstring, KoProfileFile*>;
    if (!fileName || !*fileName) return nullptr;
    const bool absolute = fileName[0] == L'/';
    if (absolute) {
        const auto known = absoluteNames->find(fileName);
        if (known != absoluteNames->end()) return known->second;
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
void refresh(KoProfileFile& file)
{
    if (file.lockFd < 0) syncWithDisk(file);
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
                 && writeAll(fd, serialize(file.doc)) && fsync(fd) == 0 && fstat(fd, &st) == 0
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

std::optional<std::wstring> readValue(const wchar_t* section, const wchar_t* key, const wchar_t* fileName,
                                      bool stripQuotes)
{
    if (!section || !key) return std::nullopt;
    return inspect(fileName, [&](Document& doc) -> std::optional<std::wstring> {
        const Line* line = firstKey(doc, section, key);
        if (!line) return std::nullopt;
        return valueOf(*line, doc.encoding, stripQuotes);
    });
}

}  // namespace

unsigned koGetPrivateProfileString(const wchar_t* section, const wchar_t* key, const wchar_t* defaultValue,
                                   wchar_t* buffer, unsigned size, const wchar_t* fileName)
{
    if (!buffer || size == 0) return 0;
    if (!section) return copyList(kora::detail::profileSectionNames(fileName), buffer, size);
    if (!key) return copyList(inspect(fileName, [&](Document& doc) { return keyNames(doc, section); }), buffer, size);
    if (const auto value = readValue(section, key, fileName, true)) return copyText(*value, buffer, size);
    // A default loses its trailing blanks, as values do.
    std::wstring_view fallback = defaultValue ? defaultValue : L"";
    while (!fallback.empty() && isBlank(fallback.back())) fallback.remove_suffix(1);
    return copyText(fallback, buffer, size);
}

unsigned koGetPrivateProfileInt(const wchar_t* section, const wchar_t* key, int defaultValue, const wchar_t* fileName)
{
    const auto value = readValue(section, key, fileName, true);
    if (!value || value->empty()) return static_cast<unsigned>(defaultValue);
    const std::wstring& v = *value;
    size_t i = 0;
    while (i < v.size() && isBlank(v[i])) ++i;
    const bool negative = i < v.size() && v[i] == L'-';
    if (i < v.size() && (v[i] == L'-' || v[i] == L'+')) ++i;
    unsigned n = 0;
    for (; i < v.size() && v[i] >= L'0' && v[i] <= L'9'; ++i) n = n * 10 + static_cast<unsigned>(v[i] - L'0');
    return negative ? 0u - n : n;
}

bool koWritePrivateProfileString(const wchar_t* section, const wchar_t* key, const wchar_t* value,
                                 const wchar_t* fileName)
{
    if (!section || !isOneLine(section)) return false;
    if (!key) return modify(fileName, [&](Document& doc) { return deleteSection(doc, section); });
    if (!kora::detail::profileCanStore(key, value)) return false;
    if (!value) return modify(fileName, [&](Document& doc) { return deleteKey(doc, section, key); });
    return modify(fileName, [&](Document& doc) { return setKey(doc, section, key, value); });
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
    if (m_file->dirty && !flush(*m_file)) forget(*m_file);
    if (m_file->lockFd >= 0) releaseLock(*m_file);
}

namespace kora::detail {

std::optional<std::wstring> profileRawValue(const wchar_t* section, const wchar_t* key, const wchar_t* fileName)
{
    return readValue(section, key, fileName, false);
}

std::vector<std::wstring> profileSectionNames(const wchar_t* fileName)
{
    return inspect(fileName, [](Document& doc) { return sectionNames(doc); });
}

bool profileCanStore(const wchar_t* key, const wchar_t* value)
{
    const std::wstring_view k = trimmed(key ? key : L"");
    return isOneLine(k) && k.find(L'=') == std::wstring_view::npos
        && (k.empty() || (k.front() != L';' && k.front() != L'[')) && (!value || isOneLine(value));
}

}  // namespace kora::detail
