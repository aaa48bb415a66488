#include "kora/db/dictionary.h"

#include <algorithm>

#include "dbimpl.h"
#include "kora/db/entities.h"
#include "kora/db/symboltables.h"

KORX_DEFINE_MEMBERS(KoDbDictionary, KoDbObject)

KoDbDictionary::KoDbDictionary() = default;
KoDbDictionary::~KoDbDictionary() = default;

int KoDbDictionary::find(const KoString& key) const
{
    for (size_t i = 0; i < m_entries.size(); ++i)
        if (!m_entries[i].id.isErased() && m_entries[i].key.equalsNoCase(key)) return static_cast<int>(i);
    return -1;
}

Kora::ErrorStatus KoDbDictionary::getAt(const KoString& key, KoDbObjectId& id) const
{
    const int i = find(key);
    id = i < 0 ? KoDbObjectId() : m_entries[static_cast<size_t>(i)].id;
    return i < 0 ? Kora::eKeyNotFound : Kora::eOk;
}

bool KoDbDictionary::has(const KoString& key) const { return find(key) >= 0; }

bool KoDbDictionary::has(KoDbObjectId id) const
{
    return !id.isErased() &&
           std::any_of(m_entries.begin(), m_entries.end(), [&](const Entry& e) { return e.id == id; });
}

Kora::ErrorStatus KoDbDictionary::nameAt(KoDbObjectId id, KoString& key) const
{
    for (const Entry& e : m_entries)
        if (e.id == id && !id.isErased()) {
            key = e.key;
            return Kora::eOk;
        }
    return Kora::eKeyNotFound;
}

int KoDbDictionary::numEntries() const
{
    return static_cast<int>(std::count_if(m_entries.begin(), m_entries.end(), [](const Entry& e) { return e.id.isValid(); }));
}

Kora::ErrorStatus KoDbDictionary::setAt(const KoString& key, KoDbObject* object, KoDbObjectId& id)
{
    id = {};
    KODB_WRITE_GUARD();
    if (!object) return Kora::eNullObjectPointer;
    if (key.isEmpty()) return Kora::eInvalidInput;
    KoDbDatabase* db = database();
    if (!db) return Kora::eNoDatabase;
    if (!object->isNewObject() && object->database() != db) return Kora::eWrongDatabase;

    const int existing = find(key);
    if (existing >= 0 && m_entries[static_cast<size_t>(existing)].id == object->objectId()) {
        id = object->objectId();
        return Kora::eOk;
    }
    if (existing >= 0) {
        KoDbObject* old = m_entries[static_cast<size_t>(existing)].id.stub()->object;
        if (old && old->isReadEnabled()) return Kora::eWasOpenForRead;
        if (old) KoDbAccess::setErased(old, true);
        m_entries.erase(m_entries.begin() + existing);
    }
    if (object->isNewObject()) {
        if (const auto es = KoDbAccess::add(*db, object, KoDbAccess::stub(this), true); es != Kora::eOk) return es;
    } else {
        // An object already in the drawing is moved under this key.
        std::erase_if(m_entries, [&](const Entry& e) { return e.id == object->objectId(); });
        KoDbAccess::setOwnerStub(object, KoDbAccess::stub(this));
    }
    m_entries.push_back({key, object->objectId()});
    id = object->objectId();
    return Kora::eOk;
}

Kora::ErrorStatus KoDbDictionary::remove(const KoString& key)
{
    KoDbObjectId id;
    return remove(key, id);
}

Kora::ErrorStatus KoDbDictionary::remove(const KoString& key, KoDbObjectId& removedId)
{
    removedId = {};
    KODB_WRITE_GUARD();
    const int i = find(key);
    if (i < 0) return Kora::eKeyNotFound;
    removedId = m_entries[static_cast<size_t>(i)].id;
    if (KoDbObject* o = removedId.stub()->object; o && KoDbAccess::ownerStub(o) == KoDbAccess::stub(this))
        KoDbAccess::setOwnerStub(o, nullptr);
    m_entries.erase(m_entries.begin() + i);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbDictionary::setName(const KoString& oldKey, const KoString& newKey)
{
    KODB_WRITE_GUARD();
    if (newKey.isEmpty()) return Kora::eInvalidInput;
    const int i = find(oldKey);
    if (i < 0) return Kora::eKeyNotFound;
    const int clash = find(newKey);
    if (clash >= 0 && clash != i) return Kora::eDuplicateKey;
    m_entries[static_cast<size_t>(i)].key = newKey;
    return Kora::eOk;
}

std::unique_ptr<KoDbDictionaryIterator> KoDbDictionary::newIterator() const
{
    std::vector<Entry> sorted = m_entries;
    std::stable_sort(sorted.begin(), sorted.end(), [](const Entry& a, const Entry& b) { return a.key < b.key; });
    return std::make_unique<KoDbDictionaryIterator>(std::move(sorted));
}

Kora::ErrorStatus KoDbDictionary::subErase(bool erasing)
{
    if (!m_hardOwner) return Kora::eOk;
    // Hard-owned entries go and come back with their dictionary.
    for (const Entry& e : m_entries) {
        KoDbObject* o = e.id.stub()->object;
        if (o && KoDbAccess::ownerStub(o) == KoDbAccess::stub(this) && !o->isReadEnabled())
            KoDbAccess::setErased(o, erasing);
    }
    return Kora::eOk;
}

KoDbDictionaryIterator::KoDbDictionaryIterator(std::vector<KoDbDictionary::Entry> entries) : m_entries(std::move(entries))
{
    skipErased();
}

void KoDbDictionaryIterator::skipErased()
{
    while (m_pos < m_entries.size() && !m_entries[m_pos].id.isValid()) ++m_pos;
}

bool KoDbDictionaryIterator::next()
{
    if (done()) return false;
    ++m_pos;
    skipErased();
    return !done();
}

const KoString& KoDbDictionaryIterator::name() const
{
    static const KoString none;
    return done() ? none : m_entries[m_pos].key;
}

KoDbObjectId KoDbDictionaryIterator::objectId() const { return done() ? KoDbObjectId() : m_entries[m_pos].id; }

// ---- layouts --------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbLayout, KoDbObject)

// Plot settings of a sheet nobody has set up: no device, A3 landscape in mm.
KoDbLayout::KoDbLayout()
    : m_plotSettings {
          {1, ""},      {2, "none_device"}, {4, "ISO_A3_(420.00_x_297.00_MM)"}, {6, ""},     {40, "7.5"},
          {41, "20.0"}, {42, "7.5"},        {43, "20.0"},  {44, "420.0"},  {45, "297.0"}, {46, "0.0"},
          {47, "0.0"},  {48, "0.0"},        {49, "0.0"},   {140, "0.0"},   {141, "0.0"},  {142, "1.0"},
          {143, "1.0"}, {70, "688"},        {72, "1"},     {73, "0"},      {74, "5"},     {7, ""},
          {75, "16"},   {76, "0"},          {77, "2"},     {78, "300"},    {147, "1.0"},  {148, "0.0"},
          {149, "0.0"}}
{
}

Kora::ErrorStatus KoDbLayout::getLayoutName(KoString& name) const
{
    name = m_name;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbLayout::setLayoutName(const KoString& name)
{
    KODB_WRITE_GUARD();
    if (name.isEmpty()) return Kora::eInvalidInput;
    m_name = name;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbLayout::setTabOrder(int order)
{
    KODB_WRITE_GUARD();
    m_tabOrder = order;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbLayout::setBlockTableRecordId(KoDbObjectId block)
{
    KODB_WRITE_GUARD();
    m_block = block;
    return Kora::eOk;
}

bool KoDbLayout::modelType() const
{
    const auto* block = kodbPeek<KoDbBlockTableRecord>(m_block);
    return block && block->getName().equalsNoCase(KODB_MODEL_SPACE);
}

KoDbObjectIdArray KoDbLayout::getViewportArray() const
{
    KoDbObjectIdArray out;
    if (const auto* block = kodbPeek<KoDbBlockTableRecord>(m_block))
        for (KoDbObjectId id : block->entityIds())
            if (id.isValid() && kodbPeek<KoDbViewport>(id)) out.push_back(id);
    return out;
}

Kora::ErrorStatus KoDbLayout::setLimits(const KoGePoint2d& minPoint, const KoGePoint2d& maxPoint)
{
    KODB_WRITE_GUARD();
    m_limMin = minPoint;
    m_limMax = maxPoint;
    return Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDbUnknownObject, KoDbObject)
KoDbUnknownObject::KoDbUnknownObject(std::string dxfName) : m_dxfName(std::move(dxfName)) {}
