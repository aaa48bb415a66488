#include "kora/db/underlay.h"

#include <cmath>
#include <map>

#include "dbimpl.h"

namespace {

std::map<const KoRxClass*, KoDbUnderlayLoader>& loaders()
{
    static std::map<const KoRxClass*, KoDbUnderlayLoader> table;
    return table;
}

}  // namespace

KoDbUnderlayItem::~KoDbUnderlayItem() = default;
Kora::ErrorStatus KoDbUnderlayItem::getExtents(KoDbExtents&) const { return Kora::eNotApplicable; }

void kodbSetUnderlayLoader(const KoRxClass* definitionClass, KoDbUnderlayLoader loader)
{
    if (loader) loaders()[definitionClass] = loader;
    else loaders().erase(definitionClass);
}

// ---- definitions ------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbUnderlayDefinition, KoDbObject)

KoDbUnderlayDefinition::KoDbUnderlayDefinition() = default;
KoDbUnderlayDefinition::~KoDbUnderlayDefinition() = default;

KoString KoDbUnderlayDefinition::dictionaryKey(const KoRxClass* definitionClass)
{
    if (definitionClass && definitionClass->isDerivedFrom(KoDbDgnDefinition::desc())) return L"ACAD_DGNDEFINITIONS";
    return {};
}

Kora::ErrorStatus KoDbUnderlayDefinition::setSourceFileName(const KoString& name)
{
    KODB_WRITE_GUARD();
    m_sourceFileName = name;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayDefinition::setActiveFileName(const KoString& name)
{
    KODB_WRITE_GUARD();
    m_activeFileName = name;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayDefinition::setItemName(const KoString& name)
{
    KODB_WRITE_GUARD();
    m_itemName = name;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayDefinition::setUnderlayItem(const KoString& sourceFileName, const KoString& activeFileName,
                                                          const KoString& password)
{
    KODB_WRITE_GUARD();
    m_sourceFileName = sourceFileName;
    m_activeFileName = activeFileName;
    m_item.reset();
    const auto it = loaders().find(isA());
    return it == loaders().end() ? Kora::eOk : load(password);
}

Kora::ErrorStatus KoDbUnderlayDefinition::setUnderlayItem(const KoString& sourceFileName, const KoString& activeFileName,
                                                          std::unique_ptr<KoDbUnderlayItem> item)
{
    KODB_WRITE_GUARD();
    m_sourceFileName = sourceFileName;
    m_activeFileName = activeFileName;
    m_item = std::move(item);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayDefinition::load(const KoString& password)
{
    if (m_item) return Kora::eOk;
    const KoDbUnderlayLoader loader = [this]() -> KoDbUnderlayLoader {
        for (const KoRxClass* c = isA(); c; c = c->myParent())
            if (const auto it = loaders().find(c); it != loaders().end()) return it->second;
        return nullptr;
    }();
    if (!loader) return Kora::eNotImplementedYet;
    std::unique_ptr<KoDbUnderlayItem> item;
    const Kora::ErrorStatus es = loader(*this, password, item);
    if (es != Kora::eOk) return es;
    if (!item) return Kora::eLoadFailed;
    m_item = std::move(item);
    return Kora::eOk;
}

void KoDbUnderlayDefinition::unload() { m_item.reset(); }

KORX_DEFINE_MEMBERS(KoDbDgnDefinition, KoDbUnderlayDefinition)

KoDbDgnDefinition::KoDbDgnDefinition() = default;

Kora::ErrorStatus KoDbDgnDefinition::setUseMasterUnits(bool useMaster)
{
    KODB_WRITE_GUARD();
    m_useMasterUnits = useMaster;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbDgnDefinition::setXrefDepth(int depth)
{
    KODB_WRITE_GUARD();
    m_xrefDepth = depth;
    return Kora::eOk;
}

// ---- references ------------------------------------------------------------

KORX_DEFINE_MEMBERS(KoDbUnderlayReference, KoDbEntity)

KoDbUnderlayReference::KoDbUnderlayReference() : m_contrast(contrastDefault()), m_fade(fadeDefault()) {}
KoDbUnderlayReference::~KoDbUnderlayReference() = default;

uint8_t KoDbUnderlayReference::contrastDefault() { return 20; }
uint8_t KoDbUnderlayReference::fadeDefault() { return 0; }

void KoDbUnderlayReference::linkDefinition()
{
    // The definition learns of its reference without being opened: the
    // caller may well hold it open at this moment.
    if (isNewObject()) return;
    if (auto* definition = kodbPeek<KoDbUnderlayDefinition>(m_definition)) {
        auto& list = KoDbAccess::extra(definition).reactors;
        if (std::find(list.begin(), list.end(), KoDbAccess::stub(this)) == list.end())
            list.push_back(KoDbAccess::stub(this));
    }
}

void KoDbUnderlayReference::subAppended() { linkDefinition(); }

Kora::ErrorStatus KoDbUnderlayReference::setDefinitionId(KoDbObjectId definition)
{
    KODB_WRITE_GUARD();
    // A definition not read yet (files list references before definitions)
    // is taken on trust; an object of another kind is not.
    if (!definition.isNull() && definition.stub()->object && !kodbPeek<KoDbUnderlayDefinition>(definition))
        return Kora::eInvalidInput;
    m_definition = definition;
    linkDefinition();
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayReference::setPosition(const KoGePoint3d& p)
{
    KODB_WRITE_GUARD();
    m_position = p;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayReference::setScaleFactors(const KoGeScale3d& scale)
{
    KODB_WRITE_GUARD();
    if (scale.sx == 0.0 || scale.sy == 0.0 || scale.sz == 0.0) return Kora::eInvalidInput;
    m_scale = scale;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayReference::setRotation(double angle)
{
    KODB_WRITE_GUARD();
    m_rotation = angle;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayReference::setNormal(const KoGeVector3d& n)
{
    KODB_WRITE_GUARD();
    if (n.length() == 0.0) return Kora::eInvalidInput;
    m_normal = n;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayReference::setContrast(uint8_t contrast)
{
    KODB_WRITE_GUARD();
    if (contrast < 20 || contrast > 100) return Kora::eOutOfRange;
    m_contrast = contrast;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayReference::setFade(uint8_t fade)
{
    KODB_WRITE_GUARD();
    if (fade > 80) return Kora::eOutOfRange;
    m_fade = fade;
    return Kora::eOk;
}

#define KODB_FLAG_SETTER(NAME, BIT)                                          \
    Kora::ErrorStatus KoDbUnderlayReference::NAME(bool on)                   \
    {                                                                        \
        KODB_WRITE_GUARD();                                                  \
        m_flags = static_cast<uint8_t>(on ? (m_flags | BIT) : (m_flags & ~BIT)); \
        return Kora::eOk;                                                    \
    }
KODB_FLAG_SETTER(setIsClipped, 1)
KODB_FLAG_SETTER(setIsOn, 2)
KODB_FLAG_SETTER(setIsMonochrome, 4)
KODB_FLAG_SETTER(setIsAdjustedForBackground, 8)

Kora::ErrorStatus KoDbUnderlayReference::setClipBoundary(std::vector<KoGePoint2d> boundary)
{
    KODB_WRITE_GUARD();
    if (boundary.size() == 1) return Kora::eInvalidInput;
    m_clip = std::move(boundary);
    return Kora::eOk;
}

int KoDbUnderlayReference::underlayLayerCount() const
{
    if (!m_layers.empty()) return static_cast<int>(m_layers.size());
    const auto* definition = kodbPeek<KoDbUnderlayDefinition>(m_definition);
    const KoDbUnderlayItem* item = definition ? definition->getUnderlayItem() : nullptr;
    return item ? item->underlayLayerCount() : 0;
}

Kora::ErrorStatus KoDbUnderlayReference::getUnderlayLayer(int index, KoDbUnderlayLayer& layer) const
{
    if (index < 0 || index >= underlayLayerCount()) return Kora::eInvalidIndex;
    if (static_cast<size_t>(index) < m_layers.size()) {
        layer = m_layers[static_cast<size_t>(index)];
        return Kora::eOk;
    }
    const auto* definition = kodbPeek<KoDbUnderlayDefinition>(m_definition);
    return definition->getUnderlayItem()->getUnderlayLayer(index, layer);
}

Kora::ErrorStatus KoDbUnderlayReference::setUnderlayLayer(int index, const KoDbUnderlayLayer& layer)
{
    KODB_WRITE_GUARD();
    const int count = underlayLayerCount();
    if (index < 0 || index >= count) return Kora::eInvalidIndex;
    // The first change takes a copy of every state the reference shows.
    if (m_layers.empty()) {
        std::vector<KoDbUnderlayLayer> shown(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) getUnderlayLayer(i, shown[static_cast<size_t>(i)]);
        m_layers = std::move(shown);
    }
    m_layers[static_cast<size_t>(index)] = layer;
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayReference::setUnderlayLayers(std::vector<KoDbUnderlayLayer> layers)
{
    KODB_WRITE_GUARD();
    m_layers = std::move(layers);
    return Kora::eOk;
}

Kora::ErrorStatus KoDbUnderlayReference::getGeomExtents(KoDbExtents& extents) const
{
    extents = {};
    KoDbExtents local;
    for (const auto& p : m_clip) local.addPoint({p.x, p.y, 0.0});
    if (!local.isValid()) {
        const auto* definition = kodbPeek<KoDbUnderlayDefinition>(m_definition);
        const KoDbUnderlayItem* item = definition ? definition->getUnderlayItem() : nullptr;
        if (!item || item->getExtents(local) != Kora::eOk || !local.isValid()) return Kora::eNotApplicable;
    }
    // Placed like a block: scaled, turned about the normal, moved.
    const KoGeVector3d z = m_normal.normal();
    const KoGeVector3d ax = (std::fabs(z.x) < 1.0 / 64.0 && std::fabs(z.y) < 1.0 / 64.0)
                                ? KoGeVector3d(0, 1, 0).crossProduct(z).normal()
                                : KoGeVector3d(0, 0, 1).crossProduct(z).normal();
    const KoGeVector3d ay = z.crossProduct(ax);
    const double c = std::cos(m_rotation), s = std::sin(m_rotation);
    for (int i = 0; i < 8; ++i) {
        const double x = (i & 1 ? local.maxPoint() : local.minPoint()).x * m_scale.sx;
        const double y = (i & 2 ? local.maxPoint() : local.minPoint()).y * m_scale.sy;
        const double h = (i & 4 ? local.maxPoint() : local.minPoint()).z * m_scale.sz;
        extents.addPoint(m_position + ax * (x * c - y * s) + ay * (x * s + y * c) + z * h);
    }
    return Kora::eOk;
}

KORX_DEFINE_MEMBERS(KoDbDgnReference, KoDbUnderlayReference)
KoDbDgnReference::KoDbDgnReference() = default;
