#include "kora/dgn/underlayservice.h"

#include <filesystem>
#include <memory>

#include "designscan.h"
#include "kora/db/underlay.h"

namespace fs = std::filesystem;

namespace {

// Two names of one file compare equal in this form: absolute, with "." and
// ".." resolved and, as far as the file exists, symbolic links followed.
fs::path comparable(const KoString& path)
{
    const fs::path given(path.toUtf8());
    std::error_code ec;
    fs::path resolved = fs::weakly_canonical(given, ec);
    if (ec) resolved = fs::absolute(given, ec).lexically_normal();
    return resolved;
}

bool sameFile(const fs::path& file, const KoString& other)
{
    return !other.isEmpty() && comparable(other) == file;
}

// A model of a DGN file as an underlay item: its levels are the layers a
// reference can switch, all shown at first.
class DgnUnderlayItem : public KoDbUnderlayItem {
public:
    DgnUnderlayItem(KoString name, std::vector<KoString> levels, const KoDbExtents& extents)
        : m_name(std::move(name)), m_levels(std::move(levels)), m_extents(extents)
    {
    }

    KoString getName() const override { return m_name; }
    int underlayLayerCount() const override { return static_cast<int>(m_levels.size()); }
    Kora::ErrorStatus getUnderlayLayer(int index, KoDbUnderlayLayer& layer) const override
    {
        if (index < 0 || index >= underlayLayerCount()) return Kora::eInvalidIndex;
        layer = {m_levels[static_cast<size_t>(index)], KoDbUnderlayLayer::kOn};
        return Kora::eOk;
    }
    Kora::ErrorStatus getExtents(KoDbExtents& extents) const override
    {
        if (!m_extents.isValid()) return Kora::eNotApplicable;
        extents = m_extents;
        return Kora::eOk;
    }

private:
    KoString m_name;
    std::vector<KoString> m_levels;
    KoDbExtents m_extents;
};

// Loads the model a DGN definition names from its active file (the source
// file when no active one is known). An empty item name takes the first
// model. The extents are in the units the definition maps to drawing
// units, so they change only when the definition is loaded again.
Kora::ErrorStatus loadDgnItem(const KoDbUnderlayDefinition& definition, const KoString&,
                              std::unique_ptr<KoDbUnderlayItem>& item)
{
    const KoString& path =
        definition.getActiveFileName().isEmpty() ? definition.getSourceFileName() : definition.getActiveFileName();
    Kora::Dgn::DesignScan scan;
    if (const Kora::ErrorStatus es = Kora::Dgn::scanDesignFile(path, scan, definition.getItemName()); es != Kora::eOk)
        return es;
    const std::vector<DgnModelProp>& models = scan.properties.models;
    const DgnModelProp* model = nullptr;
    for (const DgnModelProp& candidate : models)
        if (candidate.name == definition.getItemName()) model = &candidate;
    if (!model && definition.getItemName().isEmpty() && !models.empty()) model = &models.front();
    if (!model) return Kora::eKeyNotFound;

    KoDbExtents extents = scan.masterExtents;
    const auto* dgn = KoDbDgnDefinition::cast(&definition);
    if (extents.isValid() && dgn && !dgn->useMasterUnits() && scan.subPerMaster > 0) {
        const double f = scan.subPerMaster;
        const KoGePoint3d& lo = extents.minPoint();
        const KoGePoint3d& hi = extents.maxPoint();
        extents = KoDbExtents({lo.x * f, lo.y * f, lo.z * f}, {hi.x * f, hi.y * f, hi.z * f});
    }
    item = std::make_unique<DgnUnderlayItem>(model->name, std::move(scan.properties.levels), extents);
    return Kora::eOk;
}

// Definitions load their model as soon as this library is in the process.
[[maybe_unused]] const bool kLoaderRegistered = [] {
    kodbSetUnderlayLoader(KoDbDgnDefinition::desc(), loadDgnItem);
    return true;
}();

}  // namespace

// ---- loaded files -----------------------------------------------------------

Kora::ErrorStatus KoDbUnderlayFile::getModel(int index, const DgnModelProp*& model) const
{
    model = nullptr;
    if (index < 0 || index >= modelCount()) return Kora::eInvalidIndex;
    model = &m_properties.models[static_cast<size_t>(index)];
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayFile::getModel(const KoString& name, const DgnModelProp*& model) const
{
    model = nullptr;
    for (const DgnModelProp& candidate : m_properties.models) {
        if (candidate.name == name) {
            model = &candidate;
            return Kora::eOk;
        }
    }
    return Kora::eKeyNotFound;
}

// ---- dictionaries and names -------------------------------------------------

KoDbObjectId KoDbUnderlayService::underlayDictionary(const KoDbDatabase* database, const KoRxClass* definitionClass)
{
    const KoString key = KoDbUnderlayDefinition::dictionaryKey(definitionClass);
    if (!database || key.isEmpty()) return {};
    KoDbObjectPointer<KoDbDictionary> root(database->namedObjectsDictionaryId());
    KoDbObjectId id;
    if (!root || root->getAt(key, id) != Kora::eOk) return {};
    const KoRxClass* found = id.objectClass();
    return found && found->isDerivedFrom(KoDbDictionary::desc()) ? id : KoDbObjectId();
}

Kora::ErrorStatus KoDbUnderlayService::createUnderlayDictionary(KoDbDatabase* database,
                                                                const KoRxClass* definitionClass,
                                                                KoDbObjectId& dictionaryId)
{
    const KoString key = KoDbUnderlayDefinition::dictionaryKey(definitionClass);
    if (!database) return Kora::eNullPtr;
    if (key.isEmpty()) return Kora::eInvalidInput;
    KoDbObjectPointer<KoDbDictionary> root(database->namedObjectsDictionaryId(), KoDb::kForWrite);
    if (!root) return root.openStatus();
    KoDbObjectId existing;
    if (root->getAt(key, existing) == Kora::eOk) {
        // Another kind of object under the key is not replaced.
        const KoRxClass* found = existing.objectClass();
        if (!found || !found->isDerivedFrom(KoDbDictionary::desc())) return Kora::eNotThatKindOfClass;
        dictionaryId = existing;
        return Kora::eOk;
    }
    auto dictionary = std::make_unique<KoDbDictionary>();
    KoDbObjectId id;
    const Kora::ErrorStatus es = root->setAt(key, dictionary.get(), id);
    if (es != Kora::eOk) return es;
    dictionary.release()->close();
    dictionaryId = id;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayService::removeUnderlayDictionary(KoDbDatabase* database,
                                                                const KoRxClass* definitionClass)
{
    const KoDbObjectId id = underlayDictionary(database, definitionClass);
    if (id.isNull()) return Kora::eKeyNotFound;
    KoDbObjectPointer<KoDbDictionary> dictionary(id, KoDb::kForWrite);
    if (!dictionary) return dictionary.openStatus();
    if (dictionary->numEntries() > 0) return Kora::eNotApplicable;
    return dictionary->erase();
}

KoString KoDbUnderlayService::defaultDictName(const KoString& path, const KoString& itemName)
{
    const KoString stem = KoString::fromUtf8(fs::path(path.toUtf8()).stem().string());
    return itemName.isEmpty() ? stem : stem + L"-" + itemName;
}

KoString KoDbUnderlayService::getDictName(const KoString& path, const KoString& itemName, const KoString& defaultName,
                                          const std::vector<KxUnderlayItemInfo>& existingItems)
{
    const fs::path file = comparable(path);
    for (const KxUnderlayItemInfo& item : existingItems) {
        if (item.definitionName.isEmpty() || item.itemName != itemName) continue;
        if (sameFile(file, item.activeFileName) || sameFile(file, item.sourceFileName)) return item.definitionName;
    }
    const auto taken = [&](const KoString& name) {
        for (const KxUnderlayItemInfo& item : existingItems)
            if (item.definitionName.equalsNoCase(name)) return true;
        return false;
    };
    KoString name = defaultName;
    for (int n = 2; taken(name); ++n) name = KoString::format(L"%s (%d)", defaultName.c_str(), n);
    return name;
}

// ---- DGN files and items ----------------------------------------------------

Kora::ErrorStatus KoDbDgnUnderlayService::LoadDgnUnderlayFile(const KoString& path, KoDbUnderlayFile& file)
{
    Kora::Dgn::DesignScan scan;
    if (const Kora::ErrorStatus es = Kora::Dgn::scanDesignFile(path, scan); es != Kora::eOk) return es;
    file.m_fileName = path;
    file.m_properties = std::move(scan.properties);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbDgnUnderlayService::dgnItemFromPath(const KoString& path, KxUnderlayItemInfo& item)
{
    KoDbUnderlayFile file;
    if (const Kora::ErrorStatus es = LoadDgnUnderlayFile(path, file); es != Kora::eOk) return es;
    item = {};
    item.sourceFileName = path;
    item.activeFileName = KoString::fromUtf8(comparable(path).string());
    if (file.modelCount() > 0) item.itemName = file.properties().models.front().name;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbDgnUnderlayService::collectUnderlayItems(const KoDbDatabase* database,
                                                              std::vector<KxUnderlayItemInfo>& items)
{
    if (!database) return Kora::eNullPtr;
    items.clear();
    const KoDbObjectId dictionaryId = underlayDictionary(database, KoDbDgnDefinition::desc());
    if (dictionaryId.isNull()) return Kora::eOk;
    KoDbObjectPointer<KoDbDictionary> dictionary(dictionaryId);
    if (!dictionary) return dictionary.openStatus();
    for (auto it = dictionary->newIterator(); !it->done(); it->next()) {
        const KoRxClass* found = it->objectId().objectClass();
        if (!found || !found->isDerivedFrom(KoDbDgnDefinition::desc())) continue;
        KxUnderlayItemInfo item;
        item.definitionName = it->name();
        item.definitionId = it->objectId();
        // A definition someone holds open for write still claims its name;
        // its other fields stay empty.
        if (KoDbObjectPointer<KoDbDgnDefinition> definition(it->objectId()); definition) {
            item.sourceFileName = definition->getSourceFileName();
            item.activeFileName = definition->getActiveFileName();
            item.itemName = definition->getItemName();
            item.useMasterUnits = definition->useMasterUnits();
        }
        items.push_back(std::move(item));
    }
    return Kora::eOk;
}
