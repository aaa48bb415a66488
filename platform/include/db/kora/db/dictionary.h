// Dictionaries (named entries of objects), layouts, and the objects the
// database keeps without modelling them.
#pragma once

#include <memory>
#include <vector>

#include "kora/db/geometry.h"
#include "kora/db/object.h"

class KoDbDictionaryIterator;

class KORA_API KoDbDictionary : public KoDbObject {
public:
    KORX_DECLARE_MEMBERS(KoDbDictionary)
    KoDbDictionary();
    ~KoDbDictionary() override;

    // Keys compare without regard to case. Erased entries are not found.
    Kora::ErrorStatus getAt(const KoString& key, KoDbObjectId& id) const;
    template <class T>
    Kora::ErrorStatus getAt(const KoString& key, T*& object, KoDb::OpenMode mode) const
    {
        object = nullptr;
        KoDbObjectId id;
        const Kora::ErrorStatus es = getAt(key, id);
        return es == Kora::eOk ? kodbOpenObject(object, id, mode) : es;
    }
    bool has(const KoString& key) const;
    bool has(KoDbObjectId id) const;
    Kora::ErrorStatus nameAt(KoDbObjectId id, KoString& key) const;
    // Live entries.
    int numEntries() const;

    // Stores a new object under `key` (the dictionary must be open for
    // write); the object joins the database, owned by this dictionary and
    // open for write. An existing live entry of that key is erased. Storing
    // an object already in this database re-keys it instead.
    Kora::ErrorStatus setAt(const KoString& key, KoDbObject* object, KoDbObjectId& id);
    // Removes the entry (the object stays, without owner).
    Kora::ErrorStatus remove(const KoString& key);
    Kora::ErrorStatus remove(const KoString& key, KoDbObjectId& removedId);
    Kora::ErrorStatus setName(const KoString& oldKey, const KoString& newKey);

    // Entries in order of their keys; erased objects are skipped.
    std::unique_ptr<KoDbDictionaryIterator> newIterator() const;

    // Owned entries are erased with the dictionary (group 281 in files).
    bool isTreatElementsAsHard() const { return m_hardOwner; }
    void setTreatElementsAsHard(bool hard) { m_hardOwner = hard; }
    int mergeStyle() const { return m_mergeStyle; }
    void setMergeStyle(int style) { m_mergeStyle = style; }

    struct Entry {
        KoString key;
        KoDbObjectId id;
    };
    // Internal: every entry in file order, erased objects included.
    const std::vector<Entry>& entries() const { return m_entries; }
    // Internal: adds an entry read from a file.
    void attachEntry(const KoString& key, KoDbObjectId id) { m_entries.push_back({key, id}); }

protected:
    Kora::ErrorStatus subErase(bool erasing) override;

private:
    friend struct KoDbAccess;
    int find(const KoString& key) const;

    std::vector<Entry> m_entries;
    bool m_hardOwner = false;
    int m_mergeStyle = 1;
};

class KORA_API KoDbDictionaryIterator {
public:
    explicit KoDbDictionaryIterator(std::vector<KoDbDictionary::Entry> entries);
    bool done() const { return m_pos >= m_entries.size(); }
    bool next();
    const KoString& name() const;
    KoDbObjectId objectId() const;
    template <class T = KoDbObject>
    Kora::ErrorStatus getObject(T*& object, KoDb::OpenMode mode = KoDb::kForRead) const
    {
        return kodbOpenObject(object, objectId(), mode);
    }

private:
    void skipErased();

    std::vector<KoDbDictionary::Entry> m_entries;
    size_t m_pos = 0;
};

#define KODB_LAYOUT_DICTIONARY L"ACAD_LAYOUT"
#define KODB_GROUP_DICTIONARY L"ACAD_GROUP"

// A layout: model space or one sheet of paper space. Its plot settings are
// kept as read (or as defaults) and written back.
class KORA_API KoDbLayout : public KoDbObject {
public:
    KORX_DECLARE_MEMBERS(KoDbLayout)
    KoDbLayout();

    const KoString& getLayoutName() const { return m_name; }
    Kora::ErrorStatus getLayoutName(KoString& name) const;
    Kora::ErrorStatus setLayoutName(const KoString& name);
    int getTabOrder() const { return m_tabOrder; }
    Kora::ErrorStatus setTabOrder(int order);
    KoDbObjectId getBlockTableRecordId() const { return m_block; }
    Kora::ErrorStatus setBlockTableRecordId(KoDbObjectId block);
    bool modelType() const;
    // The live viewport entities of the layout's block, in drawing order.
    // A sheet that was never set up has none.
    KoDbObjectIdArray getViewportArray() const;

    const KoGePoint2d& limitsMin() const { return m_limMin; }
    const KoGePoint2d& limitsMax() const { return m_limMax; }
    Kora::ErrorStatus setLimits(const KoGePoint2d& minPoint, const KoGePoint2d& maxPoint);

    // Plot settings (the file's AcDbPlotSettings groups), as tags.
    const KoDbDxfTags& plotSettings() const { return m_plotSettings; }
    void setPlotSettings(KoDbDxfTags tags) { m_plotSettings = std::move(tags); }

private:
    KoString m_name;
    int m_tabOrder = 0;
    KoDbObjectId m_block;
    KoGePoint2d m_limMin {0.0, 0.0};
    KoGePoint2d m_limMax {420.0, 297.0};
    KoDbDxfTags m_plotSettings;
};

// An object of a class the database does not model, kept whole: its DXF
// name and every tag after the common ones (handle, owner, reactors).
class KORA_API KoDbUnknownObject : public KoDbObject {
public:
    KORX_DECLARE_MEMBERS(KoDbUnknownObject)
    explicit KoDbUnknownObject(std::string dxfName = {});
    const std::string& dxfName() const { return m_dxfName; }

private:
    std::string m_dxfName;
};
