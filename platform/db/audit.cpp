#include "kora/db/audit.h"

#include <cmath>
#include <string>
#include <vector>

#include "dbimpl.h"

namespace Kora::Db {

namespace {

class Auditor {
public:
    explicit Auditor(KoDbDatabase& db) : m_db(db) {}
    Kora::Diagnostics<AuditCode> run();

private:
    void report(AuditCode code, Severity severity, KoDbObjectId id, std::string message)
    {
        Place place;
        if (!id.isNull()) place.element = id.handle().value();
        m_found.push_back({code, severity, place, std::move(message)});
    }
    void repaired(AuditCode code, KoDbObjectId id, std::string message)
    {
        report(code, Severity::kRepaired, id, std::move(message));
    }
    // A problem and how it was met: put right when `es` is eOk.
    void settle(AuditCode code, KoDbObjectId id, Kora::ErrorStatus es, const std::string& problem, const std::string& repair)
    {
        if (es == Kora::eOk) repaired(code, id, problem + "; " + repair);
        else report(code, Severity::kError, id, problem + " and could not be put right");
    }
    void requiredRecords();
    void layouts();
    void ownersOf(const KoDbSymbolTable* table);
    void entity(KoDbObjectId id);
    template <class Record>
    KoDbObjectId addRecord(KoDbObjectId tableId, const wchar_t* name);

    KoDbDatabase& m_db;
    Kora::Diagnostics<AuditCode> m_found;
};

std::string text(KoDbObjectId id)
{
    return id.isNull() ? std::string("(no handle)") : id.handle().ascii().toUtf8();
}

template <class T>
T* live(KoDbObjectId id)
{
    T* object = kodbPeek<T>(id);
    return object && !object->isErased() ? object : nullptr;
}

template <class Record>
KoDbObjectId Auditor::addRecord(KoDbObjectId tableId, const wchar_t* name)
{
    KoDbObjectPointer<KoDbSymbolTable> table(tableId, KoDb::kForWrite);
    KoDbObjectId id;
    if (!table) return id;
    auto* record = new Record;
    record->setName(name);
    if (table->add(id, record) != Kora::eOk) {
        delete record;
        return {};
    }
    record->close();
    return id;
}

void Auditor::requiredRecords()
{
    if (m_db.layerZero().isNull()) {
        const KoDbObjectId id = addRecord<KoDbLayerTableRecord>(m_db.layerTableId(), L"0");
        if (id.isNull()) report(AuditCode::kMissingLayerZero, Severity::kError, id, "layer \"0\" is missing and could not be added");
        else repaired(AuditCode::kMissingLayerZero, id, "layer \"0\" was missing; it was added");
    }
    for (const wchar_t* name : {KODB_LINETYPE_BYBLOCK, KODB_LINETYPE_BYLAYER, KODB_LINETYPE_CONTINUOUS}) {
        const auto* table = kodbPeek<KoDbSymbolTable>(m_db.linetypeTableId());
        if (table && table->has(name)) continue;
        const std::string utf8 = KoString(name).toUtf8();
        const KoDbObjectId id = addRecord<KoDbLinetypeTableRecord>(m_db.linetypeTableId(), name);
        if (id.isNull()) report(AuditCode::kMissingLinetype, Severity::kError, id, "linetype \"" + utf8 + "\" is missing and could not be added");
        else repaired(AuditCode::kMissingLinetype, id, "linetype \"" + utf8 + "\" was missing; it was added");
    }
    if (m_db.modelSpaceId().isNull())
        report(AuditCode::kMissingModelSpace, Severity::kError, {}, "the drawing has no model space block");
}

// Every layout is in the layout dictionary and has its block, and a drawing
// has at least one sheet. Layout blocks name their layout, which is what a
// lost dictionary or a lost link is rebuilt from.
void Auditor::layouts()
{
    const auto* blocks = kodbPeek<KoDbSymbolTable>(m_db.blockTableId());
    // A named-objects entry that is not a dictionary (a damaged file) is as
    // good as none: the rebuilt dictionary takes its place.
    if (!kodbPeek<KoDbDictionary>(m_db.layoutDictionaryId())) {
        KoDbObjectPointer<KoDbDictionary> named(m_db.namedObjectsDictionaryId(), KoDb::kForWrite);
        KoDbObjectPointer<KoDbDictionary> added;
        added.create();
        KoDbObjectId id;
        if (!named || named->setAt(KODB_LAYOUT_DICTIONARY, added.object(), id) != Kora::eOk) {
            report(AuditCode::kMissingLayoutDictionary, Severity::kError, {}, "the layout dictionary is missing and could not be added");
            return;
        }
        for (KoDbObjectId blockId : blocks->recordIds()) {
            const auto* block = live<KoDbBlockTableRecord>(blockId);
            KoDbObjectPointer<KoDbLayout> layout;
            if (!block || layout.open(block->getLayoutId(), KoDb::kForWrite) != Kora::eOk) continue;
            KoDbObjectId layoutId;
            added->setAt(layout->getLayoutName(), layout.object(), layoutId);
        }
        repaired(AuditCode::kMissingLayoutDictionary, id,
                 "the layout dictionary was missing; it was rebuilt with " + std::to_string(added->numEntries()) + " layouts");
    }
    const auto* dictionary = kodbPeek<KoDbDictionary>(m_db.layoutDictionaryId());
    if (!dictionary) return;
    for (const KoDbDictionary::Entry& entry : dictionary->entries()) {
        const auto* layout = live<KoDbLayout>(entry.id);
        if (!layout || live<KoDbBlockTableRecord>(layout->getBlockTableRecordId())) continue;
        const std::string name = layout->getLayoutName().toUtf8();
        KoDbObjectId blockId;
        for (KoDbObjectId candidate : blocks->recordIds())
            if (const auto* block = live<KoDbBlockTableRecord>(candidate); block && block->getLayoutId() == entry.id)
                blockId = candidate;
        std::string how = "it was linked again to its block";
        if (blockId.isNull() && !layout->getLayoutName().equalsNoCase(L"Model")) {
            KoDbObjectPointer<KoDbBlockTable> writableBlocks(m_db.blockTableId(), KoDb::kForWrite);
            KoString blockName = KODB_PAPER_SPACE;
            for (int n = 0; writableBlocks->has(blockName); ++n) blockName = KoString::format(L"%s%d", KODB_PAPER_SPACE, n);
            KoDbObjectPointer<KoDbBlockTableRecord> block;
            block.create();
            block->setName(blockName);
            writableBlocks->add(blockId, block.object());
            block->setLayoutId(entry.id);
            how = "it was given an empty one, \"" + blockName.toUtf8() + "\"";
        }
        KoDbObjectPointer<KoDbLayout> writable(entry.id, KoDb::kForWrite);
        if (blockId.isNull() || !writable) {
            report(AuditCode::kLayoutWithoutBlock, Severity::kError, entry.id, "layout \"" + name + "\" has no block");
            continue;
        }
        writable->setBlockTableRecordId(blockId);
        repaired(AuditCode::kLayoutWithoutBlock, entry.id, "layout \"" + name + "\" had no block; " + how);
    }
    if (m_db.paperSpaceId().isNull()) {
        KoDbObjectId layoutId, blockId;
        if (m_db.createLayout(L"Layout1", layoutId, blockId) != Kora::eOk)
            report(AuditCode::kMissingPaperSpace, Severity::kError, {}, "the drawing has no paper space and none could be added");
        else
            repaired(AuditCode::kMissingPaperSpace, layoutId, "the drawing had no paper space; layout \"Layout1\" was added");
    }
}

// Records name their table as owner; files written by careless programs
// sometimes name something else, and erasing or copying the record would
// then go astray.
void Auditor::ownersOf(const KoDbSymbolTable* table)
{
    for (KoDbObjectId id : table->recordIds()) {
        KoDbObject* record = kodbPeek<KoDbObject>(id);
        if (!record || record->ownerId() == table->objectId()) continue;
        KoDbAccess::setOwnerStub(record, KoDbAccess::stub(table));
        repaired(AuditCode::kWrongOwner, id, "record " + text(id) + " named another owner; its owner is now its table");
    }
}

bool finite(const KoGePoint3d& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

bool finite(const std::vector<KoGePoint3d>& points)
{
    for (const KoGePoint3d& p : points)
        if (!finite(p)) return false;
    return true;
}

// The points that place an entity. Entities whose extents are all there is
// to go by are judged by them.
bool hasFiniteCoordinates(const KoDbEntity* e)
{
    if (const auto* line = KoDbLine::cast(e)) return finite(line->startPoint()) && finite(line->endPoint());
    if (const auto* circle = KoDbCircle::cast(e)) return finite(circle->center()) && std::isfinite(circle->radius());
    if (const auto* arc = KoDbArc::cast(e)) return finite(arc->center()) && std::isfinite(arc->radius());
    if (const auto* ellipse = KoDbEllipse::cast(e)) return finite(ellipse->center());
    if (const auto* point = KoDbPoint::cast(e)) return finite(point->position());
    if (const auto* text = KoDbText::cast(e)) return finite(text->position()) && finite(text->alignmentPoint());
    if (const auto* mtext = KoDbMText::cast(e)) return finite(mtext->location());
    if (const auto* reference = KoDbBlockReference::cast(e)) return finite(reference->position());
    if (const auto* polyline = KoDb3dPolyline::cast(e)) return finite(polyline->vertices());
    if (const auto* spline = KoDbSpline::cast(e)) return finite(spline->controlPoints()) && finite(spline->fitPoints());
    if (const auto* polyline = KoDbPolyline::cast(e)) {
        for (const auto& v : polyline->vertices())
            if (!std::isfinite(v.point.x) || !std::isfinite(v.point.y)) return false;
        return true;
    }
    KoDbExtents extents;
    if (e->getGeomExtents(extents) != Kora::eOk || !extents.isValid()) return true;
    return finite(extents.minPoint()) && finite(extents.maxPoint());
}

// A reference whose block was missing when it was read is kept whole, as
// read, naming its block in group 2; written back, it would still point
// nowhere.
bool namesMissingBlock(const KoDbEntity* e, const KoDbSymbolTable* blocks)
{
    if (const auto* reference = KoDbBlockReference::cast(e)) return !live<KoDbBlockTableRecord>(reference->blockTableRecord());
    const auto* kept = KoDbUnknownEntity::cast(e);
    if (!kept || kept->dxfName() != "INSERT") return false;
    for (const KoDbDxfTag& tag : kept->preservedTags())
        if (tag.code == 2) return !blocks->has(KoString::fromUtf8(tag.value));
    return true;
}

void Auditor::entity(KoDbObjectId id)
{
    KoDbObjectPointer<KoDbEntity> e(id, KoDb::kForWrite);
    if (!e) return;
    // Nearly every entity is sound: its handle is spelt out only for a report.
    if (!hasFiniteCoordinates(e.object())) {
        settle(AuditCode::kNonFiniteCoordinate, id, e->erase(), "entity " + text(id) + " has a coordinate that is not a number",
               "it was erased");
        return;
    }
    if (namesMissingBlock(e.object(), kodbPeek<KoDbSymbolTable>(m_db.blockTableId()))) {
        settle(AuditCode::kUndefinedBlock, id, e->erase(), "block reference " + text(id) + " names a block that does not exist",
               "it was erased");
        return;
    }
    if (!live<KoDbLayerTableRecord>(e->layerId()))
        settle(AuditCode::kUndefinedLayer, id, e->setLayer(m_db.layerZero()),
               "entity " + text(id) + " is on a layer that does not exist", "it was moved to layer \"0\"");
    // No linetype at all reads as ByLayer; only one that is gone is wrong.
    if (!e->linetypeId().isNull() && !live<KoDbLinetypeTableRecord>(e->linetypeId()))
        settle(AuditCode::kUndefinedLinetype, id, e->setLinetype(m_db.byLayerLinetype()),
               "entity " + text(id) + " has a linetype that does not exist", "it is now ByLayer");
}

Kora::Diagnostics<AuditCode> Auditor::run()
{
    const auto* blocks = kodbPeek<KoDbSymbolTable>(m_db.blockTableId());
    const auto* layers = kodbPeek<KoDbSymbolTable>(m_db.layerTableId());
    const auto* linetypes = kodbPeek<KoDbSymbolTable>(m_db.linetypeTableId());
    if (!blocks || !layers || !linetypes || m_db.namedObjectsDictionaryId().isNull()) {
        report(AuditCode::kMissingTable, Severity::kError, {},
               "the drawing lacks its block, layer or linetype table or its named-objects dictionary");
        return std::move(m_found);
    }
    requiredRecords();
    if (m_db.modelSpaceId().isNull()) return std::move(m_found);
    layouts();
    for (const KoDbSymbolTable* table : {blocks, layers, linetypes}) ownersOf(table);
    for (KoDbObjectId blockId : blocks->recordIds()) {
        const auto* block = live<KoDbBlockTableRecord>(blockId);
        if (!block) continue;
        for (KoDbObjectId id : block->entityIds()) {
            KoDbObject* object = live<KoDbObject>(id);
            if (!object) continue;
            if (object->ownerId() != blockId) {
                KoDbAccess::setOwnerStub(object, KoDbAccess::stub(block));
                repaired(AuditCode::kWrongOwner, id, "entity " + text(id) + " named another owner; its owner is now block \"" +
                                                         block->getName().toUtf8() + "\"");
            }
            entity(id);
        }
    }
    return std::move(m_found);
}

}  // namespace

Kora::Diagnostics<AuditCode> audit(KoDbDatabase& database)
{
    return Auditor(database).run();
}

}  // namespace Kora::Db
