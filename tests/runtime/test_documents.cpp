#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "kora/commandstack.h"
#include "kora/docman.h"
#include "kora/editor.h"
#include "kora/host.h"
#include "kora/jig.h"
#include "testeditor.h"

namespace fs = std::filesystem;

namespace {

fs::path scratch(const char* name)
{
    const fs::path folder = fs::path(std::getenv("KORA_USER_ROOT")) / "documents" / name;
    fs::remove_all(folder);
    fs::create_directories(folder);
    return folder;
}

void closeAll()
{
    while (koDocManagerPtr()->curDocument()) koDocManagerPtr()->closeDocument(koDocManagerPtr()->curDocument());
}

// Counts the entities of model space by class.
int countOf(KoDbDatabase& db, const KoRxClass* cls)
{
    KoDbBlockTableRecord* space = nullptr;
    if (kodbOpenObject(space, db.modelSpaceId(), KoDb::kForRead) != Kora::eOk) return -1;
    int n = 0;
    for (auto it = space->newIterator(); !it->done(); it->step()) {
        KoDbObjectId id;
        it->getEntityId(id);
        if (id.objectClass() && id.objectClass()->isDerivedFrom(cls)) ++n;
    }
    space->close();
    return n;
}

// Places a circle: centre, then radius, each by dragging.
class CircleJig final : public KoEdJig {
public:
    CircleJig() : m_circle(new KoDbCircle(KoGePoint3d(), KoGeVector3d::kZAxis(), 1.0)) {}
    ~CircleJig() override { delete m_circle; }
    DragStatus run()
    {
        m_step = 0;
        setDispPrompt(L"\nCenter: ");
        if (const DragStatus s = drag(); s != kNormal) return s;
        m_step = 1;
        setDispPrompt(L"\nRadius <%g>: ", m_radius);
        if (const DragStatus s = drag(); s != kNormal) return s;
        if (append().isNull()) return kOther;
        m_circle = nullptr;
        return kNormal;
    }
    DragStatus sampler() override
    {
        if (m_step == 0) {
            setUserInputControls(kAccept3dCoordinates);
            KoGePoint3d p;
            const DragStatus s = acquirePoint(p);
            if (s != kNormal) return s;
            if (p == m_center) return kNoChange;
            m_center = p;
            return kNormal;
        }
        setUserInputControls(UserInputControls(kNullResponseAccepted | kNoZeroResponseAccepted | kNoNegativeResponseAccepted));
        double r = 0;
        const DragStatus s = acquireDist(r, m_center);
        if (s == kNull) return kNormal;  // Enter keeps the default radius
        if (s != kNormal) return s;
        m_radius = r;
        return kNormal;
    }
    bool update() override
    {
        m_circle->setCenter(m_center);
        m_circle->setRadius(m_radius);
        return true;
    }
    KoDbEntity* entity() const override { return m_circle; }
    KoDbCircle* m_circle;
    KoGePoint3d m_center;
    double m_radius = 1.0;
    int m_step = 0;
};

}  // namespace

TEST(Documents, NewOpenSaveAndCloseKeepTheCurrentDrawingRight)
{
    closeAll();
    const fs::path folder = scratch("open-save");
    KoApDocManager* dm = koDocManagerPtr();
    EXPECT_EQ(kodbHostApplicationServices()->workingDatabase(), nullptr);
    ASSERT_EQ(dm->appContextNewDocument(), Kora::eOk);
    KoApDocument* first = dm->curDocument();
    EXPECT_TRUE(first->docTitle().find(L"Drawing") == 0);
    EXPECT_EQ(kodbHostApplicationServices()->workingDatabase(), first->database());

    const KoString path = KoString::fromUtf8((folder / "first.dxf").string());
    ASSERT_EQ(dm->saveDocument(first, path), Kora::eOk);
    EXPECT_EQ(first->fileName(), path);
    EXPECT_EQ(first->docTitle(), L"first.dxf");

    // A file that cannot be read leaves the open drawing current.
    std::ofstream(folder / "broken.dxf") << "0\nSECTION\n2\nENTITIES\n0\nLINE\n10\nnot-a-number\n";
    KoString message;
    EXPECT_NE(dm->appContextOpenDocument(KoString::fromUtf8((folder / "broken.dxf").string()), &message), Kora::eOk);
    EXPECT_NE(message.find(L"broken.dxf"), KoString::npos) << message.toUtf8();
    EXPECT_EQ(dm->curDocument(), first);
    EXPECT_EQ(dm->appContextOpenDocument(L"drawing.dwg", &message), Kora::eUnsupportedFileFormat);

    ASSERT_EQ(dm->appContextOpenDocument(path), Kora::eOk);
    EXPECT_EQ(dm->documentCount(), 2);
    EXPECT_NE(dm->curDocument(), first);
    ASSERT_EQ(dm->lockDocument(dm->curDocument()), Kora::eOk);
    EXPECT_EQ(dm->closeDocument(dm->curDocument()), Kora::eLockViolation);
    EXPECT_EQ(dm->unlockDocument(dm->curDocument()), Kora::eOk);
    EXPECT_EQ(dm->closeDocument(dm->curDocument()), Kora::eOk);
    EXPECT_EQ(dm->curDocument(), first);
    closeAll();
    EXPECT_EQ(kodbHostApplicationServices()->workingDatabase(), nullptr);
}

namespace {
int g_jobRuns = 0;
bool g_jobSawCommand = true;
void job(void*)
{
    ++g_jobRuns;
    g_jobSawCommand = koraCommandActive();
}
void queueJob() { koDocManagerPtr()->executeInApplicationContext(job, nullptr); }
}  // namespace

TEST(Documents, ApplicationContextJobsRunAfterTheCommand)
{
    KoEdCommandStack* stack = KoEdCommandStack::cast(korxSysRegistry()->at(KORX_COMMAND_DOCK));
    ASSERT_EQ(stack->addCommand(L"T_JOBS", L"QUEUEJOB", L"QUEUEJOB", 0, queueJob), Kora::eOk);
    g_jobRuns = 0;
    EXPECT_TRUE(koraRunCommand(L"QUEUEJOB"));
    EXPECT_EQ(g_jobRuns, 1);
    EXPECT_FALSE(g_jobSawCommand);
    stack->removeGroup(L"T_JOBS");
}

TEST(Jigs, TypedPointsDistancesAndEnterDriveTheDrag)
{
    closeAll();
    koDocManagerPtr()->appContextNewDocument();
    KoDbDatabase* db = kodbHostApplicationServices()->workingDatabase();
    {
        TestEditor editor;
        // A refused answer asks again; Enter takes the default radius.
        editor.reply(L"10,20,5").reply(L"0").reply(L"x").reply(L"");
        CircleJig jig;
        EXPECT_EQ(jig.run(), KoEdJig::kNormal);
        EXPECT_NE(editor.transcript().find(L"Requires a nonzero value."), KoString::npos);
        EXPECT_NE(editor.transcript().find(L"Requires numeric distance or second point."), KoString::npos);
        EXPECT_EQ(jig.m_center, KoGePoint3d(10, 20, 5));
        EXPECT_EQ(jig.m_radius, 1.0);
    }
    {
        // A second point gives the distance from the centre.
        TestEditor editor;
        editor.reply(L"0,0").reply(L"@3,4");
        CircleJig jig;
        EXPECT_EQ(jig.run(), KoEdJig::kNormal);
        EXPECT_DOUBLE_EQ(jig.m_radius, 5.0);
    }
    {
        TestEditor editor;
        editor.reply(L"1,1").cancel();
        CircleJig jig;
        EXPECT_EQ(jig.run(), KoEdJig::kCancel);
    }
    {
        // Enter where the sampler has no default ends the drag with kNull.
        TestEditor editor;
        editor.reply(L"");
        CircleJig jig;
        EXPECT_EQ(jig.run(), KoEdJig::kNull);
    }
    EXPECT_EQ(countOf(*db, KoDbCircle::desc()), 2);
    EXPECT_EQ(db->openObjectCount(), 0);
    closeAll();
}

TEST(DrawingCommands, AScriptBuildsSavesAndReopensADrawing)
{
    closeAll();
    koraRegisterHostCommands();
    koDocManagerPtr()->appContextNewDocument();
    const fs::path folder = scratch("script");
    const std::string dxf = (folder / "built.dxf").string();
    const std::string script = "LAYER New Walls Set Walls Color 1 Walls ?\n\n"
                               "LINE 0,0 100,0 100,50 \n"
                               "CIRCLE 50,25 10\n"
                               "PLINE 0,0 10,0 10,10 C\n"
                               "TEXT 5,5 2.5 0 Ground floor plan\n"
                               "SAVEAS " + dxf + "\n"
                               "OPEN " + dxf + "\n";
    TestEditor editor;
    koraRunScriptText(KoString::fromUtf8(script));
    ASSERT_EQ(koDocManagerPtr()->documentCount(), 2) << editor.transcript().toUtf8();
    KoDbDatabase* db = kodbHostApplicationServices()->workingDatabase();
    EXPECT_EQ(countOf(*db, KoDbLine::desc()), 2);
    EXPECT_EQ(countOf(*db, KoDbCircle::desc()), 1);
    EXPECT_EQ(countOf(*db, KoDbPolyline::desc()), 1);
    EXPECT_EQ(countOf(*db, KoDbText::desc()), 1);
    KoDbLayerTable* layers = nullptr;
    ASSERT_EQ(db->getLayerTable(layers, KoDb::kForRead), Kora::eOk);
    KoDbLayerTableRecord* walls = nullptr;
    ASSERT_EQ(layers->getAt(L"Walls", walls, KoDb::kForRead), Kora::eOk) << editor.transcript().toUtf8();
    EXPECT_EQ(walls->color().colorIndex(), 1);
    EXPECT_EQ(db->clayer(), walls->objectId());
    walls->close();
    layers->close();
    EXPECT_EQ(editor.unansweredPrompts(), 0) << editor.transcript().toUtf8();
    closeAll();
}

// The drawing ezdxf wrote and the fixture script broke (tests/db): a line
// on a layer without a table entry, a reference to a block not defined.
TEST(DrawingCommands, OpenSaysWhatItRepaired)
{
    closeAll();
    koraRegisterHostCommands();
    TestEditor editor;
    const std::string broken = std::string(KORA_DB_FIXTURES) + "/broken_references.dxf";
    koraRunScriptText(KoString::fromUtf8("OPEN " + broken + "\n"));
    ASSERT_EQ(koDocManagerPtr()->documentCount(), 1) << editor.transcript().toUtf8();
    const std::string said = editor.transcript().toUtf8();
    EXPECT_NE(said.find("Audit: 2 problems repaired: layer \"Ghost\" was used without being defined; it was added; "
                        "block reference "),
              std::string::npos)
        << said;
    EXPECT_EQ(said.find("not repaired"), std::string::npos) << said;
    EXPECT_EQ(countOf(*kodbHostApplicationServices()->workingDatabase(), KoDbBlockReference::desc()), 0);
    closeAll();

    // A sound drawing opens without a word about repairs.
    TestEditor quiet;
    koraRunScriptText(KoString::fromUtf8("OPEN " + std::string(KORA_DB_FIXTURES) + "/entities.dxf\n"));
    ASSERT_EQ(koDocManagerPtr()->documentCount(), 1) << quiet.transcript().toUtf8();
    EXPECT_EQ(quiet.transcript().toUtf8().find("Audit"), std::string::npos) << quiet.transcript().toUtf8();
    closeAll();
}

TEST(DrawingCommands, SaveasAsksBeforeReplacingAFile)
{
    closeAll();
    koraRegisterHostCommands();
    koDocManagerPtr()->appContextNewDocument();
    const fs::path folder = scratch("saveas-replace");
    const fs::path target = folder / "plan.dxf";
    const auto original = [&] {
        std::ofstream(target) << "the user's own file";
    };
    const auto untouched = [&] {
        std::ifstream in(target);
        std::string text;
        std::getline(in, text);
        return text == "the user's own file";
    };
    const std::string saveas = "SAVEAS " + target.string() + "\n";

    // Enter, No and a cancel keep the file; the question comes from the
    // script like any other reply.
    for (const char* answer : {"\n", "N\n", "^C\n"}) {
        original();
        TestEditor editor;
        koraRunScriptText(KoString::fromUtf8(saveas + answer));
        EXPECT_TRUE(untouched()) << answer;
        EXPECT_NE(editor.transcript().find(L"already exists. Do you want to replace it? [Yes/No] <No>: "), KoString::npos)
            << editor.transcript().toUtf8();
        EXPECT_EQ(editor.unansweredPrompts(), 0);
    }
    original();
    {
        TestEditor editor;
        koraRunScriptText(KoString::fromUtf8(saveas + "Yes\n"));
        EXPECT_FALSE(untouched());
        EXPECT_EQ(koDocManagerPtr()->curDocument()->fileName(), KoString::fromUtf8(target.string()));
    }
    // SAVE writes the drawing's own file without asking.
    {
        TestEditor editor;
        koraRunScriptText(L"SAVE\n");
        EXPECT_EQ(editor.transcript().find(L"already exists"), KoString::npos) << editor.transcript().toUtf8();
        EXPECT_EQ(editor.unansweredPrompts(), 0);
    }
    closeAll();
}
