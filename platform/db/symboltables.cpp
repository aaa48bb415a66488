#include "kora/db/symboltables.h"

#include <cmath>

#include "dbimpl.h"
#include "kora/db/entities.h"

// ---- records ------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbSymbolTableRecord, KoDbObject)

KoDbSymbolTableRecord::KoDbSymbolTableRecord() = default;
KoDbSymbolTableRecord::~KoDbSymbolTableRecord() = default;

Kora::ErrorStatus KoDbSymbolTableRecord::getName(KoString& name) const
{
    name = m_name;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbSymbolTableRecord::setName(const KoString& name)
{
    KODB_WRITE_GUARD();
    if (name.isEmpty()) return Kora::eInvalidInput;
    if (auto* table = kodbPeek<KoDbSymbolTable>(ownerId())) {
        KoDbObjectId other;
        if (table->getAt(name, other) == Kora::eOk && other != objectId()) return Kora::eDuplicateKey;
        m_name = name;
        table->recordRenamed();
    } else {
        m_name = name;
    }
    return Kora::eOk;
}

Kora::ErrorStatus KoDbSymbolTableRecord::setFlags(int flags)
{
    KODB_WRITE_GUARD();
    m_flags = flags;
    return Kora::eOk;
}

// ---- tables -------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbSymbolTable, KoDbObject)

KoDbSymbolTable::KoDbSymbolTable(const char* dxfName) : m_dxfName(dxfName) {}
KoDbSymbolTable::~KoDbSymbolTable() = default;

void KoDbSymbolTable::recordRenamed() { m_indexValid = false; }

void KoDbSymbolTable::rebuildIndex() const
{
    m_index.clear();
    for (KoDbObjectId id : m_records) {
        const auto* record = kodbPeek<KoDbSymbolTableRecord>(id);
        if (!record) continue;
        // A live record wins over erased ones of the same name.
        auto [it, inserted] = m_index.emplace(record->getName().upper(), id);
        if (!inserted && it->second.isErased() && !record->isErased()) it->second = id;
    }
    m_indexValid = true;
}

Kora::ErrorStatus KoDbSymbolTable::getAt(const KoString& name, KoDbObjectId& recordId, bool getErasedRecord) const
{
    recordId = {};
    if (!m_indexValid) rebuildIndex();
    const auto it = m_index.find(name.upper());
    if (it == m_index.end()) return Kora::eKeyNotFound;
    if (it->second.isErased() && !getErasedRecord) return Kora::eKeyNotFound;
    recordId = it->second;
    return Kora::eOk;
}

bool KoDbSymbolTable::has(const KoString& name) const
{
    KoDbObjectId id;
    return getAt(name, id) == Kora::eOk;
}

bool KoDbSymbolTable::has(KoDbObjectId id) const
{
    return !id.isErased() && std::find(m_records.begin(), m_records.end(), id) != m_records.end();
}

bool KoDbSymbolTable::acceptsRecord(const KoDbSymbolTableRecord* record) const
{
    // Generic tables take plain records only; typed tables say what they hold.
    return record->isA() == KoDbSymbolTableRecord::desc();
}

Kora::ErrorStatus KoDbSymbolTable::add(KoDbObjectId& recordId, KoDbSymbolTableRecord* record)
{
    recordId = {};
    KODB_WRITE_GUARD();
    if (!record) return Kora::eNullObjectPointer;
    if (!database()) return Kora::eNoDatabase;
    if (!record->isNewObject()) return Kora::eAlreadyInDb;
    if (!acceptsRecord(record)) return Kora::eNotThatKindOfClass;
    if (record->getName().isEmpty()) return Kora::eInvalidInput;
    if (has(record->getName())) return Kora::eDuplicateKey;
    if (const auto es = KoDbAccess::add(*database(), record, KoDbAccess::stub(this), true); es != Kora::eOk) return es;
    m_records.push_back(record->objectId());
    m_indexValid = false;
    recordId = record->objectId();
    return Kora::eOk;
}

Kora::ErrorStatus KoDbSymbolTable::add(KoDbSymbolTableRecord* record)
{
    KoDbObjectId id;
    return add(id, record);
}

int KoDbSymbolTable::numRecords() const
{
    int n = 0;
    for (KoDbObjectId id : m_records)
        if (id.isValid()) ++n;
    return n;
}

Kora::ErrorStatus KoDbSymbolTable::newIterator(KoDbSymbolTableIterator*& iterator, bool atBeginning,
                                               bool skipDeleted) const
{
    iterator = new KoDbSymbolTableIterator(m_records, skipDeleted);
    iterator->start(atBeginning, skipDeleted);
    return Kora::eOk;
}

std::unique_ptr<KoDbSymbolTableIterator> KoDbSymbolTable::newIterator(bool skipDeleted) const
{
    return std::make_unique<KoDbSymbolTableIterator>(m_records, skipDeleted);
}

// Both iterators walk a snapshot of ids; they differ only in what they open.
template <class Ids>
static void skipPositions(const Ids& ids, long& pos, bool forward, bool skipDeleted)
{
    const long n = static_cast<long>(ids.size());
    while (pos >= 0 && pos < n && (!ids[pos].stub()->object || (skipDeleted && ids[pos].isErased())))
        pos += forward ? 1 : -1;
}

KoDbSymbolTableIterator::KoDbSymbolTableIterator(const KoDbObjectIdArray& records, bool skipDeleted)
    : m_records(records), m_skipDeleted(skipDeleted)
{
    start(true, skipDeleted);
}

KoDbSymbolTableIterator::~KoDbSymbolTableIterator() = default;

void KoDbSymbolTableIterator::start(bool atBeginning, bool skipDeleted)
{
    m_skipDeleted = skipDeleted;
    m_pos = atBeginning ? 0 : static_cast<long>(m_records.size()) - 1;
    skip(atBeginning);
}

bool KoDbSymbolTableIterator::done() const { return m_pos < 0 || m_pos >= static_cast<long>(m_records.size()); }

void KoDbSymbolTableIterator::step(bool forward, bool skipDeleted)
{
    m_skipDeleted = skipDeleted;
    m_pos += forward ? 1 : -1;
    skip(forward);
}

void KoDbSymbolTableIterator::skip(bool forward) { skipPositions(m_records, m_pos, forward, m_skipDeleted); }

Kora::ErrorStatus KoDbSymbolTableIterator::getRecordId(KoDbObjectId& id) const
{
    if (done()) return Kora::eInvalidIndex;
    id = m_records[m_pos];
    return Kora::eOk;
}

// ---- blocks -------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbBlockTableRecord, KoDbSymbolTableRecord)

KoDbBlockTableRecord::KoDbBlockTableRecord() = default;
KoDbBlockTableRecord::~KoDbBlockTableRecord() = default;

Kora::ErrorStatus KoDbBlockTableRecord::appendKoDbEntity(KoDbObjectId& entityId, KoDbEntity* entity)
{
    entityId = {};
    KODB_WRITE_GUARD();
    if (!entity) return Kora::eNullObjectPointer;
    KoDbDatabase* db = database();
    if (!db) return Kora::eNoDatabase;
    if (!entity->isNewObject()) return Kora::eAlreadyInDb;
    // An entity nobody gave properties takes the drawing's current ones.
    if (entity->layerId().isNull()) entity->setDatabaseDefaults(db);
    if (entity->layerId().database() != db) return Kora::eWrongDatabase;
    if (const auto es = KoDbAccess::add(*db, entity, KoDbAccess::stub(this), true); es != Kora::eOk) return es;
    m_entities.push_back(entity->objectId());
    KoDbAccess::appended(entity);
    entityId = entity->objectId();
    return Kora::eOk;
}

Kora::ErrorStatus KoDbBlockTableRecord::appendKoDbEntity(KoDbEntity* entity)
{
    KoDbObjectId id;
    return appendKoDbEntity(id, entity);
}

Kora::ErrorStatus KoDbBlockTableRecord::newIterator(KoDbBlockTableRecordIterator*& iterator, bool atBeginning,
                                                    bool skipDeleted) const
{
    iterator = new KoDbBlockTableRecordIterator(m_entities, skipDeleted);
    iterator->start(atBeginning, skipDeleted);
    return Kora::eOk;
}

std::unique_ptr<KoDbBlockTableRecordIterator> KoDbBlockTableRecord::newIterator(bool skipDeleted) const
{
    return std::make_unique<KoDbBlockTableRecordIterator>(m_entities, skipDeleted);
}

Kora::ErrorStatus KoDbBlockTableRecord::setOrigin(const KoGePoint3d& origin)
{
    KODB_WRITE_GUARD();
    m_origin = origin;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbBlockTableRecord::setComments(const KoString& comments)
{
    KODB_WRITE_GUARD();
    m_comments = comments;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbBlockTableRecord::setPathName(const KoString& path)
{
    KODB_WRITE_GUARD();
    m_pathName = path;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbBlockTableRecord::setLayoutId(KoDbObjectId layoutId)
{
    KODB_WRITE_GUARD();
    m_layoutId = layoutId;
    return Kora::eOk;
}

KoDb::XrefStatus KoDbBlockTableRecord::xrefStatus() const
{
    if (!isFromExternalReference()) return KoDb::kXrfNotAnXref;
    if (isUnloaded()) return KoDb::kXrfUnloaded;
    // Bit 64 of the flags: the reference was resolved when the file was saved.
    return (flags() & 64) ? KoDb::kXrfResolved : KoDb::kXrfUnresolved;
}

Kora::ErrorStatus KoDbBlockTableRecord::setBlockInsertUnits(int units)
{
    KODB_WRITE_GUARD();
    if (units < 0 || units > 24) return Kora::eOutOfRange;
    m_insertUnits = units;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbBlockTableRecord::setExplodable(bool explodable)
{
    KODB_WRITE_GUARD();
    m_explodable = explodable;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbBlockTableRecord::setBlockScaling(bool uniform)
{
    KODB_WRITE_GUARD();
    m_uniformScaling = uniform;
    return Kora::eOk;
}

KoDbBlockTableRecordIterator::KoDbBlockTableRecordIterator(const KoDbObjectIdArray& entities, bool skipDeleted)
    : m_entities(entities), m_skipDeleted(skipDeleted)
{
    start(true, skipDeleted);
}

KoDbBlockTableRecordIterator::~KoDbBlockTableRecordIterator() = default;

void KoDbBlockTableRecordIterator::start(bool atBeginning, bool skipDeleted)
{
    m_skipDeleted = skipDeleted;
    m_pos = atBeginning ? 0 : static_cast<long>(m_entities.size()) - 1;
    skip(atBeginning);
}

bool KoDbBlockTableRecordIterator::done() const { return m_pos < 0 || m_pos >= static_cast<long>(m_entities.size()); }

void KoDbBlockTableRecordIterator::step(bool forward, bool skipDeleted)
{
    m_skipDeleted = skipDeleted;
    m_pos += forward ? 1 : -1;
    skip(forward);
}

void KoDbBlockTableRecordIterator::skip(bool forward) { skipPositions(m_entities, m_pos, forward, m_skipDeleted); }

Kora::ErrorStatus KoDbBlockTableRecordIterator::getEntityId(KoDbObjectId& id) const
{
    if (done()) return Kora::eInvalidIndex;
    id = m_entities[m_pos];
    return Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDbBlockTable, KoDbSymbolTable)
KoDbBlockTable::KoDbBlockTable() : KoDbSymbolTable("BLOCK_RECORD") {}
bool KoDbBlockTable::acceptsRecord(const KoDbSymbolTableRecord* r) const { return KoDbBlockTableRecord::cast(r); }

// ---- layers -------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbLayerTableRecord, KoDbSymbolTableRecord)
KoDbLayerTableRecord::KoDbLayerTableRecord() = default;

Kora::ErrorStatus KoDbLayerTableRecord::setColor(const KoCmColor& color)
{
    KODB_WRITE_GUARD();
    if (color.isByLayer() || color.isByBlock()) return Kora::eInvalidInput;
    m_color = color;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbLayerTableRecord::setLinetypeObjectId(KoDbObjectId linetype)
{
    KODB_WRITE_GUARD();
    m_linetype = linetype;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbLayerTableRecord::setLineWeight(KoDb::LineWeight weight)
{
    KODB_WRITE_GUARD();
    m_lineWeight = weight;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbLayerTableRecord::setIsOff(bool off)
{
    KODB_WRITE_GUARD();
    m_off = off;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbLayerTableRecord::setIsFrozen(bool frozen)
{
    return setFlags(frozen ? flags() | 1 : flags() & ~1);
}

Kora::ErrorStatus KoDbLayerTableRecord::setIsLocked(bool locked)
{
    return setFlags(locked ? flags() | 4 : flags() & ~4);
}

Kora::ErrorStatus KoDbLayerTableRecord::setIsPlottable(bool plottable)
{
    KODB_WRITE_GUARD();
    m_plottable = plottable;
    return Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDbLayerTable, KoDbSymbolTable)
KoDbLayerTable::KoDbLayerTable() : KoDbSymbolTable("LAYER") {}
bool KoDbLayerTable::acceptsRecord(const KoDbSymbolTableRecord* r) const { return KoDbLayerTableRecord::cast(r); }

// ---- linetypes ------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbLinetypeTableRecord, KoDbSymbolTableRecord)
KoDbLinetypeTableRecord::KoDbLinetypeTableRecord() = default;

Kora::ErrorStatus KoDbLinetypeTableRecord::setComments(const KoString& comments)
{
    KODB_WRITE_GUARD();
    m_comments = comments;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbLinetypeTableRecord::setDashes(std::vector<KoDbLinetypeDash> dashes)
{
    KODB_WRITE_GUARD();
    m_dashes = std::move(dashes);
    return Kora::eOk;
}

double KoDbLinetypeTableRecord::dashLengthAt(int index) const
{
    return index >= 0 && index < numDashes() ? m_dashes[static_cast<size_t>(index)].length : 0.0;
}

Kora::ErrorStatus KoDbLinetypeTableRecord::setPatternLength(double length)
{
    KODB_WRITE_GUARD();
    if (length < 0.0) return Kora::eInvalidInput;
    m_patternLength = length;
    return Kora::eOk;
}

double KoDbLinetypeTableRecord::patternLength() const
{
    if (m_patternLength >= 0.0) return m_patternLength;
    double sum = 0.0;
    for (const auto& d : m_dashes) sum += std::fabs(d.length);
    return sum;
}

KORX_DEFINE_MEMBERS(KoDbLinetypeTable, KoDbSymbolTable)
KoDbLinetypeTable::KoDbLinetypeTable() : KoDbSymbolTable("LTYPE") {}
bool KoDbLinetypeTable::acceptsRecord(const KoDbSymbolTableRecord* r) const { return KoDbLinetypeTableRecord::cast(r); }
