// -DGNATTACH and DGNATTACH driven as a user would, on real DGN files and
// real drawings.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numbers>

#include <QCoreApplication>
#include <QDialog>
#include <QVariant>

#include "attach/DgnAttachCommand.h"
#include "attach/DgnAttachDialogs.h"
#include "attach/DgnFileLocation.h"
#include "attach/KoEdDgnAttachJig.h"
#include "kora/db/units.h"
#include "kora/dgn/underlayservice.h"
#include "kora/docman.h"
#include "kora/ftp.h"
#include "kora/host.h"
#include "kora/msgbox.h"
#include "kora/sysvars.h"
#include "module.h"
#include "dialogdriver.h"
#include "kora/ui/application.h"
#include "kora/ui/attachdialog.h"
#include "kora/ui/testhooks.h"
#include "testeditor.h"
#include "withoutdisplay.h"

extern char** environ;

namespace fs = std::filesystem;
using Kora::DgnCommands::buildFtpUrl;
using Kora::DgnCommands::modelsOf;
namespace Attach = Kora::Ui::AttachDialog;

namespace {

const fs::path kData = fs::path(KORA_TEST_DATA_DIR) / "dgn";
const KoString kSmallTest = KoString::fromUtf8((kData / "smalltest.dgn").string());
// A file whose units are metres and millimetres (smalltest's are unnamed).
const KoString kMetric = KoString::fromUtf8((kData / "seed3d-metric.dgn").string());
const KoString kInsertion = L"\nSpecify the insertion point: ";
const KoString kRotation = L"\nSpecify the rotate angle <0>: ";

KoString scalePrompt(double scale) { return KoString::format(L"\nSpecify the scale factor <%g>: ", scale); }

fs::path scratch(const char* name)
{
    const fs::path folder = fs::path(std::getenv("KORA_USER_ROOT")) / "attach" / name;
    fs::remove_all(folder);
    fs::create_directories(folder);
    return folder;
}

// The factor from the metric file's master (or sub) unit to `insunits`.
double unitFactor(bool master, int insunits)
{
    KoDbUnderlayFile file;
    EXPECT_EQ(KoDbDgnUnderlayService::LoadDgnUnderlayFile(kMetric, file), Kora::eOk);
    const DgnModelProp* model = nullptr;
    EXPECT_EQ(file.getModel(L"Default", model), Kora::eOk);
    double factor = 0.0;
    EXPECT_EQ(koraGetUnitsConversion(master ? model->masterUnits : model->subUnits, insunits, factor), Kora::eOk);
    return factor;
}

// Each test starts in a new drawing, with the module's resource library as
// the command sees it when the host runs it.
class DgnAttach : public testing::Test {
protected:
    void SetUp() override
    {
        m_savedState = Kora::DgnCommands::moduleState();
        Kora::DgnCommands::moduleState().resourceInstance =
            LoadResourceDll(KoString::fromUtf8((fs::path(KORA_BIN_DIR) / "DgnCommandsRes.dll").string()));
        ASSERT_NE(Kora::DgnCommands::moduleState().resourceInstance, nullptr);
        koraResetSysVars();
        closeAll();
        ASSERT_EQ(koDocManagerPtr()->appContextNewDocument(), Kora::eOk);
    }
    void TearDown() override
    {
        closeAll();
        koraResetSysVars();
        Kora::DgnCommands::moduleState() = m_savedState;
    }
    static void closeAll()
    {
        while (koDocManagerPtr()->curDocument()) koDocManagerPtr()->closeDocument(koDocManagerPtr()->curDocument());
    }
    static KoDbDatabase* db() { return kodbHostApplicationServices()->workingDatabase(); }

    static void attachAtCommandLine()
    {
        DgnAttachCommand command;
        command.setCommandLineMode(true);
        command.run();
    }
    static void attachWithDialog()
    {
        DgnAttachCommand command;
        command.run();
    }

    // The DGN references of model space, in drawing order.
    static std::vector<KoDbObjectId> references()
    {
        std::vector<KoDbObjectId> ids;
        KoDbObjectPointer<KoDbBlockTableRecord> space(db()->modelSpaceId());
        for (auto it = space->newIterator(); !it->done(); it->step()) {
            KoDbObjectId id;
            it->getEntityId(id);
            if (id.objectClass() == KoDbDgnReference::desc()) ids.push_back(id);
        }
        return ids;
    }
    static KoDbObjectId dictionary() { return KoDbUnderlayService::underlayDictionary(db(), KoDbDgnDefinition::desc()); }
    static int definitionCount()
    {
        KoDbObjectPointer<KoDbDictionary> dict(dictionary());
        return dict ? dict->numEntries() : 0;
    }

private:
    Kora::DgnCommands::ModuleState m_savedState;
};

struct Placed {
    KoGePoint3d position;
    double scale = 0.0, rotation = 0.0;
    KoDbObjectId definition;
};

Placed placed(KoDbObjectId id)
{
    KoDbObjectPointer<KoDbDgnReference> ref(id);
    EXPECT_TRUE(ref);
    if (!ref) return {};
    EXPECT_EQ(ref->scaleFactors().sx, ref->scaleFactors().sz);
    return {ref->position(), ref->scaleFactors().sx, ref->rotation(), ref->definitionId()};
}

void expectPlaced(const Placed& p, const KoGePoint3d& position, double scale, double rotation)
{
    EXPECT_EQ(p.position, position);
    EXPECT_DOUBLE_EQ(p.scale, scale);
    EXPECT_NEAR(p.rotation, rotation, 1e-12);
}

}  // namespace

TEST_F(DgnAttach, CommandLineRefusesBadAnswersThenPlacesWithTypedValues)
{
    const KoString notDgn = KoString::fromUtf8((kData / "LICENSE.GDAL.txt").string());
    const fs::path zeros = scratch("zeros") / "zeros.dgn";
    std::ofstream(zeros) << std::string(2048, '\0');
    ASSERT_EQ(koraSetSysVarText(L"INSUNITS", L"6"), KORTNORM);
    TestEditor editor;
    editor.reply(L"").reply(L"nosuch.dgn").reply(notDgn).reply(KoString::fromUtf8(zeros.string())).reply(kMetric);
    // Model names match with their case; "?" lists, or picks a named model.
    editor.reply(L"default").reply(L"?").reply(L"*").reply(L"?").reply(L"Default");
    editor.reply(L"sub").reply(L"10,20").reply(L"2").reply(L"90");
    attachAtCommandLine();

    const KoString& t = editor.transcript();
    EXPECT_NE(t.find(L"Filename cannot be blank"), KoString::npos) << t.toUtf8();
    EXPECT_NE(t.find(L"Not find file nosuch.dgn.\n"), KoString::npos) << t.toUtf8();
    const KoString unsupported = L"You have selected an unsupported DGN file, only V7 and V8 files are supported.";
    EXPECT_EQ(std::ranges::count(editor.prompts(), L"Path to DGN file to attach: "), 5);
    size_t refusals = 0;
    for (auto at = t.find(unsupported); at != KoString::npos; at = t.find(unsupported, at + 1)) ++refusals;
    EXPECT_EQ(refusals, 2u) << t.toUtf8();
    EXPECT_NE(t.find(L"There is no default in <" + kMetric + L">:"), KoString::npos) << t.toUtf8();
    EXPECT_EQ(std::ranges::count(editor.prompts(), L"Enter name of model or [?] <Default>:"), 3);
    EXPECT_EQ(std::ranges::count(editor.prompts(), L"Enter model(s) to list <*>:"), 2);
    EXPECT_EQ(std::ranges::count(editor.prompts(), L"Specify conversion units [Master/Sub] <Master>: "), 1);
    // The default scale turns the model's sub units into INSUNITS (metres).
    const double subScale = unitFactor(false, KoDb::kUnitsMeters);
    EXPECT_DOUBLE_EQ(subScale, 0.001);
    const std::vector<KoString> placing(editor.prompts().end() - 3, editor.prompts().end());
    EXPECT_EQ(placing, (std::vector<KoString>{kInsertion, scalePrompt(subScale), kRotation}));
    EXPECT_EQ(editor.unansweredPrompts(), 0);

    const std::vector<KoDbObjectId> refs = references();
    ASSERT_EQ(refs.size(), 1u) << t.toUtf8();
    const Placed p = placed(refs[0]);
    expectPlaced(p, {10, 20, 0}, 2.0, std::numbers::pi / 2);
    KoDbObjectPointer<KoDbDgnDefinition> definition(p.definition);
    ASSERT_TRUE(definition);
    EXPECT_EQ(definition->getItemName(), L"Default");
    EXPECT_FALSE(definition->useMasterUnits());
    EXPECT_EQ(definition->getSourceFileName(), kMetric);
    EXPECT_EQ(definition->getActiveFileName(), kMetric);
    EXPECT_TRUE(definition->isLoaded());
    definition.close();

    // LIST shows the placed underlay.
    koraRegisterHostCommands();
    TestEditor list;
    ASSERT_TRUE(koraRunCommand(L"LIST"));
    EXPECT_NE(list.transcript().find(L"DGNUNDERLAY"), KoString::npos) << list.transcript().toUtf8();
    EXPECT_NE(list.transcript().find(L"1 entities."), KoString::npos) << list.transcript().toUtf8();
}

TEST_F(DgnAttach, AV8FileOffersItsModelAndAttachesIt)
{
    const KoString v8 = KoString::fromUtf8((kData / "v8" / "test_dgnv8.dgn").string());
    TestEditor editor;
    editor.reply(v8).reply(L"").reply(L"").reply(L"0,0").reply(L"").reply(L"");
    attachAtCommandLine();
    EXPECT_EQ(editor.prompts()[1], L"Enter name of model or [?] <my_model>:");
    const std::vector<KoDbObjectId> refs = references();
    ASSERT_EQ(refs.size(), 1u);
    KoDbObjectPointer<KoDbDgnDefinition> definition(placed(refs[0]).definition);
    ASSERT_TRUE(definition);
    EXPECT_EQ(definition->getItemName(), L"my_model");
    EXPECT_TRUE(definition->isLoaded());
}

TEST_F(DgnAttach, EnterTakesTheDefaultsAndAttachingAgainReusesTheDefinition)
{
    const double masterScale = unitFactor(true, KoDb::kUnitsMillimeters);
    EXPECT_DOUBLE_EQ(masterScale, 1000.0);
    {
        TestEditor editor;
        // The insertion point has no default: a point equal to it is kept.
        editor.reply(kMetric).reply(L"").reply(L"").reply(L"0,0").reply(L"").reply(L"");
        attachAtCommandLine();
        EXPECT_EQ(editor.unansweredPrompts(), 0) << editor.transcript().toUtf8();
        EXPECT_EQ(editor.prompts()[4], scalePrompt(masterScale));
    }
    {
        // A bare name is found on the support path; it is the same file.
        setenv("KORA_SUPPORT_PATH", kData.c_str(), 1);
        TestEditor editor;
        editor.reply(L"seed3d-metric.dgn").reply(L"").reply(L"master").reply(L"5,5").reply(L"").reply(L"");
        attachAtCommandLine();
        unsetenv("KORA_SUPPORT_PATH");
        EXPECT_EQ(editor.unansweredPrompts(), 0) << editor.transcript().toUtf8();
    }
    const std::vector<KoDbObjectId> refs = references();
    ASSERT_EQ(refs.size(), 2u);
    const Placed first = placed(refs[0]), second = placed(refs[1]);
    EXPECT_EQ(first.position, KoGePoint3d(0, 0, 0));
    EXPECT_EQ(second.position, KoGePoint3d(5, 5, 0));
    EXPECT_DOUBLE_EQ(first.scale, masterScale);
    EXPECT_EQ(first.rotation, 0.0);
    EXPECT_EQ(first.definition, second.definition);
    EXPECT_EQ(definitionCount(), 1);
}

TEST_F(DgnAttach, CancellingAtAnyStepLeavesNoReferenceAndNoUnusedDefinition)
{
    const std::vector<KoString> answers = {L"1,1", L"2"};
    for (size_t step = 0; step < 3; ++step) {
        TestEditor editor;
        editor.reply(kSmallTest).reply(L"").reply(L"");
        for (size_t i = 0; i < step; ++i) editor.reply(answers[i]);
        editor.cancel();
        attachAtCommandLine();
        EXPECT_EQ(editor.prompts().size(), 4 + step) << editor.transcript().toUtf8();
        EXPECT_TRUE(references().empty()) << "cancelled at step " << step;
        // The first attachment of the drawing takes its dictionary back too.
        EXPECT_TRUE(dictionary().isNull()) << "cancelled at step " << step;
    }

    // A definition that a placed reference uses stays.
    {
        TestEditor editor;
        editor.reply(kSmallTest).reply(L"").reply(L"").reply(L"1,1").reply(L"").reply(L"");
        attachAtCommandLine();
    }
    {
        TestEditor editor;
        editor.reply(kSmallTest).reply(L"").reply(L"").reply(L"3,3").cancel();
        attachAtCommandLine();
    }
    const std::vector<KoDbObjectId> refs = references();
    ASSERT_EQ(refs.size(), 1u);
    EXPECT_EQ(definitionCount(), 1);
    EXPECT_FALSE(placed(refs[0]).definition.isErased());
}

TEST_F(DgnAttach, ScaleAnswersOfZeroOrBelowAndAnUnreadableInsunits)
{
    // Without INSUNITS nothing converts the units: the default scale is 1.
    koraUnregisterSysVar(L"INSUNITS");
    // Typed zero and negative scales are refused and asked again; Enter
    // then takes the default.
    for (const KoString& typed : {KoString(L"0"), KoString(L"-3")}) {
        TestEditor editor;
        editor.reply(kMetric).reply(L"").reply(L"").reply(L"0,0").reply(typed).reply(L"").reply(L"");
        attachAtCommandLine();
        EXPECT_EQ(editor.prompts()[4], scalePrompt(1.0));
        EXPECT_EQ(editor.prompts()[5], scalePrompt(1.0));
        EXPECT_NE(editor.transcript().find(typed == L"0" ? L"Requires a nonzero value." : L"Requires a positive value."),
                  KoString::npos) << editor.transcript().toUtf8();
        EXPECT_EQ(editor.unansweredPrompts(), 0) << editor.transcript().toUtf8();
    }
    koraRegisterSysVar({L"INSUNITS", KORTSHORT, L"Units of inserted content"}, L"4", 0, 24);
    const std::vector<KoDbObjectId> refs = references();
    ASSERT_EQ(refs.size(), 2u);
    EXPECT_DOUBLE_EQ(placed(refs[0]).scale, 1.0);
    EXPECT_DOUBLE_EQ(placed(refs[1]).scale, 1.0);
}

TEST_F(DgnAttach, ABlockNamedLikeTheDefinitionStopsTheAttach)
{
    {
        KoDbObjectPointer<KoDbBlockTable> blocks(db()->blockTableId(), KoDb::kForWrite);
        auto* block = new KoDbBlockTableRecord;
        block->setName(L"smalltest-Default");
        ASSERT_EQ(blocks->add(block), Kora::eOk);
        block->close();
    }
    TestEditor editor;
    editor.reply(kSmallTest).reply(L"").reply(L"");
    attachAtCommandLine();
    EXPECT_NE(editor.transcript().find(L"\nCannot attach: the drawing already has a block named \"smalltest-Default\"."),
              KoString::npos)
        << editor.transcript().toUtf8();
    EXPECT_EQ(editor.prompts().size(), 3u);
    EXPECT_TRUE(references().empty());
    EXPECT_TRUE(dictionary().isNull());
}

TEST_F(DgnAttach, AJigWithNothingToPickAppendsAtOnce)
{
    TestEditor editor;
    KoEdDgnAttachJig jig(db());
    jig.setPickFlags(false, false, false);
    jig.setInsertionPoint({5, 6, 7});
    jig.setScale(3.0);
    jig.setRotation(0.5);
    jig.setSourceFileName(kSmallTest);
    jig.setActiveFileName(kSmallTest);
    jig.setDefinitionName(L"site");
    jig.setModelName(L"Default");
    jig.run();
    EXPECT_TRUE(editor.prompts().empty());
    const std::vector<KoDbObjectId> refs = references();
    ASSERT_EQ(refs.size(), 1u);
    expectPlaced(placed(refs[0]), {5, 6, 7}, 3.0, 0.5);
    // The model's levels became the reference's layer states.
    KoDbObjectPointer<KoDbDgnReference> ref(refs[0]);
    EXPECT_GT(ref->underlayLayers().size(), 0u);
}

TEST_F(DgnAttach, TheDialogFlowFindsTheFileInTheFileDialogAndPlacesItWithTheDialogsValues)
{
    std::vector<KoString> boxes;
    const KoMessageBoxHandler previous = koraSetMessageBoxHandler([&](const wchar_t* text, const wchar_t*, unsigned) {
        boxes.emplace_back(text);
        return int(KOID_OK);
    });
    ASSERT_EQ(koraSetSysVarText(L"FILEDIA", L"1"), KORTNORM);
    // A file that is no design is refused and the dialog comes again.
    Kora::Ui::Test::clear();
    Kora::Ui::Test::queueFileDialogAnswer({KoString::fromUtf8((kData / "LICENSE.GDAL.txt").string())});
    Kora::Ui::Test::queueFileDialogAnswer({kMetric});
    bool insertionPicked = false, rotationPicked = true;
    ASSERT_TRUE(Kora::Ui::ensureApplication());
    Kora::Ui::Test::DialogDriver driver;
    driver.on(Attach::kDialogId)
        .call([&](QDialog& dialog) {
            insertionPicked = dialog.findChild<QWidget*>("control705")->property("checked").toBool();
            rotationPicked = dialog.findChild<QWidget*>("control711")->property("checked").toBool();
        })
        .check(Attach::kPickInsertion, false)
        .type(Attach::kInsertionX, L"5")
        .type(Attach::kInsertionY, L"6")
        .type(Attach::kInsertionZ, L"7")
        .check(Attach::kPickScale, false)
        .type(Attach::kScale, L"3")
        .type(Attach::kRotation, L"90")
        .check(Attach::kSubUnits)
        .ok();
    TestEditor editor;
    attachWithDialog();
    koraSetMessageBoxHandler(previous);
    EXPECT_TRUE(driver.problems().empty()) << driver.problems().front();
    EXPECT_TRUE(editor.prompts().empty()) << "nothing is left to pick";

    const auto asked = Kora::Ui::Test::fileDialogsAsked();
    ASSERT_EQ(asked.size(), 2u);
    EXPECT_EQ(asked[0].title, L"Select Reference File");
    EXPECT_FALSE(asked[0].save);
    EXPECT_EQ(asked[0].filters, (std::vector<KoString>{L"Microstation DGN(*.dgn)", L"All DGN File(*.*)"}));
    EXPECT_EQ(boxes, std::vector<KoString>{L"You have selected an unsupported DGN file, only V7 and V8 files are supported."});
    // The dialog attach starts with insertion and scale on screen, rotation typed.
    EXPECT_TRUE(insertionPicked);
    EXPECT_FALSE(rotationPicked);

    const std::vector<KoDbObjectId> refs = references();
    ASSERT_EQ(refs.size(), 1u);
    expectPlaced(placed(refs[0]), {5, 6, 7}, 3.0, std::numbers::pi / 2);
    KoDbObjectPointer<KoDbDgnDefinition> definition(placed(refs[0]).definition);
    ASSERT_TRUE(definition);
    EXPECT_EQ(definition->getSourceFileName(), kMetric);
    EXPECT_EQ(definition->getItemName(), L"Default");
    EXPECT_FALSE(definition->useMasterUnits());
}

TEST_F(DgnAttach, CancellingEitherDialogLeavesNothing)
{
    ASSERT_EQ(koraSetSysVarText(L"FILEDIA", L"1"), KORTNORM);
    Kora::Ui::Test::clear();
    Kora::Ui::Test::queueFileDialogAnswer({});
    Kora::Ui::Test::queueFileDialogAnswer({kSmallTest});
    ASSERT_TRUE(Kora::Ui::ensureApplication());
    Kora::Ui::Test::DialogDriver driver;
    driver.on(Attach::kDialogId).cancel();
    TestEditor editor;
    attachWithDialog();
    attachWithDialog();
    EXPECT_TRUE(driver.problems().empty()) << driver.problems().front();
    EXPECT_EQ(Kora::Ui::Test::fileDialogsAsked().size(), 2u);
    EXPECT_TRUE(editor.prompts().empty());
    EXPECT_TRUE(references().empty());
    EXPECT_TRUE(dictionary().isNull());
}

TEST_F(DgnAttach, WithNoFileAskedTheUserBrowsesAndPicksTheModelThenPlacesOnScreen)
{
    // A FILEDIA other than 0 and 1 goes straight to the options; the file
    // is browsed to there and its models are read by the command.
    const KoString v8 = KoString::fromUtf8((kData / "v8" / "test_dgnv8.dgn").string());
    Kora::Ui::Test::clear();
    Kora::Ui::Test::queueFileDialogAnswer({v8});
    ASSERT_TRUE(Kora::Ui::ensureApplication());
    Kora::Ui::Test::DialogDriver driver;
    driver.on(Attach::kDialogId).press(Attach::kBrowse).pickRow(Attach::kModels, 0).ok();
    TestEditor editor;
    editor.reply(L"1,2").reply(L"2");
    Kora::DgnCommands::attachWithDialog(2);
    EXPECT_TRUE(driver.problems().empty()) << driver.problems().front();
    EXPECT_EQ(editor.prompts(), (std::vector<KoString>{kInsertion, scalePrompt(1.0)}));

    const std::vector<KoDbObjectId> refs = references();
    ASSERT_EQ(refs.size(), 1u);
    expectPlaced(placed(refs[0]), {1, 2, 0}, 2.0, 0.0);
    KoDbObjectPointer<KoDbDgnDefinition> definition(placed(refs[0]).definition);
    EXPECT_EQ(definition->getItemName(), L"my_model");
    EXPECT_EQ(modelsOf(v8), std::vector<KoString>{L"my_model"});
    EXPECT_TRUE(modelsOf(KoString::fromUtf8((kData / "LICENSE.GDAL.txt").string())).empty());
}

TEST_F(DgnAttach, TildeAtTheCommandLinePromptOpensTheFileDialog)
{
    Kora::Ui::Test::clear();
    Kora::Ui::Test::queueFileDialogAnswer({kSmallTest});
    TestEditor editor;
    editor.reply(L"~").reply(L"").reply(L"").reply(L"0,0").reply(L"").reply(L"");
    attachAtCommandLine();
    EXPECT_EQ(editor.unansweredPrompts(), 0) << editor.transcript().toUtf8();
    ASSERT_EQ(Kora::Ui::Test::fileDialogsAsked().size(), 1u);
    const std::vector<KoDbObjectId> refs = references();
    ASSERT_EQ(refs.size(), 1u);
    KoDbObjectPointer<KoDbDgnDefinition> definition(placed(refs[0]).definition);
    EXPECT_EQ(definition->getSourceFileName(), kSmallTest);
}

TEST_F(DgnAttach, WithoutADisplayTheDialogsSaySoAndNothingIsAttached)
{
    // Another test of this process may have made the application already.
    if (QCoreApplication::instance()) GTEST_SKIP() << "this process has shown dialogs";
    Kora::Test::WithoutDisplay noDisplay;
    Kora::Ui::Test::clear();
    for (const int fileDia : {1, 2}) {
        TestEditor editor;
        Kora::DgnCommands::attachWithDialog(fileDia);
        EXPECT_TRUE(editor.prompts().empty());
        EXPECT_NE(editor.transcript().find(L"DGNATTACH needs a display. Use -DGNATTACH to work at the command line."),
                  KoString::npos)
            << editor.transcript().toUtf8();
    }
    {
        // FILEDIA 0: the typed file loads, then the options cannot be shown.
        ASSERT_EQ(koraSetSysVarText(L"FILEDIA", L"0"), KORTNORM);
        TestEditor editor;
        editor.reply(kSmallTest);
        attachWithDialog();
        EXPECT_EQ(editor.unansweredPrompts(), 0);
        EXPECT_NE(editor.transcript().find(L"DGNATTACH needs a display."), KoString::npos) << editor.transcript().toUtf8();
    }
    {
        TestEditor editor;
        editor.reply(L"~");
        attachAtCommandLine();
        EXPECT_EQ(editor.prompts().size(), 1u);
        EXPECT_NE(editor.transcript().find(L"The file dialog needs a display; type the file's path instead."), KoString::npos)
            << editor.transcript().toUtf8();
    }
    EXPECT_TRUE(references().empty());
    EXPECT_TRUE(dictionary().isNull());
}

TEST_F(DgnAttach, AnAttachedUnderlaySurvivesSaveasAndOpen)
{
    {
        TestEditor editor;
        editor.reply(kSmallTest).reply(L"").reply(L"").reply(L"10,20").reply(L"2.5").reply(L"30");
        attachAtCommandLine();
        ASSERT_EQ(references().size(), 1u) << editor.transcript().toUtf8();
    }
    const fs::path dxf = scratch("saveas") / "underlay.dxf";
    koraRegisterHostCommands();
    {
        TestEditor editor;
        koraRunScriptText(KoString::fromUtf8("SAVEAS " + dxf.string() + "\nOPEN " + dxf.string() + "\n"));
        ASSERT_EQ(KoString::fromUtf8(dxf.string()), db()->filename()) << editor.transcript().toUtf8();
    }
    const std::vector<KoDbObjectId> refs = references();
    ASSERT_EQ(refs.size(), 1u);
    const Placed p = placed(refs[0]);
    expectPlaced(p, {10, 20, 0}, 2.5, std::numbers::pi / 6);
    {
        KoDbObjectPointer<KoDbDgnDefinition> definition(p.definition);
        ASSERT_TRUE(definition);
        EXPECT_EQ(definition->getSourceFileName(), kSmallTest);
        EXPECT_EQ(definition->getItemName(), L"Default");
    }

    // A reader that is not ours sees the same underlay.
    const std::string script =
        "import ezdxf,sys\n"
        "doc = ezdxf.readfile(sys.argv[1])\n"
        "r = doc.modelspace().query('DGNUNDERLAY')[0]\n"
        "d = doc.entitydb[r.dxf.underlay_def_handle]\n"
        "print(d.dxftype(), d.dxf.filename, d.dxf.name, r.dxf.insert.x, r.dxf.insert.y,"
        " r.dxf.scale_x, r.dxf.scale_y, round(r.dxf.rotation, 9))\n";
    const std::string command = "/usr/bin/python3 -c \"" + script + "\" '" + dxf.string() + "' 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string out;
    char buffer[512];
    while (fgets(buffer, sizeof buffer, pipe)) out += buffer;
    EXPECT_EQ(pclose(pipe), 0) << out;
    EXPECT_EQ(out, "DGNDEFINITION " + kSmallTest.toUtf8() + " Default 10.0 20.0 2.5 2.5 30.0\n");
}

TEST(FtpLocation, CredentialsGoAfterTheSchemeOfLongEnoughPaths)
{
    EXPECT_EQ(buildFtpUrl(L"ftp://host/a.dgn", L"", L""), L"ftp://host/a.dgn");
    EXPECT_EQ(buildFtpUrl(L"ftp://host/a.dgn", L"ann", L"pw"), L"ftp://ann:pw@host/a.dgn");
    EXPECT_EQ(buildFtpUrl(L"ftp://host/a.dgn", L"ann", L""), L"ftp://ann:@host/a.dgn");
    EXPECT_EQ(buildFtpUrl(L"ftp://", L"ann", L"pw"), L"ftp://");
    EXPECT_EQ(buildFtpUrl(L"ftp://h", L"ann", L"pw"), L"ftp://ann:pw@h");
    EXPECT_TRUE(isFtpPath(L"FTP://host/a.dgn"));
    EXPECT_FALSE(isFtpPath(L"/srv/ftp://a.dgn"));
    EXPECT_FALSE(isFtpPath(L"ftp:/host"));
}

namespace {

// The FTP server of tests/module/ftpserver.py on 127.0.0.1, for one test.
class LocalFtpServer {
public:
    LocalFtpServer(const fs::path& folder, const char* user, const char* password)
    {
        int out[2];
        if (pipe(out) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, out[0]);
        const std::string script = std::string(KORA_SOURCE_DIR) + "/tests/module/ftpserver.py";
        const std::string dir = folder.string();
        const char* argv[] = {"/usr/bin/python3", script.c_str(), dir.c_str(), user, password, nullptr};
        if (posix_spawn(&m_pid, argv[0], &actions, nullptr, const_cast<char**>(argv), environ) != 0) m_pid = 0;
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        if (FILE* lines = fdopen(out[0], "r")) {
            if (fscanf(lines, "%d", &m_port) != 1) m_port = 0;
            fclose(lines);
        }
    }
    ~LocalFtpServer()
    {
        if (m_pid <= 0) return;
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    int port() const { return m_port; }

private:
    pid_t m_pid = 0;
    int m_port = 0;
};

std::string bytesOf(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

TEST_F(DgnAttach, AnFtpLocationIsFetchedWithTheTypedCredentials)
{
    const fs::path served = scratch("ftp-served");
    fs::copy_file(kData / "smalltest.dgn", served / "site plan.dgn");
    LocalFtpServer server(served, "surveyor", "s3cret");
    ASSERT_GT(server.port(), 0);
    const KoString url = KoString::format(L"ftp://127.0.0.1:%d/site%%20plan.dgn", server.port());

    {
        // Cancelling a credential prompt ends the command.
        TestEditor editor;
        editor.reply(url).reply(L"surveyor").cancel();
        attachAtCommandLine();
        EXPECT_EQ(editor.prompts().size(), 3u);
    }
    // Copies go to the temporary folder; a refused login leaves none there.
    const fs::path temp = scratch("ftp-temp");
    setenv("TMPDIR", temp.c_str(), 1);
    TestEditor editor;
    editor.reply(url).reply(L"surveyor").reply(L"wrong");
    editor.reply(url).reply(L"surveyor").reply(L"s3cret");
    editor.reply(L"").reply(L"").reply(L"0,0").reply(L"").reply(L"");
    attachAtCommandLine();
    unsetenv("TMPDIR");
    EXPECT_EQ(std::distance(fs::directory_iterator(temp), fs::directory_iterator()), 1);
    const KoString& t = editor.transcript();
    EXPECT_NE(t.find(L"Not find file " + url + L",or wrong account password.\n"), KoString::npos) << t.toUtf8();
    EXPECT_EQ(std::ranges::count(editor.prompts(), L"Please enter the account number:"), 2);
    EXPECT_EQ(std::ranges::count(editor.prompts(), L"Please input the password:"), 2);
    EXPECT_EQ(editor.unansweredPrompts(), 0) << t.toUtf8();

    const std::vector<KoDbObjectId> refs = references();
    ASSERT_EQ(refs.size(), 1u) << t.toUtf8();
    KoDbObjectPointer<KoDbDgnDefinition> definition(placed(refs[0]).definition);
    ASSERT_TRUE(definition);
    // The definition names the local copy, which holds the served bytes.
    const fs::path copy = definition->getActiveFileName().toUtf8();
    EXPECT_EQ(copy.filename(), "site plan.dgn");
    EXPECT_EQ(bytesOf(copy), bytesOf(served / "site plan.dgn"));
    EXPECT_EQ(copy.parent_path().parent_path(), temp);
}
