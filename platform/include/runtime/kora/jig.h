// Drag sequences (jigs) at the command line. A jig owns an entity under
// construction; each drag asks one question (a point, a distance or an
// angle), hands the typed answer to the jig's sampler, lets it update the
// entity, and finally the jig appends the entity to the drawing.
#pragma once

#include "kora/db/entities.h"
#include "kora/rxobject.h"

class KORA_API KoEdJig : public KoRxObject {
public:
    KORX_DECLARE_MEMBERS(KoEdJig)

    enum UserInputControls : int {
        kGovernedByOrthoMode = 0x0001,
        kNullResponseAccepted = 0x0002,  // the sampler gives Enter a meaning of its own
        kDontEchoCancelForCtrlC = 0x0004,
        kDontUpdateLastPoint = 0x0008,
        kNoDwgLimitsChecking = 0x0010,
        kNoZeroResponseAccepted = 0x0020,
        kNoNegativeResponseAccepted = 0x0040,
        kAccept3dCoordinates = 0x0080,
    };

    enum DragStatus : int {
        kNormal = 0,
        kNull = -1,      // Enter
        kCancel = -4,    // Escape, or the input ended
        kOther = -5,     // an answer that was refused
        kNoChange = -6,  // the answer equals the current value
    };

    KoEdJig();
    ~KoEdJig() override;

    // Asks the displayed prompt until the sampler accepts an answer. A
    // kNormal or kNoChange sample updates the entity and answers kNormal;
    // kNull and kCancel end the drag with that status.
    DragStatus drag();
    virtual DragStatus sampler() = 0;
    virtual bool update() = 0;
    virtual KoDbEntity* entity() const = 0;
    // Appends entity() to the current space of the working database and
    // answers its id (null when it could not be appended; the jig then
    // still owns the entity).
    KoDbObjectId append();

    void setDispPrompt(const wchar_t* format, ...);
    const wchar_t* dispPrompt() const { return m_prompt.c_str(); }
    void setUserInputControls(UserInputControls controls) { m_controls = controls; }
    UserInputControls userInputControls() const { return m_controls; }

    // Read the answer of the current drag; call them from sampler(). Enter
    // answers kNull; an answer that cannot be read is reported and answers
    // kOther, and the drag asks again.
    DragStatus acquirePoint(KoGePoint3d& point);
    DragStatus acquirePoint(KoGePoint3d& point, const KoGePoint3d& basePoint);
    DragStatus acquireDist(double& distance);
    DragStatus acquireDist(double& distance, const KoGePoint3d& basePoint);
    DragStatus acquireAngle(double& angle);
    DragStatus acquireAngle(double& angle, const KoGePoint3d& basePoint);

private:
    // Checks Enter and the answer's sign against the controls.
    DragStatus refuse(const wchar_t* message);

    KoString m_prompt;
    KoString m_answer;
    UserInputControls m_controls = UserInputControls(0);
};
