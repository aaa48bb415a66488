// Symbol tables (named records): blocks, layers, linetypes, and the tables
// the database keeps without modelling their records (text styles,
// dimension styles, views, user coordinate systems, viewport
// configurations, registered applications).
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "kora/db/color.h"
#include "kora/db/geometry.h"
#include "kora/db/object.h"

class KoDbEntity;
class KoDbSymbolTableRecord;

class KORA_API KoDbSymbolTableRecord : public KoDbObject {
public:
    KORX_DECLARE_MEMBERS(KoDbSymbolTableRecord)
    KoDbSymbolTableRecord();
    ~KoDbSymbolTableRecord() override;

    const KoString& getName() const { return m_name; }
    Kora::ErrorStatus getName(KoString& name) const;
    Kora::ErrorStatus setName(const KoString& name);
    // Standard flags of the record (group 70) that no property models.
    int flags() const { return m_flags; }
    Kora::ErrorStatus setFlags(int flags);
    bool isDependent() const { return (m_flags & 16) != 0; }

private:
    KoString m_name;
    int m_flags = 0;
};

class KoDbSymbolTableIterator;

class KORA_API KoDbSymbolTable : public KoDbObject {
public:
    KORX_DECLARE_MEMBERS(KoDbSymbolTable)
    // `dxfName` is the table's name in files ("STYLE", "APPID", ...).
    explicit KoDbSymbolTable(const char* dxfName = "");
    ~KoDbSymbolTable() override;

    const std::string& dxfName() const { return m_dxfName; }

    // Looks a record up by name, without regard to case; erased records
    // only when getErasedRecord is true.
    Kora::ErrorStatus getAt(const KoString& name, KoDbObjectId& recordId, bool getErasedRecord = false) const;
    template <class T>
    Kora::ErrorStatus getAt(const KoString& name, T*& record, KoDb::OpenMode mode, bool openErased = false) const
    {
        record = nullptr;
        KoDbObjectId id;
        const Kora::ErrorStatus es = getAt(name, id, openErased);
        return es == Kora::eOk ? kodbOpenObject(record, id, mode, openErased) : es;
    }
    bool has(const KoString& name) const;
    bool has(KoDbObjectId id) const;
    // Adds a record; the table must be open for write and the record new
    // and named uniquely. The record is then open for write.
    Kora::ErrorStatus add(KoDbObjectId& recordId, KoDbSymbolTableRecord* record);
    Kora::ErrorStatus add(KoDbSymbolTableRecord* record);
    // Records in table order, live ones only.
    int numRecords() const;
    Kora::ErrorStatus newIterator(KoDbSymbolTableIterator*& iterator, bool atBeginning = true,
                                  bool skipDeleted = true) const;
    std::unique_ptr<KoDbSymbolTableIterator> newIterator(bool skipDeleted = true) const;

    // Internal: the record ids in table order, erased ones included.
    const KoDbObjectIdArray& recordIds() const { return m_records; }
    void recordRenamed();

protected:
    // Checks that a record may join this table.
    virtual bool acceptsRecord(const KoDbSymbolTableRecord* record) const;

private:
    friend struct KoDbAccess;
    void rebuildIndex() const;

    std::string m_dxfName;
    KoDbObjectIdArray m_records;
    mutable std::unordered_map<KoString, KoDbObjectId> m_index;  // upper-cased name
    mutable bool m_indexValid = false;
};

class KORA_API KoDbSymbolTableIterator {
public:
    KoDbSymbolTableIterator(const KoDbObjectIdArray& records, bool skipDeleted);
    virtual ~KoDbSymbolTableIterator();
    void start(bool atBeginning = true, bool skipDeleted = true);
    bool done() const;
    void step(bool forward = true, bool skipDeleted = true);
    Kora::ErrorStatus getRecordId(KoDbObjectId& id) const;
    template <class T = KoDbSymbolTableRecord>
    Kora::ErrorStatus getRecord(T*& record, KoDb::OpenMode mode = KoDb::kForRead, bool openErased = false) const
    {
        record = nullptr;
        KoDbObjectId id;
        const Kora::ErrorStatus es = getRecordId(id);
        return es == Kora::eOk ? kodbOpenObject(record, id, mode, openErased) : es;
    }

private:
    void skip(bool forward);

    KoDbObjectIdArray m_records;  // a snapshot: records added meanwhile are not visited
    long m_pos = 0;
    bool m_skipDeleted = true;
};

// ---- blocks -----------------------------------------------------------

class KoDbBlockTableRecordIterator;

class KORA_API KoDbBlockTableRecord : public KoDbSymbolTableRecord {
public:
    KORX_DECLARE_MEMBERS(KoDbBlockTableRecord)
    KoDbBlockTableRecord();
    ~KoDbBlockTableRecord() override;

    // Appends a new entity; the record must be open for write. The entity
    // joins the database open for write; the caller closes it.
    Kora::ErrorStatus appendKoDbEntity(KoDbObjectId& entityId, KoDbEntity* entity);
    Kora::ErrorStatus appendKoDbEntity(KoDbEntity* entity);
    Kora::ErrorStatus newIterator(KoDbBlockTableRecordIterator*& iterator, bool atBeginning = true,
                                  bool skipDeleted = true) const;
    std::unique_ptr<KoDbBlockTableRecordIterator> newIterator(bool skipDeleted = true) const;
    // Internal: entity ids in drawing order, erased ones included.
    const KoDbObjectIdArray& entityIds() const { return m_entities; }

    const KoGePoint3d& origin() const { return m_origin; }
    Kora::ErrorStatus setOrigin(const KoGePoint3d& origin);
    const KoString& comments() const { return m_comments; }
    Kora::ErrorStatus setComments(const KoString& comments);
    const KoString& pathName() const { return m_pathName; }
    Kora::ErrorStatus setPathName(const KoString& path);

    // A layout's block: model space or a paper space.
    bool isLayout() const { return !m_layoutId.isNull(); }
    KoDbObjectId getLayoutId() const { return m_layoutId; }
    Kora::ErrorStatus setLayoutId(KoDbObjectId layoutId);
    bool isAnonymous() const { return (flags() & 1) != 0; }
    bool hasAttributeDefinitions() const { return (flags() & 2) != 0; }
    bool isFromExternalReference() const { return (flags() & 4) != 0; }
    bool isFromOverlayReference() const { return (flags() & 8) != 0; }
    bool isUnloaded() const { return (flags() & 32) != 0; }
    KoDb::XrefStatus xrefStatus() const;

    // Units of the block's contents (an INSUNITS code).
    int blockInsertUnits() const { return m_insertUnits; }
    Kora::ErrorStatus setBlockInsertUnits(int units);
    bool explodable() const { return m_explodable; }
    Kora::ErrorStatus setExplodable(bool explodable);
    bool blockScaling() const { return m_uniformScaling; }
    Kora::ErrorStatus setBlockScaling(bool uniform);

    // Internal: the handles of the block's begin and end markers in files.
    KoDbHandle blockBeginHandle() const { return m_beginHandle; }
    KoDbHandle blockEndHandle() const { return m_endHandle; }
    void setMarkerHandles(KoDbHandle begin, KoDbHandle end) { m_beginHandle = begin; m_endHandle = end; }
    // Internal: adds an entity read from a file (no open state change).
    void attachEntity(KoDbObjectId entityId) { m_entities.push_back(entityId); }

private:
    KoDbObjectIdArray m_entities;
    KoGePoint3d m_origin;
    KoString m_comments;
    KoString m_pathName;
    KoDbObjectId m_layoutId;
    int m_insertUnits = 0;
    bool m_explodable = true;
    bool m_uniformScaling = false;
    KoDbHandle m_beginHandle, m_endHandle;
};

class KORA_API KoDbBlockTableRecordIterator {
public:
    KoDbBlockTableRecordIterator(const KoDbObjectIdArray& entities, bool skipDeleted);
    virtual ~KoDbBlockTableRecordIterator();
    void start(bool atBeginning = true, bool skipDeleted = true);
    bool done() const;
    void step(bool forward = true, bool skipDeleted = true);
    Kora::ErrorStatus getEntityId(KoDbObjectId& id) const;
    template <class T = KoDbEntity>
    Kora::ErrorStatus getEntity(T*& entity, KoDb::OpenMode mode = KoDb::kForRead, bool openErased = false) const
    {
        entity = nullptr;
        KoDbObjectId id;
        const Kora::ErrorStatus es = getEntityId(id);
        return es == Kora::eOk ? kodbOpenObject(entity, id, mode, openErased) : es;
    }

private:
    void skip(bool forward);

    KoDbObjectIdArray m_entities;
    long m_pos = 0;
    bool m_skipDeleted = true;
};

#define KODB_MODEL_SPACE L"*Model_Space"
#define KODB_PAPER_SPACE L"*Paper_Space"

class KORA_API KoDbBlockTable : public KoDbSymbolTable {
public:
    KORX_DECLARE_MEMBERS(KoDbBlockTable)
    KoDbBlockTable();

protected:
    bool acceptsRecord(const KoDbSymbolTableRecord* record) const override;
};

// ---- layers -----------------------------------------------------------

class KORA_API KoDbLayerTableRecord : public KoDbSymbolTableRecord {
public:
    KORX_DECLARE_MEMBERS(KoDbLayerTableRecord)
    KoDbLayerTableRecord();

    const KoCmColor& color() const { return m_color; }
    Kora::ErrorStatus setColor(const KoCmColor& color);
    KoDbObjectId linetypeObjectId() const { return m_linetype; }
    Kora::ErrorStatus setLinetypeObjectId(KoDbObjectId linetype);
    KoDb::LineWeight lineWeight() const { return m_lineWeight; }
    Kora::ErrorStatus setLineWeight(KoDb::LineWeight weight);
    bool isOff() const { return m_off; }
    Kora::ErrorStatus setIsOff(bool off);
    bool isFrozen() const { return (flags() & 1) != 0; }
    Kora::ErrorStatus setIsFrozen(bool frozen);
    bool isLocked() const { return (flags() & 4) != 0; }
    Kora::ErrorStatus setIsLocked(bool locked);
    bool isPlottable() const { return m_plottable; }
    Kora::ErrorStatus setIsPlottable(bool plottable);

private:
    KoCmColor m_color = KoCmColor::fromIndex(7);
    KoDbObjectId m_linetype;
    KoDb::LineWeight m_lineWeight = KoDb::kLnWtByLwDefault;
    bool m_off = false;
    bool m_plottable = true;
};

class KORA_API KoDbLayerTable : public KoDbSymbolTable {
public:
    KORX_DECLARE_MEMBERS(KoDbLayerTable)
    KoDbLayerTable();

protected:
    bool acceptsRecord(const KoDbSymbolTableRecord* record) const override;
};

// ---- linetypes --------------------------------------------------------

#define KODB_LINETYPE_BYLAYER L"ByLayer"
#define KODB_LINETYPE_BYBLOCK L"ByBlock"
#define KODB_LINETYPE_CONTINUOUS L"Continuous"

// One element of a dash pattern: a dash (positive length), a gap
// (negative) or a dot (zero), optionally carrying a shape or a text.
struct KoDbLinetypeDash {
    double length = 0.0;
    int complexType = 0;  // bit 2: text, bit 4: shape, bit 1: absolute rotation
    int shapeNumber = 0;
    KoDbHandle textStyle;
    double scale = 1.0;
    double rotation = 0.0;
    double offsetX = 0.0, offsetY = 0.0;
    KoString text;
    friend bool operator==(const KoDbLinetypeDash&, const KoDbLinetypeDash&) = default;
};

class KORA_API KoDbLinetypeTableRecord : public KoDbSymbolTableRecord {
public:
    KORX_DECLARE_MEMBERS(KoDbLinetypeTableRecord)
    KoDbLinetypeTableRecord();

    const KoString& comments() const { return m_comments; }
    Kora::ErrorStatus setComments(const KoString& comments);
    int numDashes() const { return static_cast<int>(m_dashes.size()); }
    const std::vector<KoDbLinetypeDash>& dashes() const { return m_dashes; }
    Kora::ErrorStatus setDashes(std::vector<KoDbLinetypeDash> dashes);
    double dashLengthAt(int index) const;
    // The pattern's length: as set, else the sum of the absolute dash lengths.
    double patternLength() const;
    Kora::ErrorStatus setPatternLength(double length);

private:
    KoString m_comments;
    std::vector<KoDbLinetypeDash> m_dashes;
    double m_patternLength = -1.0;
};

class KORA_API KoDbLinetypeTable : public KoDbSymbolTable {
public:
    KORX_DECLARE_MEMBERS(KoDbLinetypeTable)
    KoDbLinetypeTable();

protected:
    bool acceptsRecord(const KoDbSymbolTableRecord* record) const override;
};
