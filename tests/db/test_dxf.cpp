// DXF files: fixtures written by ezdxf are read with their meaning, what we
// write passes ezdxf's audit and reads back the same in ezdxf and in our
// reader, malformed files fail with a message, saves are atomic.
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <random>
#include <set>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>

#include "dbtest.h"
#include "kora/dxf/dxf.h"
#include "kora/db/underlay.h"
#include "kora/db/units.h"

namespace fs = std::filesystem;
using namespace Kora::Test;

namespace {

constexpr double kPi = std::numbers::pi;

// ezdxf reads both files to the same layers, blocks, layouts, entities and underlays.
void expectSameInEzdxf(const fs::path& expected, const fs::path& actual)
{
    int status = 0;
    const std::string out = run("/usr/bin/python3 '" KORA_DB_SCRIPTS "/dxf_check.py' compare '" + expected.string() +
                                    "' '" + actual.string() + "'",
                                status);
    EXPECT_EQ(status, 0) << out;
}

std::string fmt(double v)
{
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.12g", std::fabs(v) < 1e-12 ? 0.0 : v);
    return buf;
}
std::string fmt(const KoGePoint3d& p) { return "(" + fmt(p.x) + "," + fmt(p.y) + "," + fmt(p.z) + ")"; }
std::string fmt(const KoGeVector3d& v) { return fmt(KoGePoint3d(v.x, v.y, v.z)); }
std::string fmt(const KoGePoint2d& p) { return "(" + fmt(p.x) + "," + fmt(p.y) + ")"; }
std::string fmt(const KoString& s) { return "\"" + s.toUtf8() + "\""; }
std::string fmt(const KoCmColor& c) { return std::to_string(c.colorMethod()) + "/" + std::to_string(c.colorIndex()) + "/" + std::to_string(c.rgb()); }
std::string fmt(const KoDbDxfTags& tags)
{
    std::string out;
    for (const auto& t : tags) out += std::to_string(t.code) + "=" + t.value + ";";
    return out;
}
std::string name(KoDbObjectId id)
{
    KoDbObjectPointer<KoDbSymbolTableRecord> r(id);
    return r ? r->getName().toUtf8() : std::string("?");
}

// Every property the database models, as text, so two reads of a drawing
// can be compared whole.
std::string describeEntity(const KoDbEntity* e)
{
    std::ostringstream o;
    o << KoString(e->isA()->name()).toUtf8() << " layer=" << name(e->layerId()) << " lt=" << name(e->linetypeId())
      << " color=" << fmt(e->color()) << " lw=" << e->lineWeight() << " lts=" << fmt(e->linetypeScale())
      << " vis=" << e->visibility() << " xdata=" << fmt(e->xData()) << " kept=" << fmt(e->preservedTags());
    if (auto* l = KoDbLine::cast(e)) o << fmt(l->startPoint()) << fmt(l->endPoint()) << fmt(l->thickness()) << fmt(l->normal());
    if (auto* a = KoDbArc::cast(e)) o << fmt(a->center()) << fmt(a->radius()) << fmt(a->startAngle()) << fmt(a->endAngle()) << fmt(a->normal());
    if (auto* c = KoDbCircle::cast(e)) o << fmt(c->center()) << fmt(c->radius()) << fmt(c->normal());
    if (auto* el = KoDbEllipse::cast(e)) o << fmt(el->center()) << fmt(el->majorAxis()) << fmt(el->radiusRatio()) << fmt(el->startParam()) << fmt(el->endParam());
    if (auto* p = KoDbPolyline::cast(e)) {
        o << p->isClosed() << fmt(p->elevation()) << fmt(p->constantWidth()) << fmt(p->normal());
        for (const auto& v : p->vertices()) o << fmt(v.point) << fmt(v.bulge) << fmt(v.startWidth) << fmt(v.endWidth);
    }
    if (auto* p = KoDb3dPolyline::cast(e)) {
        o << p->isClosed();
        for (const auto& v : p->vertices()) o << fmt(v);
    }
    if (auto* s = KoDbSpline::cast(e)) {
        o << s->degree() << "/" << s->flags();
        for (double k : s->knots()) o << fmt(k) << ",";
        for (double w : s->weights()) o << fmt(w) << ",";
        for (const auto& p : s->controlPoints()) o << fmt(p);
        for (const auto& p : s->fitPoints()) o << fmt(p);
    }
    if (auto* p = KoDbPoint::cast(e)) o << fmt(p->position());
    if (auto* t = KoDbText::cast(e))
        o << fmt(t->textString()) << fmt(t->position()) << fmt(t->alignmentPoint()) << fmt(t->height()) << fmt(t->rotation())
          << t->horizontalMode() << t->verticalMode() << fmt(t->textStyleName()) << fmt(t->widthFactor());
    if (auto* m = KoDbMText::cast(e))
        o << fmt(m->contents()) << fmt(m->location()) << fmt(m->textHeight()) << fmt(m->width()) << m->attachment() << fmt(m->direction());
    if (auto* b = KoDbBlockReference::cast(e)) {
        o << name(b->blockTableRecord()) << fmt(b->position()) << fmt(b->rotation()) << fmt(b->scaleFactors().sx)
          << fmt(b->scaleFactors().sy) << fmt(b->scaleFactors().sz);
        for (const auto& r : b->attributeRecords()) o << r.dxfName << fmt(r.tags);
    }
    if (auto* h = KoDbHatch::cast(e)) {
        o << fmt(h->patternName()) << h->isSolidFill() << h->patternType() << fmt(h->patternAngle()) << fmt(h->patternScale());
        for (const auto& loop : h->loops()) {
            o << " loop" << loop.type << loop.closed;
            for (const auto& v : loop.vertices) o << fmt(v);
            for (double b : loop.bulges) o << fmt(b);
            for (const auto& edge : loop.edges)
                o << " e" << edge.type << fmt(edge.start) << fmt(edge.end) << fmt(edge.center) << fmt(edge.radius)
                  << fmt(edge.startAngle) << fmt(edge.endAngle) << edge.counterClockwise << edge.controlPoints.size();
        }
        for (const auto& line : h->patternLines()) o << " pl" << fmt(line.angle) << fmt(line.base) << fmt(line.offset);
    }
    if (auto* v = KoDbViewport::cast(e)) o << fmt(v->centerPoint()) << fmt(v->width()) << fmt(v->height()) << v->number() << fmt(v->viewCenter()) << fmt(v->viewHeight());
    if (auto* u = KoDbUnderlayReference::cast(e)) {
        o << u->definitionId().handle().value() << fmt(u->position()) << fmt(u->scaleFactors().sx) << fmt(u->rotation())
          << int(u->contrast()) << "/" << int(u->fade()) << u->isOn() << u->isMonochrome() << u->isClipped();
        for (const auto& p : u->clipBoundary()) o << fmt(p);
        for (const auto& l : u->underlayLayers()) o << fmt(l.name) << l.state;
    }
    if (auto* op = KoDbOpaqueEntity::cast(e)) o << op->dxfName();
    if (auto* un = KoDbUnknownEntity::cast(e))
        for (const auto& r : un->subRecords()) o << r.dxfName << r.tags.size();
    return o.str();
}

std::string describe(KoDbDatabase& db)
{
    std::ostringstream o;
    o << "insunits=" << db.insunits() << " clayer=" << name(db.clayer()) << " celtype=" << name(db.celtype()) << "\n";
    KoDbObjectPointer<KoDbLayerTable> layers(db.layerTableId());
    for (auto it = layers->newIterator(); !it->done(); it->step()) {
        KoDbLayerTableRecord* l = nullptr;
        it->getRecord(l);
        o << "layer " << fmt(l->getName()) << fmt(l->color()) << name(l->linetypeObjectId()) << l->lineWeight() << l->isOff()
          << l->isFrozen() << l->isLocked() << l->isPlottable() << fmt(l->preservedTags()) << "\n";
        l->close();
    }
    KoDbObjectPointer<KoDbLinetypeTable> linetypes(db.linetypeTableId());
    for (auto it = linetypes->newIterator(); !it->done(); it->step()) {
        KoDbLinetypeTableRecord* l = nullptr;
        it->getRecord(l);
        o << "linetype " << fmt(l->getName()) << fmt(l->comments()) << fmt(l->patternLength());
        for (const auto& d : l->dashes()) o << fmt(d.length) << "/" << d.complexType;
        o << "\n";
        l->close();
    }
    KoDbObjectPointer<KoDbBlockTable> blocks(db.blockTableId());
    for (auto it = blocks->newIterator(); !it->done(); it->step()) {
        KoDbBlockTableRecord* b = nullptr;
        it->getRecord(b);
        o << "block " << fmt(b->getName()) << b->flags() << fmt(b->origin()) << fmt(b->pathName()) << b->isLayout() << "\n";
        for (auto ei = b->newIterator(); !ei->done(); ei->step()) {
            KoDbEntity* e = nullptr;
            ei->getEntity(e);
            o << "  " << describeEntity(e) << "\n";
            e->close();
        }
        if (b->isLayout()) {
            KoDbObjectPointer<KoDbLayout> layout(b->getLayoutId());
            o << "  layout " << fmt(layout->getLayoutName()) << layout->getTabOrder() << fmt(layout->limitsMax())
              << layout->getViewportArray().size() << fmt(layout->plotSettings()) << "\n";
        }
        b->close();
    }
    KoDbObjectPointer<KoDbDictionary> nod(db.namedObjectsDictionaryId());
    KoDbDictionary* dgn = nullptr;
    if (nod->getAt(L"ACAD_DGNDEFINITIONS", dgn, KoDb::kForRead) == Kora::eOk) {
        for (auto it = dgn->newIterator(); !it->done(); it->next()) {
            KoDbDgnDefinition* def = nullptr;
            if (it->getObject(def) != Kora::eOk) {
                ADD_FAILURE() << "not a DGN definition: " << it->name().toUtf8();
                continue;
            }
            o << "dgn " << fmt(it->name()) << fmt(def->getSourceFileName()) << fmt(def->getActiveFileName())
              << fmt(def->getItemName()) << def->useMasterUnits() << " reactors=" << def->reactors().size() << "\n";
            def->close();
        }
        dgn->close();
    }
    return o.str();
}

// Reads, writes, audits with ezdxf, compares in ezdxf and reads back equal.
void roundTrip(const char* fixtureName)
{
    SCOPED_TRACE(fixtureName);
    const fs::path in = fixture(fixtureName);
    const fs::path out = workDir(std::string("rt-") + fixtureName) / fixtureName;
    KoDbDatabase db(false);
    KoString message;
    ASSERT_EQ(kodbReadDxfFile(db, wide(in), &message), Kora::eOk) << message.toUtf8();
    ASSERT_EQ(kodbWriteDxfFile(db, wide(out), &message), Kora::eOk) << message.toUtf8();
    EXPECT_EQ(db.filename(), wide(out));
    expectAuditClean(out);
    expectSameInEzdxf(in, out);
    KoDbDatabase again(false);
    ASSERT_EQ(kodbReadDxfFile(again, wide(out), &message), Kora::eOk) << message.toUtf8();
    EXPECT_EQ(describe(db), describe(again));
    EXPECT_EQ(db.openObjectCount(), 0);
    EXPECT_EQ(again.openObjectCount(), 0);
}

KoDbEntity* findEntity(KoDbDatabase& db, const KoRxClass* cls, int nth = 0)
{
    KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId());
    for (auto it = model->newIterator(); !it->done(); it->step()) {
        KoDbObjectId id;
        it->getEntityId(id);
        if (id.objectClass() == cls && nth-- == 0) {
            KoDbEntity* e = nullptr;
            kodbOpenObject(e, id, KoDb::kForRead);
            return e;
        }
    }
    return nullptr;
}

template <class T>
struct Found {
    KoDbEntity* e;
    explicit Found(KoDbDatabase& db, int nth = 0) : e(findEntity(db, T::desc(), nth)) {}
    ~Found()
    {
        if (e) e->close();
    }
    T* operator->() const { return T::cast(e); }
    explicit operator bool() const { return e != nullptr; }
};

}  // namespace

TEST(KoDbDxf, ReadsAnotherWritersEntitiesWithTheirMeaning)
{
    KoDbDatabase db(false);
    KoString message;
    KoDbDxfReadReport report;
    ASSERT_EQ(kodbReadDxfFile(db, wide(fixture("entities.dxf")), &message, &report), Kora::eOk) << message.toUtf8();
    EXPECT_EQ(report.version, "AC1027");
    EXPECT_EQ(db.insunits(), 4);
    for (const char* kept : {"3DFACE", "SOLID", "XLINE", "DIMENSION"}) EXPECT_GE(report.unknownEntities[kept], 1) << kept;
    EXPECT_EQ(report.unknownEntities["POLYLINE"], 2) << "the polyface mesh and the 2D polyline are kept whole";

    {
        KoDbObjectPointer<KoDbLayerTable> layers(db.layerTableId());
        KoDbLayerTableRecord* l = nullptr;
        ASSERT_EQ(layers->getAt(L"Walls", l, KoDb::kForRead), Kora::eOk);
        EXPECT_EQ(l->color().colorIndex(), 1);
        EXPECT_EQ(name(l->linetypeObjectId()), "DASHED");
        EXPECT_EQ(l->lineWeight(), KoDb::kLnWt035);
        l->close();
        struct { const wchar_t* n; bool off, frozen, locked, plot; } states[] = {
            {L"Hidden", true, false, false, true}, {L"Frozen", false, true, false, true},
            {L"Locked", false, false, true, true}, {L"NoPlot", false, false, false, false}};
        for (const auto& s : states) {
            ASSERT_EQ(layers->getAt(s.n, l, KoDb::kForRead), Kora::eOk);
            EXPECT_EQ(l->isOff(), s.off);
            EXPECT_EQ(l->isFrozen(), s.frozen);
            EXPECT_EQ(l->isLocked(), s.locked);
            EXPECT_EQ(l->isPlottable(), s.plot);
            l->close();
        }
        ASSERT_EQ(layers->getAt(L"TrueColour", l, KoDb::kForRead), Kora::eOk);
        EXPECT_TRUE(l->color().isByColor());
        EXPECT_EQ(l->color().rgb(), 0x0AC81Eu);
        l->close();
        KoDbObjectPointer<KoDbLinetypeTable> linetypes(db.linetypeTableId());
        KoDbLinetypeTableRecord* dashed = nullptr;
        ASSERT_EQ(linetypes->getAt(L"DASHED", dashed, KoDb::kForRead), Kora::eOk);
        ASSERT_EQ(dashed->numDashes(), 2);
        EXPECT_DOUBLE_EQ(dashed->dashLengthAt(1), -0.25);
        dashed->close();
    }
    {
        Found<KoDbLine> line(db);
        ASSERT_TRUE(line);
        EXPECT_EQ(line->endPoint(), KoGePoint3d(10, 5, 0));
        EXPECT_EQ(line->layer(), KoString(L"Walls"));
        EXPECT_EQ(line->colorIndex(), 2);
        EXPECT_EQ(line->lineWeight(), KoDb::kLnWt050);
        ASSERT_FALSE(line->xData().empty());
        EXPECT_EQ(line->xData().front().value, "OTHERAPP");
        Found<KoDbLine> orange(db, 1);
        EXPECT_EQ(orange->color().rgb(), 0xFF8000u);
        EXPECT_EQ(orange->linetype(), KoString(L"DASHED"));
        EXPECT_DOUBLE_EQ(orange->linetypeScale(), 2.0);
    }
    {
        Found<KoDbArc> arc(db);
        ASSERT_TRUE(arc);
        EXPECT_NEAR(arc->startAngle(), kPi / 6, 1e-12);
        EXPECT_NEAR(arc->endAngle(), 2 * kPi / 3, 1e-12);
        EXPECT_TRUE(arc->color().isByBlock());
        Found<KoDbPolyline> pl(db);
        ASSERT_TRUE(pl);
        EXPECT_TRUE(pl->isClosed());
        EXPECT_DOUBLE_EQ(pl->elevation(), 3.0);
        ASSERT_EQ(pl->numVerts(), 4);
        EXPECT_DOUBLE_EQ(pl->vertices()[1].bulge, 1.0);
        EXPECT_DOUBLE_EQ(pl->vertices()[3].bulge, -0.5);
        EXPECT_DOUBLE_EQ(pl->vertices()[0].startWidth, 0.5);
        Found<KoDb3dPolyline> p3(db);
        ASSERT_TRUE(p3);
        ASSERT_EQ(p3->vertices().size(), 4u);
        EXPECT_EQ(p3->vertices()[3], KoGePoint3d(7, 8, -9));
        Found<KoDbSpline> rational(db, 1);
        ASSERT_TRUE(rational);
        EXPECT_TRUE(rational->isRational());
        EXPECT_EQ(rational->weights(), (std::vector<double> {1, 0.5, 0.5, 1}));
    }
    {
        Found<KoDbText> text(db);
        ASSERT_TRUE(text);
        EXPECT_EQ(text->textString(), KoString(L"Hello DXF"));
        EXPECT_EQ(text->horizontalMode(), KoDbText::kTextCenter);
        EXPECT_EQ(text->verticalMode(), KoDbText::kTextVertMid);
        EXPECT_NEAR(text->rotation(), kPi / 6, 1e-12);
        Found<KoDbText> unicode(db, 1);
        EXPECT_EQ(unicode->textString(), KoString(L"Größe ±5 °C"));
        Found<KoDbMText> mtext(db);
        ASSERT_TRUE(mtext);
        EXPECT_GT(mtext->contents().length(), 250) << "the pieces of a long text are joined";
        EXPECT_NE(mtext->contents().find(L"äöü ß"), -1);
        EXPECT_EQ(mtext->attachment(), KoDbMText::kMiddleCenter);
    }
    {
        Found<KoDbBlockReference> ref(db);
        ASSERT_TRUE(ref);
        EXPECT_EQ(name(ref->blockTableRecord()), "Chair");
        EXPECT_NEAR(ref->rotation(), kPi / 2, 1e-12);
        ASSERT_EQ(ref->attributeRecords().size(), 2u);
        EXPECT_EQ(ref->attributeRecords()[0].dxfName, "ATTRIB");
        EXPECT_EQ(ref->attributeRecords()[1].dxfName, "SEQEND");
        KoDbExtents e;
        ASSERT_EQ(ref->getGeomExtents(e), Kora::eOk);
        // The block spans y from -1 to 0.5 about its base; doubled and turned a
        // quarter, that reaches 1 unit left of the insertion point.
        EXPECT_NEAR(e.minPoint().x, 99, 1e-9);
    }
    {
        Found<KoDbHatch> solid(db);
        ASSERT_TRUE(solid);
        EXPECT_TRUE(solid->isSolidFill());
        ASSERT_EQ(solid->numLoops(), 1);
        EXPECT_TRUE(solid->loops()[0].isPolyline());
        EXPECT_EQ(solid->loops()[0].bulges, (std::vector<double> {0, 0.5, 0, 0}));
        Found<KoDbHatch> edges(db, 1);
        ASSERT_EQ(edges->numLoops(), 1);
        const auto& loop = edges->loops()[0];
        ASSERT_EQ(loop.edges.size(), 4u);
        EXPECT_EQ(loop.edges[1].type, KoDbHatch::kCirArc);
        EXPECT_DOUBLE_EQ(loop.edges[1].radius, 5.0);
        EXPECT_EQ(loop.edges[2].type, KoDbHatch::kEllArc);
        EXPECT_EQ(loop.edges[3].type, KoDbHatch::kSpline);
        EXPECT_EQ(loop.edges[3].knots.size(), 6u);
        Found<KoDbHatch> pattern(db, 2);
        EXPECT_FALSE(pattern->isSolidFill());
        EXPECT_EQ(pattern->patternName(), KoString(L"ANSI31"));
        EXPECT_DOUBLE_EQ(pattern->patternAngle(), 15.0);
        EXPECT_FALSE(pattern->patternLines().empty());
    }
    EXPECT_EQ(db.openObjectCount(), 0);
}

TEST(KoDbDxf, RoundTripsEveryFixture)
{
    for (const char* f : {"entities.dxf", "layouts.dxf", "underlays.dxf", "opaque.dxf", "three_d.dxf", "release2000.dxf",
                          "ogr-mixed.dxf"})
        roundTrip(f);
}

// GDAL puts the colour of a fill inside its own subclass; it still is the
// entity's colour.
TEST(KoDbDxf, PropertiesInAnotherWritersPlace)
{
    KoDbDatabase db(false);
    KoString message;
    ASSERT_EQ(kodbReadDxfFile(db, wide(fixture("ogr-mixed.dxf")), &message), Kora::eOk) << message.toUtf8();
    Found<KoDbHatch> fill(db);
    ASSERT_TRUE(fill);
    EXPECT_EQ(fill->colorIndex(), 4);
    EXPECT_DOUBLE_EQ(fill->elevation(), 55.0);
}

TEST(KoDbDxf, LayoutsPaperSpaceAndViewports)
{
    KoDbDatabase db(false);
    KoString message;
    ASSERT_EQ(kodbReadDxfFile(db, wide(fixture("layouts.dxf")), &message), Kora::eOk) << message.toUtf8();
    KoDbObjectPointer<KoDbDictionary> layouts(db.layoutDictionaryId());
    ASSERT_TRUE(layouts);
    EXPECT_EQ(layouts->numEntries(), 4);
    std::map<std::string, size_t> viewports;
    for (auto it = layouts->newIterator(); !it->done(); it->next()) {
        KoDbLayout* layout = nullptr;
        ASSERT_EQ(it->getObject(layout), Kora::eOk);
        viewports[layout->getLayoutName().toUtf8()] = layout->getViewportArray().size();
        KoDbObjectPointer<KoDbBlockTableRecord> block(layout->getBlockTableRecordId());
        ASSERT_TRUE(block) << layout->getLayoutName().toUtf8();
        EXPECT_EQ(block->getLayoutId(), layout->objectId());
        layout->close();
    }
    EXPECT_EQ(viewports["Layout1"], 1u);
    EXPECT_EQ(viewports["Sheet2"], 1u);
    EXPECT_EQ(viewports["Empty"], 0u) << "a sheet never set up has no viewport";
    KoDbObjectPointer<KoDbBlockTableRecord> paper(db.paperSpaceId());
    int count = 0;
    for (auto it = paper->newIterator(); !it->done(); it->step()) ++count;
    EXPECT_EQ(count, 2) << "the line and the viewport of the first sheet";
}

TEST(KoDbDxf, DgnUnderlaysReadAndWritten)
{
    KoDbDatabase db(false);
    KoString message;
    ASSERT_EQ(kodbReadDxfFile(db, wide(fixture("underlays.dxf")), &message), Kora::eOk) << message.toUtf8();
    KoDbObjectPointer<KoDbDictionary> nod(db.namedObjectsDictionaryId());
    KoDbDictionary* dict = nullptr;
    ASSERT_EQ(nod->getAt(L"ACAD_DGNDEFINITIONS", dict, KoDb::kForRead), Kora::eOk);
    EXPECT_EQ(dict->numEntries(), 2);
    dict->close();
    {
        Found<KoDbDgnReference> first(db);
        ASSERT_TRUE(first);
        EXPECT_EQ(first->position(), KoGePoint3d(10, 20, 0));
        EXPECT_EQ(first->scaleFactors(), (KoGeScale3d {2, 2, 2}));
        EXPECT_NEAR(first->rotation(), kPi / 4, 1e-12);
        EXPECT_EQ(first->contrast(), 60);
        EXPECT_EQ(first->fade(), 30);
        EXPECT_TRUE(first->isMonochrome());
        KoDbObjectPointer<KoDbDgnDefinition> def(first->definitionId());
        ASSERT_TRUE(def);
        EXPECT_EQ(def->getSourceFileName(), KoString(L"/data/site.dgn"));
        EXPECT_EQ(def->getItemName(), KoString(L"Default"));
        int references = 0;
        for (void* r : def->reactors())
            if (kodbPersistentReactorObjectId(r).objectClass() == KoDbDgnReference::desc()) ++references;
        EXPECT_EQ(references, 2);
        Found<KoDbDgnReference> clipped(db, 2);
        EXPECT_EQ(clipped->clipBoundary().size(), 4u);
    }

    // Written by us: definition attributes and layer states survive, and
    // ezdxf accepts the file.
    KoDbDatabase made;
    KoDbObjectId dictId, defId;
    {
        KoDbObjectPointer<KoDbDictionary> root(made.namedObjectsDictionaryId(), KoDb::kForWrite);
        auto* d = new KoDbDictionary;
        root->setAt(L"ACAD_DGNDEFINITIONS", d, dictId);
        auto* def = new KoDbDgnDefinition;
        def->setUnderlayItem(L"plan.dgn", L"/projects/a/plan.dgn", std::unique_ptr<KoDbUnderlayItem>());
        def->setItemName(L"Level 2");
        def->setUseMasterUnits(false);
        d->setAt(L"plan-Level 2", def, defId);
        def->close();
        d->close();
    }
    auto* ref = new KoDbDgnReference;
    ref->setDatabaseDefaults(&made);
    ref->setDefinitionId(defId);
    ref->setPosition({1, 2, 0});
    ref->setRotation(0.5);
    ref->setUnderlayLayers({{L"Level 1", KoDbUnderlayLayer::kOn}, {L"Level 7", KoDbUnderlayLayer::kOff}});
    {
        KoDbObjectPointer<KoDbBlockTableRecord> model(made.modelSpaceId(), KoDb::kForWrite);
        model->appendKoDbEntity(ref);
        ref->close();
    }
    const fs::path out = workDir("underlays-made") / "made.dxf";
    ASSERT_EQ(kodbWriteDxfFile(made, wide(out), &message), Kora::eOk) << message.toUtf8();
    expectAuditClean(out);
    KoDbDatabase back(false);
    ASSERT_EQ(kodbReadDxfFile(back, wide(out), &message), Kora::eOk) << message.toUtf8();
    EXPECT_EQ(describe(made), describe(back));
    Found<KoDbDgnReference> r(back);
    ASSERT_TRUE(r);
    ASSERT_EQ(r->underlayLayers().size(), 2u);
    EXPECT_EQ(r->underlayLayers()[1].name, KoString(L"Level 7"));
    EXPECT_EQ(r->underlayLayers()[1].state, KoDbUnderlayLayer::kOff);
    EXPECT_TRUE(r->xData().empty()) << "the platform's own extended data is not kept twice";
    KoDbObjectPointer<KoDbDgnDefinition> def(r->definitionId());
    EXPECT_EQ(def->getActiveFileName(), KoString(L"/projects/a/plan.dgn"));
    EXPECT_FALSE(def->useMasterUnits());

    // A clip point with no x does not fit the model: the reference is kept
    // whole, its layer states with it.
    std::string text;
    ASSERT_EQ(kodbWriteDxf(made, text), Kora::eOk);
    const size_t fade = text.find("282\n", text.find("DGNUNDERLAY"));
    ASSERT_NE(fade, std::string::npos);
    text.insert(text.find('\n', fade + 4) + 1, " 21\n1.0\n");
    KoDbDatabase broken(false);
    KoDbDxfReadReport report;
    ASSERT_EQ(kodbReadDxf(broken, text, L"broken.dxf", &message, &report), Kora::eOk) << message.toUtf8();
    EXPECT_EQ(report.unknownEntities["DGNUNDERLAY"], 1);
    std::string again;
    ASSERT_EQ(kodbWriteDxf(broken, again), Kora::eOk);
    const size_t kept = again.find("DGNUNDERLAY", again.find("ENTITIES"));
    EXPECT_NE(again.find("1000\nLevel 7\n1070\n0\n", kept), std::string::npos);
}

TEST(KoDbDxf, ContentAnExportScanLooksFor)
{
    KoDbDatabase db(false);
    KoString message;
    ASSERT_EQ(kodbReadDxfFile(db, wide(fixture("opaque.dxf")), &message), Kora::eOk) << message.toUtf8();
    const KoRxClass* unsupported[] = {KoDb3dSolid::desc(), KoDbSurface::desc(), KoDbBody::desc(), KoDbOleFrame::desc(),
                                      KoDbOle2Frame::desc()};
    int found = 0;
    bool threeD = false;
    KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId());
    for (auto it = model->newIterator(); !it->done(); it->step()) {
        KoDbEntity* e = nullptr;
        ASSERT_EQ(it->getEntity(e), Kora::eOk);
        for (const KoRxClass* c : unsupported)
            if (e->isA()->isDerivedFrom(c)) ++found;
        KoDbExtents ext;
        if (e->getGeomExtents(ext) == Kora::eOk)
            threeD = threeD || std::fabs(ext.minPoint().z) > 1e-7 || std::fabs(ext.maxPoint().z) > 1e-7;
        e->close();
    }
    EXPECT_EQ(found, 3) << "3DSOLID, BODY and the extruded SURFACE (a REGION is none of these)";
    EXPECT_FALSE(threeD) << "z = 5e-8 is flat";

    KoDbDatabase raised(false);
    ASSERT_EQ(kodbReadDxfFile(raised, wide(fixture("three_d.dxf")), &message), Kora::eOk);
    Found<KoDbLine> line(raised);
    KoDbExtents ext;
    ASSERT_EQ(line->getGeomExtents(ext), Kora::eOk);
    EXPECT_GT(ext.maxPoint().z, 1e-7);
}

TEST(KoDbDxf, OlderReleaseInItsCodePage)
{
    KoDbDatabase db(false);
    KoString message;
    KoDbDxfReadReport report;
    ASSERT_EQ(kodbReadDxfFile(db, wide(fixture("release2000.dxf")), &message, &report), Kora::eOk) << message.toUtf8();
    EXPECT_EQ(report.version, "AC1015");
    KoDbObjectPointer<KoDbLayerTable> layers(db.layerTableId());
    EXPECT_TRUE(layers->has(L"Façade"));
    Found<KoDbText> text(db);
    ASSERT_TRUE(text);
    EXPECT_EQ(text->textString(), KoString(L"Café"));
}

namespace {

std::string fileText(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const fs::path& p, const std::string& text)
{
    std::ofstream out(p, std::ios::binary);
    out << text;
}

// A minimal but complete drawing of our own making, as text.
std::string smallDrawing()
{
    KoDbDatabase db;
    auto* line = new KoDbLine({0, 0, 0}, {1, 1, 0});
    KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId(), KoDb::kForWrite);
    model->appendKoDbEntity(line);
    line->close();
    model.close();
    std::string text;
    kodbWriteDxf(db, text);
    return text;
}

// Reads the small drawing with `records` added to its entities.
void readWithEntities(KoDbDatabase& db, const std::string& records, KoDbDxfReadReport& report)
{
    std::string text = smallDrawing();
    text.insert(text.find("  0\nENDSEC\n", text.find("ENTITIES")), records);
    KoString message;
    ASSERT_EQ(kodbReadDxf(db, text, L"entities.dxf", &message, &report), Kora::eOk) << message.toUtf8();
}

// The record of the object with that handle in written DXF text, up to the
// next record; empty when no record has it.
std::string writtenRecord(const std::string& out, const std::string& handle)
{
    const size_t at = out.find("  5\n" + handle + "\n");
    EXPECT_NE(at, std::string::npos) << handle;
    return at == std::string::npos ? std::string() : out.substr(at, out.find("  0\n", at) - at);
}

}  // namespace

TEST(KoDbDxf, MalformedFilesFailWithFileAndLine)
{
    const fs::path dir = workDir("malformed");
    const std::string good = smallDrawing();
    using Kora::Dxf::ReadCode;
    struct Case {
        const char* file;
        std::string text;
        Kora::ErrorStatus status;
        ReadCode code;
    };
    std::string badNumber = good;
    badNumber.replace(badNumber.find(" 11\n1.0\n"), 8, " 11\n1,0x\n");
    std::string badCode = good;
    badCode.replace(badCode.find("  0\nLINE\n"), 9, "  0\nLINE\nxyz\n1\n");
    std::string unknownCode = good;
    unknownCode.replace(unknownCode.find("  0\nLINE\n"), 9, "  0\nLINE\n2000\n1\n");
    std::string r12 = good;
    r12.replace(r12.find("AC1027"), 6, "AC1009");
    const Case cases[] = {
        {"empty.dxf", "", Kora::eBadDxfFile, ReadCode::kEmptyFile},
        {"binary.dxf", std::string("Vendor  Binary DXF\r\n\x1a\0", 22) + "junk", Kora::eUnsupportedFileFormat,
         ReadCode::kBinaryFile},
        {"truncated.dxf", good.substr(0, good.size() / 2), Kora::eBadDxfFile, ReadCode::kTruncated},
        {"number.dxf", badNumber, Kora::eBadDxfFile, ReadCode::kBadValue},
        {"code.dxf", badCode, Kora::eBadDxfFile, ReadCode::kMalformedTag},
        {"unknown-code.dxf", unknownCode, Kora::eBadDxfFile, ReadCode::kMalformedTag},
        {"r12.dxf", r12, Kora::eBadDxfFile, ReadCode::kOldRelease},
        {"prose.dxf", "This is not a drawing.\n", Kora::eBadDxfFile, ReadCode::kMalformedTag},
        {"no-value.dxf", "  0\nSECTION\n  2\n", Kora::eBadDxfFile, ReadCode::kTruncated},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        const fs::path p = dir / c.file;
        writeFile(p, c.text);
        // The database keeps what it had when a read fails.
        KoDbDatabase db;
        const KoDbObjectId model = db.modelSpaceId();
        KoString message;
        KoDbDxfReadReport report;
        EXPECT_EQ(kodbReadDxfFile(db, wide(p), &message, &report), c.status);
        ASSERT_FALSE(report.diagnostics.empty());
        const auto& d = report.diagnostics.back();
        EXPECT_EQ(d.code, c.code) << d.message;
        EXPECT_EQ(d.severity, Kora::Severity::kError);
        // People get the file, the line where there is one, and the record's words.
        const std::string m = message.toUtf8();
        EXPECT_NE(m.find(p.string()), std::string::npos) << m;
        EXPECT_NE(m.find(d.message), std::string::npos) << m;
        if (c.status == Kora::eBadDxfFile && !c.text.empty()) {
            EXPECT_NE(m.find(", line " + std::to_string(d.place.line) + ":"), std::string::npos) << m;
        }
        EXPECT_EQ(db.modelSpaceId(), model);
        EXPECT_EQ(db.openObjectCount(), 0);
    }
    KoDbDatabase db;
    KoString message;
    KoDbDxfReadReport report;
    EXPECT_EQ(kodbReadDxfFile(db, wide(dir / "missing.dxf"), &message, &report), Kora::eFileNotFound);
    EXPECT_NE(message.toUtf8().find("missing.dxf"), std::string::npos);
    ASSERT_EQ(report.diagnostics.size(), 1u);
    EXPECT_EQ(report.diagnostics[0].code, ReadCode::kCannotOpen);

    // The number error names the very line of the bad value.
    KoDbDatabase bad(false);
    kodbReadDxf(bad, badNumber, L"mem.dxf", &message, &report);
    const size_t at = badNumber.find("1,0x");
    const long line = std::count(badNumber.begin(), badNumber.begin() + static_cast<long>(at), '\n');  // the code's line
    ASSERT_EQ(report.diagnostics.size(), 1u);
    EXPECT_EQ(report.diagnostics[0].place.line, static_cast<uint64_t>(line));
    EXPECT_NE(message.toUtf8().find("line " + std::to_string(line) + ":"), std::string::npos) << message.toUtf8();

    // A read is refused while the target has open objects.
    KoDbDatabase busy;
    KoDbObjectPointer<KoDbBlockTableRecord> model(busy.modelSpaceId());
    EXPECT_EQ(kodbReadDxf(busy, good, L"good.dxf", &message, &report), Kora::eInvalidOpenState);
    ASSERT_EQ(report.diagnostics.size(), 1u);
    EXPECT_EQ(report.diagnostics[0].code, ReadCode::kDrawingBusy);
}

// Records are read ahead in batches on a second thread. Wherever a record
// falls among the batches, the drawing keeps the file's order, a bad value
// fails at its own line with the drawing left as it was, and a sequence
// without its end marker gives back the record after it.
TEST(KoDbDxf, RecordsReadAheadKeepTheirOrderAndPlace)
{
    using Kora::Dxf::ReadCode;
    auto lineRecord = [](int i) {
        return "  0\nLINE\n  8\n0\n 10\n" + std::to_string(i) + "\n 20\n0.0\n 30\n0.0\n 11\n" + std::to_string(i) +
               ".5\n 21\n1.0\n 31\n0.0\n";
    };
    const std::string unterminated =
        "  0\nPOLYLINE\n  8\n0\n 66\n1\n 10\n0.0\n 20\n0.0\n 30\n0.0\n 70\n8\n"
        "  0\nVERTEX\n  8\n0\n 10\n0.0\n 20\n0.0\n 30\n0.0\n 70\n32\n";
    const int count = 1100;
    const std::string small = smallDrawing();
    const size_t entitiesEnd = small.find("  0\nENDSEC\n", small.find("ENTITIES"));
    for (int at : {0, 1, 254, 255, 256, 257, 511, 512, 1023, 1024, count - 1}) {
        SCOPED_TRACE(at);
        std::string records;
        for (int i = 0; i < count; ++i) {
            if (i == at) records += unterminated;
            records += lineRecord(i);
        }
        std::string text = small;
        text.insert(entitiesEnd, records);

        KoDbDatabase db(false);
        KoString message;
        KoDbDxfReadReport report;
        ASSERT_EQ(kodbReadDxf(db, text, L"many.dxf", &message, &report), Kora::eOk) << message.toUtf8();
        ASSERT_EQ(report.diagnostics.size(), 1u);
        EXPECT_EQ(report.diagnostics[0].code, ReadCode::kUnterminatedSequence);
        const size_t next = text.find(lineRecord(at));
        EXPECT_EQ(report.diagnostics[0].place.line, static_cast<uint64_t>(std::count(text.begin(), text.begin() + static_cast<long>(next), '\n') + 1));
        std::vector<double> starts;
        KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId());
        for (auto it = model->newIterator(); !it->done(); it->step()) {
            KoDbObjectId id;
            it->getEntityId(id);
            KoDbObjectPointer<KoDbLine> line(id);
            if (line) starts.push_back(line->startPoint().x);
        }
        ASSERT_EQ(starts.size(), static_cast<size_t>(count) + 1);  // the small drawing's own line first
        for (int i = 0; i < count; ++i) ASSERT_EQ(starts[static_cast<size_t>(i) + 1], i);

        const size_t value = text.find(" 11\n" + std::to_string(at) + ".5\n", next) + 4;
        text.replace(value, std::to_string(at).size() + 2, "1,0x");
        KoDbDatabase kept;
        const KoDbObjectId keptModel = kept.modelSpaceId();
        EXPECT_EQ(kodbReadDxf(kept, text, L"many.dxf", &message, &report), Kora::eBadDxfFile);
        ASSERT_FALSE(report.diagnostics.empty());
        EXPECT_EQ(report.diagnostics.back().code, ReadCode::kBadValue) << message.toUtf8();
        EXPECT_EQ(report.diagnostics.back().place.line, static_cast<uint64_t>(std::count(text.begin(), text.begin() + static_cast<long>(value), '\n')));
        EXPECT_EQ(kept.modelSpaceId(), keptModel);
    }
}

// Plain decimals take a shorter road than other numbers; either way a
// value must be the double nearest to its text, bit for bit.
TEST(KoDbDxf, NumbersAreTheDoublesNearestTheirText)
{
    std::mt19937_64 random(7);
    std::vector<std::string> texts = {"0",     "-0.0",  "1.",        ".5",       "-.25",      "007.50",
                                      "1e3",   "2.5E-3", "9007199254740992", "9007199254740993", "0.1",
                                      "123456789012345678", "1.2345678901234567890", "0.0000000000000000000001",
                                      "3351.84999999986", "-881.808333333582"};
    for (int i = 0; i < 2000; ++i) {
        std::string digits = std::to_string(random() % 100000000000000000ull);
        const size_t point = random() % (digits.size() + 1);
        std::string text = (random() % 2 ? "-" : "") + digits.substr(0, point) + "." + digits.substr(point);
        if (text == "." || text == "-.") text += "0";
        texts.push_back(text);
    }
    std::string records;
    for (size_t i = 0; i < texts.size(); ++i)
        records += "  0\nPOINT\n  8\n0\n 10\n" + texts[i] + "\n 20\n0\n 30\n0\n";
    KoDbDatabase db(false);
    KoDbDxfReadReport report;
    readWithEntities(db, records, report);
    KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId());
    size_t i = 0;
    for (auto it = model->newIterator(); !it->done(); it->step()) {
        KoDbObjectId id;
        it->getEntityId(id);
        KoDbObjectPointer<KoDbPoint> point(id);
        if (!point) continue;
        ASSERT_LT(i, texts.size());
        std::string_view text = texts[i++];
        double expected = 0;
        std::from_chars(text.data(), text.data() + text.size(), expected);
        const double read = point->position().x;
        EXPECT_EQ(std::memcmp(&read, &expected, sizeof read), 0) << text << " read as " << read;
    }
    EXPECT_EQ(i, texts.size());
}

// A save formats runs of entities on two threads. Whatever the runs, the
// entities come out in their order, and the vertex records that follow 3D
// polylines get handles of their own, counted on from the drawing's.
TEST(KoDbDxf, SavesOfManyEntitiesKeepTheirOrderAndHandles)
{
    const int count = 20000;
    KoDbDatabase db;
    {
        KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId(), KoDb::kForWrite);
        for (int i = 0; i < count; ++i) {
            KoDbEntity* e = nullptr;
            if (i % 3 == 0) {
                auto* polyline = new KoDb3dPolyline;
                for (int v = 0; v <= i % 4; ++v) polyline->appendVertex({double(i), double(v), 1.0});
                e = polyline;
            } else {
                e = new KoDbLine({double(i), 0, 0}, {double(i), 1, 0});
            }
            model->appendKoDbEntity(e);
            e->close();
        }
    }
    std::string text;
    ASSERT_EQ(kodbWriteDxf(db, text), Kora::eOk);

    std::set<std::string> handles;
    std::vector<double> order;
    const size_t from = text.find("ENTITIES\n") + 9;
    std::istringstream in(text.substr(from, text.find("OBJECTS") - from));
    std::string code, value, record;
    while (std::getline(in, code) && std::getline(in, value)) {
        if (code == "  0") record = value;
        if (code == "  5") {
            EXPECT_TRUE(handles.insert(value).second) << "handle " << value << " twice";
        }
        // Each LINE's and each POLYLINE's first x.
        if (code == " 10" && (record == "LINE" || record == "VERTEX") && (order.empty() || std::stod(value) != order.back()))
            order.push_back(std::stod(value));
    }
    ASSERT_EQ(order.size(), static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) ASSERT_EQ(order[static_cast<size_t>(i)], i);

    KoDbDatabase back(false);
    KoString message;
    KoDbDxfReadReport report;
    ASSERT_EQ(kodbReadDxf(back, text, L"many.dxf", &message, &report), Kora::eOk) << message.toUtf8();
    EXPECT_TRUE(report.diagnostics.empty()) << report.diagnostics.front().message;
    EXPECT_TRUE(report.audit.empty());
}

TEST(KoDbDxf, RepairsAreRecordsWithTheLineOfTheirRecord)
{
    using Kora::Dxf::ReadCode;
    std::string text = smallDrawing();
    auto recordAt = [&](size_t from, const char* name) {
        return text.find(std::string("  0\n") + name + "\n", from);
    };
    auto lineOf = [&](size_t at) { return static_cast<uint64_t>(std::count(text.begin(), text.begin() + static_cast<long>(at), '\n') + 1); };
    // A second LINE with the first one's handle, and layer "0" defined twice.
    const size_t line = recordAt(text.find("ENTITIES"), "LINE");
    text.insert(line, text.substr(line, text.find("  0\n", line + 1) - line));
    const size_t layer = recordAt(0, "LAYER");
    const size_t layerEnd = text.find("  0\n", layer + 1);
    text.insert(layerEnd, text.substr(layer, layerEnd - layer));
    const uint64_t secondLayerLine = lineOf(layerEnd);

    KoDbDatabase db(false);
    KoString message;
    KoDbDxfReadReport report;
    ASSERT_EQ(kodbReadDxf(db, text, L"mem.dxf", &message, &report), Kora::eOk) << message.toUtf8();
    std::map<ReadCode, uint64_t> seen;
    for (const auto& d : report.diagnostics) {
        EXPECT_EQ(d.severity, Kora::Severity::kRepaired) << d.message;
        seen[d.code] = d.place.line;
    }
    ASSERT_EQ(seen.size(), 2u);
    ASSERT_TRUE(seen.contains(ReadCode::kDuplicateHandle));
    ASSERT_TRUE(seen.contains(ReadCode::kDuplicateRecord));
    EXPECT_EQ(seen[ReadCode::kDuplicateRecord], secondLayerLine);
}

TEST(KoDbDxf, UnknownDataIsKeptAndRepairsAreReported)
{
    std::string text = smallDrawing();
    // An entity of a kind nobody models, with an extra application's data,
    // on a layer the file never defines.
    const std::string foreign =
        "  0\nACME_WIDGET\n  5\nFFF0\n100\nAcDbEntity\n  8\nGhosts\n100\nAcDbAcmeWidget\n 10\n1.5\n 20\n2.5\n 30\n0.0\n"
        "  1\nsprocket\n1001\nACME\n1000\nkeep me\n"
        "  0\nOLE2FRAME\n  5\nFFF1\n100\nAcDbEntity\n  8\n0\n100\nAcDbOle2Frame\n 70\n2\n  3\nPaintbrush Picture\n"
        " 10\n0.0\n 20\n5.0\n 30\n0.0\n 11\n5.0\n 21\n0.0\n 31\n0.0\n 71\n2\n 72\n0\n 90\n4\n310\nDEADBEEF\n"
        "  1\nOLE\n";
    text.insert(text.find("  0\nENDSEC\n", text.find("ENTITIES")), foreign);
    KoDbDatabase db(false);
    KoString message;
    KoDbDxfReadReport report;
    ASSERT_EQ(kodbReadDxf(db, text, L"mem.dxf", &message, &report), Kora::eOk) << message.toUtf8();
    EXPECT_EQ(report.unknownEntities["ACME_WIDGET"], 1);
    ASSERT_EQ(report.diagnostics.size(), 1u) << report.diagnostics.back().message;
    EXPECT_EQ(report.diagnostics[0].code, Kora::Dxf::ReadCode::kUndefinedName);
    EXPECT_EQ(report.diagnostics[0].severity, Kora::Severity::kRepaired);
    EXPECT_NE(report.diagnostics[0].message.find("Ghosts"), std::string::npos);
    std::string out;
    ASSERT_EQ(kodbWriteDxf(db, out), Kora::eOk);
    const size_t at = out.find("ACME_WIDGET");
    ASSERT_NE(at, std::string::npos);
    const std::string written = out.substr(at, out.find("  0\n", at) - at);
    for (const char* part : {"AcDbAcmeWidget", "sprocket", "1001\nACME", "keep me", "  8\nGhosts"})
        EXPECT_NE(written.find(part), std::string::npos) << part << " in\n" << written;
    Found<KoDbOle2Frame> ole(db);
    ASSERT_TRUE(ole) << "an OLE object is recognised by its class";
    EXPECT_TRUE(ole->isA()->isDerivedFrom(KoDbOleFrame::desc()));
    KoDbExtents none;
    EXPECT_EQ(ole->getGeomExtents(none), Kora::eNotApplicable);
    EXPECT_NE(out.find("310\nDEADBEEF\n"), std::string::npos) << "its data goes back as it came";
}

TEST(KoDbDxf, SavesAreAtomic)
{
    const fs::path dir = workDir("atomic");
    const fs::path target = dir / "drawing.dxf";
    writeFile(target, "old contents\n");
    KoDbDatabase db;
    KoString message;
    ASSERT_EQ(kodbWriteDxfFile(db, wide(target), &message), Kora::eOk) << message.toUtf8();
    const std::string saved = fileText(target);
    EXPECT_NE(saved.find("AC1027"), std::string::npos);

    // A write that fails half way (the file size limit stands for a full
    // disk) leaves the old file and no temporary file.
    {
        auto* big = new KoDbMText;
        big->setContents(KoString(L'x', 200000));
        KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId(), KoDb::kForWrite);
        model->appendKoDbEntity(big);
        big->close();
    }
    struct rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = old;
    small.rlim_cur = 100000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const Kora::ErrorStatus es = kodbWriteDxfFile(db, wide(target), &message);
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, previous);
    EXPECT_EQ(es, Kora::eFileWriteError);
    EXPECT_NE(message.toUtf8().find("drawing.dxf"), std::string::npos) << message.toUtf8();
    EXPECT_EQ(fileText(target), saved);
    int files = 0;
    for (const auto& entry : fs::directory_iterator(dir)) files += entry.is_regular_file();
    EXPECT_EQ(files, 1) << "the temporary file is removed";

    // A folder nobody can write into.
    EXPECT_EQ(kodbWriteDxfFile(db, wide(target / "inside-a-file.dxf"), &message), Kora::eFileAccessErr);
    if (geteuid() != 0) {
        const fs::path locked = dir / "locked";
        fs::create_directory(locked);
        writeFile(locked / "drawing.dxf", "keep\n");
        fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_exec);
        EXPECT_EQ(kodbWriteDxfFile(db, wide(locked / "drawing.dxf"), &message), Kora::eFileAccessErr);
        fs::permissions(locked, fs::perms::owner_all);
        EXPECT_EQ(fileText(locked / "drawing.dxf"), "keep\n");
    }
}

TEST(KoDbDxf, DrawingMadeThroughTheApiPassesTheAudit)
{
    KoDbDatabase db;
    db.setInsunits(KoDb::kUnitsMillimeters);
    KoDbObjectId blockId;
    {
        KoDbObjectPointer<KoDbBlockTable> blocks(db.blockTableId(), KoDb::kForWrite);
        auto* block = new KoDbBlockTableRecord;
        block->setName(L"Door");
        blocks->add(blockId, block);
        auto* leaf = new KoDbLine({0, 0, 0}, {0.9, 0, 0});
        block->appendKoDbEntity(leaf);
        leaf->close();
        block->close();
    }
    std::vector<KoDbEntity*> entities;
    entities.push_back(new KoDbLine({0, 0, 0}, {10, 0, 0}));
    entities.push_back(new KoDbCircle({5, 5, 0}, {0, 0, 1}, 2));
    entities.push_back(new KoDbArc({0, 0, 0}, 3, 0.1, 2.0));
    auto* ellipse = new KoDbEllipse;
    ellipse->set({0, 0, 0}, {0, 0, 1}, {4, 0, 0}, 0.5);
    entities.push_back(ellipse);
    auto* pl = new KoDbPolyline;
    pl->addVertexAt(0, {0, 0}, 0.5);
    pl->addVertexAt(1, {5, 0});
    pl->addVertexAt(2, {5, 5});
    pl->setClosed(true);
    entities.push_back(pl);
    auto* p3 = new KoDb3dPolyline;
    p3->setVertices({{0, 0, 0}, {1, 1, 1}, {2, 0, 2}});
    entities.push_back(p3);
    auto* spline = new KoDbSpline;
    spline->setNurbsData(3, 8, {0, 0, 0, 0, 1, 1, 1, 1}, {{0, 0, 0}, {1, 2, 0}, {3, 2, 0}, {4, 0, 0}});
    entities.push_back(spline);
    entities.push_back(new KoDbPoint({7, 7, 0}));
    auto* text = new KoDbText;
    text->setTextString(L"Ä^caret\nnewline");
    text->setPosition({1, 1, 0});
    entities.push_back(text);
    auto* mtext = new KoDbMText;
    mtext->setContents(KoString(L'é', 400));
    mtext->setRotation(0.3);
    entities.push_back(mtext);
    entities.push_back(new KoDbBlockReference({20, 20, 0}, blockId));
    auto* hatch = new KoDbHatch;
    KoDbHatch::Loop square;
    square.type = 2 | 1;
    square.vertices = {{0, 0}, {4, 0}, {4, 4}, {0, 4}};
    hatch->appendLoop(square);
    KoDbHatch::Loop edges;
    edges.type = 1;
    KoDbHatch::Edge a, b;
    a.type = KoDbHatch::kLine;
    a.start = {10, 0};
    a.end = {14, 0};
    b.type = KoDbHatch::kCirArc;
    b.center = {12, 0};
    b.radius = 2;
    b.startAngle = 0;
    b.endAngle = 180;
    edges.edges = {a, b};
    hatch->appendLoop(edges);
    entities.push_back(hatch);
    {
        KoDbObjectPointer<KoDbBlockTableRecord> model(db.modelSpaceId(), KoDb::kForWrite);
        for (KoDbEntity* e : entities) {
            ASSERT_EQ(model->appendKoDbEntity(e), Kora::eOk) << KoString(e->isA()->name()).toUtf8();
            e->close();
        }
    }
    KoDbObjectId layoutId, sheetId;
    ASSERT_EQ(db.createLayout(L"Plan", layoutId, sheetId), Kora::eOk);
    {
        KoDbObjectPointer<KoDbBlockTableRecord> sheet(sheetId, KoDb::kForWrite);
        auto* vp = new KoDbViewport;
        vp->setCenterPoint({150, 100, 0});
        vp->setWidth(200);
        vp->setHeight(150);
        vp->setViewHeight(40);
        sheet->appendKoDbEntity(vp);
        vp->close();
    }
    db.updateExt();
    const fs::path out = workDir("api") / "api.dxf";
    KoString message;
    ASSERT_EQ(kodbWriteDxfFile(db, wide(out), &message), Kora::eOk) << message.toUtf8();
    expectAuditClean(out);
    KoDbDatabase back(false);
    ASSERT_EQ(kodbReadDxfFile(back, wide(out), &message), Kora::eOk) << message.toUtf8();
    EXPECT_EQ(describe(db), describe(back));
    Found<KoDbText> t(back);
    EXPECT_EQ(t->textString(), KoString(L"Ä^caret\nnewline")) << "control characters and carets survive";
    int status = 0;
    const std::string listed = run("/usr/bin/python3 -c \"import ezdxf,collections; d=ezdxf.readfile('" + out.string() +
                                       "'); print(sorted(collections.Counter(e.dxftype() for e in d.modelspace()).items())); "
                                       "print(d.layouts.get('Plan').query('VIEWPORT')[0].dxf.height)\"",
                                   status);
    EXPECT_EQ(status, 0) << listed;
    EXPECT_NE(listed.find("('ARC', 1), ('CIRCLE', 1), ('ELLIPSE', 1), ('HATCH', 1), ('INSERT', 1), ('LINE', 1), "
                          "('LWPOLYLINE', 1), ('MTEXT', 1), ('POINT', 1), ('POLYLINE', 1), ('SPLINE', 1), ('TEXT', 1)"),
              std::string::npos)
        << listed;
    EXPECT_NE(listed.find("150.0"), std::string::npos) << listed;
}

// Found by the fuzzer: a header variable whose name holds a NUL byte was
// written cut short, and the file did not read back.
TEST(KoDbDxf, RegressionNulByteInHeaderVariableName)
{
    std::string text = smallDrawing();
    const std::string odd("  9\n$DIM\0SE2\n 70\n0\n", 19);
    text.insert(text.find("  9\n$HANDSEED"), odd);
    KoDbDatabase db(false);
    KoString message;
    ASSERT_EQ(kodbReadDxf(db, text, L"nul.dxf", &message), Kora::eOk) << message.toUtf8();
    std::string out;
    ASSERT_EQ(kodbWriteDxf(db, out), Kora::eOk);
    KoDbDatabase again(false);
    ASSERT_EQ(kodbReadDxf(again, out, L"rewritten.dxf", &message), Kora::eOk) << message.toUtf8();
    EXPECT_NE(out.find("$DIM^@SE2"), std::string::npos) << "the NUL travels as a caret pair";
}

// Found by the fuzzer: a kept number with a leading tab was written with
// the tab escaped, which no longer read as a number.
TEST(KoDbDxf, RegressionPaddedNumberInKeptTag)
{
    std::string text = smallDrawing();
    const std::string widget = "  0\nACME_WIDGET\n100\nAcDbEntity\n  8\n0\n100\nAcDbAcmeWidget\n 93\n\t1056964608\n";
    text.insert(text.find("  0\nENDSEC\n", text.find("ENTITIES")), widget);
    KoDbDatabase db(false);
    KoString message;
    ASSERT_EQ(kodbReadDxf(db, text, L"padded.dxf", &message), Kora::eOk) << message.toUtf8();
    std::string out;
    ASSERT_EQ(kodbWriteDxf(db, out), Kora::eOk);
    EXPECT_NE(out.find(" 93\n1056964608\n"), std::string::npos);
    KoDbDatabase again(false);
    EXPECT_EQ(kodbReadDxf(again, out, L"rewritten.dxf", &message), Kora::eOk) << message.toUtf8();
}

// Found by the fuzzer: an ENDBLK record among paper-space entities was kept
// as an entity, written inside the paper-space block, and ended it there.
TEST(KoDbDxf, RegressionStructureRecordAmongEntities)
{
    std::string text = smallDrawing();
    const std::string stray = "  0\nENDBLK\n  5\nFFF2\n 67\n1\n100\nAcDbEntity\n  8\n0\n100\nAcDbBlockEnd\n";
    text.insert(text.find("  0\nENDSEC\n", text.find("ENTITIES")), stray);
    KoDbDatabase db(false);
    KoString message;
    KoDbDxfReadReport report;
    ASSERT_EQ(kodbReadDxf(db, text, L"stray.dxf", &message, &report), Kora::eOk) << message.toUtf8();
    ASSERT_EQ(report.diagnostics.size(), 1u);
    EXPECT_EQ(report.diagnostics[0].code, Kora::Dxf::ReadCode::kMisplacedRecord);
    std::string out;
    ASSERT_EQ(kodbWriteDxf(db, out), Kora::eOk);
    KoDbDatabase again(false);
    EXPECT_EQ(kodbReadDxf(again, out, L"rewritten.dxf", &message), Kora::eOk) << message.toUtf8();
    KoDbDatabase strict(false);
    EXPECT_EQ(kodbReadDxf(strict, text, L"stray.dxf", &message, nullptr, KoDbDxfReadMode::kStrict), Kora::eBadDxfFile);
}

TEST(KoDbDxf, EntityFieldsThatDoNotFitTheModel)
{
    const std::string extra =
        // No radius: a circle the model cannot hold, kept whole.
        "  0\nCIRCLE\n  5\nFFF0\n100\nAcDbEntity\n  8\n0\n100\nAcDbCircle\n 10\n3.0\n 20\n4.0\n 30\n0.0\n"
        // A justification past the last one, taken as the last (fit).
        "  0\nTEXT\n  5\nFFF1\n100\nAcDbEntity\n  8\n0\n100\nAcDbText\n 10\n1.0\n 20\n1.0\n 30\n0.0\n 40\n2.5\n"
        "  1\nfit\n 72\n9\n 11\n9.0\n 21\n1.0\n 31\n0.0\n100\nAcDbText\n"
        // A code the line's subclass does not model, kept in its place.
        "  0\nLINE\n  5\nFFF2\n100\nAcDbEntity\n  8\n0\n100\nAcDbLine\n 10\n0.0\n 20\n0.0\n 30\n0.0\n"
        " 11\n5.0\n 21\n0.0\n 31\n0.0\n 91\n42\n";
    KoDbDatabase db(false);
    KoDbDxfReadReport report;
    ASSERT_NO_FATAL_FAILURE(readWithEntities(db, extra, report));
    EXPECT_EQ(report.unknownEntities.size(), 1u);
    EXPECT_EQ(report.unknownEntities["CIRCLE"], 1);

    std::string out;
    ASSERT_EQ(kodbWriteDxf(db, out), Kora::eOk);
    const auto record = [&](const std::string& handle) { return writtenRecord(out, handle); };
    EXPECT_NE(record("FFF0").find(" 10\n3.0\n 20\n4.0\n"), std::string::npos) << record("FFF0");
    const std::string fit = record("FFF1");
    EXPECT_NE(fit.find(" 72\n5\n 11\n9.0\n"), std::string::npos) << fit;
    const std::string line = record("FFF2");
    EXPECT_NE(line.find(" 91\n42\n"), std::string::npos) << line;
}

TEST(KoDbDxf, EllipsesAreTakenWholeOrKeptWhole)
{
    const std::string head = "  0\nELLIPSE\n  5\n%s\n100\nAcDbEntity\n  8\n0\n100\nAcDbEllipse\n 10\n1.0\n 20\n2.0\n 30\n0.0\n";
    auto ellipse = [&](const char* handle, const std::string& rest) {
        std::string r = head;
        r.replace(r.find("%s"), 2, handle);
        return r + rest;
    };
    const std::string extra =
        // No major axis, and a ratio past one: neither fits the model.
        ellipse("FFF0", " 40\n0.5\n") + ellipse("FFF1", " 11\n4.0\n 21\n0.0\n 31\n0.0\n 40\n1.5\n") +
        // An axis given without its x has x zero, not the usual one.
        ellipse("FFF2", " 21\n3.0\n 40\n0.25\n 41\n0.5\n");
    KoDbDatabase db(false);
    KoDbDxfReadReport report;
    ASSERT_NO_FATAL_FAILURE(readWithEntities(db, extra, report));
    EXPECT_EQ(report.unknownEntities["ELLIPSE"], 2);
    Found<KoDbEllipse> e(db);
    ASSERT_TRUE(e);
    EXPECT_EQ(e->majorAxis(), KoGeVector3d(0.0, 3.0, 0.0));
    EXPECT_EQ(e->center(), KoGePoint3d(1.0, 2.0, 0.0));
    EXPECT_EQ(e->radiusRatio(), 0.25);
    EXPECT_EQ(e->startParam(), 0.5);
    EXPECT_EQ(e->endParam(), 2 * std::numbers::pi);
}

TEST(KoDbDxf, TextRotationIsInThePlaneOfItsNormalAndADirectionWinsOverIt)
{
    const std::string head = "100\nAcDbEntity\n  8\n0\n100\nAcDbMText\n 10\n0.0\n 20\n0.0\n 30\n0.0\n 40\n2.5\n  1\nm\n";
    const std::string extra =
        // The rotation comes before the normal it is measured against.
        "  0\nMTEXT\n  5\nFFF0\n" + head + " 50\n180.0\n210\n0.0\n220\n0.0\n230\n-1.0\n" +
        "  0\nMTEXT\n  5\nFFF1\n" + head + " 11\n0.0\n 21\n2.0\n 31\n0.0\n 50\n45.0\n" +
        // No direction: the text is kept whole.
        "  0\nMTEXT\n  5\nFFF2\n" + head + " 11\n0.0\n 21\n0.0\n 31\n0.0\n";
    KoDbDatabase db(false);
    KoDbDxfReadReport report;
    ASSERT_NO_FATAL_FAILURE(readWithEntities(db, extra, report));
    EXPECT_EQ(report.unknownEntities["MTEXT"], 1);
    Found<KoDbMText> flipped(db), directed(db, 1);
    ASSERT_TRUE(flipped);
    ASSERT_TRUE(directed);
    // Seen from below, the plane's x axis is the world's -x: half a turn is +x.
    EXPECT_NEAR(flipped->direction().x, 1.0, 1e-12);
    EXPECT_NEAR(flipped->direction().y, 0.0, 1e-12);
    EXPECT_EQ(directed->direction(), KoGeVector3d(0.0, 1.0, 0.0));
}

TEST(KoDbDxf, InsertsThatDoNotFitAreKeptWithTheirAttributes)
{
    const std::string attribs = "  0\nATTRIB\n  5\nFFE0\n100\nAcDbEntity\n  8\n0\n100\nAcDbText\n 10\n0.0\n 20\n0.0\n 30\n0.0\n"
                                " 40\n1.0\n  1\nv\n100\nAcDbAttribute\n  2\nTAG\n  0\nSEQEND\n  5\nFFE1\n100\nAcDbEntity\n  8\n0\n";
    const std::string head = "100\nAcDbEntity\n  8\n0\n100\nAcDbBlockReference\n 66\n1\n";
    const std::string extra =
        // A block no table holds, and a scale of zero: neither fits the model.
        "  0\nINSERT\n  5\nFFF0\n" + head + "  2\nNowhere\n 10\n1.0\n 20\n2.0\n 30\n0.0\n" + attribs +
        "  0\nINSERT\n  5\nFFF1\n" + head + "  2\n*Model_Space\n 10\n1.0\n 20\n2.0\n 30\n0.0\n 42\n0.0\n" +
        std::string(attribs).replace(attribs.find("FFE0"), 4, "FFE2").replace(attribs.find("FFE1"), 4, "FFE3");
    KoDbDatabase db(false);
    KoDbDxfReadReport report;
    ASSERT_NO_FATAL_FAILURE(readWithEntities(db, extra, report));
    EXPECT_EQ(report.unknownEntities["INSERT"], 2);
    std::string out;
    ASSERT_EQ(kodbWriteDxf(db, out), Kora::eOk);
    // The one kept whole goes back with its attributes after it.
    const size_t at = out.find("  5\nFFF1\n");
    ASSERT_NE(at, std::string::npos);
    EXPECT_NE(out.substr(at, out.find("  0\n", at) - at).find(" 42\n0.0\n"), std::string::npos);
    const size_t attrib = out.find("  0\nATTRIB\n", at);
    EXPECT_EQ(attrib, out.find("  0\n", at));
    EXPECT_EQ(out.find("  0\nSEQEND\n", attrib), out.find("  0\n", attrib + 1));
}

TEST(KoDbDxf, PolylineVerticesAreReadAsAGroupAndWidthsWrittenInPairs)
{
    const std::string head = "100\nAcDbEntity\n  8\n0\n100\nAcDbPolyline\n 90\n2\n 70\n1\n";
    const std::string extra =
        // A width before any vertex: kept whole.
        "  0\nLWPOLYLINE\n  5\nFFF0\n" + head + " 40\n1.0\n 10\n0.0\n 20\n0.0\n" +
        "  0\nLWPOLYLINE\n  5\nFFF1\n" + head + " 10\n0.0\n 20\n0.0\n 91\n7\n 41\n2.0\n 10\n5.0\n 20\n1.0\n 42\n0.5\n";
    KoDbDatabase db(false);
    KoDbDxfReadReport report;
    ASSERT_NO_FATAL_FAILURE(readWithEntities(db, extra, report));
    EXPECT_EQ(report.unknownEntities["LWPOLYLINE"], 1);
    {
        Found<KoDbPolyline> p(db);
        ASSERT_TRUE(p);
        ASSERT_EQ(p->numVerts(), 2);
        EXPECT_TRUE(p->isClosed());
        EXPECT_EQ(p->vertices()[0].endWidth, 2.0);
        EXPECT_EQ(p->vertices()[1].bulge, 0.5);
        EXPECT_EQ(p->vertices()[1].point, KoGePoint2d(5.0, 1.0));
    }
    std::string out;
    ASSERT_EQ(kodbWriteDxf(db, out), Kora::eOk);
    const std::string record = writtenRecord(out, "FFF1");
    EXPECT_NE(record.find(" 10\n0.0\n 20\n0.0\n 40\n0.0\n 41\n2.0\n 10\n5.0\n 20\n1.0\n 42\n0.5\n"), std::string::npos) << record;
    EXPECT_EQ(record.find(" 91\n"), std::string::npos) << "vertex identifiers are not kept";
}

TEST(KoDbDxf, SplinesAreSetWholeFromWhatTheirRecordGathers)
{
    const std::string head = "100\nAcDbEntity\n  8\n0\n100\nAcDbSpline\n";
    const std::string extra =
        // A y before any x, and neither control nor fit points: kept whole.
        "  0\nSPLINE\n  5\nFFF0\n" + head + " 71\n1\n 20\n1.0\n 10\n0.0\n" +
        "  0\nSPLINE\n  5\nFFF1\n" + head + " 71\n1\n 40\n0.0\n" +
        // Degree after the knots, and the lists' counts wrong: the lists say it.
        "  0\nSPLINE\n  5\nFFF2\n" + head + " 70\n8\n 72\n9\n 40\n0.0\n 40\n0.0\n 10\n0.0\n 20\n0.0\n 30\n0.0\n" +
        " 40\n1.0\n 40\n1.0\n 10\n2.0\n 20\n3.0\n 30\n4.0\n 71\n1\n 13\n0.0\n 23\n1.0\n 33\n0.0\n";
    KoDbDatabase db(false);
    KoDbDxfReadReport report;
    ASSERT_NO_FATAL_FAILURE(readWithEntities(db, extra, report));
    EXPECT_EQ(report.unknownEntities["SPLINE"], 2);
    {
        Found<KoDbSpline> s(db);
        ASSERT_TRUE(s);
        EXPECT_EQ(s->degree(), 1);
        EXPECT_EQ(s->knots(), (std::vector<double> {0.0, 0.0, 1.0, 1.0}));
        ASSERT_EQ(s->controlPoints().size(), 2u);
        EXPECT_EQ(s->controlPoints()[1], KoGePoint3d(2.0, 3.0, 4.0));
        EXPECT_EQ(s->endFitTangent(), KoGeVector3d(0.0, 1.0, 0.0));
    }
    std::string out;
    ASSERT_EQ(kodbWriteDxf(db, out), Kora::eOk);
    const std::string record = writtenRecord(out, "FFF2");
    EXPECT_NE(record.find(" 70\n8\n 71\n1\n 72\n4\n 73\n2\n 74\n0\n 13\n0.0\n 23\n1.0\n 33\n0.0\n 40\n0.0\n"), std::string::npos)
        << record;
    EXPECT_EQ(record.find(" 12\n"), std::string::npos) << "no start tangent, none written";
    EXPECT_EQ(record.find("210\n"), std::string::npos) << "no normal, none written";
}

TEST(KoDbDxf, PolylinesAreModelledOnlyWhenTheirFlagsAndVerticesSaySo)
{
    auto polyline = [](const std::string& handle, int flags, int vertexFlags) {
        const std::string vertex = "  0\nVERTEX\n100\nAcDbEntity\n  8\n0\n100\nAcDbVertex\n100\nAcDb3dPolylineVertex\n 70\n" +
                                   std::to_string(vertexFlags) + "\n";
        return "  0\nPOLYLINE\n  5\n" + handle + "\n100\nAcDbEntity\n  8\n0\n100\nAcDb3dPolyline\n 66\n1\n 70\n" +
               std::to_string(flags) + "\n" + vertex + " 10\n1.0\n 20\n2.0\n 30\n3.0\n" + vertex + " 10\n4.0\n 20\n5.0\n 30\n6.0\n" +
               "  0\nSEQEND\n100\nAcDbEntity\n  8\n0\n";
    };
    // A 2D polyline, and a 3D one whose vertices frame a spline: kept whole.
    const std::string extra = polyline("FFF0", 0, 0) + polyline("FFF1", 8, 16) + polyline("FFF2", 9, 32);
    KoDbDatabase db(false);
    KoDbDxfReadReport report;
    ASSERT_NO_FATAL_FAILURE(readWithEntities(db, extra, report));
    EXPECT_EQ(report.unknownEntities["POLYLINE"], 2);
    {
        Found<KoDb3dPolyline> p(db);
        ASSERT_TRUE(p);
        EXPECT_TRUE(p->isClosed());
        EXPECT_EQ(p->vertices(), (std::vector<KoGePoint3d> {{1.0, 2.0, 3.0}, {4.0, 5.0, 6.0}}));
    }
    std::string out;
    ASSERT_EQ(kodbWriteDxf(db, out), Kora::eOk);
    const size_t at = out.find("  5\nFFF2\n");
    ASSERT_NE(at, std::string::npos);
    const size_t end = out.find("  0\nSEQEND\n", at);
    ASSERT_NE(end, std::string::npos);
    const std::string record = out.substr(at, end - at);
    EXPECT_NE(record.find("AcDb3dPolyline\n 66\n1\n 10\n0.0\n 20\n0.0\n 30\n0.0\n 70\n9\n  0\nVERTEX\n"), std::string::npos) << record;
    EXPECT_NE(record.find("AcDb3dPolylineVertex\n 10\n4.0\n 20\n5.0\n 30\n6.0\n 70\n32\n"), std::string::npos) << record;
}

// A value that does not fit (style 7) before the nested data: the reader
// must still step over the seed points and keep the hatch whole.
TEST(KoDbDxf, HatchThatDoesNotFitIsKeptWholePastItsNestedData)
{
    std::string text = smallDrawing();
    const std::string extra =
        "  0\nHATCH\n  5\nFFF3\n100\nAcDbEntity\n  8\n0\n100\nAcDbHatch\n 10\n0.0\n 20\n0.0\n 30\n0.0\n"
        "  2\nSOLID\n 70\n1\n 71\n0\n 91\n0\n 75\n7\n 76\n1\n 98\n1\n 10\n1.0\n 20\n1.0\n";
    text.insert(text.find("  0\nENDSEC\n", text.find("ENTITIES")), extra);
    KoDbDatabase db(false);
    KoString message;
    KoDbDxfReadReport report;
    ASSERT_EQ(kodbReadDxf(db, text, L"hatch.dxf", &message, &report), Kora::eOk) << message.toUtf8();
    EXPECT_EQ(report.unknownEntities["HATCH"], 1);
    std::string out;
    ASSERT_EQ(kodbWriteDxf(db, out), Kora::eOk);
    EXPECT_NE(out.find(" 75\n7\n 76\n1\n 98\n1\n"), std::string::npos) << "kept as it came";
}

TEST(KoDbDxf, HatchLoopsReadInAnotherWritersLayoutAndWrittenBackAlike)
{
    std::string text = smallDrawing();
    const std::string extra =
        "  0\nHATCH\n  5\nFFF3\n100\nAcDbEntity\n  8\n0\n100\nAcDbHatch\n 10\n0.0\n 20\n0.0\n 30\n0.0\n"
        "  2\nUSER\n 70\n0\n 71\n0\n 91\n2\n"
        // A polyline loop whose second vertex has no bulge, and no source-object count.
        " 92\n3\n 72\n1\n 73\n1\n 93\n3\n 10\n0.0\n 20\n0.0\n 42\n0.5\n 10\n4.0\n 20\n0.0\n 10\n4.0\n 20\n4.0\n 42\n-0.25\n"
        // An edge loop: a rational spline with its weights after all control points, then fit points with tangents.
        " 92\n1\n 93\n2\n 72\n4\n 94\n2\n 73\n1\n 74\n0\n 95\n6\n 96\n3\n"
        " 40\n0.0\n 40\n0.0\n 40\n0.0\n 40\n1.0\n 40\n1.0\n 40\n1.0\n"
        " 10\n0.0\n 20\n0.0\n 10\n3.0\n 20\n5.0\n 10\n6.0\n 20\n0.0\n 42\n1.0\n 42\n0.5\n 42\n1.0\n"
        " 97\n2\n 11\n0.0\n 21\n0.0\n 11\n6.0\n 21\n0.0\n 12\n1.0\n 22\n1.0\n 13\n1.0\n 23\n-1.0\n"
        " 72\n3\n 10\n3.0\n 20\n0.0\n 11\n3.0\n 21\n0.0\n 40\n0.5\n 50\n180.0\n 51\n360.0\n 73\n0\n 97\n0\n"
        " 75\n1\n 76\n0\n 52\n30.0\n 41\n2.0\n 77\n1\n 78\n1\n 53\n45.0\n 43\n0.0\n 44\n0.0\n 45\n-1.0\n 46\n1.0\n"
        " 79\n2\n 49\n0.5\n 49\n-0.25\n 98\n2\n 10\n1.0\n 20\n1.0\n 10\n2.0\n 20\n1.0\n";
    text.insert(text.find("  0\nENDSEC\n", text.find("ENTITIES")), extra);
    KoDbDatabase db(false);
    KoString message;
    ASSERT_EQ(kodbReadDxf(db, text, L"hatch.dxf", &message), Kora::eOk) << message.toUtf8();
    std::vector<KoDbHatch::Loop> loops;
    {
        Found<KoDbHatch> h(db);
        ASSERT_TRUE(h);
        ASSERT_EQ(h->loops().size(), 2u);
        const KoDbHatch::Loop& poly = h->loops()[0];
        EXPECT_EQ(poly.bulges, (std::vector<double> {0.5, 0.0, -0.25})) << "a missing bulge is a straight segment";
        const KoDbHatch::Loop& edges = h->loops()[1];
        ASSERT_EQ(edges.edges.size(), 2u);
        const KoDbHatch::Edge& spline = edges.edges[0];
        EXPECT_EQ(spline.weights, (std::vector<double> {1.0, 0.5, 1.0}));
        EXPECT_EQ(spline.fitPoints.size(), 2u);
        EXPECT_TRUE(spline.hasFitTangents);
        EXPECT_EQ(spline.endTangent, KoGePoint2d(1.0, -1.0));
        EXPECT_EQ(edges.edges[1].majorAxis, KoGePoint2d(3.0, 0.0));
        EXPECT_EQ(h->patternLines().size(), 1u);
        EXPECT_EQ(h->seedPoints().size(), 2u);
        loops = h->loops();
    }
    std::string out;
    ASSERT_EQ(kodbWriteDxf(db, out), Kora::eOk);
    KoDbDatabase back(false);
    ASSERT_EQ(kodbReadDxf(back, out, L"hatch-back.dxf", &message), Kora::eOk) << message.toUtf8();
    Found<KoDbHatch> h(back);
    ASSERT_TRUE(h);
    EXPECT_EQ(h->loops(), loops) << "the loops read back as they were written";
    EXPECT_EQ(h->patternLines()[0].dashes, (std::vector<double> {0.5, -0.25}));
    EXPECT_EQ(describe(db), describe(back));
}
