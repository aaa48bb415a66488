// Reads DXF text into a database. A parser fills one record (an entity, an
// object or a table record: its tags up to the next code 0) at a time and
// turns it into a database object; what no property models is kept as
// tags on the object and written back.

#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>
#include <iconv.h>
#include <memory>
#include <numbers>
#include <optional>
#include <stdexcept>
#include <thread>
#include <unordered_map>

#include "dbimpl.h"
#include "dxfcodes.h"
#include "dxfentitykinds.h"
#include "dxfhatchlayout.h"
#include "dxftagreader.h"
#include "kora/handoff.h"
#include "kora/dxf/dxf.h"
#include "kora/db/underlay.h"

namespace Kora::Dxf {
namespace {

// Record names are compared by length first.
using namespace std::string_view_literals;

constexpr double kDegToRad = std::numbers::pi / 180.0;

struct RTag {
    std::string_view value;  // in the text of its record
    // The value of a number group once the record is validated, so that it
    // is parsed once.
    double number = 0.0;
    long line = 0;
    int code = 0;
    bool parsed = false;
};

class ParseError {
public:
    ReadCode code;
    long line;
    std::string message;
};

// One record: its name and tags, reusing storage between records. The
// values of its tags lie one after another in one text, so that a record
// is a few blocks of memory, whichever thread reads it.
struct Record {
    std::string name;
    long line = 0;
    std::vector<RTag> tags;
    size_t size = 0;
    // A vector, whose storage stays where it is when the record moves.
    std::vector<char> text;
    // A value that does not suit its group, found when the record was read
    // and raised when the record is taken up.
    std::optional<ParseError> invalid;

    void clear()
    {
        size = 0;
        text.clear();
    }
    void push(int code, std::string_view value, long line)
    {
        if (text.size() + value.size() > text.capacity()) {
            // The values already in go along to the larger storage.
            std::vector<char> larger;
            larger.reserve(std::max(2 * text.capacity(), text.size() + value.size()));
            larger.assign(text.begin(), text.end());
            for (RTag& t : *this) t.value = {larger.data() + (t.value.data() - text.data()), t.value.size()};
            text.swap(larger);
        }
        const size_t at = text.size();
        text.insert(text.end(), value.begin(), value.end());
        if (size == tags.size()) tags.emplace_back();
        RTag& t = tags[size++];
        t.code = code;
        t.value = {text.data() + at, value.size()};
        t.line = line;
        t.parsed = false;
    }
    const RTag* begin() const { return tags.data(); }
    const RTag* end() const { return tags.data() + size; }
    RTag* begin() { return tags.data(); }
    RTag* end() { return tags.data() + size; }
};

// The records of a section, read on a second thread while this one turns
// the records before them into objects: splitting lines, decoding text and
// parsing numbers is about a third of the work of a read. A failure of the
// reading thread is raised here at the record where it happened.
class ReadAhead {
public:
    // `read` fills a record and answers whether the section goes on after it.
    explicit ReadAhead(std::function<bool(Record&)> read) : m_thread([this, read = std::move(read)] { produce(read); }) {}
    ~ReadAhead()
    {
        m_handoff.close();
        m_thread.join();
    }
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    // Swaps the next record into `r`.
    void take(Record& r)
    {
        while (m_next == m_current.count) {
            if (!m_current.records.empty()) m_handoff.giveBack(std::move(m_current));
            m_current = {};
            // A hang would be worse than a failed read.
            if (!m_handoff.receive(m_current)) throw std::logic_error("a record was asked for past the end of its section");
            m_next = 0;
        }
        std::swap(r, m_current.records[m_next++]);
        // The records were written on the other core. Asking for the lines
        // of the next ones now lets them travel while this one is turned
        // into objects: the record after next, then the tags and text of
        // the next one, whose record asked for them a turn ago.
        if (m_next + 1 < m_current.count) prefetch(&m_current.records[m_next + 1], sizeof(Record));
        if (m_next < m_current.count) {
            const Record& next = m_current.records[m_next];
            prefetch(next.tags.data(), next.size * sizeof(RTag));
            prefetch(next.text.data(), next.text.size());
        }
    }

private:
    static void prefetch(const void* at, size_t bytes)
    {
        for (size_t offset = 0; offset < bytes; offset += 64) __builtin_prefetch(static_cast<const char*>(at) + offset);
    }

    // The threads meet once per 256 records, and the reading thread keeps
    // at most four batches ahead, which bounds what they hold between them.
    static constexpr size_t kBatchSize = 256;
    struct Batch {
        std::vector<Record> records;
        size_t count = 0;
    };

    void produce(const std::function<bool(Record&)>& read)
    {
        Batch batch;
        try {
            for (bool more = true; more && m_handoff.acquire(batch);) {
                batch.count = 0;
                batch.records.resize(kBatchSize);
                for (; more && batch.count < kBatchSize; ++batch.count) more = read(batch.records[batch.count]);
                m_handoff.send(std::move(batch));
                batch = {};
            }
            m_handoff.finish();
        } catch (...) {
            // The records before the failing one are taken up first.
            m_handoff.send(std::move(batch));
            m_handoff.finish(std::current_exception());
        }
    }

    Kora::Handoff<Batch> m_handoff;
    Batch m_current;
    size_t m_next = 0;
    std::thread m_thread;
};

// A tag of a record's body with the subclass it came in.
struct BodyTag {
    const RTag* tag;
    const std::string_view* subclass;
    int code() const { return tag->code; }
};

// Write access to an object the reader has already placed in the database.
class Writable {
public:
    explicit Writable(KoDbObject* o) : m_o(o) { KoDbAccess::setWriteEnabled(o, true); }
    ~Writable() { KoDbAccess::setWriteEnabled(m_o, false); }
    Writable(const Writable&) = delete;
    Writable& operator=(const Writable&) = delete;

private:
    KoDbObject* m_o;
};

class Reader {
public:
    Reader(TagReader& in, KoDbDatabase& db, KoDbDxfReadReport& report)
        : m_in {in}, m_db(db), m_d(KoDbAccess::impl(db)), m_report(report)
    {
    }
    ~Reader()
    {
        if (m_in.iconv != reinterpret_cast<iconv_t>(-1)) iconv_close(m_in.iconv);
    }

    void run();

private:
    // ---- input ----
    [[noreturn]] void fail(ReadCode code, long line, std::string message)
    {
        throw ParseError {code, line, std::move(message)};
    }
    [[noreturn]] void failInput()
    {
        if (!m_in.tags.error().empty()) fail(m_in.tags.errorCode(), m_in.tags.line(), m_in.tags.error());
        fail(ReadCode::kTruncated, m_in.tags.line(), "the file ends unexpectedly (it may be truncated)");
    }
    // A repair made while reading.
    void repaired(ReadCode code, long line, std::string message)
    {
        Kora::Place place;
        if (line > 0) place.line = static_cast<uint64_t>(line);
        m_report.diagnostics.push_back({code, Kora::Severity::kRepaired, place, std::move(message)});
    }
    bool nextTag(int& code, std::string_view& value)
    {
        if (m_in.tags.next(code, value)) return true;
        if (!m_in.tags.error().empty()) failInput();
        return false;
    }
    // The next record of the section, read ahead (see ReadAhead).
    void readRecord(Record& r);
    // Reads the record that starts with the next tag (code 0) and checks its
    // values; false when it ends the section.
    bool scanRecord(Record& r);
    void section(const std::string& name);
    void recordSection(void (Reader::*body)());
    void header();
    void classes();
    void tables();
    void blocks();
    void entities();
    void objects();
    void otherSection(const std::string& name);
    void finish();

    // ---- values ----
    std::string text(std::string_view raw);
    KoString wide(std::string_view value) { return KoString::fromUtf8(value); }
    double dbl(const RTag& t)
    {
        double d = t.number;
        if (!t.parsed && !parseDouble(t.value, d)) fail(ReadCode::kBadValue, t.line, "\"" + std::string(t.value.substr(0, 40)) + "\" is not a number (group " + std::to_string(t.code) + ")");
        if (!std::isfinite(d)) fail(ReadCode::kBadValue, t.line, "the number \"" + std::string(t.value.substr(0, 40)) + "\" is out of range");
        return d;
    }
    // A coordinate of a point (or vector) whose x has group `base`, y
    // base + 10 and z base + 20; false for any other group.
    bool point(const RTag& t, KoGePoint3d& p, int base)
    {
        if (t.code == base) p.x = dbl(t);
        else if (t.code == base + 10) p.y = dbl(t);
        else if (t.code == base + 20) p.z = dbl(t);
        else return false;
        return true;
    }
    bool vec(const RTag& t, KoGeVector3d& v, int base)
    {
        KoGePoint3d p(v.x, v.y, v.z);
        if (!point(t, p, base)) return false;
        v = {p.x, p.y, p.z};
        return true;
    }
    int integer(const RTag& t)
    {
        int64_t i;
        if (!parseInt(t.value, i)) fail(ReadCode::kBadValue, t.line, "\"" + std::string(t.value.substr(0, 40)) + "\" is not an integer (group " + std::to_string(t.code) + ")");
        if (i < INT32_MIN || i > INT32_MAX) fail(ReadCode::kBadValue, t.line, "the integer " + std::string(t.value.substr(0, 40)) + " is out of range");
        return static_cast<int>(i);
    }
    uint64_t handleValue(const RTag& t)
    {
        uint64_t h = 0;
        if (trimmed(t.value).empty()) return 0;
        if (!parseHandle(t.value, h)) fail(ReadCode::kBadValue, t.line, "\"" + std::string(t.value.substr(0, 40)) + "\" is not a handle (group " + std::to_string(t.code) + ")");
        if (h > m_maxHandle) m_maxHandle = h;
        return h;
    }
    KoDbStub* stubOf(const RTag& t)
    {
        const uint64_t h = handleValue(t);
        return h ? m_d.stubFor(h) : nullptr;
    }
    KoDbObjectId idOf(const RTag& t) { return KoDbObjectId(stubOf(t)); }
    // Raises what the check of the record found when it was read.
    void validate(const Record& r)
    {
        if (r.invalid) throw *r.invalid;
    }
    // Every value of a record must suit its group code, modelled or not;
    // numbers are parsed once, here.
    void check(Record& r)
    {
        for (RTag& t : r) {
            if (valueKind(t.code) == ValueKind::Double ? (t.parsed = parseDouble(t.value, t.number))
                                                       : validValue(t.code, t.value))
                continue;
            const std::string shown = "\"" + std::string(t.value.substr(0, 40)) + "\"";
            switch (valueKind(t.code)) {
            case ValueKind::Handle: fail(ReadCode::kBadValue, t.line, shown + " is not a handle (group " + std::to_string(t.code) + ")");
            case ValueKind::Int: fail(ReadCode::kBadValue, t.line, shown + " is not an integer (group " + std::to_string(t.code) + ")");
            default: fail(ReadCode::kBadValue, t.line, shown + " is not a number (group " + std::to_string(t.code) + ")");
            }
        }
    }

    // ---- records to objects ----
    struct Common {
        // The reader's storage for the body, which a record at a time uses.
        explicit Common(std::vector<BodyTag>& storage) : body(storage) { body.clear(); }
        uint64_t handle = 0;
        KoDbStub* owner = nullptr;
        std::vector<KoDbStub*> reactors;
        KoDbStub* xdict = nullptr;
        KoDbDxfTags xdata;
        std::vector<BodyTag>& body;
        // Entity properties.
        std::string layer, linetype;
        KoCmColor color;
        int colorIndex = 256;
        bool trueColor = false;
        int lineWeight = KoDb::kLnWtByLayer;
        double ltscale = 1.0;
        bool invisible = false, paperSpace = false;
    };
    void splitRecord(const Record& r, Common& c, bool entity, int handleCode = 5);
    // Entity properties some writers put in a later subclass; false for other codes.
    bool takeCommon(Common& c, const RTag& t);
    void preserve(KoDbDxfTags& out, const BodyTag& b);
    // Stores the common parts and adds the object to the database.
    void place(KoDbObject* o, Common& c, KoDbDxfTags preserved, KoDbStub* owner);
    void applyEntityProperties(KoDbEntity* e, const Common& c, long line);
    template <class Record>
    KoDbObjectId recordByName(const std::string& name, const char* missingName, KoDbObjectId tableId,
                              std::unordered_map<std::string, KoDbObjectId>& cache, const char* kind, long line);
    KoDbObjectId layerByName(const std::string& name, long line);
    KoDbObjectId linetypeByName(const std::string& name, long line);

    void tableRecord(const Record& r, KoDbSymbolTable* table);
    void entity(Record& r, KoDbBlockTableRecord* block);
    std::unique_ptr<KoDbEntity> fieldEntity(const EntityKind& kind, const Record& r, Common& c, KoDbDxfTags& preserved,
                                            std::vector<KoDbDxfRecord>& subs);
    std::unique_ptr<KoDbEntity> knownEntity(const Record& r, Common& c, KoDbDxfTags& preserved, std::vector<KoDbDxfRecord>& subs);
    // The input side of a hatch's nested data (see dxfhatchlayout.h): reads the
    // entity's body tags in order from `i`, failing on a group out of place.
    struct HatchIn {
        static constexpr bool kReading = true;
        Reader& rd;
        const Record& r;
        const std::vector<BodyTag>& body;
        size_t i = 0;

        const RTag& at(size_t k) const { return *body[k].tag; }
        const RTag& need(int code)
        {
            if (i >= body.size() || at(i).code != code)
                rd.fail(ReadCode::kBadHatch, i < body.size() ? at(i).line : r.line,
                        "hatch boundary data: group " + std::to_string(code) + " was expected");
            return at(i++);
        }
        void integer(int code, int& v) { v = rd.integer(need(code)); }
        void real(int code, double& v) { v = rd.dbl(need(code)); }
        void point2(int base, KoGePoint2d& p)
        {
            real(base, p.x);
            real(base + 10, p.y);
        }
        void handle(int code, KoDbHandle& h) { h = KoDbHandle(rd.handleValue(need(code))); }
        int count(int code, size_t, int limit)
        {
            const int v = rd.integer(need(code));
            if (v < 0 || v > limit) rd.fail(ReadCode::kBadHatch, at(i - 1).line, "hatch: count " + std::to_string(v) + " is out of range");
            return v;
        }
        bool optional(int code, bool) const { return i < body.size() && at(i).code == code; }
        template <class T>
        T& item(std::vector<T>& v, size_t) { return v.emplace_back(); }
        void enumerated(int code, int& v, int lo, int hi, const char* what)
        {
            integer(code, v);
            if (v < lo || v > hi) rd.fail(ReadCode::kBadHatch, at(i - 1).line, what + std::to_string(v));
        }
    };
    void object(const Record& r);
    void readSubRecords(std::vector<KoDbDxfRecord>& subs);
    std::string sectionOrEnd();

    // What the thread reading ahead uses for every tag, on cache lines of
    // its own: a value this thread writes beside it would bounce the line
    // between the cores (two lines, as the cores fetch them in pairs).
    struct alignas(128) Input {
        TagReader& tags;
        bool convert = false;  // text in the drawing's code page
        iconv_t iconv = reinterpret_cast<iconv_t>(-1);
    } m_in;
    KoDbDatabase& m_db;
    KoDbDatabase::Impl& m_d;
    KoDbDxfReadReport& m_report;

    ReadAhead* m_ahead = nullptr;
    Record m_pending;
    bool m_hasPending = false;
    uint64_t m_maxHandle = 0;
    std::string m_clayer, m_celtype;
    std::unordered_map<std::string, KoDbObjectId> m_layers, m_linetypes;
    KoDbObjectId m_spaces[2];  // model and paper space
    // Storage kept from one record to the next.
    std::vector<GroupItem> m_items;
    std::vector<BodyTag> m_body;
    std::vector<std::pair<KoDbBlockTableRecord*, KoDbStub*>> m_blockLayouts;  // from BLOCK_RECORD 340
    std::vector<std::pair<KoDbLayout*, KoDbStub*>> m_layoutBlocks;            // from LAYOUT 330
    std::vector<KoDbStub*> m_unnumbered;  // objects made or read without a handle
};

// ---- text encoding -------------------------------------------------------

void appendUtf8(std::string& out, uint32_t cp)
{
    out += KoString(static_cast<wchar_t>(cp)).toUtf8();
}

// Text of files before release 2007 is in the drawing's code page, with
// characters outside it written as \U+XXXX; later files are UTF-8.
std::string Reader::text(std::string_view raw)
{
    std::string out;
    if (m_in.convert && m_in.iconv != reinterpret_cast<iconv_t>(-1)) {
        bool ascii = true;
        for (char ch : raw)
            if (static_cast<unsigned char>(ch) >= 0x80) ascii = false;
        if (!ascii) {
            out.resize(raw.size() * 4);
            char* in = const_cast<char*>(raw.data());
            size_t inLeft = raw.size(), outLeft = out.size();
            char* o = out.data();
            iconv(m_in.iconv, nullptr, nullptr, nullptr, nullptr);
            while (inLeft > 0 && iconv(m_in.iconv, &in, &inLeft, &o, &outLeft) == static_cast<size_t>(-1)) {
                if (errno != EILSEQ && errno != EINVAL) break;
                // An undecodable byte: keep it as the character of that number.
                std::string one;
                appendUtf8(one, static_cast<unsigned char>(*in));
                if (outLeft < one.size()) break;
                std::memcpy(o, one.data(), one.size());
                o += one.size();
                outLeft -= one.size();
                ++in;
                --inLeft;
            }
            out.resize(static_cast<size_t>(o - out.data()));
            raw = out;
        }
    }
    if (raw.find("\\U+") == std::string_view::npos && raw.find('^') == std::string_view::npos)
        return out.empty() ? std::string(raw) : out;
    // Control characters are written as ^ and a letter ("^J"), "^" itself as "^ ".
    std::string decoded;
    for (size_t i = 0; i < raw.size(); ++i) {
        uint64_t cp;
        if (raw[i] == '\\' && i + 7 <= raw.size() && raw.compare(i, 3, "\\U+") == 0 &&
            parseHandle(raw.substr(i + 3, 4), cp)) {
            appendUtf8(decoded, static_cast<uint32_t>(cp));
            i += 6;
        } else if (raw[i] == '^' && i + 1 < raw.size() && raw[i + 1] >= '@' && raw[i + 1] <= '_') {
            decoded += static_cast<char>(raw[i + 1] - '@');
            ++i;
        } else if (raw[i] == '^' && i + 1 < raw.size() && raw[i + 1] == ' ') {
            decoded += '^';
            ++i;
        } else {
            decoded += raw[i];
        }
    }
    return decoded;
}

// ---- records ----------------------------------------------------------------

void Reader::readRecord(Record& r)
{
    if (m_hasPending) {
        std::swap(r, m_pending);
        m_hasPending = false;
        return;
    }
    m_ahead->take(r);
}

bool Reader::scanRecord(Record& r)
{
    int code;
    std::string_view value;
    if (!nextTag(code, value)) failInput();
    if (code != 0) fail(ReadCode::kUnexpectedTag, m_in.tags.line(), "group code 0 was expected here, found " + std::to_string(code));
    r.name.assign(trimmed(value));
    r.line = m_in.tags.line();
    if (r.name.empty()) fail(ReadCode::kUnexpectedTag, r.line, "a record has no name (group 0 is empty)");
    r.clear();
    r.invalid.reset();
    while (nextTag(code, value)) {
        if (code == 0) {
            m_in.tags.pushBack(value);
            try {
                check(r);
            } catch (ParseError& e) {
                r.invalid = std::move(e);
            }
            return r.name != "ENDSEC"sv;
        }
        if (code == 999) continue;
        const ValueKind kind = valueKind(code);
        if (kind == ValueKind::String && (m_in.convert || value.find_first_of("\\^") != std::string_view::npos))
            r.push(code, text(value), m_in.tags.line());
        else
            r.push(code, kind == ValueKind::String ? value : trimmed(value), m_in.tags.line());  // numbers without padding
    }
    failInput();
}

void Reader::preserve(KoDbDxfTags& out, const BodyTag& b)
{
    // Tags are grouped behind the marker of the subclass they came in.
    const std::string* marker = nullptr;
    for (auto it = out.rbegin(); it != out.rend(); ++it)
        if (it->code == 100) {
            marker = &it->value;
            break;
        }
    if (!marker || *marker != *b.subclass) out.push_back({100, std::string(*b.subclass)});
    if (b.tag->code == 100 && b.tag->value == *b.subclass) return;  // the marker itself
    out.push_back({b.tag->code, std::string(b.tag->value)});
    ++m_report.preservedTags;
}

void Reader::splitRecord(const Record& r, Common& c, bool entity, int handleCode)
{
    static const std::string_view none;
    const std::string_view* subclass = &none;
    bool commonPart = entity;  // before any subclass marker, or in AcDbEntity
    c.body.reserve(r.size);
    const RTag* end = r.end();
    for (const RTag* t = r.begin(); t != end; ++t) {
        const int code = t->code;
        if (code >= 1000) {
            if (code == 1001 || !c.xdata.empty()) c.xdata.push_back({code, std::string(t->value)});
            else fail(ReadCode::kBadExtendedData, t->line, "extended data must start with an application name (group 1001)");
            continue;
        }
        if (!c.xdata.empty()) fail(ReadCode::kBadExtendedData, t->line, "group " + std::to_string(code) + " follows extended data");
        if (code == handleCode && c.handle == 0 && subclass == &none) {
            c.handle = handleValue(*t);
            continue;
        }
        if (code == 102 && t->value == "{ACAD_REACTORS") {
            for (++t; t != end && t->code != 102; ++t)
                if (t->code == 330)
                    if (KoDbStub* s = stubOf(*t)) c.reactors.push_back(s);
            if (t == end) fail(ReadCode::kUnexpectedTag, r.line, "an ACAD_REACTORS group has no end");
            continue;
        }
        if (code == 102 && t->value == "{ACAD_XDICTIONARY") {
            for (++t; t != end && t->code != 102; ++t)
                if (t->code == 360) c.xdict = stubOf(*t);
            if (t == end) fail(ReadCode::kUnexpectedTag, r.line, "an ACAD_XDICTIONARY group has no end");
            continue;
        }
        if (code == 330 && subclass == &none && !c.owner) {
            c.owner = stubOf(*t);
            continue;
        }
        if (code == 100) {
            subclass = &t->value;
            commonPart = entity && t->value == "AcDbEntity";
            if (commonPart) continue;
            // Markers of classes the parsers know are implied when writing.
            c.body.push_back({t, subclass});
            continue;
        }
        if (commonPart) {
            if (code == 410) continue;  // the layout follows from the owner
            if (takeCommon(c, *t)) continue;
        }
        c.body.push_back({t, subclass});
    }
}

bool Reader::takeCommon(Common& c, const RTag& t)
{
    switch (t.code) {
    case 8: c.layer = t.value; return true;
    case 6: c.linetype = t.value; return true;
    case 62: c.colorIndex = std::abs(integer(t)); return true;
    case 420: {
        const int rgb = integer(t);
        c.trueColor = true;
        c.color = KoCmColor::fromRGB(static_cast<uint8_t>(rgb >> 16), static_cast<uint8_t>(rgb >> 8),
                                     static_cast<uint8_t>(rgb));
        return true;
    }
    case 370: c.lineWeight = integer(t); return true;
    case 48: c.ltscale = dbl(t); return true;
    case 60: c.invisible = integer(t) != 0; return true;
    case 67: c.paperSpace = integer(t) != 0; return true;
    default: return false;
    }
}

void Reader::place(KoDbObject* o, Common& c, KoDbDxfTags preserved, KoDbStub* owner)
{
    uint64_t handle = c.handle;
    if (handle) {
        if (const KoDbStub* stub = m_d.byHandle.find(handle); stub && stub->object) {
            repaired(ReadCode::kDuplicateHandle, 0,
                     "handle " + KoDbHandle(handle).ascii().toUtf8() + " was used twice; the second object got a new handle");
            handle = 0;
        }
    }
    if (handle) {
        KoDbAccess::add(m_db, o, owner, false, handle);
    } else {
        // Numbered when the file's last handle is known.
        KoDbAccess::addUnnumbered(m_db, o, owner);
        m_unnumbered.push_back(KoDbAccess::stub(o));
    }
    KoDbObject::Extra* extra = nullptr;
    if (!c.reactors.empty() || c.xdict || !c.xdata.empty() || !preserved.empty()) extra = &KoDbAccess::extra(o);
    if (extra) {
        extra->reactors = std::move(c.reactors);
        extra->extensionDictionary = c.xdict;
        extra->xdata = std::move(c.xdata);
        extra->preserved = std::move(preserved);
    }
}

// A layer or linetype by name. Drawings from some writers use names they
// never define; the record is made as those programs do, and the report
// says so.
template <class Record>
KoDbObjectId Reader::recordByName(const std::string& name, const char* missingName, KoDbObjectId tableId,
                                  std::unordered_map<std::string, KoDbObjectId>& cache, const char* kind, long line)
{
    const std::string key = name.empty() ? missingName : name;
    if (auto it = cache.find(key); it != cache.end()) return it->second;
    auto* table = kodbPeek<KoDbSymbolTable>(tableId);
    if (!table) fail(ReadCode::kBadStructure, line, std::string("an entity refers to ") + kind + " \"" + key + "\" but the drawing has no " + kind + " table");
    KoDbObjectId id;
    if (table->getAt(wide(key), id) != Kora::eOk) {
        auto* record = new Record;
        record->setName(wide(key));
        KoDbAccess::addUnnumbered(m_db, record, KoDbAccess::stub(table));
        m_unnumbered.push_back(KoDbAccess::stub(record));
        KoDbAccess::appendRecord(*table, record->objectId());
        id = record->objectId();
        repaired(ReadCode::kUndefinedName, line, std::string(kind) + " \"" + key + "\" was used without being defined; it was added");
    }
    cache.emplace(key, id);
    return id;
}

KoDbObjectId Reader::layerByName(const std::string& name, long line)
{
    return recordByName<KoDbLayerTableRecord>(name, "0", m_d.layerTable, m_layers, "layer", line);
}

KoDbObjectId Reader::linetypeByName(const std::string& name, long line)
{
    return recordByName<KoDbLinetypeTableRecord>(name, "ByLayer", m_d.linetypeTable, m_linetypes, "linetype", line);
}

void Reader::applyEntityProperties(KoDbEntity* e, const Common& c, long line)
{
    KoCmColor color = KoCmColor::fromIndex(c.colorIndex);
    if (c.trueColor) {
        color = c.color;
        color.setNearestIndex(c.colorIndex == 0 ? 256 : c.colorIndex);
    }
    e->setColor(color);
    e->setLayer(layerByName(c.layer, line));
    e->setLinetype(linetypeByName(c.linetype, line));
    e->setLineWeight(static_cast<KoDb::LineWeight>(c.lineWeight));
    if (c.ltscale > 0.0) e->setLinetypeScale(c.ltscale);
    e->setVisibility(!c.invisible);
}

// ---- sections -------------------------------------------------------------

std::string Reader::sectionOrEnd()
{
    int code;
    std::string_view value;
    if (!nextTag(code, value)) return {};
    if (code != 0) fail(ReadCode::kUnexpectedTag, m_in.tags.line(), "a section was expected, found group code " + std::to_string(code));
    const std::string_view v = trimmed(value);
    if (v == "EOF") return "EOF";
    if (v != "SECTION") fail(ReadCode::kUnexpectedTag, m_in.tags.line(), "a section was expected, found \"" + std::string(v.substr(0, 40)) + "\"");
    if (!nextTag(code, value)) failInput();
    if (code != 2) fail(ReadCode::kUnexpectedTag, m_in.tags.line(), "the section has no name");
    return std::string(trimmed(value));
}

void Reader::run()
{
    int sections = 0;
    for (std::string name = sectionOrEnd(); !name.empty() && name != "EOF"; name = sectionOrEnd()) {
        section(name);
        ++sections;
    }
    if (sections == 0) fail(ReadCode::kBadStructure, m_in.tags.line(), "no DXF section found");
    finish();
}

void Reader::section(const std::string& name)
{
    if (name == "HEADER") header();
    else if (name == "CLASSES") recordSection(&Reader::classes);
    else if (name == "TABLES") recordSection(&Reader::tables);
    else if (name == "BLOCKS") recordSection(&Reader::blocks);
    else if (name == "ENTITIES") recordSection(&Reader::entities);
    else if (name == "OBJECTS") recordSection(&Reader::objects);
    else otherSection(name);
}

// A section of records up to ENDSEC, read ahead. The reading thread alone
// uses the input until the section is done.
void Reader::recordSection(void (Reader::*body)())
{
    ReadAhead ahead([this](Record& r) { return scanRecord(r); });
    m_ahead = &ahead;
    struct Clear {
        ReadAhead*& ahead;
        ~Clear() { ahead = nullptr; }
    } clear {m_ahead};
    (this->*body)();
}

void Reader::header()
{
    int code;
    std::string_view value;
    std::string var;
    KoDbDxfTags tags;
    auto flush = [&]() {
        if (var.empty()) return;
        auto first = [&](int c) -> const KoDbDxfTag* {
            for (const auto& t : tags)
                if (t.code == c) return &t;
            return nullptr;
        };
        auto number = [&](int c, double fallback) {
            double d;
            const KoDbDxfTag* t = first(c);
            return t && parseDouble(t->value, d) ? d : fallback;
        };
        const KoDbDxfTag* t0 = tags.empty() ? nullptr : &tags.front();
        if (var == "$ACADVER" && t0) {
            m_report.version = t0->value;
            if (t0->value < "AC1015")
                fail(ReadCode::kOldRelease, m_in.tags.line(), "DXF release " + t0->value + " is older than AC1015 (release 2000) and cannot be read");
            // Release 2007 (AC1021) and later store UTF-8.
            m_in.convert = t0->value < "AC1021";
        } else if (var == "$DWGCODEPAGE" && t0) {
            std::string cp = t0->value;
            for (auto& ch : cp) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
            std::string from = cp.rfind("ANSI_", 0) == 0 ? "CP" + cp.substr(5) : "CP1252";
            if (m_in.iconv != reinterpret_cast<iconv_t>(-1)) iconv_close(m_in.iconv);  // a second code page wins
            m_in.iconv = iconv_open("UTF-8", from.c_str());
            if (m_in.iconv == reinterpret_cast<iconv_t>(-1)) m_in.iconv = iconv_open("UTF-8", "CP1252");
        } else if (var == "$HANDSEED" && t0) {
            uint64_t h;
            if (parseHandle(t0->value, h)) m_d.handseed = std::max(m_d.handseed, h);
        } else if (var == "$INSUNITS") {
            const int u = static_cast<int>(number(70, 0));
            m_d.insunits = u >= 0 && u <= 24 ? u : 0;
        } else if (var == "$CLAYER" && t0) {
            m_clayer = text(t0->value);
        } else if (var == "$CELTYPE" && t0) {
            m_celtype = text(t0->value);
        } else if (var == "$CECOLOR") {
            m_d.cecolor = KoCmColor::fromIndex(static_cast<int>(number(62, 256)));
        } else if (var == "$CELWEIGHT") {
            m_d.celweight = static_cast<KoDb::LineWeight>(static_cast<int>(number(370, -1)));
        } else if (var == "$CELTSCALE") {
            m_d.celtscale = number(40, 1.0) > 0 ? number(40, 1.0) : 1.0;
        } else if (var == "$LTSCALE") {
            m_d.ltscale = number(40, 1.0) > 0 ? number(40, 1.0) : 1.0;
        } else if (var == "$MEASUREMENT") {
            m_d.measurement = number(70, 1) != 0 ? 1 : 0;
        } else if (var == "$TILEMODE") {
            m_d.tilemode = number(70, 1) != 0;
        } else if (var == "$EXTMIN") {
            m_d.extmin = {number(10, 1e20), number(20, 1e20), number(30, 1e20)};
        } else if (var == "$EXTMAX") {
            m_d.extmax = {number(10, -1e20), number(20, -1e20), number(30, -1e20)};
        } else if (var != "$ACADMAINTVER") {
            for (auto& t : tags)
                if (valueKind(t.code) == ValueKind::String) t.value = text(t.value);
            m_d.headerVars.emplace_back(var, std::move(tags));
        }
        tags.clear();
        var.clear();
    };
    while (nextTag(code, value)) {
        if (code == 0) {
            if (trimmed(value) != "ENDSEC") fail(ReadCode::kBadStructure, m_in.tags.line(), "the header section has no end");
            flush();
            return;
        }
        if (code == 9) {
            flush();
            var = text(trimmed(value));
            if (var.empty()) fail(ReadCode::kUnexpectedTag, m_in.tags.line(), "a header variable has no name");
            continue;
        }
        if (var.empty()) fail(ReadCode::kUnexpectedTag, m_in.tags.line(), "a header variable name (group 9) was expected");
        if (!validValue(code, value))
            fail(ReadCode::kBadValue, m_in.tags.line(), "\"" + std::string(value.substr(0, 40)) + "\" is not a valid value for group " + std::to_string(code));
        tags.push_back({code, std::string(valueKind(code) == ValueKind::String ? value : trimmed(value))});
    }
    failInput();
}

void Reader::classes()
{
    Record r;
    for (;;) {
        readRecord(r);
        if (r.name == "ENDSEC"sv) return;
        validate(r);
        KoDbDxfRecord rec {r.name, {}};
        for (const RTag& t : r) rec.tags.push_back({t.code, std::string(t.value)});
        m_d.classes.push_back(std::move(rec));
    }
}

void Reader::otherSection(const std::string& name)
{
    // Kept whole (thumbnails, data of other applications).
    KoDbDxfTags tags;
    int code;
    std::string_view value;
    while (nextTag(code, value)) {
        if (code == 0 && trimmed(value) == "ENDSEC") {
            m_d.otherSections.emplace_back(name, std::move(tags));
            return;
        }
        if (!validValue(code, value)) fail(ReadCode::kBadValue, m_in.tags.line(), "\"" + std::string(value.substr(0, 40)) + "\" is not a valid value for group " + std::to_string(code));
        tags.push_back({code, std::string(valueKind(code) == ValueKind::String ? value : trimmed(value))});
    }
    failInput();
}

// ---- tables -----------------------------------------------------------------

void Reader::tables()
{
    Record r;
    KoDbSymbolTable* table = nullptr;
    for (;;) {
        readRecord(r);
        if (r.name == "ENDSEC"sv) return;
        validate(r);
        if (r.name == "TABLE"sv) {
            std::string name;
            for (const RTag& t : r)
                if (t.code == 2) {
                    name = t.value;
                    break;
                }
            KoDbObjectId* slot = name == "BLOCK_RECORD" ? &m_d.blockTable
                                 : name == "LAYER"      ? &m_d.layerTable
                                 : name == "LTYPE"      ? &m_d.linetypeTable
                                 : name == "STYLE"      ? &m_d.styleTable
                                 : name == "DIMSTYLE"   ? &m_d.dimstyleTable
                                 : name == "APPID"      ? &m_d.appidTable
                                 : name == "VPORT"      ? &m_d.vportTable
                                 : name == "VIEW"       ? &m_d.viewTable
                                 : name == "UCS"        ? &m_d.ucsTable
                                                        : nullptr;
            if (!slot) fail(ReadCode::kBadStructure, r.line, "unknown table \"" + name + "\"");
            if (!slot->isNull()) {
                table = kodbPeek<KoDbSymbolTable>(*slot);
                continue;
            }
            Common c(m_body);
            splitRecord(r, c, false);
            table = name == "BLOCK_RECORD" ? new KoDbBlockTable
                    : name == "LAYER"      ? new KoDbLayerTable
                    : name == "LTYPE"      ? static_cast<KoDbSymbolTable*>(new KoDbLinetypeTable)
                                           : new KoDbSymbolTable(name.c_str());
            place(table, c, {}, nullptr);
            *slot = table->objectId();
            continue;
        }
        if (r.name == "ENDTAB"sv) {
            table = nullptr;
            continue;
        }
        if (!table) fail(ReadCode::kBadStructure, r.line, "table record \"" + r.name + "\" outside a table");
        const std::string& expected = table->dxfName();
        if (r.name != expected) fail(ReadCode::kBadStructure, r.line, "a " + r.name + " record in the " + expected + " table");
        tableRecord(r, table);
    }
}

void Reader::tableRecord(const Record& r, KoDbSymbolTable* table)
{
    Common c(m_body);
    splitRecord(r, c, false, r.name == "DIMSTYLE"sv ? 105 : 5);
    KoDbSymbolTableRecord* rec = nullptr;
    auto* layer = r.name == "LAYER"sv ? new KoDbLayerTableRecord : nullptr;
    auto* linetype = r.name == "LTYPE"sv ? new KoDbLinetypeTableRecord : nullptr;
    auto* block = r.name == "BLOCK_RECORD"sv ? new KoDbBlockTableRecord : nullptr;
    rec = layer ? static_cast<KoDbSymbolTableRecord*>(layer)
          : linetype ? static_cast<KoDbSymbolTableRecord*>(linetype)
          : block    ? static_cast<KoDbSymbolTableRecord*>(block)
                     : new KoDbSymbolTableRecord;
    std::unique_ptr<KoDbSymbolTableRecord> guard(rec);
    KoDbDxfTags preserved;
    KoString name;
    int flags = 0;
    KoCmColor layerColor = KoCmColor::fromIndex(7);
    int layerIndex = 7;
    bool hasTrueColor = false;
    std::string layerLinetype;
    std::vector<KoDbLinetypeDash> dashes;
    KoDbStub* layoutStub = nullptr;
    for (const BodyTag& b : c.body) {
        const RTag& t = *b.tag;
        if (t.code == 100 && (t.value == "AcDbSymbolTableRecord" || t.value == "AcDbLayerTableRecord" ||
                              t.value == "AcDbLinetypeTableRecord" || t.value == "AcDbBlockTableRecord"))
            continue;
        switch (t.code) {
        case 2: name = wide(t.value); continue;
        case 70:
            // Block records keep their units here; their flags come with BLOCK.
            if (block) block->setBlockInsertUnits(std::clamp(integer(t), 0, 24));
            else flags = integer(t);
            continue;
        default: break;
        }
        if (layer) {
            switch (t.code) {
            case 62: layerIndex = integer(t); continue;
            case 420: {
                const int rgb = integer(t);
                hasTrueColor = true;
                layerColor = KoCmColor::fromRGB(static_cast<uint8_t>(rgb >> 16), static_cast<uint8_t>(rgb >> 8),
                                                static_cast<uint8_t>(rgb));
                continue;
            }
            case 6: layerLinetype = t.value; continue;
            case 370: layer->setLineWeight(static_cast<KoDb::LineWeight>(integer(t))); continue;
            case 290: layer->setIsPlottable(integer(t) != 0); continue;
            default: break;
            }
        } else if (linetype) {
            switch (t.code) {
            case 3: linetype->setComments(wide(t.value)); continue;
            case 72: case 73: continue;  // alignment and count follow from the dashes
            case 40: linetype->setPatternLength(dbl(t)); continue;
            case 49: dashes.push_back({}); dashes.back().length = dbl(t); continue;
            default: break;
            }
            if (!dashes.empty()) {
                KoDbLinetypeDash& d = dashes.back();
                switch (t.code) {
                case 74: d.complexType = integer(t); continue;
                case 75: d.shapeNumber = integer(t); continue;
                case 340: d.textStyle = KoDbHandle(handleValue(t)); continue;
                case 46: d.scale = dbl(t); continue;
                case 50: d.rotation = dbl(t) * kDegToRad; continue;
                case 44: d.offsetX = dbl(t); continue;
                case 45: d.offsetY = dbl(t); continue;
                case 9: d.text = wide(t.value); continue;
                default: break;
                }
            }
        } else if (block) {
            switch (t.code) {
            case 340: layoutStub = stubOf(t); continue;
            case 280: block->setExplodable(integer(t) != 0); continue;
            case 281: block->setBlockScaling(integer(t) != 0); continue;
            default: break;
            }
        }
        preserve(preserved, b);
    }
    if (name.isEmpty()) fail(ReadCode::kUnexpectedTag, r.line, "a " + r.name + " record has no name");
    if (table->has(name)) {
        repaired(ReadCode::kDuplicateRecord, r.line, r.name + " record \"" + name.toUtf8() + "\" appears twice; the second was dropped");
        return;
    }
    rec->setName(name);
    rec->setFlags(flags);
    if (layer) {
        if (layerIndex < 0) layer->setIsOff(true);
        layerIndex = std::abs(layerIndex);
        if (hasTrueColor) {
            layerColor.setNearestIndex(layerIndex);
            layer->setColor(layerColor);
        } else if (layerIndex >= 1 && layerIndex <= 255) {
            layer->setColor(KoCmColor::fromIndex(layerIndex));
        }
        if (!layerLinetype.empty()) layer->setLinetypeObjectId(linetypeByName(layerLinetype, r.line));
    }
    if (linetype) linetype->setDashes(std::move(dashes));
    guard.release();
    place(rec, c, std::move(preserved), KoDbAccess::stub(table));
    KoDbAccess::appendRecord(*table, rec->objectId());
    if (block && layoutStub) m_blockLayouts.emplace_back(block, layoutStub);
}

// ---- blocks and entities ---------------------------------------------------

void Reader::blocks()
{
    Record r;
    KoDbBlockTableRecord* block = nullptr;
    uint64_t beginHandle = 0;
    for (;;) {
        readRecord(r);
        if (r.name == "ENDSEC"sv) return;
        validate(r);
        if (r.name == "BLOCK"sv) {
            Common c(m_body);
            splitRecord(r, c, true);
            KoString name;
            int flags = 0;
            KoGePoint3d origin;
            KoString path, description;
            for (const BodyTag& b : c.body) {
                const RTag& t = *b.tag;
                switch (t.code) {
                case 2: name = wide(t.value); break;
                case 70: flags = integer(t); break;
                case 10: origin.x = dbl(t); break;
                case 20: origin.y = dbl(t); break;
                case 30: origin.z = dbl(t); break;
                case 1: path = wide(t.value); break;
                case 4: description = wide(t.value); break;
                default: break;
                }
            }
            block = c.owner ? KoDbBlockTableRecord::cast(c.owner->object) : nullptr;
            auto* table = kodbPeek<KoDbBlockTable>(m_d.blockTable);
            if (!block && table) {
                KoDbObjectId id;
                if (table->getAt(name, id) == Kora::eOk) block = kodbPeek<KoDbBlockTableRecord>(id);
            }
            if (!block) {
                if (!table) fail(ReadCode::kBadStructure, r.line, "block \"" + name.toUtf8() + "\" has no block table record");
                if (name.isEmpty()) fail(ReadCode::kUnexpectedTag, r.line, "a block has no name");
                block = new KoDbBlockTableRecord;
                block->setName(name);
                KoDbAccess::addUnnumbered(m_db, block, KoDbAccess::stub(table));
                m_unnumbered.push_back(KoDbAccess::stub(block));
                KoDbAccess::appendRecord(*table, block->objectId());
            }
            Writable writable(block);
            block->setFlags(flags);
            block->setOrigin(origin);
            block->setPathName(path);
            block->setComments(description);
            beginHandle = c.handle;
            continue;
        }
        if (r.name == "ENDBLK"sv) {
            Common c(m_body);
            splitRecord(r, c, true);
            if (block) block->setMarkerHandles(KoDbHandle(beginHandle), KoDbHandle(c.handle));
            block = nullptr;
            continue;
        }
        if (!block) fail(ReadCode::kBadStructure, r.line, "entity " + r.name + " outside a block definition");
        entity(r, block);
    }
}

void Reader::entities()
{
    Record r;
    for (;;) {
        readRecord(r);
        if (r.name == "ENDSEC"sv) return;
        validate(r);
        entity(r, nullptr);
    }
}

void Reader::readSubRecords(std::vector<KoDbDxfRecord>& subs)
{
    // Attributes or vertices, up to and with their end marker.
    Record r;
    for (;;) {
        readRecord(r);
        if (r.name != "ATTRIB"sv && r.name != "VERTEX"sv && r.name != "SEQEND"sv) {
            std::swap(r, m_pending);
            m_hasPending = true;
            repaired(ReadCode::kUnterminatedSequence, m_pending.line, "a sequence of vertices or attributes has no end marker");
            return;
        }
        validate(r);
        KoDbDxfRecord rec {r.name, {}};
        rec.tags.reserve(r.size);
        for (const RTag& t : r) {
            if (t.code == 5) handleValue(t);
            rec.tags.push_back({t.code, std::string(t.value)});
        }
        subs.push_back(std::move(rec));
        if (r.name == "SEQEND"sv) return;
    }
}

void Reader::entity(Record& r, KoDbBlockTableRecord* block)
{
    // Kept as an entity, such a record would be written where it ends a
    // block or the file for every later reader.
    if (r.name == "BLOCK"sv || r.name == "ENDBLK"sv || r.name == "SECTION"sv || r.name == "EOF"sv) {
        repaired(ReadCode::kMisplacedRecord, r.line, r.name + " record among the entities; it was dropped");
        return;
    }
    Common c(m_body);
    splitRecord(r, c, true);
    KoDbDxfTags preserved;
    std::vector<KoDbDxfRecord> subs;
    bool hasSubs = r.name == "POLYLINE"sv;
    if (r.name == "INSERT"sv)
        for (const BodyTag& b : c.body)
            if (b.code() == 66 && integer(*b.tag) != 0) hasSubs = true;
    if (hasSubs) readSubRecords(subs);

    std::unique_ptr<KoDbEntity> e = knownEntity(r, c, preserved, subs);
    if (!e) {
        // Kept whole: every tag after the common ones, and its sub-records.
        preserved.clear();
        for (const BodyTag& b : c.body) preserve(preserved, b);
        auto unknown = std::make_unique<KoDbUnknownEntity>();
        unknown->setDxfName(r.name);
        unknown->setSubRecords(std::move(subs));
        e = std::move(unknown);
        ++m_report.unknownEntities[r.name];
    }
    applyEntityProperties(e.get(), c, r.line);
    if (!block) {
        block = c.owner ? KoDbBlockTableRecord::cast(c.owner->object) : nullptr;
        if (!block) {
            // Looked up once: most writers name no owner for their entities.
            KoDbObjectId& space = m_spaces[c.paperSpace];
            if (space.isNull()) space = c.paperSpace ? m_db.paperSpaceId() : m_db.modelSpaceId();
            block = kodbPeek<KoDbBlockTableRecord>(space);
        }
        if (!block)
            fail(ReadCode::kBadStructure, r.line, "the drawing has no block record for its " + std::string(c.paperSpace ? "paper" : "model") + " space");
    }
    KoDbEntity* placed = e.release();
    place(placed, c, std::move(preserved), KoDbAccess::stub(block));
    block->attachEntity(placed->objectId());
}

// An entity of a kind described by its fields; null when a value does not
// fit the model or a required one is missing.
std::unique_ptr<KoDbEntity> Reader::fieldEntity(const EntityKind& kind, const Record& r, Common& c, KoDbDxfTags& preserved,
                                                std::vector<KoDbDxfRecord>& subs)
{
    std::unique_ptr<KoDbEntity> e(kind.make());
    // Points are gathered whole before they are set, so that no half-read
    // vector is ever offered to the model; late values wait with them (a
    // late number in x).
    struct Pending {
        const EntityField* field;
        KoGePoint3d value;
        bool seen;
    };
    std::array<Pending, 8> points;
    size_t pointCount = 0;
    int missing = 0;  // required fields not met yet
    const EntityField* groupField = nullptr;
    std::vector<GroupItem>& items = m_items;
    items.clear();
    const EntityField* listField = nullptr;
    std::vector<KoGePoint2d> list;
    const EntityField* longField = nullptr;
    std::string longText, longTail;  // its pieces, joined before they are decoded
    Gathered gathered;  // what the kind sets in one go
    for (const EntitySubclass& s : kind.subclasses)
        for (const EntityField& f : s.fields) {
            if ((f.isPoint() || f.late) && pointCount < points.size())
                points[pointCount++] = {&f, f.required || f.late ? KoGePoint3d() : f.point(*e), false};
            if (f.required) ++missing;
        }
    bool ok = true;
    HatchIn nestedIn {*this, r, c.body};
    for (size_t i = 0; i < c.body.size(); ++i) {
        const BodyTag& b = c.body[i];
        const RTag& t = *b.tag;
        if (t.code == 100 && kind.isMarker(t.value)) continue;
        const EntityField* field = kind.field(t.code);
        if (!field) {
            // No kind uses the common property codes in its own subclass, so
            // such codes found there are taken as the properties.
            if (!takeCommon(c, t)) preserve(preserved, b);
            continue;
        }
        if (field->isPoint()) {
            for (size_t i = 0; i < pointCount; ++i)
                if (points[i].field == field) {
                    if (field->required && !points[i].seen) --missing;
                    points[i].seen = point(t, points[i].value, field->code);
                }
            continue;
        }
        if (field->required) --missing;
        if (field->type == FieldType::Nested) {
            // The layout reads on from its count and stops after its last group.
            nestedIn.i = i;
            const bool set = HatchLayout::run(nestedIn, field->nested, static_cast<KoDbHatch&>(*e)) == Kora::eOk;
            ok = ok && set;
            i = nestedIn.i - 1;
            continue;
        }
        if (field->type == FieldType::LongText) {
            // Pieces add up; the last one, at the field's own code, ends the text.
            if (!longField) longField = field;
            if (t.code == kTextPieceCode) longText += t.value;
            else longTail = t.value;
            continue;
        }
        if (field->type == FieldType::Group) {
            groupField = field;
            const GroupMember* m = field->group->member(t.code);
            if (m == &field->group->members.front()) items.emplace_back();
            else if (items.empty()) ok = false;
            if (!items.empty()) items.back()[static_cast<size_t>(m->slot)] = dbl(t);
            continue;
        }
        if (field->type == FieldType::RealList) {
            gathered.at(gathered.reals, field->code).push_back(dbl(t));
            continue;
        }
        if (field->type == FieldType::PointList) {
            std::vector<KoGePoint3d>& pts = gathered.at(gathered.points, field->code);
            if (t.code == field->code) pts.emplace_back();
            if (pts.empty()) ok = false;
            else point(t, pts.back(), field->code);
            continue;
        }
        if (field->type == FieldType::Point2List) {
            listField = field;
            if (t.code == field->code) list.emplace_back(dbl(t), 0.0);
            else if (list.empty()) ok = false;
            else list.back().y = dbl(t);
            continue;
        }
        if (field->type == FieldType::Handle) {
            ok = ok && field->setId(*e, idOf(t)) == Kora::eOk;
            continue;
        }
        if (field->type == FieldType::BlockName) {
            KoDbObjectId block;
            if (const auto* table = kodbPeek<KoDbSymbolTable>(m_d.blockTable)) table->getAt(wide(t.value), block);
            ok = ok && field->setId(*e, block) == Kora::eOk;
            continue;
        }
        if (field->type == FieldType::Text) {
            ok = ok && field->setText(*e, wide(t.value)) == Kora::eOk;
            continue;
        }
        double v = field->type == FieldType::Int ? integer(t) : dbl(t);
        if (field->type == FieldType::Angle) v *= kDegToRad;
        if (field->late) {
            for (size_t i = 0; i < pointCount; ++i)
                if (points[i].field == field) points[i] = {field, KoGePoint3d(v, 0.0, 0.0), true};
            continue;
        }
        if (field->setNumber) ok = ok && field->setNumber(*e, v) == Kora::eOk;
        else gathered.at(gathered.numbers, field->code) = v;
    }
    if (longField) ok = ok && longField->setText(*e, wide(longText + longTail)) == Kora::eOk;
    for (size_t i = 0; i < pointCount; ++i) {
        const Pending& p = points[i];
        if (!p.seen) continue;
        if (p.field->late) ok = ok && p.field->setNumber(*e, p.value.x) == Kora::eOk;
        else ok = ok && p.field->setPoint(*e, p.value) == Kora::eOk;
    }
    if (listField) ok = ok && listField->setPoints(*e, std::move(list)) == Kora::eOk;
    if (groupField) ok = ok && groupField->group->setItems(*e, items) == Kora::eOk;
    if (kind.sequence) {
        // Vertex values are read leniently, as they always were.
        for (const KoDbDxfRecord& v : subs) {
            if (v.dxfName != kind.sequence->record) continue;
            KoGePoint3d p;
            int64_t flags = 0;
            for (const auto& t : v.tags) {
                double d = 0;
                if (t.code == 10 || t.code == 20 || t.code == 30) parseDouble(t.value, d);
                if (t.code == 10) p.x = d;
                else if (t.code == 20) p.y = d;
                else if (t.code == 30) p.z = d;
                else if (t.code == 70) parseInt(t.value, flags);
            }
            if (flags & kind.sequence->refusedFlags) ok = false;
            gathered.vertices.push_back(p);
        }
    }
    if (kind.assemble) ok = ok && kind.assemble(*e, gathered) == Kora::eOk;
    if (!ok || missing > 0) return nullptr;
    if (kind.takeXdata) kind.takeXdata(*e, c.xdata);
    if (kind.setRecords) kind.setRecords(*e, std::move(subs));
    if (kind.setRecords || kind.sequence) subs.clear();
    return e;
}

// Fills the entity a record describes, or answers null when its kind is
// unknown or its data does not fit the model (it is then kept whole).
std::unique_ptr<KoDbEntity> Reader::knownEntity(const Record& r, Common& c, KoDbDxfTags& preserved, std::vector<KoDbDxfRecord>& subs)
{
    const std::string& n = r.name;
    if (const EntityKind* kind = entityKind(n)) return fieldEntity(*kind, r, c, preserved, subs);
    std::unique_ptr<KoDbOpaqueEntity> opaque;
    if (n == "3DSOLID") opaque = std::make_unique<KoDb3dSolid>();
    else if (n == "REGION") opaque = std::make_unique<KoDbRegion>();
    else if (n == "BODY") opaque = std::make_unique<KoDbBody>();
    else if (n == "OLEFRAME") opaque = std::make_unique<KoDbOleFrame>();
    else if (n == "OLE2FRAME") opaque = std::make_unique<KoDbOle2Frame>();
    else if (n.size() > 7 && n.compare(n.size() - 7, 7, "SURFACE") == 0) opaque = std::make_unique<KoDbSurface>();
    if (opaque) {
        opaque->setDxfName(n);
        for (const BodyTag& b : c.body) preserve(preserved, b);
        return opaque;
    }
    return nullptr;
}

// ---- objects -----------------------------------------------------------------

void Reader::objects()
{
    Record r;
    for (;;) {
        readRecord(r);
        if (r.name == "ENDSEC"sv) return;
        validate(r);
        object(r);
    }
}

void Reader::object(const Record& r)
{
    Common c(m_body);
    splitRecord(r, c, false);
    KoDbDxfTags preserved;
    auto keep = [&](const BodyTag& b) { preserve(preserved, b); };
    std::unique_ptr<KoDbObject> o;
    if (r.name == "DICTIONARY"sv) {
        auto d = std::make_unique<KoDbDictionary>();
        std::string key;
        for (const BodyTag& b : c.body) {
            const RTag& t = *b.tag;
            switch (t.code) {
            case 100: if (t.value != "AcDbDictionary") keep(b); break;
            case 280: d->setTreatElementsAsHard(integer(t) != 0); break;
            case 281: d->setMergeStyle(integer(t)); break;
            case 3: key = t.value; break;
            case 350:
            case 360:
                if (KoDbStub* s = stubOf(t)) d->attachEntry(wide(key), KoDbObjectId(s));
                key.clear();
                break;
            default: keep(b);
            }
        }
        if (m_d.namedObjects.isNull() && !c.owner) {
            KoDbDictionary* root = d.release();
            place(root, c, std::move(preserved), nullptr);
            m_d.namedObjects = root->objectId();
            return;
        }
        o = std::move(d);
    } else if (r.name == "LAYOUT"sv) {
        auto layout = std::make_unique<KoDbLayout>();
        KoDbDxfTags plot;
        KoGePoint3d limMin, limMax(420, 297, 0);
        for (const BodyTag& b : c.body) {
            const RTag& t = *b.tag;
            if (*b.subclass == "AcDbPlotSettings") {
                if (t.code != 100) plot.push_back({t.code, std::string(t.value)});
                continue;
            }
            if (*b.subclass != "AcDbLayout") {
                keep(b);
                continue;
            }
            switch (t.code) {
            case 100: break;
            case 1: layout->setLayoutName(wide(t.value)); break;
            case 71: layout->setTabOrder(integer(t)); break;
            case 330: if (KoDbStub* s = stubOf(t)) m_layoutBlocks.emplace_back(layout.get(), s); break;
            case 10: limMin.x = dbl(t); break;
            case 20: limMin.y = dbl(t); break;
            case 11: limMax.x = dbl(t); break;
            case 21: limMax.y = dbl(t); break;
            default: keep(b);
            }
        }
        layout->setLimits({limMin.x, limMin.y}, {limMax.x, limMax.y});
        layout->setPlotSettings(std::move(plot));
        o = std::move(layout);
    } else if (r.name == "DGNDEFINITION"sv) {
        auto def = std::make_unique<KoDbDgnDefinition>();
        for (const BodyTag& b : c.body) {
            const RTag& t = *b.tag;
            if (t.code == 100 && t.value == "AcDbUnderlayDefinition") continue;
            if (t.code == 1) def->setSourceFileName(wide(t.value));
            else if (t.code == 2) def->setItemName(wide(t.value));
            else keep(b);
        }
        def->setActiveFileName(def->getSourceFileName());
        KoDbDxfTags rest;
        bool inKora = false;
        int ints = 0;
        for (const KoDbDxfTag& t : c.xdata) {
            if (t.code == 1001) inKora = t.value == kKoraApp;
            if (!inKora) {
                rest.push_back(t);
                continue;
            }
            int64_t v = 0;
            if (t.code == 1000) def->setActiveFileName(wide(t.value));
            else if (t.code == 1070 && parseInt(t.value, v) && ints++ == 0) def->setUseMasterUnits(v != 0);
            else if (t.code == 1071 && parseInt(t.value, v)) def->setXrefDepth(static_cast<int>(v));
        }
        c.xdata = std::move(rest);
        o = std::move(def);
    } else {
        o = std::make_unique<KoDbUnknownObject>(r.name);
        for (const BodyTag& b : c.body) keep(b);
        ++m_report.unknownObjects[r.name];
    }
    place(o.release(), c, std::move(preserved), c.owner);
}

// ---- after the last section -------------------------------------------------

void Reader::finish()
{
    m_d.handseed = std::max(m_d.handseed, m_maxHandle + 1);
    if (m_d.blockTable.isNull() || m_d.layerTable.isNull() || m_d.linetypeTable.isNull())
        fail(ReadCode::kBadStructure, m_in.tags.line(), "the drawing lacks its block, layer or linetype table");
    if (m_d.namedObjects.isNull()) fail(ReadCode::kBadStructure, m_in.tags.line(), "the drawing has no named-objects dictionary");
    for (auto [block, stub] : m_blockLayouts)
        if (KoDbLayout::cast(stub->object)) {
            Writable writable(block);
            block->setLayoutId(KoDbObjectId(stub));
        }
    for (auto [layout, stub] : m_layoutBlocks)
        if (auto* block = KoDbBlockTableRecord::cast(stub->object)) {
            Writable writableLayout(layout);
            Writable writableBlock(block);
            layout->setBlockTableRecordId(KoDbObjectId(stub));
            if (block->getLayoutId().isNull()) block->setLayoutId(layout->objectId());
        }
    // Dictionary entries whose object never came are dropped.
    for (KoDbStub& s : m_d.stubs)
        if (auto* d = KoDbDictionary::cast(s.object)) {
            if (KoDbAccess::dropEntriesWithoutObjects(*d) > 0)
                repaired(ReadCode::kOrphanEntries, 0, "dictionary entries without objects were dropped");
        }
    if (m_db.modelSpaceId().isNull()) fail(ReadCode::kBadStructure, m_in.tags.line(), "the drawing has no model space block");
    for (const char* name : {"ByBlock", "ByLayer", "Continuous"}) linetypeByName(name, 0);
    layerByName("0", 0);
    if (!m_clayer.empty()) m_d.clayer = layerByName(m_clayer, 0);
    else m_d.clayer = m_db.layerZero();
    m_d.celtype = linetypeByName(m_celtype.empty() ? "ByLayer" : m_celtype, 0);
    m_d.handseed = std::max(m_d.handseed, m_maxHandle + 1);
    for (KoDbStub* stub : m_unnumbered) KoDbAccess::numberStub(m_db, stub);
}

}  // namespace

// Ends a read that cannot go on: a message for people ("name, line N:
// what", or "name: what" where line is negative) and the same as a record.
Kora::ErrorStatus failed(Kora::ErrorStatus es, ReadCode code, long line, const std::string& what, const KoString& name,
                         KoString* message, KoDbDxfReadReport* report)
{
    if (message)
        *message = line < 0 ? KoString::format(L"%s: %hs", name.c_str(), what.c_str())
                            : KoString::format(L"%s, line %ld: %hs", name.c_str(), line, what.c_str());
    if (report) {
        Kora::Place place;
        if (line > 0) place.line = static_cast<uint64_t>(line);
        report->diagnostics.push_back({code, Kora::Severity::kError, place, what});
    }
    return es;
}

// Reads `in`, audits what was read and, unless strict mode refuses the
// result, replaces what `target` held.
Kora::ErrorStatus readDxf(TagReader& in, KoDbDatabase& target, const KoString& name, KoString* message,
                          KoDbDxfReadReport* report, KoDbDxfReadMode mode)
{
    if (target.openObjectCount() > 0)
        return failed(Kora::eInvalidOpenState, ReadCode::kDrawingBusy, -1,
                      "the drawing has open objects and cannot be replaced.", name, message, report);
    KoDbDxfReadReport localReport;
    KoDbDxfReadReport& rep = report ? *report : localReport;
    // Read and audited on its own, so that a failure, or strict mode turning
    // the drawing down, leaves the target whole.
    KoDbDatabase fresh(false);
    try {
        Reader reader(in, fresh, rep);
        reader.run();
    } catch (const ParseError& e) {
        return failed(Kora::eBadDxfFile, e.code, e.line, e.message, name, message, report);
    } catch (const std::bad_alloc&) {
        return failed(Kora::eOutOfMemory, ReadCode::kOutOfMemory, -1, "out of memory while reading.", name, message, report);
    } catch (const std::exception& e) {
        return failed(Kora::eBadDxfFile, ReadCode::kBadValue, in.line(), e.what(), name, message, report);
    }
    rep.audit = Kora::Db::audit(fresh);
    if (mode == KoDbDxfReadMode::kStrict && (!rep.diagnostics.empty() || !rep.audit.empty())) {
        const std::string& first = rep.diagnostics.empty() ? rep.audit.front().message : rep.diagnostics.front().message;
        const size_t count = rep.diagnostics.size() + rep.audit.size();
        if (message)
            *message = KoString::format(L"%s: the drawing needs repairs (%zu), so it was not opened: %hs%hs.", name.c_str(),
                                        count, first.c_str(), count > 1 ? "; ..." : "");
        return Kora::eBadDxfFile;
    }
    KoDbAccess::swap(target, fresh);
    KoDbAccess::impl(target).filename = name;
    return Kora::eOk;
}

// A binary DXF file opens with a one-line signature ending in these bytes.
constexpr std::string_view kBinarySignatureEnd("Binary DXF\r\n\x1a\0", 14);

// Files of a kind the reader does not take are refused before reading.
bool refuse(std::string_view head, const KoString& name, KoString* message, KoDbDxfReadReport* report,
            Kora::ErrorStatus& es)
{
    if (head.empty()) {
        es = failed(Kora::eBadDxfFile, ReadCode::kEmptyFile, -1, "the file is empty.", name, message, report);
        return true;
    }
    const size_t signatureEnd = head.substr(0, 32).find(kBinarySignatureEnd);
    if (signatureEnd != std::string_view::npos && head.substr(0, signatureEnd).find('\n') == std::string_view::npos) {
        es = failed(Kora::eUnsupportedFileFormat, ReadCode::kBinaryFile, 1,
                    "binary DXF files are not supported; save it as ASCII DXF.", name, message, report);
        return true;
    }
    return false;
}

}  // namespace Kora::Dxf

Kora::ErrorStatus kodbReadDxf(KoDbDatabase& database, std::string_view bytes, const KoString& name, KoString* message,
                              KoDbDxfReadReport* report, KoDbDxfReadMode mode)
{
    if (report) *report = {};
    Kora::ErrorStatus es;
    if (Kora::Dxf::refuse(bytes.substr(0, 64), name, message, report, es)) return es;
    Kora::Dxf::TagReader in(bytes);
    return Kora::Dxf::readDxf(in, database, name, message, report, mode);
}

Kora::ErrorStatus kodbReadDxfFile(KoDbDatabase& database, const KoString& path, KoString* message,
                                  KoDbDxfReadReport* report, KoDbDxfReadMode mode)
{
    using Kora::Dxf::ReadCode;
    if (report) *report = {};
    Kora::Dxf::File f(std::fopen(path.toUtf8().c_str(), "rb"));
    if (!f) {
        const int err = errno;
        return Kora::Dxf::failed(err == ENOENT ? Kora::eFileNotFound : Kora::eFileAccessErr, ReadCode::kCannotOpen, -1,
                                 std::strerror(err), path, message, report);
    }
    char head[64];
    const size_t n = std::fread(head, 1, sizeof head, f.get());
    Kora::ErrorStatus es;
    if (Kora::Dxf::refuse(std::string_view(head, n), path, message, report, es)) return es;
    std::rewind(f.get());
    Kora::Dxf::TagReader in(std::move(f));
    return Kora::Dxf::readDxf(in, database, path, message, report, mode);
}
