#include "kora/jig.h"

#include <cmath>

#include "currentspace.h"
#include "inputparse.h"
#include "kora/docman.h"
#include "kora/editor.h"
#include "kora/editorbackend.h"

KORX_DEFINE_MEMBERS(KoEdJig, KoRxObject)

namespace {

double distanceBetween(const KoGePoint3d& a, const KoGePoint3d& b)
{
    return std::sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y) + (a.z - b.z) * (a.z - b.z));
}

}  // namespace

KoEdJig::KoEdJig() = default;
KoEdJig::~KoEdJig() = default;

void KoEdJig::setDispPrompt(const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    m_prompt = KoString::formatV(format, args);
    va_end(args);
}

KoEdJig::DragStatus KoEdJig::drag()
{
    KoEditorBackend* backend = koraEditorBackend();
    for (;;) {
        const std::optional<KoString> reply = backend ? backend->readReply(m_prompt, false) : std::nullopt;
        if (!reply) return kCancel;
        m_answer = reply->trimmed();
        const DragStatus status = sampler();
        if (status == kOther) continue;
        if (status == kNormal || status == kNoChange) {
            update();
            return kNormal;
        }
        return status;
    }
}

KoEdJig::DragStatus KoEdJig::refuse(const wchar_t* message)
{
    koedPrompt(message);
    return kOther;
}

KoEdJig::DragStatus KoEdJig::acquirePoint(KoGePoint3d& point)
{
    if (m_answer.isEmpty()) return kNull;
    const std::optional<KoGePoint3d> p = Kora::Runtime::parsePoint(m_answer, nullptr);
    if (!p) return refuse(L"\nInvalid point.");
    point = *p;
    if (!(m_controls & kAccept3dCoordinates)) point.z = 0.0;
    if (!(m_controls & kDontUpdateLastPoint)) Kora::Runtime::lastPoint() = point;
    return kNormal;
}

KoEdJig::DragStatus KoEdJig::acquirePoint(KoGePoint3d& point, const KoGePoint3d& basePoint)
{
    if (m_answer.isEmpty()) return kNull;
    const std::optional<KoGePoint3d> p = Kora::Runtime::parsePoint(m_answer, &basePoint);
    if (!p) return refuse(L"\nInvalid point.");
    point = *p;
    if (!(m_controls & kAccept3dCoordinates)) point.z = basePoint.z;
    return kNormal;
}

KoEdJig::DragStatus KoEdJig::acquireDist(double& distance)
{
    return acquireDist(distance, Kora::Runtime::lastPoint());
}

KoEdJig::DragStatus KoEdJig::acquireDist(double& distance, const KoGePoint3d& basePoint)
{
    if (m_answer.isEmpty()) return kNull;
    std::optional<double> d = Kora::Runtime::parseReal(m_answer);
    if (!d) {
        const std::optional<KoGePoint3d> p = Kora::Runtime::parsePoint(m_answer, &basePoint);
        if (!p) return refuse(L"\nRequires numeric distance or second point.");
        d = distanceBetween(*p, basePoint);
    }
    if ((m_controls & kNoZeroResponseAccepted) && *d == 0.0) return refuse(L"\nRequires a nonzero value.");
    if ((m_controls & kNoNegativeResponseAccepted) && *d < 0.0) return refuse(L"\nRequires a positive value.");
    distance = *d;
    return kNormal;
}

KoEdJig::DragStatus KoEdJig::acquireAngle(double& angle)
{
    return acquireAngle(angle, Kora::Runtime::lastPoint());
}

KoEdJig::DragStatus KoEdJig::acquireAngle(double& angle, const KoGePoint3d& basePoint)
{
    if (m_answer.isEmpty()) return kNull;
    if (const std::optional<double> degrees = Kora::Runtime::parseReal(m_answer)) {
        angle = *degrees * M_PI / 180.0;
        return kNormal;
    }
    const std::optional<KoGePoint3d> p = Kora::Runtime::parsePoint(m_answer, &basePoint);
    if (!p) return refuse(L"\nRequires valid numeric angle or second point.");
    angle = std::atan2(p->y - basePoint.y, p->x - basePoint.x);
    return kNormal;
}

KoDbObjectId KoEdJig::append()
{
    KoDbDatabase* db = kodbHostApplicationServices()->workingDatabase();
    KoDbEntity* ent = entity();
    KoDbObjectId id;
    if (!db || !ent || Kora::Runtime::appendToCurrentSpace(*db, ent, id) != Kora::eOk) return KoDbObjectId::kNull;
    return id;
}
