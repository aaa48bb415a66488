#include "kora/db/database.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "dbimpl.h"

namespace {

KoDbDxfTags tags(std::initializer_list<std::pair<int, const char*>> list)
{
    KoDbDxfTags out;
    for (const auto& [code, value] : list) out.push_back({code, value});
    return out;
}

KoDbObjectId addTable(KoDbDatabase& db, KoDbSymbolTable* table)
{
    KoDbAccess::add(db, table, nullptr, false);
    return table->objectId();
}

// Adds a record to a table while the database is being built (nothing is
// open then).
KoDbObjectId addRecord(KoDbObjectId tableId, KoDbSymbolTableRecord* record, const KoString& name, KoDbDxfTags extra = {})
{
    record->setName(name);
    record->setPreservedTags(std::move(extra));
    KoDbSymbolTable* table = nullptr;
    KoDbObjectId id;
    kodbOpenObject(table, tableId, KoDb::kForWrite);
    table->add(id, record);
    record->close();
    table->close();
    return id;
}

}  // namespace

KoDbDatabase::KoDbDatabase(bool buildDefaultDrawing) : m_impl(std::make_unique<Impl>())
{
    m_impl->self = this;
    if (!buildDefaultDrawing) return;
    Impl& d = *m_impl;
    d.blockTable = addTable(*this, new KoDbBlockTable);
    d.layerTable = addTable(*this, new KoDbLayerTable);
    d.linetypeTable = addTable(*this, new KoDbLinetypeTable);
    d.styleTable = addTable(*this, new KoDbSymbolTable("STYLE"));
    d.dimstyleTable = addTable(*this, new KoDbSymbolTable("DIMSTYLE"));
    d.appidTable = addTable(*this, new KoDbSymbolTable("APPID"));
    d.vportTable = addTable(*this, new KoDbSymbolTable("VPORT"));
    d.viewTable = addTable(*this, new KoDbSymbolTable("VIEW"));
    d.ucsTable = addTable(*this, new KoDbSymbolTable("UCS"));

    addRecord(d.linetypeTable, new KoDbLinetypeTableRecord, KODB_LINETYPE_BYBLOCK);
    addRecord(d.linetypeTable, new KoDbLinetypeTableRecord, KODB_LINETYPE_BYLAYER);
    auto* continuous = new KoDbLinetypeTableRecord;
    continuous->setComments(L"Solid line");
    const KoDbObjectId continuousId = addRecord(d.linetypeTable, continuous, KODB_LINETYPE_CONTINUOUS);
    auto* zero = new KoDbLayerTableRecord;
    zero->setLinetypeObjectId(continuousId);
    d.clayer = addRecord(d.layerTable, zero, L"0");
    d.celtype = byLayerLinetype();
    addRecord(d.styleTable, new KoDbSymbolTableRecord, L"Standard",
              tags({{100, "AcDbTextStyleTableRecord"}, {40, "0.0"}, {41, "1.0"}, {50, "0.0"}, {71, "0"},
                    {42, "2.5"}, {3, "txt"}, {4, ""}}));
    addRecord(d.appidTable, new KoDbSymbolTableRecord, L"ACAD", tags({{100, "AcDbRegAppTableRecord"}}));
    addRecord(d.dimstyleTable, new KoDbSymbolTableRecord, L"Standard",
              tags({{100, "AcDbDimStyleTableRecord"}, {40, "1.0"}, {41, "2.5"}, {42, "0.625"}, {43, "3.75"},
                    {44, "1.25"}, {140, "2.5"}, {141, "2.5"}, {147, "0.625"}}));
    addRecord(d.vportTable, new KoDbSymbolTableRecord, L"*Active",
              tags({{100, "AcDbViewportTableRecord"}, {10, "0.0"}, {20, "0.0"}, {11, "1.0"}, {21, "1.0"},
                    {12, "0.0"}, {22, "0.0"}, {13, "0.0"}, {23, "0.0"}, {14, "0.5"}, {24, "0.5"}, {15, "0.5"},
                    {25, "0.5"}, {16, "0.0"}, {26, "0.0"}, {36, "1.0"}, {17, "0.0"}, {27, "0.0"}, {37, "0.0"},
                    {40, "1000.0"}, {41, "1.34"}, {42, "50.0"}, {43, "0.0"}, {44, "0.0"}, {50, "0.0"}, {51, "0.0"},
                    {71, "0"}, {72, "1000"}, {73, "1"}, {74, "3"}, {75, "0"}, {76, "0"}, {77, "0"}, {78, "0"}}));

    auto* nod = new KoDbDictionary;
    nod->setTreatElementsAsHard(true);
    KoDbAccess::add(*this, nod, nullptr, true);
    d.namedObjects = nod->objectId();
    KoDbObjectId id;
    auto* groups = new KoDbDictionary;
    nod->setAt(KODB_GROUP_DICTIONARY, groups, id);
    groups->close();
    auto* layouts = new KoDbDictionary;
    nod->setAt(KODB_LAYOUT_DICTIONARY, layouts, id);
    layouts->close();
    nod->close();

    auto* model = new KoDbBlockTableRecord;
    const KoDbObjectId modelId = addRecord(d.blockTable, model, KODB_MODEL_SPACE);
    auto* modelLayout = new KoDbLayout;
    modelLayout->setLayoutName(L"Model");
    modelLayout->setBlockTableRecordId(modelId);
    kodbOpenObject(layouts, layoutDictionaryId(), KoDb::kForWrite);
    layouts->setAt(L"Model", modelLayout, id);
    modelLayout->close();
    layouts->close();
    kodbOpenObject(model, modelId, KoDb::kForWrite);
    model->setLayoutId(id);
    model->close();
    KoDbObjectId blockId;
    createLayout(L"Layout1", id, blockId);
}

KoDbDatabase::~KoDbDatabase() = default;

void KoDbAccess::swap(KoDbDatabase& a, KoDbDatabase& b)
{
    std::swap(a.m_impl, b.m_impl);
    // Every slot names its database.
    for (KoDbDatabase* db : {&a, &b}) {
        db->m_impl->self = db;
        for (KoDbStub& s : db->m_impl->stubs) s.database = db;
    }
}

const KoString& KoDbDatabase::filename() const { return m_impl->filename; }

KoDbObjectId KoDbDatabase::blockTableId() const { return m_impl->blockTable; }
KoDbObjectId KoDbDatabase::layerTableId() const { return m_impl->layerTable; }
KoDbObjectId KoDbDatabase::linetypeTableId() const { return m_impl->linetypeTable; }
KoDbObjectId KoDbDatabase::textStyleTableId() const { return m_impl->styleTable; }
KoDbObjectId KoDbDatabase::dimStyleTableId() const { return m_impl->dimstyleTable; }
KoDbObjectId KoDbDatabase::regAppTableId() const { return m_impl->appidTable; }
KoDbObjectId KoDbDatabase::viewportTableId() const { return m_impl->vportTable; }
KoDbObjectId KoDbDatabase::viewTableId() const { return m_impl->viewTable; }
KoDbObjectId KoDbDatabase::UCSTableId() const { return m_impl->ucsTable; }

Kora::ErrorStatus KoDbDatabase::getBlockTable(KoDbBlockTable*& table, KoDb::OpenMode mode) const
{
    return kodbOpenObject(table, m_impl->blockTable, mode);
}

Kora::ErrorStatus KoDbDatabase::getLayerTable(KoDbLayerTable*& table, KoDb::OpenMode mode) const
{
    return kodbOpenObject(table, m_impl->layerTable, mode);
}

Kora::ErrorStatus KoDbDatabase::getLinetypeTable(KoDbLinetypeTable*& table, KoDb::OpenMode mode) const
{
    return kodbOpenObject(table, m_impl->linetypeTable, mode);
}

KoDbObjectId KoDbDatabase::namedObjectsDictionaryId() const { return m_impl->namedObjects; }

Kora::ErrorStatus KoDbDatabase::getNamedObjectsDictionary(KoDbDictionary*& dictionary, KoDb::OpenMode mode) const
{
    return kodbOpenObject(dictionary, m_impl->namedObjects, mode);
}

namespace {

KoDbObjectId recordOf(KoDbObjectId tableId, const wchar_t* name)
{
    KoDbObjectId id;
    if (const auto* table = kodbPeek<KoDbSymbolTable>(tableId)) table->getAt(name, id);
    return id;
}

}  // namespace

KoDbObjectId KoDbDatabase::layoutDictionaryId() const
{
    KoDbObjectId id;
    if (const auto* nod = kodbPeek<KoDbDictionary>(m_impl->namedObjects)) nod->getAt(KODB_LAYOUT_DICTIONARY, id);
    return id;
}

KoDbObjectId KoDbDatabase::modelSpaceId() const { return recordOf(m_impl->blockTable, KODB_MODEL_SPACE); }
KoDbObjectId KoDbDatabase::paperSpaceId() const { return recordOf(m_impl->blockTable, KODB_PAPER_SPACE); }
KoDbObjectId KoDbDatabase::layerZero() const { return recordOf(m_impl->layerTable, L"0"); }
KoDbObjectId KoDbDatabase::byLayerLinetype() const { return recordOf(m_impl->linetypeTable, KODB_LINETYPE_BYLAYER); }
KoDbObjectId KoDbDatabase::byBlockLinetype() const { return recordOf(m_impl->linetypeTable, KODB_LINETYPE_BYBLOCK); }
KoDbObjectId KoDbDatabase::continuousLinetype() const
{
    return recordOf(m_impl->linetypeTable, KODB_LINETYPE_CONTINUOUS);
}

Kora::ErrorStatus KoDbDatabase::createLayout(const KoString& name, KoDbObjectId& layoutId, KoDbObjectId& blockId)
{
    KoDbObjectPointer<KoDbDictionary> layouts(layoutDictionaryId(), KoDb::kForWrite);
    if (!layouts) return layouts.openStatus() == Kora::eNullObjectId ? Kora::eNoDatabase : layouts.openStatus();
    if (layouts->has(name)) return Kora::eDuplicateKey;
    KoDbObjectPointer<KoDbBlockTable> blocks(m_impl->blockTable, KoDb::kForWrite);
    if (!blocks) return blocks.openStatus();

    KoString blockName = KODB_PAPER_SPACE;
    for (int n = 0; blocks->has(blockName); ++n) blockName = KoString::format(L"%s%d", KODB_PAPER_SPACE, n);
    int tabOrder = 0;
    for (auto it = layouts->newIterator(); !it->done(); it->next())
        if (const auto* other = kodbPeek<KoDbLayout>(it->objectId()))
            tabOrder = std::max(tabOrder, other->getTabOrder() + 1);

    KoDbObjectPointer<KoDbBlockTableRecord> block;
    block.create();
    block->setName(blockName);
    if (const auto es = blocks->add(blockId, block.object()); es != Kora::eOk) return es;
    KoDbObjectPointer<KoDbLayout> layout;
    layout.create();
    layout->setLayoutName(name);
    layout->setTabOrder(tabOrder);
    layout->setBlockTableRecordId(blockId);
    if (const auto es = layouts->setAt(name, layout.object(), layoutId); es != Kora::eOk) return es;
    block->setLayoutId(layoutId);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbDatabase::getKoDbObjectId(KoDbObjectId& id, bool createIfNotFound, KoDbHandle handle)
{
    id = {};
    if (handle.isNull()) return Kora::eInvalidInput;
    if (KoDbStub* stub = m_impl->byHandle.find(handle.value())) {
        id = KoDbObjectId(stub);
        return Kora::eOk;
    }
    if (!createIfNotFound) return Kora::eKeyNotFound;
    id = KoDbObjectId(m_impl->newStub(handle.value()));
    return Kora::eOk;
}

Kora::ErrorStatus KoDbDatabase::addKoDbObject(KoDbObjectId& id, KoDbObject* object)
{
    const auto es = KoDbAccess::add(*this, object, nullptr, true);
    id = es == Kora::eOk ? object->objectId() : KoDbObjectId();
    return es;
}

int KoDbDatabase::openObjectCount() const { return m_impl->openCount; }
KoDbHandle KoDbDatabase::handseed() const { return KoDbHandle(m_impl->handseed); }

int KoDbDatabase::insunits() const { return m_impl->insunits; }
Kora::ErrorStatus KoDbDatabase::setInsunits(int units)
{
    if (units < 0 || units > 24) return Kora::eOutOfRange;
    m_impl->insunits = units;
    return Kora::eOk;
}

KoDbObjectId KoDbDatabase::clayer() const { return m_impl->clayer; }
Kora::ErrorStatus KoDbDatabase::setClayer(KoDbObjectId layer)
{
    if (!kodbPeek<KoDbLayerTableRecord>(layer) || layer.database() != this) return Kora::eInvalidInput;
    m_impl->clayer = layer;
    return Kora::eOk;
}

KoDbObjectId KoDbDatabase::celtype() const { return m_impl->celtype; }
Kora::ErrorStatus KoDbDatabase::setCeltype(KoDbObjectId linetype)
{
    if (!kodbPeek<KoDbLinetypeTableRecord>(linetype) || linetype.database() != this) return Kora::eInvalidInput;
    m_impl->celtype = linetype;
    return Kora::eOk;
}

KoCmColor KoDbDatabase::cecolor() const { return m_impl->cecolor; }
Kora::ErrorStatus KoDbDatabase::setCecolor(const KoCmColor& color)
{
    m_impl->cecolor = color;
    return Kora::eOk;
}

KoDb::LineWeight KoDbDatabase::celweight() const { return m_impl->celweight; }
Kora::ErrorStatus KoDbDatabase::setCelweight(KoDb::LineWeight weight)
{
    m_impl->celweight = weight;
    return Kora::eOk;
}

double KoDbDatabase::celtscale() const { return m_impl->celtscale; }
Kora::ErrorStatus KoDbDatabase::setCeltscale(double scale)
{
    if (!(scale > 0.0)) return Kora::eOutOfRange;
    m_impl->celtscale = scale;
    return Kora::eOk;
}

double KoDbDatabase::ltscale() const { return m_impl->ltscale; }
Kora::ErrorStatus KoDbDatabase::setLtscale(double scale)
{
    if (!(scale > 0.0)) return Kora::eOutOfRange;
    m_impl->ltscale = scale;
    return Kora::eOk;
}

int KoDbDatabase::measurement() const { return m_impl->measurement; }
Kora::ErrorStatus KoDbDatabase::setMeasurement(int value)
{
    if (value != 0 && value != 1) return Kora::eOutOfRange;
    m_impl->measurement = value;
    return Kora::eOk;
}

bool KoDbDatabase::tilemode() const { return m_impl->tilemode; }
Kora::ErrorStatus KoDbDatabase::setTilemode(bool modelSpace)
{
    m_impl->tilemode = modelSpace;
    return Kora::eOk;
}

KoGePoint3d KoDbDatabase::extmin() const { return m_impl->extmin; }
KoGePoint3d KoDbDatabase::extmax() const { return m_impl->extmax; }

Kora::ErrorStatus KoDbDatabase::updateExt()
{
    const auto* model = kodbPeek<KoDbBlockTableRecord>(modelSpaceId());
    if (!model) return Kora::eNotInDatabase;
    KoDbExtents all;
    for (KoDbObjectId id : model->entityIds()) {
        const auto* entity = kodbPeek<KoDbEntity>(id);
        KoDbExtents e;
        if (entity && !entity->isErased() && entity->getGeomExtents(e) == Kora::eOk) all.addExt(e);
    }
    if (all.isValid()) {
        m_impl->extmin = all.minPoint();
        m_impl->extmax = all.maxPoint();
    } else {
        m_impl->extmin = {1e20, 1e20, 1e20};
        m_impl->extmax = {-1e20, -1e20, -1e20};
    }
    return Kora::eOk;
}

const KoDbDxfTags* KoDbDatabase::headerVariable(const char* name) const
{
    for (const auto& [key, value] : m_impl->headerVars)
        if (key == name) return &value;
    return nullptr;
}
