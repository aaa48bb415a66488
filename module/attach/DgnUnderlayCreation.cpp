#include "DgnUnderlayCreation.h"

#include "kora/db/database.h"
#include "kora/dgn/underlayservice.h"
#include "kora/docman.h"
#include "kora/editor.h"
#include "module.h"

namespace Kora::DgnCommands {

namespace {

const KoRxClass* dgnDefinitionClass() { return KoDbDgnDefinition::desc(); }

// True when one of the definition's persistent reactors is a live reference.
bool isReferenced(const KoDbUnderlayDefinition* definition)
{
    for (void* reactor : definition->reactors()) {
        if (!kodbIsPersistentReactor(reactor)) continue;
        KoDbObjectPointer<KoDbUnderlayReference> reference(kodbPersistentReactorObjectId(reactor));
        if (reference) return true;  // erased objects do not open
    }
    return false;
}

}  // namespace

KoString nameDefinition(const KoString& dgnPath, const KoString& modelName)
{
    std::vector<KxUnderlayItemInfo> existingItems;
    KoDbDgnUnderlayService::collectUnderlayItems(kodbHostApplicationServices()->workingDatabase(), existingItems);
    const KoString defaultName = KoDbUnderlayService::defaultDictName(dgnPath, modelName);
    return KoDbUnderlayService::getDictName(dgnPath, modelName, defaultName, existingItems);
}

bool definitionNameIsFree(const KoString& definitionName)
{
    const KoDbDatabase* database = kodbHostApplicationServices()->workingDatabase();
    if (!database) return true;
    KoDbObjectPointer<KoDbBlockTable> table(database->blockTableId());
    if (!table) return true;
    KoDbBlockTableRecord* block = nullptr;
    if (table->getAt(definitionName, block, KoDb::kForRead) != Kora::eOk) return true;
    const bool fromXref = block->isFromExternalReference();
    block->close();
    if (fromXref) return true;
    const KoString format =
        L"\n" + loadLocalString(22665, L"Cannot attach: the drawing already has a block named \"%s\".");
    koutPrintf(format.c_str(), definitionName.c_str());
    return false;
}

KoDbObjectId prepareDefinition(KoDbDatabase* database, const KoString& sourceFileName,
                               const KoString& activeFileName, const KoString& modelName,
                               const KoString& definitionName, bool useMasterUnits)
{
    KoDbObjectId dictionaryId = KoDbUnderlayService::underlayDictionary(database, dgnDefinitionClass());
    if (dictionaryId.isNull() &&
        KoDbUnderlayService::createUnderlayDictionary(database, dgnDefinitionClass(), dictionaryId) != Kora::eOk)
        return {};
    KoDbObjectPointer<KoDbDictionary> dictionary(dictionaryId, KoDb::kForWrite);
    if (!dictionary) return {};
    KoDbObjectId definitionId;
    if (dictionary->getAt(definitionName, definitionId) == Kora::eOk) return definitionId;

    KoDbObjectPointer<KoDbDgnDefinition> definition;
    definition.create();
    definition->setItemName(modelName);
    definition->setUseMasterUnits(useMasterUnits);
    definition->setUnderlayItem(sourceFileName, activeFileName);
    if (dictionary->setAt(definitionName, definition.object(), definitionId) != Kora::eOk) return {};
    return definitionId;  // the pointer closes the stored definition
}

KoDbDgnReference* createReference(KoDbDatabase* database, KoDbObjectId definitionId, double scale,
                                  double rotation, const KoGePoint3d& insertionPoint)
{
    auto* reference = new KoDbDgnReference;
    reference->setDatabaseDefaults(database);
    reference->setDefinitionId(definitionId);
    reference->setContrast(KoDbUnderlayReference::contrastDefault());
    reference->setFade(KoDbUnderlayReference::fadeDefault());
    // Placed in the drawing's XY plane.
    reference->setNormal(KoGeVector3d::kZAxis());
    reference->setScaleFactors({scale, scale, scale});
    reference->setPosition(insertionPoint);
    reference->setRotation(rotation);
    return reference;
}

void copyLayerStates(KoDbUnderlayReference* reference)
{
    KoDbObjectPointer<KoDbUnderlayDefinition> definition(reference->definitionId());
    if (!definition || !definition->getUnderlayItem()) return;
    const KoDbUnderlayItem* item = definition->getUnderlayItem();
    const int count = reference->underlayLayerCount();
    for (int i = 0; i < count; ++i) {
        KoDbUnderlayLayer layer;
        if (item->getUnderlayLayer(i, layer) == Kora::eOk) reference->setUnderlayLayer(i, layer);
    }
}

void undoDefinition(KoDbDatabase* database, const KoString& definitionName)
{
    const KoDbObjectId dictionaryId = KoDbUnderlayService::underlayDictionary(database, dgnDefinitionClass());
    if (dictionaryId.isNull()) return;
    {
        KoDbObjectPointer<KoDbDictionary> dictionary(dictionaryId, KoDb::kForWrite);
        if (!dictionary) return;
        KoDbObjectId definitionId;
        if (dictionary->getAt(definitionName, definitionId) == Kora::eOk) {
            KoDbObjectPointer<KoDbUnderlayDefinition> definition(definitionId, KoDb::kForWrite);
            if (definition && !isReferenced(definition.object())) {
                if (definition->isLoaded()) definition->unload();
                definition->erase();
            }
        }
        if (dictionary->numEntries() > 0) return;
    }
    KoDbUnderlayService::removeUnderlayDictionary(database, dgnDefinitionClass());
}

}  // namespace Kora::DgnCommands
