// Places a new DGN underlay reference: makes sure its definition exists,
// then asks for the insertion point, the scale and the rotation (each only
// when asked to) and appends the reference to the current space. A
// cancelled placement takes back a definition that nothing uses.
#pragma once

#include "kora/db/underlay.h"
#include "kora/jig.h"

class KoEdDgnAttachJig : public KoEdJig {
public:
    explicit KoEdDgnAttachJig(KoDbDatabase* database);
    ~KoEdDgnAttachJig() override;

    void setPickFlags(bool insertion, bool scale, bool rotation);
    void setInsertionPoint(const KoGePoint3d& point) { m_insertionPoint = point; }
    void setScale(double scale) { m_scale = scale; }
    void setDefaultScale(double scale) { m_defaultScale = scale; }
    void setRotation(double rotation) { m_rotation = rotation; }
    void setDefinitionName(const KoString& name) { m_definitionName = name; }
    void setSourceFileName(const KoString& name) { m_sourceFileName = name; }
    void setActiveFileName(const KoString& name) { m_activeFileName = name; }
    void setModelName(const KoString& name) { m_modelName = name; }
    void setUseMasterUnits(bool useMaster) { m_useMasterUnits = useMaster; }

    // The whole placement.
    void run();

    DragStatus sampler() override;
    bool update() override;
    KoDbEntity* entity() const override { return m_reference; }

private:
    enum Step { kInsertion = 0, kScale = 1, kRotation = 2 };

    // Asks one step; false when the user did not answer it.
    bool dragStep(Step step, const KoString& prompt);

    KoDbDatabase* m_database;
    Step m_currentStep = kInsertion;
    bool m_pickInsertion = false, m_pickScale = false, m_pickRotation = false;
    KoGePoint3d m_insertionPoint;
    double m_scale = 1.0, m_defaultScale = 1.0;
    double m_rotation = 0.0;
    KoString m_definitionName, m_sourceFileName, m_activeFileName, m_modelName;
    bool m_useMasterUnits = true;
    KoDbDgnReference* m_reference = nullptr;
};
