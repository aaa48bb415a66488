// DGN underlays: loading a DGN file to attach, the records of the
// underlays a drawing already has, and the names their definitions get in
// the drawing's underlay dictionary ("ACAD_DGNDEFINITIONS").
//
// Loading this library also registers the loader of KoDbDgnDefinition, so
// a definition whose file names are set loads its model: the model's levels
// become the underlay layers and its element range the item's extents.
#pragma once

#include <vector>

#include "kora/db/database.h"
#include "kora/dgn/dgnfile.h"
#include "kora/export.h"
#include "kora/status.h"

// A DGN file loaded for attaching: its models and their units.
class KORA_API KoDbUnderlayFile {
public:
    // The path the file was loaded from ("" before a load).
    const KoString& fileName() const { return m_fileName; }
    const DgnFileProp& properties() const { return m_properties; }

    int modelCount() const { return static_cast<int>(m_properties.models.size()); }
    // eInvalidIndex when `index` is out of range.
    Kora::ErrorStatus getModel(int index, const DgnModelProp*& model) const;
    // Names compare with their case; eKeyNotFound when there is no such model.
    Kora::ErrorStatus getModel(const KoString& name, const DgnModelProp*& model) const;

private:
    friend class KoDbDgnUnderlayService;
    KoString m_fileName;
    DgnFileProp m_properties;
};

// One DGN underlay item: a model of a file, and for one already in the
// drawing the definition that holds it.
struct KxUnderlayItemInfo {
    KoString definitionName;    // its key in the underlay dictionary; "" when not attached
    KoDbObjectId definitionId;  // null when not attached
    KoString sourceFileName;    // as the user gave it
    KoString activeFileName;    // as found on disk
    KoString itemName;          // the model
    bool useMasterUnits = true;
};

// Underlay dictionaries and definition names, for any kind of underlay
// definition (the class selects the dictionary: KoDbDgnDefinition::desc()
// gives "ACAD_DGNDEFINITIONS").
class KORA_API KoDbUnderlayService {
public:
    // The dictionary's id in the named-objects dictionary; null when the
    // drawing has none.
    static KoDbObjectId underlayDictionary(const KoDbDatabase* database, const KoRxClass* definitionClass);
    // Creates the dictionary (or finds the existing one) and answers its id.
    static Kora::ErrorStatus createUnderlayDictionary(KoDbDatabase* database, const KoRxClass* definitionClass,
                                                      KoDbObjectId& dictionaryId);
    // Erases the dictionary. A dictionary that still holds definitions is
    // kept (eNotApplicable): its references would lose them.
    static Kora::ErrorStatus removeUnderlayDictionary(KoDbDatabase* database, const KoRxClass* definitionClass);

    // The name a definition of `itemName` in the file `path` starts from:
    // the file's base name without extension, "-", the item name ("site-Default").
    static KoString defaultDictName(const KoString& path, const KoString& itemName);
    // The name for a definition of `itemName` in `path`, given the items the
    // drawing already has: the existing definition's name when one holds the
    // same file (same absolute path, symbolic links resolved) and the same
    // item (case-sensitive), so attaching twice reuses it; otherwise
    // `defaultName`, or "<defaultName> (2)", "(3)", ... the first that no
    // existing definition has (compared without regard to case, as
    // dictionary keys are).
    static KoString getDictName(const KoString& path, const KoString& itemName, const KoString& defaultName,
                                const std::vector<KxUnderlayItemInfo>& existingItems);
};

class KORA_API KoDbDgnUnderlayService : public KoDbUnderlayService {
public:
    // Loads the file's models (V7 or V8) into `file`. Non-zero statuses,
    // with `file` left as it was: eFileNotFound, eFileAccessErr (cannot be
    // read), eUnsupportedFileFormat (not a DGN file, a V7 cell library),
    // eBadDgnFile (a V7 or V8 file whose structure is damaged).
    static Kora::ErrorStatus LoadDgnUnderlayFile(const KoString& path, KoDbUnderlayFile& file);
    // The item record of a file about to be attached: the path as given,
    // its absolute form, and the file's first model. Fails as the load does.
    static Kora::ErrorStatus dgnItemFromPath(const KoString& path, KxUnderlayItemInfo& item);
    // The DGN underlay items of the drawing, one per definition in its
    // underlay dictionary, in key order; none when it has no dictionary.
    static Kora::ErrorStatus collectUnderlayItems(const KoDbDatabase* database,
                                                  std::vector<KxUnderlayItemInfo>& items);
};
