// Writes a database as AC1027 DXF text. Objects are written from their
// properties; the tags kept with them (unknown codes, plot settings, data
// of unknown classes) go back into the subclass they came from.

#include <charconv>
#include <cmath>
#include <numbers>
#include <optional>
#include <thread>
#include <unordered_map>

#include "dbimpl.h"
#include "dxfcodes.h"
#include "dxfentitykinds.h"
#include "dxfhatchlayout.h"
#include "kora/atomicfile.h"
#include "kora/handoff.h"
#include "kora/db/underlay.h"
#include "kora/dxf/dxf.h"

namespace Kora::Dxf {
namespace {

// Where the writer sends its text.
struct Sink {
    virtual ~Sink() = default;
    virtual bool write(const char* data, size_t size) = 0;
};

struct StringSink : Sink {
    std::string& s;
    explicit StringSink(std::string& target) : s(target) {}
    bool write(const char* data, size_t size) override
    {
        s.append(data, size);
        return true;
    }
};

constexpr double kRadToDeg = 180.0 / std::numbers::pi;

const char* defaultRecordSubclass(const std::string& table)
{
    if (table == "VPORT") return "AcDbViewportTableRecord";
    if (table == "STYLE") return "AcDbTextStyleTableRecord";
    if (table == "VIEW") return "AcDbViewTableRecord";
    if (table == "UCS") return "AcDbUCSTableRecord";
    if (table == "APPID") return "AcDbRegAppTableRecord";
    if (table == "DIMSTYLE") return "AcDbDimStyleTableRecord";
    return "AcDbSymbolTableRecord";
}

class Writer {
public:
    Writer(const KoDbDatabase& db, Sink& sink) : m_db(db), m_d(KoDbAccess::impl(db)), m_sink(sink)
    {
        m_buf.reserve(kFlushAt + 4096);
    }
    Kora::ErrorStatus run();

private:
    static constexpr size_t kFlushAt = 1 << 18;

    // ---- tags ----
    void put(std::string_view s)
    {
        m_buf.append(s);
        if (m_buf.size() >= kFlushAt) flush();
    }
    void flush()
    {
        if (!m_failed && !m_buf.empty() && !m_sink.write(m_buf.data(), m_buf.size())) m_failed = true;
        m_buf.clear();
    }
    void code(int c)
    {
        char tmp[8];
        auto [end, ec] = std::to_chars(tmp, tmp + sizeof tmp, c);
        const size_t n = static_cast<size_t>(end - tmp);
        if (n < 3) m_buf.append(3 - n, ' ');
        m_buf.append(tmp, n);
        m_buf += '\n';
    }
    void tag(int c, std::string_view v)
    {
        code(c);
        // Values are single lines: control characters travel as "^J".
        bool plain = true;
        for (char ch : v)
            if (static_cast<unsigned char>(ch) < 0x20 || ch == '^') plain = false;
        if (plain) {
            m_buf.append(v);
        } else {
            for (char ch : v) {
                if (ch == '^') m_buf.append("^ ");
                else if (static_cast<unsigned char>(ch) < 0x20) {
                    m_buf += '^';
                    m_buf += static_cast<char>(ch + '@');
                } else m_buf += ch;
            }
        }
        m_buf += '\n';
        if (m_buf.size() >= kFlushAt) flush();
    }
    void tag(int c, const char* v) { tag(c, std::string_view(v)); }
    void tag(int c, const KoString& v) { tag(c, v.toUtf8()); }
    void tag(int c, int v)
    {
        char tmp[16];
        auto [end, ec] = std::to_chars(tmp, tmp + sizeof tmp, v);
        tag(c, std::string_view(tmp, static_cast<size_t>(end - tmp)));
    }
    void real(int c, double v)
    {
        if (!std::isfinite(v)) v = 0.0;
        char tmp[40];
        auto [end, ec] = std::to_chars(tmp, tmp + sizeof tmp, v);
        std::string_view s(tmp, static_cast<size_t>(end - tmp));
        code(c);
        m_buf.append(s);
        // Shortest form that reads back exactly; other programs like a point.
        if (s.find_first_of(".e") == std::string_view::npos) m_buf.append(".0");
        m_buf += '\n';
    }
    void handle(int c, uint64_t h)
    {
        char tmp[20];
        auto [end, ec] = std::to_chars(tmp, tmp + sizeof tmp, h, 16);
        for (char* p = tmp; p != end; ++p)
            if (*p >= 'a') *p = static_cast<char>(*p - 'a' + 'A');
        tag(c, std::string_view(tmp, static_cast<size_t>(end - tmp)));
    }
    void ref(int c, KoDbObjectId id) { handle(c, live(id) ? id.handle().value() : 0); }
    static bool live(KoDbObjectId id) { return id.stub() && id.stub()->object && !id.stub()->object->isErased(); }
    void point(int base, const KoGePoint3d& p)
    {
        real(base, p.x);
        real(base + 10, p.y);
        real(base + 20, p.z);
    }
    void point(int base, const KoGeVector3d& v) { point(base, KoGePoint3d(v.x, v.y, v.z)); }
    void point2(int base, const KoGePoint2d& p)
    {
        real(base, p.x);
        real(base + 10, p.y);
    }
    void normal(const KoGeVector3d& n)
    {
        if (n != KoGeVector3d::kZAxis()) point(210, n);
    }
    void tags(const KoDbDxfTags& list)
    {
        for (const auto& t : list) tag(t.code, t.value);
    }

    // ---- objects ----
    // The kept tags of the object being written, by subclass.
    struct Segment {
        const std::string* name;
        size_t begin, end;
        bool written;
    };
    std::vector<Segment> m_segments;
    const KoDbDxfTags* m_kept = nullptr;

    void begin(std::string_view name, const KoDbObject* o, int handleCode = 5, KoDbStub* owner = nullptr);
    void subclass(std::string_view name)
    {
        tag(100, name);
        m_subclass = name;
    }
    // Kept tags of the subclass just written.
    void keptOf(const std::string& name);
    void keptOfCurrent() { keptOf(m_subclass); }
    void end(const KoDbObject* o);
    uint64_t newHandle() { return m_nextHandle++; }

    void header();
    void classes();
    void tables();
    void table(KoDbObjectId id, const char* name);
    void record(const KoDbSymbolTableRecord* r, const KoDbSymbolTable* t);
    void blocks();
    void entities();
    struct Placed {
        const KoDbEntity* entity;
        bool paperSpace;
    };
    void runs(const std::vector<Placed>& all);
    void entity(const KoDbEntity* e, bool paperSpace);
    void sequence(const EntitySequence& seq, const KoDbEntity* e, bool paperSpace);
    void fields(const EntityKind& kind, const KoDbEntity* e);
    // The output side of a hatch's nested data (see dxfhatchlayout.h).
    struct HatchOut {
        static constexpr bool kReading = false;
        Writer& w;

        void integer(int code, int v) { w.tag(code, v); }
        void real(int code, double v) { w.real(code, v); }
        void point2(int base, const KoGePoint2d& p) { w.point2(base, p); }
        void handle(int code, KoDbHandle h) { w.handle(code, h.value()); }
        int count(int code, size_t n, int)
        {
            w.tag(code, static_cast<int>(n));
            return static_cast<int>(n);
        }
        bool optional(int, bool written) const { return written; }
        template <class T>
        const T& item(const std::vector<T>& v, size_t k) { return v[k]; }
        void enumerated(int code, int v, int, int, const char*) { w.tag(code, v); }
    };
    void objects();
    void object(const KoDbObject* o);

    // Name of a symbol table record, converted once per record.
    const std::string& layerName(KoDbObjectId id);
    // The kind of an entity by its class, looked up once per class.
    const EntityKind* kindOf(const KoDbEntity* e);

    const KoDbDatabase& m_db;
    KoDbDatabase::Impl& m_d;
    Sink& m_sink;
    std::string m_buf;
    bool m_failed = false;
    std::string m_subclass;
    uint64_t m_nextHandle = 0, m_handseedOut = 0;
    bool m_needKoraApp = false;
    std::unordered_map<const KoDbStub*, std::string> m_names;
    std::unordered_map<const KoRxClass*, const EntityKind*> m_kinds;
};

const std::string& Writer::layerName(KoDbObjectId id)
{
    const auto [it, added] = m_names.try_emplace(id.stub());
    if (added) {
        const auto* r = kodbPeek<KoDbSymbolTableRecord>(id);
        it->second = r ? r->getName().toUtf8() : std::string("0");
    }
    return it->second;
}

const EntityKind* Writer::kindOf(const KoDbEntity* e)
{
    const auto [it, added] = m_kinds.try_emplace(e->isA());
    if (added) it->second = entityKind(e);
    return it->second;
}

void Writer::begin(std::string_view name, const KoDbObject* o, int handleCode, KoDbStub* owner)
{
    tag(0, name);
    handle(handleCode, o->handle().value());
    m_kept = &o->preservedTags();
    m_segments.clear();
    const KoDbDxfTags& kept = *m_kept;
    for (size_t i = 0; i < kept.size(); ++i)
        if (kept[i].code == 100) {
            if (!m_segments.empty()) m_segments.back().end = i;
            m_segments.push_back({&kept[i].value, i + 1, kept.size(), false});
        }
    // Application groups come first, then reactors and extension dictionary.
    keptOf(std::string());
    if (const KoDbObject::Extra* x = KoDbAccess::extra(o)) {
        bool any = false;
        for (KoDbStub* s : x->reactors) any = any || (s->object && !s->object->isErased());
        if (any) {
            tag(102, "{ACAD_REACTORS");
            for (KoDbStub* s : x->reactors)
                if (s->object && !s->object->isErased()) handle(330, s->handle);
            tag(102, "}");
        }
        if (x->extensionDictionary && live(KoDbObjectId(x->extensionDictionary))) {
            tag(102, "{ACAD_XDICTIONARY");
            handle(360, x->extensionDictionary->handle);
            tag(102, "}");
        }
    }
    KoDbStub* ownerStub = owner ? owner : KoDbAccess::ownerStub(o);
    handle(330, ownerStub && ownerStub->object ? ownerStub->handle : 0);
    m_subclass.clear();
}

void Writer::keptOf(const std::string& name)
{
    for (Segment& s : m_segments)
        if (!s.written && *s.name == name) {
            s.written = true;
            for (size_t i = s.begin; i < s.end; ++i) tag((*m_kept)[i].code, (*m_kept)[i].value);
        }
}

void Writer::end(const KoDbObject* o)
{
    // Subclasses no property wrote go back whole, with their markers.
    for (Segment& s : m_segments)
        if (!s.written) {
            s.written = true;
            tag(100, *s.name);
            for (size_t i = s.begin; i < s.end; ++i) tag((*m_kept)[i].code, (*m_kept)[i].value);
        }
    tags(o->xData());
}

// ---- sections ---------------------------------------------------------------

Kora::ErrorStatus Writer::run()
{
    // Handles for what the file needs beyond the database's objects (3D
    // polyline vertices, block markers, missing tables, the platform's
    // application record) come after the database's own.
    uint64_t extra = 16;
    for (const KoDbStub& s : m_d.stubs) {
        if (!s.object || s.object->isErased()) continue;
        if (auto* p = KoDb3dPolyline::cast(s.object)) extra += p->vertices().size() + 1;
        else if (KoDbBlockTableRecord::cast(s.object)) extra += 2;
        else if (KoDbUnderlayReference::cast(s.object) || KoDbDgnDefinition::cast(s.object)) m_needKoraApp = true;
    }
    m_nextHandle = m_d.handseed;
    m_handseedOut = m_d.handseed + extra;
    if (const auto* apps = kodbPeek<KoDbSymbolTable>(m_d.appidTable); apps && apps->has(KoString::fromUtf8(kKoraApp)))
        m_needKoraApp = false;

    tag(0, "SECTION");
    tag(2, "HEADER");
    header();
    tag(0, "ENDSEC");
    classes();
    tables();
    blocks();
    entities();
    objects();
    for (const auto& [name, list] : m_d.otherSections) {
        tag(0, "SECTION");
        tag(2, name);
        tags(list);
        tag(0, "ENDSEC");
    }
    tag(0, "EOF");
    flush();
    return m_failed ? Kora::eFileWriteError : Kora::eOk;
}

void Writer::header()
{
    auto var = [&](std::string_view name) { tag(9, name); };
    var("$ACADVER");
    tag(1, "AC1027");
    var("$DWGCODEPAGE");
    tag(3, "ANSI_1252");
    var("$HANDSEED");
    handle(5, m_handseedOut);
    var("$INSUNITS");
    tag(70, m_d.insunits);
    var("$MEASUREMENT");
    tag(70, m_d.measurement);
    var("$TILEMODE");
    tag(70, m_d.tilemode ? 1 : 0);
    var("$EXTMIN");
    point(10, m_d.extmin);
    var("$EXTMAX");
    point(10, m_d.extmax);
    var("$LTSCALE");
    real(40, m_d.ltscale);
    var("$CLAYER");
    tag(8, layerName(m_d.clayer));
    var("$CELTYPE");
    tag(6, live(m_d.celtype) ? layerName(m_d.celtype) : std::string("ByLayer"));
    var("$CECOLOR");
    tag(62, m_d.cecolor.colorIndex());
    var("$CELTSCALE");
    real(40, m_d.celtscale);
    var("$CELWEIGHT");
    tag(370, static_cast<int>(m_d.celweight));
    for (const auto& [name, list] : m_d.headerVars) {
        var(name);
        tags(list);
    }
}

void Writer::classes()
{
    tag(0, "SECTION");
    tag(2, "CLASSES");
    struct Known {
        const char* dxf;
        const char* cpp;
        int flags;
        bool entity;
    };
    static const Known needed[] = {
        {"LAYOUT", "AcDbLayout", 0, false},
        {"DGNDEFINITION", "AcDbDgnDefinition", 1153, false},
        {"DGNUNDERLAY", "AcDbDgnReference", 1153, true},
    };
    for (const Known& k : needed) {
        bool present = false;
        for (const auto& c : m_d.classes)
            for (const auto& t : c.tags)
                if (t.code == 1 && t.value == k.dxf) present = true;
        if (present) continue;
        tag(0, "CLASS");
        tag(1, k.dxf);
        tag(2, k.cpp);
        tag(3, "ObjectDBX Classes");
        tag(90, k.flags);
        tag(91, 0);
        tag(280, 0);
        tag(281, k.entity ? 1 : 0);
    }
    for (const auto& c : m_d.classes) {
        tag(0, c.dxfName);
        tags(c.tags);
    }
    tag(0, "ENDSEC");
}

void Writer::tables()
{
    tag(0, "SECTION");
    tag(2, "TABLES");
    table(m_d.vportTable, "VPORT");
    table(m_d.linetypeTable, "LTYPE");
    table(m_d.layerTable, "LAYER");
    table(m_d.styleTable, "STYLE");
    table(m_d.viewTable, "VIEW");
    table(m_d.ucsTable, "UCS");
    table(m_d.appidTable, "APPID");
    table(m_d.dimstyleTable, "DIMSTYLE");
    table(m_d.blockTable, "BLOCK_RECORD");
    tag(0, "ENDSEC");
}

void Writer::table(KoDbObjectId id, const char* name)
{
    const auto* t = kodbPeek<KoDbSymbolTable>(id);
    tag(0, "TABLE");
    tag(2, name);
    // A table the drawing lacks is written empty (with a handle of its own).
    handle(5, t ? t->handle().value() : newHandle());
    handle(330, 0);
    tag(100, "AcDbSymbolTable");
    int count = t ? t->numRecords() : 0;
    const bool addApp = m_needKoraApp && std::string_view(name) == "APPID";
    tag(70, count + (addApp ? 1 : 0));
    if (std::string_view(name) == "DIMSTYLE") tag(100, "AcDbDimStyleTable");
    const uint64_t tableHandle = t ? t->handle().value() : 0;
    if (t)
        for (KoDbObjectId rid : t->recordIds())
            if (const auto* r = kodbPeek<KoDbSymbolTableRecord>(rid); r && !r->isErased()) record(r, t);
    if (addApp) {
        tag(0, "APPID");
        handle(5, newHandle());
        handle(330, tableHandle);
        tag(100, "AcDbSymbolTableRecord");
        tag(100, "AcDbRegAppTableRecord");
        tag(2, kKoraApp);
        tag(70, 0);
    }
    tag(0, "ENDTAB");
}

void Writer::record(const KoDbSymbolTableRecord* r, const KoDbSymbolTable* t)
{
    const std::string& tableName = t->dxfName();
    begin(tableName, r, tableName == "DIMSTYLE" ? 105 : 5);
    subclass("AcDbSymbolTableRecord");
    keptOfCurrent();
    if (const auto* layer = KoDbLayerTableRecord::cast(r)) {
        subclass("AcDbLayerTableRecord");
        tag(2, r->getName());
        tag(70, r->flags());
        const int index = layer->color().colorIndex();
        tag(62, layer->isOff() ? -index : index);
        if (layer->color().isByColor()) tag(420, static_cast<int>(layer->color().rgb()));
        tag(6, live(layer->linetypeObjectId()) ? layerName(layer->linetypeObjectId()) : std::string("Continuous"));
        if (!layer->isPlottable()) tag(290, 0);
        tag(370, static_cast<int>(layer->lineWeight()));
    } else if (const auto* lt = KoDbLinetypeTableRecord::cast(r)) {
        subclass("AcDbLinetypeTableRecord");
        tag(2, r->getName());
        tag(70, r->flags());
        tag(3, lt->comments());
        tag(72, 65);
        tag(73, lt->numDashes());
        real(40, lt->patternLength());
        for (const KoDbLinetypeDash& d : lt->dashes()) {
            real(49, d.length);
            tag(74, d.complexType);
            if (d.complexType == 0) continue;
            tag(75, d.shapeNumber);
            handle(340, d.textStyle.value());
            real(46, d.scale);
            real(50, d.rotation * kRadToDeg);
            real(44, d.offsetX);
            real(45, d.offsetY);
            if (d.complexType & 2) tag(9, d.text);
        }
    } else if (const auto* block = KoDbBlockTableRecord::cast(r)) {
        subclass("AcDbBlockTableRecord");
        tag(2, r->getName());
        ref(340, block->getLayoutId());
        tag(70, block->blockInsertUnits());
        tag(280, block->explodable() ? 1 : 0);
        tag(281, block->blockScaling() ? 1 : 0);
    } else {
        // The record's own subclass is the first one kept, else the table's.
        std::string sub = defaultRecordSubclass(tableName);
        for (const Segment& s : m_segments)
            if (!s.written && !s.name->empty()) {
                sub = *s.name;
                break;
            }
        subclass(sub);
        tag(2, r->getName());
        tag(70, r->flags());
    }
    keptOfCurrent();
    end(r);
}

void Writer::blocks()
{
    tag(0, "SECTION");
    tag(2, "BLOCKS");
    const auto* table = kodbPeek<KoDbSymbolTable>(m_d.blockTable);
    const KoDbObjectId model = m_db.modelSpaceId(), paper = m_db.paperSpaceId();
    for (KoDbObjectId id : table ? table->recordIds() : KoDbObjectIdArray()) {
        const auto* b = kodbPeek<KoDbBlockTableRecord>(id);
        if (!b || b->isErased()) continue;
        const bool paperLayout = b->isLayout() && id != model;
        const uint64_t beginHandle = b->blockBeginHandle().isNull() ? newHandle() : b->blockBeginHandle().value();
        const uint64_t endHandle = b->blockEndHandle().isNull() ? newHandle() : b->blockEndHandle().value();
        tag(0, "BLOCK");
        handle(5, beginHandle);
        handle(330, id.handle().value());
        tag(100, "AcDbEntity");
        if (paperLayout) tag(67, 1);
        tag(8, "0");
        tag(100, "AcDbBlockBegin");
        tag(2, b->getName());
        tag(70, b->flags());
        point(10, b->origin());
        tag(3, b->getName());
        tag(1, b->pathName());
        if (!b->comments().isEmpty()) tag(4, b->comments());
        if (id != model && id != paper)
            for (KoDbObjectId eid : b->entityIds())
                if (const auto* e = kodbPeek<KoDbEntity>(eid); e && !e->isErased()) entity(e, paperLayout);
        tag(0, "ENDBLK");
        handle(5, endHandle);
        handle(330, id.handle().value());
        tag(100, "AcDbEntity");
        if (paperLayout) tag(67, 1);
        tag(8, "0");
        tag(100, "AcDbBlockEnd");
    }
    tag(0, "ENDSEC");
}

void Writer::entities()
{
    tag(0, "SECTION");
    tag(2, "ENTITIES");
    std::vector<Placed> all;
    for (const bool paper : {false, true}) {
        const auto* b = kodbPeek<KoDbBlockTableRecord>(paper ? m_db.paperSpaceId() : m_db.modelSpaceId());
        if (!b) continue;
        for (KoDbObjectId eid : b->entityIds())
            if (const auto* e = kodbPeek<KoDbEntity>(eid); e && !e->isErased()) all.push_back({e, paper});
    }
    runs(all);
    tag(0, "ENDSEC");
}

// Turning numbers into text is most of the work of a save. The entities
// go in runs, taken in turn by this thread and by a second one that
// formats its runs into text of their own; the text is written in the
// entities' order. The new handles of the records that follow an entity
// (the vertices of 3D polylines) are counted out to each run beforehand, so
// that every run numbers them as a one-thread save would.
void Writer::runs(const std::vector<Placed>& all)
{
    constexpr size_t kRun = 4096;
    const size_t count = (all.size() + kRun - 1) / kRun;
    std::vector<uint64_t> firstHandle {m_nextHandle};
    for (size_t run = 0; run < count; ++run) {
        uint64_t next = firstHandle.back();
        for (size_t i = run * kRun; i < std::min(all.size(), (run + 1) * kRun); ++i)
            if (const EntityKind* kind = kindOf(all[i].entity); kind && kind->sequence)
                next += kind->sequence->vertices(*all[i].entity).size() + 1;
        firstHandle.push_back(next);
    }
    auto format = [&](Writer& w, size_t run) {
        w.m_nextHandle = firstHandle[run];
        for (size_t i = run * kRun; i < std::min(all.size(), (run + 1) * kRun); ++i) w.entity(all[i].entity, all[i].paperSpace);
    };

    Kora::Handoff<std::string> formatted(2);
    std::thread helper;
    if (count > 1)
        helper = std::thread([&] {
            std::string text;
            try {
                for (size_t run = 1; run < count && formatted.acquire(text); run += 2) {
                    text.clear();
                    StringSink sink(text);
                    Writer w(m_db, sink);
                    format(w, run);
                    w.flush();
                    formatted.send(std::move(text));
                    text = {};
                }
                formatted.finish();
            } catch (...) {
                formatted.finish(std::current_exception());
            }
        });
    struct Join {
        Kora::Handoff<std::string>& formatted;
        std::thread& helper;
        ~Join()
        {
            formatted.close();
            if (helper.joinable()) helper.join();
        }
    } join {formatted, helper};

    for (size_t run = 0; run < count; run += 2) {
        format(*this, run);
        std::string text;
        if (run + 1 < count && formatted.receive(text)) {
            flush();
            if (!m_failed && !m_sink.write(text.data(), text.size())) m_failed = true;
            formatted.giveBack(std::move(text));
        }
    }
    m_nextHandle = firstHandle.back();
}

void Writer::entity(const KoDbEntity* e, bool paperSpace)
{
    const EntityKind* kind = kindOf(e);
    const std::string name = kind ? std::string(kind->dxfName) : kodbDxfName(e);
    if (name.empty()) return;  // a class no file can hold

    begin(name, e);
    subclass("AcDbEntity");
    if (paperSpace) tag(67, 1);
    tag(8, layerName(e->layerId()));
    if (live(e->linetypeId())) {
        const std::string& lt = layerName(e->linetypeId());
        if (lt != "ByLayer") tag(6, lt);
    }
    const KoCmColor& color = e->color();
    // A true colour read without a palette index is written without one.
    if (!color.isByLayer() && !(color.isByColor() && color.colorIndex() == 256)) tag(62, color.colorIndex());
    if (color.isByColor()) tag(420, static_cast<int>(color.rgb()));
    if (e->lineWeight() != KoDb::kLnWtByLayer) tag(370, static_cast<int>(e->lineWeight()));
    if (e->linetypeScale() != 1.0) real(48, e->linetypeScale());
    if (!e->visibility()) tag(60, 1);
    keptOfCurrent();

    if (kind) fields(*kind, e);
    keptOfCurrent();
    end(e);
    if (kind && kind->xdata) tags(kind->xdata(*e));
    if (kind && kind->sequence) sequence(*kind->sequence, e, paperSpace);
    const auto* unknown = KoDbUnknownEntity::cast(e);
    if (unknown || (kind && kind->records))
        for (const KoDbDxfRecord& sub : unknown ? unknown->subRecords() : kind->records(*e)) {
            tag(0, sub.dxfName);
            tags(sub.tags);
        }
}

// The vertex records that follow an entity, given new handles, and the
// record that ends them.
void Writer::sequence(const EntitySequence& seq, const KoDbEntity* e, bool paperSpace)
{
    const std::string& layer = layerName(e->layerId());
    auto head = [&](std::string_view name) {
        tag(0, name);
        handle(5, newHandle());
        handle(330, e->handle().value());
        tag(100, "AcDbEntity");
        if (paperSpace) tag(67, 1);
        tag(8, layer);
    };
    for (const KoGePoint3d& p : seq.vertices(*e)) {
        head(seq.record);
        for (std::string_view m : seq.markers) tag(100, m);
        point(10, p);
        tag(70, seq.flags);
    }
    head("SEQEND");
}

// The subclasses of a kind described by its fields, each followed by
// what was kept of it (the last one's by the caller).
void Writer::fields(const EntityKind& kind, const KoDbEntity* e)
{
    for (const EntitySubclass& s : kind.subclasses) {
        if (&s != &kind.subclasses.front()) keptOfCurrent();
        subclass(s.marker);
        for (const EntityField& f : s.fields) {
            if (f.written && !f.written(*e)) continue;
            if (f.isPoint()) {
                const KoGePoint3d p = f.point(*e);
                if (f.type == FieldType::Point2) point2(f.code, {p.x, p.y});
                else if (f.always || p != KoGePoint3d(0, 0, 1)) point(f.code, p);
            } else if (f.type == FieldType::LongText) {
                // Pieces of at most 250 bytes, never splitting a character.
                const std::string text = f.text(*e).toUtf8();
                size_t at = 0;
                while (text.size() - at > 250) {
                    size_t cut = at + 250;
                    while (cut > at && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
                    tag(kTextPieceCode, std::string_view(text).substr(at, cut - at));
                    at = cut;
                }
                tag(f.code, std::string_view(text).substr(at));
            } else if (f.type == FieldType::Group) {
                for (const GroupItem& item : f.group->items(*e))
                    for (const GroupMember& m : f.group->members)
                        if (m.always || item[static_cast<size_t>(m.slot)] != 0.0 ||
                            (m.alsoSlot >= 0 && item[static_cast<size_t>(m.alsoSlot)] != 0.0))
                            real(m.code, item[static_cast<size_t>(m.slot)]);
            } else if (f.type == FieldType::Nested) {
                HatchOut out {*this};
                HatchLayout::run(out, f.nested, static_cast<const KoDbHatch&>(*e));
            } else if (f.type == FieldType::Point2List) {
                for (const KoGePoint2d& p : f.points(*e)) point2(f.code, p);
            } else if (f.type == FieldType::RealList) {
                for (double v : f.reals(*e)) real(f.code, v);
            } else if (f.type == FieldType::PointList) {
                for (const KoGePoint3d& p : f.pointList(*e)) point(f.code, p);
            } else if (f.type == FieldType::Handle) {
                ref(f.code, f.id(*e));
            } else if (f.type == FieldType::BlockName) {
                const auto* block = kodbPeek<KoDbBlockTableRecord>(f.id(*e));
                tag(f.code, block ? block->getName() : KoString());
            } else if (f.type == FieldType::Text) {
                const KoString v = f.text(*e);
                if (f.always || !v.equalsNoCase(f.usualText)) tag(f.code, v);
            } else {
                const double v = f.number(*e);
                if (!f.always && v == f.usual) continue;
                if (f.type == FieldType::Int) tag(f.code, static_cast<int>(v));
                else real(f.code, f.type == FieldType::Angle ? v * kRadToDeg : v);
            }
        }
    }
}

void Writer::objects()
{
    tag(0, "SECTION");
    tag(2, "OBJECTS");
    // The named-objects dictionary comes first: readers take it as the root.
    if (const auto* nod = kodbPeek<KoDbObject>(m_d.namedObjects)) object(nod);
    for (const KoDbStub& s : m_d.stubs) {
        const KoDbObject* o = s.object;
        if (!o || o->isErased() || o->objectId() == m_d.namedObjects) continue;
        if (KoDbEntity::cast(o) || KoDbSymbolTable::cast(o) || KoDbSymbolTableRecord::cast(o)) continue;
        object(o);
    }
    tag(0, "ENDSEC");
}

void Writer::object(const KoDbObject* o)
{
    if (const auto* d = KoDbDictionary::cast(o)) {
        begin("DICTIONARY", o);
        subclass("AcDbDictionary");
        if (d->isTreatElementsAsHard()) tag(280, 1);
        tag(281, d->mergeStyle());
        for (const auto& entry : d->entries()) {
            if (!live(entry.id)) continue;
            tag(3, entry.key);
            handle(d->isTreatElementsAsHard() ? 360 : 350, entry.id.handle().value());
        }
    } else if (const auto* layout = KoDbLayout::cast(o)) {
        begin("LAYOUT", o);
        subclass("AcDbPlotSettings");
        tags(layout->plotSettings());
        keptOfCurrent();
        subclass("AcDbLayout");
        tag(1, layout->getLayoutName());
        tag(71, layout->getTabOrder());
        point2(10, layout->limitsMin());
        point2(11, layout->limitsMax());
        bool kept = false;
        for (const Segment& s : m_segments) kept = kept || *s.name == "AcDbLayout";
        if (!kept) {
            tag(70, 1);
            point(12, KoGePoint3d());
            point(14, KoGePoint3d(1e20, 1e20, 1e20));
            point(15, KoGePoint3d(-1e20, -1e20, -1e20));
            real(146, 0.0);
            point(13, KoGePoint3d());
            point(16, KoGeVector3d(1, 0, 0));
            point(17, KoGeVector3d(0, 1, 0));
            tag(76, 0);
        }
        keptOfCurrent();
        ref(330, layout->getBlockTableRecordId());
    } else if (const auto* def = KoDbDgnDefinition::cast(o)) {
        begin("DGNDEFINITION", o);
        subclass("AcDbUnderlayDefinition");
        tag(1, def->getSourceFileName());
        tag(2, def->getItemName());
        keptOfCurrent();
        end(o);
        tag(1001, kKoraApp);
        tag(1000, def->getActiveFileName());
        tag(1070, def->useMasterUnits() ? 1 : 0);
        tag(1071, def->xrefDepth());
        return;
    } else if (const auto* unknown = KoDbUnknownObject::cast(o)) {
        begin(unknown->dxfName(), o);
    } else {
        return;  // a class no file can hold
    }
    keptOfCurrent();
    end(o);
}

}  // namespace
}  // namespace Kora::Dxf

Kora::ErrorStatus kodbWriteDxf(const KoDbDatabase& database, std::string& out)
{
    Kora::Dxf::StringSink sink(out);
    out.clear();
    return Kora::Dxf::Writer(database, sink).run();
}

Kora::ErrorStatus kodbWriteDxfFile(const KoDbDatabase& database, const KoString& path, KoString* message)
{
    auto file = Kora::AtomicFileWriter::create(path.toUtf8());
    if (!file) {
        if (message) *message = KoString::fromUtf8(file.error().message);
        return file.error().status;
    }
    // The writer hands over text in large pieces, which go straight to the
    // file: the drawing is never held twice.
    struct FileSink : Kora::Dxf::Sink {
        Kora::AtomicFileWriter& file;
        std::optional<Kora::FileError> error;
        explicit FileSink(Kora::AtomicFileWriter& f) : file(f) {}
        bool write(const char* data, size_t size) override
        {
            if (auto written = file.write(std::string_view(data, size)); !written) error = written.error();
            return !error;
        }
    } sink(*file);
    Kora::ErrorStatus es = Kora::Dxf::Writer(database, sink).run();
    if (es == Kora::eOk && !sink.error) {
        if (auto committed = file->commit(); !committed) sink.error = committed.error();
    }
    if (sink.error) {
        if (message) *message = KoString::fromUtf8(sink.error->message);
        return sink.error->status;
    }
    if (es != Kora::eOk) return es;
    KoDbAccess::impl(database).filename = path;
    return Kora::eOk;
}

std::string kodbDxfName(const KoDbEntity* e)
{
    if (const auto* kind = Kora::Dxf::entityKind(e)) return std::string(kind->dxfName);
    if (const auto* o = KoDbOpaqueEntity::cast(e)) return o->dxfName();
    return {};
}
