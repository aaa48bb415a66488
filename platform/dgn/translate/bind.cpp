// Binding a DGN underlay: the design its definition names becomes a block
// of the drawing, and every reference of the definition a block reference.
#include <filesystem>
#include <vector>

#include "importdesign.h"
#include "kora/db/underlay.h"
#include "kora/dgn/underlayservice.h"

namespace fs = std::filesystem;

namespace {

struct Placement {
    KoDbObjectId reference;
    KoDbObjectId owner;
    KoDbObjectId layer;
};

// Every reference of the definition, in every block of the drawing.
std::vector<Placement> referencesOf(KoDbDatabase* database, const KoDbObjectId& definitionId)
{
    std::vector<Placement> found;
    Kora::Dgn::forEachEntity(database, [&](KoDbObjectId id) {
        KoDbObjectPointer<KoDbDgnReference> reference(id);
        if (reference.openStatus() == Kora::eOk && reference->definitionId() == definitionId)
            found.push_back({id, reference->blockId(), reference->layerId()});
    });
    return found;
}

bool onLocked(const std::vector<Placement>& placements)
{
    for (const Placement& p : placements) {
        KoDbObjectPointer<KoDbLayerTableRecord> layer(p.layer);
        if (layer.openStatus() == Kora::eOk && layer->isLocked()) return true;
    }
    return false;
}

// A block reference standing where the underlay reference stood.
void replaceReference(const Placement& placement, const KoDbObjectId& blockId)
{
    KoDbObjectPointer<KoDbDgnReference> reference(placement.reference, KoDb::kForWrite);
    KoDbObjectPointer<KoDbBlockTableRecord> owner(placement.owner, KoDb::kForWrite);
    if (reference.openStatus() != Kora::eOk || owner.openStatus() != Kora::eOk) return;
    auto* insert = new KoDbBlockReference(reference->position(), blockId);
    insert->setScaleFactors(reference->scaleFactors());
    insert->setRotation(reference->rotation());
    insert->setNormal(reference->normal());
    insert->setLayer(reference->layerId());
    KoDbObjectId id;
    if (owner->appendKoDbEntity(id, insert) != Kora::eOk) {
        delete insert;
        return;
    }
    insert->close();
    reference->erase();
}

// Takes the definition out of its dictionary and erases it, and the
// dictionary with it when no definition is left.
void removeDefinition(KoDbDatabase* database, const KoDbObjectId& definitionId)
{
    const KoDbObjectId dictionaryId = KoDbUnderlayService::underlayDictionary(database, KoDbDgnDefinition::desc());
    {
        KoDbObjectPointer<KoDbDictionary> dictionary(dictionaryId, KoDb::kForWrite);
        KoString key;
        if (dictionary.openStatus() == Kora::eOk && dictionary->nameAt(definitionId, key) == Kora::eOk)
            dictionary->remove(key);
    }
    {
        KoDbObjectPointer<KoDbDgnDefinition> definition(definitionId, KoDb::kForWrite);
        if (definition.openStatus() == Kora::eOk) definition->erase();
    }
    KoDbUnderlayService::removeUnderlayDictionary(database, KoDbDgnDefinition::desc());
}

} // namespace

bool doDgnBind(const KoDbObjectId& definitionId, const KoString& name, bool& onLockedLayer, bool insertMode,
               DgnTranslationReport* report)
{
    onLockedLayer = false;
    DgnTranslationReport own;
    DgnTranslationReport& result = report ? *report : own;
    result = DgnTranslationReport();
    KoDbDatabase* database = definitionId.database();
    if (!database) return false;

    DgnImportState state;
    {
        KoDbObjectPointer<KoDbDgnDefinition> definition(definitionId);
        if (definition.openStatus() != Kora::eOk) return false;
        state.file = definition->getActiveFileName().isEmpty() ? definition->getSourceFileName()
                                                               : definition->getActiveFileName();
        state.model = definition->getItemName();
        state.masterUnits = definition->useMasterUnits() ? 1 : 0;
    }
    const std::vector<Placement> placements = referencesOf(database, definitionId);
    if (onLocked(placements)) {
        onLockedLayer = true;
        return false;
    }
    std::error_code ec;
    if (state.file.isEmpty() || !fs::is_regular_file(fs::path(state.file.toUtf8()), ec)) {
        result.referencesNotFound.push_back(state.file);
        Kora::Dgn::printSummary(result);
        return false;
    }

    // A bind keeps the design's names apart from the drawing's; an insert
    // merges them, reusing the layers and linetypes the drawing has.
    Kora::Dgn::ImportTarget target;
    target.blockName = name;
    if (!insertMode) target.namePrefix = name + L"$0$";
    KoDbObjectId blockId;
    if (Kora::Dgn::importDesign(state, database, nullptr, target, result, &blockId) != KORTNORM) {
        Kora::Dgn::printSummary(result);
        return false;
    }
    for (const Placement& placement : placements) replaceReference(placement, blockId);
    removeDefinition(database, definitionId);
    Kora::Dgn::printSummary(result);
    return true;
}
