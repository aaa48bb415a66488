// Underlays: a definition object names an external file (and the item in
// it, a DGN model) and lives in an underlay dictionary of the named-objects
// dictionary; reference entities place it in a space. A definition knows
// its references through persistent reactors.
#pragma once

#include <memory>
#include <vector>

#include "kora/db/entities.h"

// One layer (DGN level) of an underlay and whether it is shown.
struct KoDbUnderlayLayer {
    enum State { kOff = 0, kOn = 1 };
    KoString name;
    State state = kOn;
    friend bool operator==(const KoDbUnderlayLayer&, const KoDbUnderlayLayer&) = default;
};

// The loaded content of an underlay file, supplied by the library that
// reads the format (DGN for now).
class KORA_API KoDbUnderlayItem {
public:
    virtual ~KoDbUnderlayItem();
    virtual KoString getName() const = 0;
    virtual int underlayLayerCount() const = 0;
    virtual Kora::ErrorStatus getUnderlayLayer(int index, KoDbUnderlayLayer& layer) const = 0;
    // The item's extents in its own units; eNotApplicable when unknown.
    virtual Kora::ErrorStatus getExtents(KoDbExtents& extents) const;
};

class KoDbUnderlayDefinition;
// Loads the item of a definition from its active file; registered by the
// library of the format, per definition class.
using KoDbUnderlayLoader = Kora::ErrorStatus (*)(const KoDbUnderlayDefinition& definition, const KoString& password,
                                                 std::unique_ptr<KoDbUnderlayItem>& item);
KORA_API void kodbSetUnderlayLoader(const KoRxClass* definitionClass, KoDbUnderlayLoader loader);

class KORA_API KoDbUnderlayDefinition : public KoDbObject {
public:
    KORX_DECLARE_MEMBERS(KoDbUnderlayDefinition)
    KoDbUnderlayDefinition();
    ~KoDbUnderlayDefinition() override;

    // The key of the named-objects dictionary entry that holds the
    // definitions of a class ("ACAD_DGNDEFINITIONS" for DGN).
    static KoString dictionaryKey(const KoRxClass* definitionClass);

    // The file name as the user gave it, and the one found on disk.
    const KoString& getSourceFileName() const { return m_sourceFileName; }
    Kora::ErrorStatus setSourceFileName(const KoString& name);
    const KoString& getActiveFileName() const { return m_activeFileName; }
    Kora::ErrorStatus setActiveFileName(const KoString& name);
    // The item inside the file (a DGN model name).
    const KoString& getItemName() const { return m_itemName; }
    Kora::ErrorStatus setItemName(const KoString& name);

    // Sets both file names and loads the item through the loader of the
    // definition's class. With no loader registered the names are set and
    // the definition stays unloaded (eOk).
    Kora::ErrorStatus setUnderlayItem(const KoString& sourceFileName, const KoString& activeFileName,
                                      const KoString& password = {});
    // Sets both file names and an item loaded by the caller.
    Kora::ErrorStatus setUnderlayItem(const KoString& sourceFileName, const KoString& activeFileName,
                                      std::unique_ptr<KoDbUnderlayItem> item);
    // Null while not loaded.
    const KoDbUnderlayItem* getUnderlayItem() const { return m_item.get(); }
    Kora::ErrorStatus load(const KoString& password = {});
    void unload();
    bool isLoaded() const { return m_item != nullptr; }

private:
    KoString m_sourceFileName, m_activeFileName, m_itemName;
    std::unique_ptr<KoDbUnderlayItem> m_item;
};

class KORA_API KoDbDgnDefinition : public KoDbUnderlayDefinition {
public:
    KORX_DECLARE_MEMBERS(KoDbDgnDefinition)
    KoDbDgnDefinition();
    // Whether the file's master units (not its sub units) map to drawing units.
    bool useMasterUnits() const { return m_useMasterUnits; }
    Kora::ErrorStatus setUseMasterUnits(bool useMaster);
    // The xref depth of nested references shown (the file's own setting by default).
    int xrefDepth() const { return m_xrefDepth; }
    Kora::ErrorStatus setXrefDepth(int depth);

private:
    bool m_useMasterUnits = true;
    int m_xrefDepth = 1;
};

class KORA_API KoDbUnderlayReference : public KoDbEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbUnderlayReference)
    KoDbUnderlayReference();
    ~KoDbUnderlayReference() override;

    static uint8_t contrastDefault();
    static uint8_t fadeDefault();

    KoDbObjectId definitionId() const { return m_definition; }
    // In a database the definition gets this reference as a persistent reactor.
    Kora::ErrorStatus setDefinitionId(KoDbObjectId definition);
    const KoGePoint3d& position() const { return m_position; }
    Kora::ErrorStatus setPosition(const KoGePoint3d& p);
    const KoGeScale3d& scaleFactors() const { return m_scale; }
    Kora::ErrorStatus setScaleFactors(const KoGeScale3d& scale);
    double rotation() const { return m_rotation; }
    Kora::ErrorStatus setRotation(double angle);
    const KoGeVector3d& normal() const { return m_normal; }
    Kora::ErrorStatus setNormal(const KoGeVector3d& n);
    // 20..100 and 0..80.
    uint8_t contrast() const { return m_contrast; }
    Kora::ErrorStatus setContrast(uint8_t contrast);
    uint8_t fade() const { return m_fade; }
    Kora::ErrorStatus setFade(uint8_t fade);
    bool isOn() const { return (m_flags & 2) != 0; }
    Kora::ErrorStatus setIsOn(bool on);
    bool isClipped() const { return (m_flags & 1) != 0; }
    Kora::ErrorStatus setIsClipped(bool clipped);
    bool isMonochrome() const { return (m_flags & 4) != 0; }
    Kora::ErrorStatus setIsMonochrome(bool monochrome);
    bool isAdjustedForBackground() const { return (m_flags & 8) != 0; }
    Kora::ErrorStatus setIsAdjustedForBackground(bool adjust);
    // Clip boundary in the underlay's own coordinates.
    const std::vector<KoGePoint2d>& clipBoundary() const { return m_clip; }
    Kora::ErrorStatus setClipBoundary(std::vector<KoGePoint2d> boundary);

    // Layer states: the reference's own when it has any, else as many as the
    // loaded definition's item has.
    int underlayLayerCount() const;
    Kora::ErrorStatus getUnderlayLayer(int index, KoDbUnderlayLayer& layer) const;
    Kora::ErrorStatus setUnderlayLayer(int index, const KoDbUnderlayLayer& layer);
    const std::vector<KoDbUnderlayLayer>& underlayLayers() const { return m_layers; }
    Kora::ErrorStatus setUnderlayLayers(std::vector<KoDbUnderlayLayer> layers);

    // The clip boundary, else the loaded item's extents, placed by the
    // reference's position, scale and rotation.
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

protected:
    void subAppended() override;

private:
    void linkDefinition();

    KoDbObjectId m_definition;
    KoGePoint3d m_position;
    KoGeScale3d m_scale;
    double m_rotation = 0.0;
    KoGeVector3d m_normal = KoGeVector3d::kZAxis();
    uint8_t m_contrast, m_fade;
    uint8_t m_flags = 2;
    std::vector<KoGePoint2d> m_clip;
    std::vector<KoDbUnderlayLayer> m_layers;
};

class KORA_API KoDbDgnReference : public KoDbUnderlayReference {
public:
    KORX_DECLARE_MEMBERS(KoDbDgnReference)
    KoDbDgnReference();
};
