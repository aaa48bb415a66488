#include "kora/rxobject.h"


bool KoRxClass::isDerivedFrom(const KoRxClass* other) const
{
    for (const KoRxClass* c = this; c; c = c->m_parent)
        if (c == other) return true;
    return false;
}

KoRxObject::~KoRxObject() = default;

KoRxClass* KoRxObject::desc()
{
    static KoRxClass descriptor(L"KoRxObject", nullptr);
    return &descriptor;
}

KoRxClass* KoRxObject::isA() const { return desc(); }
KoRxObject* KoRxObject::clone() const { return nullptr; }
Kora::ErrorStatus KoRxObject::copyFrom(const KoRxObject*) { return Kora::eNotApplicable; }
bool KoRxObject::isEqualTo(const KoRxObject* other) const { return other == this; }
int KoRxObject::comparedTo(const KoRxObject* other) const { return other == this ? 0 : (this < other ? -1 : 1); }
KoRxObject* KoRxObject::subQueryX(const KoRxClass*) const { return nullptr; }

KORX_DEFINE_MEMBERS(KoRxDictionary, KoRxObject)

KoRxDictionary::KoRxDictionary() = default;
KoRxDictionary::~KoRxDictionary() = default;

KoRxObject* KoRxDictionary::at(const wchar_t* key) const
{
    const auto it = m_entries.find(key ? key : L"");
    return it == m_entries.end() ? nullptr : it->second.get();
}

KoRxObject* KoRxDictionary::atPut(const wchar_t* key, KoRxObject* object)
{
    auto& slot = m_entries[key ? key : L""];
    KoRxObject* previous = slot.release();
    slot.reset(object);
    return previous;
}

KoRxObject* KoRxDictionary::remove(const wchar_t* key)
{
    const auto it = m_entries.find(key ? key : L"");
    if (it == m_entries.end()) return nullptr;
    KoRxObject* object = it->second.release();
    m_entries.erase(it);
    return object;
}

KoRxDictionary* korxSysRegistry()
{
    // The runtime puts its dynamic linker and command stack in when it is
    // loaded (platform/runtime/commandstack.cpp).
    static KoRxDictionary* registry = new KoRxDictionary;
    return registry;
}
