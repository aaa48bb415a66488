#include "KoEdDgnAttachJig.h"

#include <cmath>

#include "DgnUnderlayCreation.h"
#include "module.h"

using namespace Kora::DgnCommands;

namespace {
// Answers closer than this to zero or to the current value count as equal.
constexpr double kTolerance = 1e-10;
}  // namespace

KoEdDgnAttachJig::KoEdDgnAttachJig(KoDbDatabase* database) : m_database(database) {}

KoEdDgnAttachJig::~KoEdDgnAttachJig() { delete m_reference; }

void KoEdDgnAttachJig::setPickFlags(bool insertion, bool scale, bool rotation)
{
    m_pickInsertion = insertion;
    m_pickScale = scale;
    m_pickRotation = rotation;
}

bool KoEdDgnAttachJig::dragStep(Step step, const KoString& prompt)
{
    m_currentStep = step;
    setDispPrompt(L"%s", prompt.c_str());
    if (drag() == kNormal) return true;
    undoDefinition(m_database, m_definitionName);
    return false;
}

void KoEdDgnAttachJig::run()
{
    const KoDbObjectId definitionId = prepareDefinition(m_database, m_sourceFileName, m_activeFileName, m_modelName,
                                                        m_definitionName, m_useMasterUnits);
    if (definitionId.isNull()) return;
    m_reference = createReference(m_database, definitionId, m_scale, m_rotation, m_insertionPoint);

    if (m_pickInsertion && !dragStep(kInsertion, loadLocalString(20659, L"\nSpecify the insertion point: "))) return;
    if (m_pickScale &&
        !dragStep(kScale, KoString::format(loadLocalString(20688, L"\nSpecify the scale factor <%g>: ").c_str(), m_scale)))
        return;
    if (m_pickRotation && !dragStep(kRotation, loadLocalString(20661, L"\nSpecify the rotate angle <0>: "))) return;

    copyLayerStates(m_reference);
    if (!append().isNull()) m_reference = nullptr;
}

KoEdJig::DragStatus KoEdDgnAttachJig::sampler()
{
    switch (m_currentStep) {
    case kInsertion: {
        setUserInputControls(kAccept3dCoordinates);
        KoGePoint3d point;
        const DragStatus status = acquirePoint(point);
        if (status != kNormal) return status;
        if (point.distanceTo(m_insertionPoint) <= kTolerance) return kNoChange;
        m_insertionPoint = point;
        return kNormal;
    }
    case kScale: {
        // Typed zero and negative scales are refused and asked again; a
        // pointing device can still give them, and they are put right below.
        setUserInputControls(
            UserInputControls(kNullResponseAccepted | kNoZeroResponseAccepted | kNoNegativeResponseAccepted));
        double distance = 0.0;
        const DragStatus status = acquireDist(distance, m_insertionPoint);
        if (status == kNull) {
            m_scale = m_defaultScale;
            return kNormal;
        }
        if (status != kNormal) return status;
        // A zero scale would make the underlay vanish; fall back to the default.
        if (std::fabs(distance) <= kTolerance) {
            m_scale = m_defaultScale;
            return kNormal;
        }
        if (std::fabs(distance - m_scale) <= kTolerance) return kNoChange;
        m_scale = std::fabs(distance);
        return kNormal;
    }
    case kRotation: {
        setUserInputControls(UserInputControls(kGovernedByOrthoMode | kNullResponseAccepted | kAccept3dCoordinates));
        double angle = 0.0;
        const DragStatus status = acquireAngle(angle, m_insertionPoint);
        if (status == kNull) {
            m_rotation = 0.0;
            return kNormal;
        }
        if (status != kNormal) return status;
        if (std::fabs(angle - m_rotation) <= kTolerance) return kNoChange;
        m_rotation = angle;
        return kNormal;
    }
    }
    return kCancel;
}

bool KoEdDgnAttachJig::update()
{
    switch (m_currentStep) {
    case kInsertion: m_reference->setPosition(m_insertionPoint); break;
    case kScale: m_reference->setScaleFactors({m_scale, m_scale, m_scale}); break;
    case kRotation: m_reference->setRotation(m_rotation); break;
    }
    return true;
}
