// Internals of the drawing database shared by its sources and the DXF
// reader and writer. Not part of the SDK.
#pragma once

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "kora/db/database.h"
#include "kora/db/dictionary.h"
#include "kora/db/entities.h"
#include "kora/db/symboltables.h"

// First line of every setter: objects change only while open for write
// (or before they join a database).
#define KODB_WRITE_GUARD() \
    if (const auto es_ = assertWriteEnabled(); es_ != Kora::eOk) return es_

// The permanent slot of one object: ids point here, so an id outlives its
// object being erased and can be made before the object is read.
struct KoDbStub {
    KoDbDatabase* database = nullptr;
    KoDbObject* object = nullptr;
    uint64_t handle = 0;
};

// Handle to slot, open addressing in one array: growing it moves pairs
// instead of allocating a node per handle, and dropping it is one free.
// Handle 0 never names an object and marks a free slot.
class KoDbHandleTable {
public:
    KoDbStub* find(uint64_t handle) const
    {
        if (m_slots.empty()) return nullptr;
        for (size_t i = indexOf(handle);; i = (i + 1) & (m_slots.size() - 1)) {
            const Slot& s = m_slots[i];
            if (s.handle == handle) return s.stub;
            if (s.handle == 0) return nullptr;
        }
    }
    // Adds the pair unless the handle is there already.
    void insert(uint64_t handle, KoDbStub* stub)
    {
        if ((m_size + 1) * 4 > m_slots.size() * 3) grow();
        for (size_t i = indexOf(handle);; i = (i + 1) & (m_slots.size() - 1)) {
            Slot& s = m_slots[i];
            if (s.handle == handle) return;
            if (s.handle == 0) {
                s = {handle, stub};
                ++m_size;
                return;
            }
        }
    }

private:
    struct Slot {
        uint64_t handle = 0;
        KoDbStub* stub = nullptr;
    };
    // Handles mostly come in runs; the multiply spreads them over the table.
    size_t indexOf(uint64_t handle) const
    {
        const uint64_t h = handle * 0x9E3779B97F4A7C15ull;
        return static_cast<size_t>(h ^ (h >> 32)) & (m_slots.size() - 1);
    }
    void grow()
    {
        std::vector<Slot> old(m_slots.empty() ? 64 : m_slots.size() * 2);
        old.swap(m_slots);
        m_size = 0;
        for (const Slot& s : old)
            if (s.handle != 0) insert(s.handle, s.stub);
    }

    std::vector<Slot> m_slots;  // a power of two long
    size_t m_size = 0;
};

struct KoDbObject::Extra {
    std::vector<KoDbStub*> reactors;
    KoDbStub* extensionDictionary = nullptr;
    KoDbDxfTags xdata;
    KoDbDxfTags preserved;
};

struct KORA_API KoDbDatabase::Impl {
    KoDbDatabase* self = nullptr;
    std::deque<KoDbStub> stubs;
    KoDbHandleTable byHandle;
    uint64_t handseed = 1;
    int openCount = 0;

    KoDbObjectId blockTable, layerTable, linetypeTable, styleTable, dimstyleTable, appidTable, vportTable, viewTable,
        ucsTable, namedObjects;

    int insunits = 0;
    int measurement = 1;
    bool tilemode = true;
    KoDbObjectId clayer, celtype;
    KoCmColor cecolor;
    KoDb::LineWeight celweight = KoDb::kLnWtByLayer;
    double celtscale = 1.0, ltscale = 1.0;
    KoGePoint3d extmin {1e20, 1e20, 1e20}, extmax {-1e20, -1e20, -1e20};

    // Header variables without a property, in file order.
    std::vector<std::pair<std::string, KoDbDxfTags>> headerVars;
    // The CLASSES section as read.
    std::vector<KoDbDxfRecord> classes;
    // Sections the database does not know (THUMBNAILIMAGE, ACDSDATA, ...).
    std::vector<std::pair<std::string, KoDbDxfTags>> otherSections;
    KoString filename;

    ~Impl();
    KoDbStub* newStub(uint64_t handle);
    KoDbStub* stubFor(uint64_t handle);  // made on demand
};

// Privileged access for the database's own code.
struct KORA_API KoDbAccess {
    static KoDbDatabase::Impl& impl(const KoDbDatabase& db) { return *db.m_impl; }
    static KoDbStub* stub(const KoDbObject* o) { return o->m_stub; }
    static KoDbObject::Extra* extra(const KoDbObject* o) { return o->m_extra; }
    static KoDbObject::Extra& extra(KoDbObject* o) { return o->extra(); }
    static void setOwnerStub(KoDbObject* o, KoDbStub* owner) { o->m_owner = owner; }
    static KoDbStub* ownerStub(const KoDbObject* o) { return o->m_owner; }
    static void setErased(KoDbObject* o, bool erased) { o->m_erased = erased; }
    // Lets the database's own code change an object it holds without the
    // open protocol (files being read, nothing open yet).
    static void setWriteEnabled(KoDbObject* o, bool on) { o->m_writer = on; }
    static int openCount(const KoDbObject* o) { return o->m_writer ? 1 : o->m_readers; }
    // Places a new object into a database; with openForWrite it comes back
    // open for write (counted), as objects added by callers do.
    static Kora::ErrorStatus add(KoDbDatabase& db, KoDbObject* o, KoDbStub* owner, bool openForWrite,
                                 uint64_t handle = 0);
    // Adds an object whose handle is given later (numberStub), once every
    // handle of a file being read is known.
    static void addUnnumbered(KoDbDatabase& db, KoDbObject* o, KoDbStub* owner);
    static void numberStub(KoDbDatabase& db, KoDbStub* stub);
    static void appended(KoDbEntity* e) { e->subAppended(); }
    // Puts a record placed by a file reader at the end of its table.
    static void appendRecord(KoDbSymbolTable& table, KoDbObjectId record)
    {
        table.m_records.push_back(record);
        table.m_indexValid = false;
    }
    // Drops the entries whose object never came; returns how many.
    static size_t dropEntriesWithoutObjects(KoDbDictionary& dictionary)
    {
        return std::erase_if(dictionary.m_entries, [](const KoDbDictionary::Entry& e) { return !e.id.stub()->object; });
    }
    static void swap(KoDbDatabase& a, KoDbDatabase& b);
};

// Object of an id without opening it (the database's own code only).
template <class T>
T* kodbPeek(KoDbObjectId id)
{
    return id.stub() && id.stub()->object ? T::cast(id.stub()->object) : nullptr;
}
