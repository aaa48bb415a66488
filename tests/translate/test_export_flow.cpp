#include "flowtest.h"

#include <unistd.h>

#include "export/DgnSeedCatalogue.h"
#include "kora/db/entities.h"
#include "kora/editor.h"
#include "withoutdisplay.h"

using Kora::Test::FlowTest;
namespace fs = std::filesystem;

namespace {

const KoString kV7Prompt = L"Enter DGN file format [V7/V8] <V7>: ";
const KoString kUnits = L"Specify conversion units [Master/Sub] <Master>: ";
const KoString kSetup = L"Specify mapping setup or [?] <Standard>:";
const KoString kReplace = L"Do you want to replace it? [Yes/No] <No>: ";
const KoString kUnsupported =
    L"This Drawing contains entities Which cannot output to DGN, Do you want to continue? [Yes/No] <No>: ";

class ExportFlow : public FlowTest {
protected:
    void SetUp() override
    {
        FlowTest::SetUp();
        koraConfig()->setValue(4, L"UserInterfaceSettings\\DgnExportFileDlg\\InitialDirectory", KoraVariant(folder()));
    }
    KoString folder() const { return text(dir) + L"/"; }
    KoString filePrompt(const KoString& file) const { return L"Enter filename for DGN export <" + file + L">: "; }
    static KoString seedPrompt(const wchar_t* seed)
    {
        return L"Specify seed file or [?] <" + Kora::DgnCommands::seedFilePath(seed) + L">";
    }
    static void addSolid() { Kora::Test::appendToModel(*koDocManagerPtr()->curDocument()->database(), new KoDb3dSolid); }
};

}  // namespace

TEST_F(ExportFlow, EveryPromptInOrderAndTheSettingsWrittenBack)
{
    TestEditor editor;
    editor.reply(L"8").reply(text(dir / "plan")).reply(L"Sub").reply(L"").reply(L"");
    run(L"-DGNEXPORT", editor);
    const KoString untitled = folder() + L".dgn";
    EXPECT_EQ(editor.prompts(), (std::vector<KoString>{kV7Prompt, filePrompt(untitled), kUnits, kSetup,
                                                       seedPrompt(L"V8-Imperial-Seed2D.dgn")}));
    EXPECT_NE(editor.transcript().find(L"\nTranslation failed.\n"), KoString::npos) << editor.transcript().toUtf8();
    EXPECT_EQ(variable(L"_KX_DGNEXPORTTYPE"), 0);
    EXPECT_EQ(storedValue(L"EXPORTSECTION", L"IsMasterUnits"), L"0");
    EXPECT_EQ(storedValue(L"EXPORTSECTION", L"MappingSetupName"), L"Standard");
    EXPECT_EQ(storedValue(L"EXPORTSECTION", L"SeedFileName"), Kora::DgnCommands::seedFilePath(L"V8-Imperial-Seed2D.dgn"));
    EXPECT_EQ(storedValue(L"EXPORTSECTION", L"TranslationOption"), L"2");
    EXPECT_TRUE(fs::exists(dir / "plan.dgn"));  // the write probe made it
}

TEST_F(ExportFlow, VersionRepliesAndTheDefaultFileName)
{
    koDocManagerPtr()->curDocument()->setFileName(L"/drawings/site.plan.dxf");
    for (const auto& [reply, version] : {std::pair{L"7", 1}, {L"V7", 1}, {L"v7", 1}, {L"8", 0}, {L"V8", 0}, {L"", 0}}) {
        // Stored is the other version, except for Enter, which keeps it.
        const bool enter = KoString(reply).isEmpty();
        ASSERT_EQ(koraSetSysVarText(L"_KX_DGNEXPORTTYPE", enter || version == 1 ? L"0" : L"1"), KORTNORM);
        TestEditor editor;
        editor.reply(reply).cancel();
        run(L"-DGNEXPORT", editor);
        EXPECT_EQ(variable(L"_KX_DGNEXPORTTYPE"), version) << "reply " << KoString(reply).toUtf8();
        EXPECT_EQ(editor.prompts().back(), filePrompt(folder() + L"site.plan.dgn"));
    }
    // A version cancelled is not stored, and nothing else is either.
    TestEditor editor;
    editor.cancel();
    run(L"-DGNEXPORT", editor);
    EXPECT_EQ(variable(L"_KX_DGNEXPORTTYPE"), 0);
    EXPECT_FALSE(fs::exists(storeFilePath()));
}

TEST_F(ExportFlow, PathsAreCheckedExtendedAndReplacedOnlyWhenTheUserAgrees)
{
    std::ofstream(dir / "plan.dgn") << "keep";
    TestEditor editor;
    editor.reply(L"8")
        .reply(L"/no/such/folder/plan")
        .reply(text(dir / "plan"))
        .reply(L"")  // Enter at the replace question asks for the name again
        .reply(text(dir / "plan.dgn"))
        .reply(L"No")
        .reply(text(dir / "plan.txt"))
        .cancel();
    run(L"-DGNEXPORT", editor);
    const KoString prompt = filePrompt(folder() + L".dgn");
    EXPECT_EQ(editor.prompts(), (std::vector<KoString>{kV7Prompt, prompt, prompt, kReplace, prompt, kReplace, prompt,
                                                       kUnits}));
    EXPECT_NE(editor.transcript().find(L"/no/such/folder/planInvalid path.\n"), KoString::npos)
        << editor.transcript().toUtf8();
    EXPECT_NE(editor.transcript().find(L"A file with this name already exists.\n" + kReplace), KoString::npos);
    std::ifstream kept(dir / "plan.dgn");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "keep");
    KoraVariant last;
    ASSERT_EQ(koraConfig()->getValue(4, L"UserInterfaceSettings\\DgnExportFileDlg\\InitialDirectory", last), Kora::eOk);
    EXPECT_EQ(last.stringValue(), folder());

    // "Yes" replaces; a name ending in ".DGN" keeps its extension.
    std::ofstream(dir / "upper.DGN") << "old";
    TestEditor yes;
    yes.reply(L"8").reply(text(dir / "upper.DGN")).reply(L"Yes").reply(L"").reply(L"").reply(L"");
    run(L"-DGNEXPORT", yes);
    EXPECT_EQ(fs::file_size(dir / "upper.DGN"), 0u);
    EXPECT_FALSE(fs::exists(dir / "upper.DGN.dgn"));
}

TEST_F(ExportFlow, SetupAndSeedPromptsListAndRefuse)
{
    const fs::path mySeed = dir / "mine.dgn";
    std::ofstream(mySeed) << "seed";
    writeStoreFile("[EXPORTSECTION]\nSeedFileName=" + Kora::DgnCommands::seedFilePath(L"V7-Metric-Seed2D.dgn").toUtf8() +
                   "\n[MappingSetup1]\nName=Roads\nisImport=0\nLayerCount=1\nDWGLayer0=0\nDGNLevel0=5\n"
                   "[MappingSetup2]\nName=Levels\nisImport=1\n");
    TestEditor editor;
    editor.reply(L"V8").reply(text(dir / "plan")).reply(L"")
        .reply(L"levels").reply(L"?").reply(L"").reply(L"?").reply(L"roads").reply(L"")
        .reply(text(dir / "absent.dgn")).reply(L"?").reply(L"").reply(L"?").reply(text(dir / "mine")).reply(text(mySeed));
    run(L"-DGNEXPORT", editor);
    const KoString& transcript = editor.transcript();
    EXPECT_NE(transcript.find(L"levels not found\n"), KoString::npos) << transcript.toUtf8();
    EXPECT_NE(transcript.find(L"Enter mapping setup(s) to list <*>:Roads\n"), KoString::npos) << transcript.toUtf8();
    // A setup named at the listing prompt is the default from then on.
    EXPECT_NE(transcript.find(L"Specify mapping setup or [?] <Roads>:"), KoString::npos) << transcript.toUtf8();
    // The stored seed is a V7 one: the V8 default is the first V8 seed.
    EXPECT_NE(transcript.find(seedPrompt(L"V8-Imperial-Seed2D.dgn")), KoString::npos) << transcript.toUtf8();
    EXPECT_NE(transcript.find(L"Enter seed file(s) to list <*>:" + Kora::DgnCommands::seedFilePath(L"V8-Imperial-Seed2D.dgn")),
              KoString::npos) << transcript.toUtf8();
    EXPECT_NE(transcript.find(L"absent.dgnInvalid file.\n"), KoString::npos) << transcript.toUtf8();
    EXPECT_NE(transcript.find(L"mineInvalid file.\n"), KoString::npos) << transcript.toUtf8();
    EXPECT_EQ(storedValue(L"EXPORTSECTION", L"MappingSetupName"), L"Roads");
    EXPECT_EQ(storedValue(L"EXPORTSECTION", L"SeedFileName"), text(mySeed));
}

TEST_F(ExportFlow, UnsupportedContentStopsOnlyOnNo)
{
    addSolid();
    TestEditor enter;
    enter.reply(L"8").reply(text(dir / "plan")).reply(L"").reply(L"").reply(L"").reply(L"");
    run(L"-DGNEXPORT", enter);
    EXPECT_EQ(enter.prompts().back(), kUnsupported);
    EXPECT_NE(enter.transcript().find(L"\nTranslation failed."), KoString::npos) << enter.transcript().toUtf8();

    TestEditor no;
    no.reply(L"8").reply(text(dir / "other")).reply(L"").reply(L"").reply(L"").reply(L"No");
    run(L"-DGNEXPORT", no);
    EXPECT_EQ(no.transcript().find(L"Translation"), KoString::npos) << no.transcript().toUtf8();
    EXPECT_FALSE(fs::exists(dir / "other.dgn"));
}

TEST_F(ExportFlow, AFolderThatCannotBeWrittenEndsWithAFileAccessError)
{
    TestEditor editor;
    editor.reply(L"8").reply(L"/proc/plan").reply(L"").reply(L"").reply(L"");
    run(L"-DGNEXPORT", editor);
    EXPECT_NE(editor.transcript().find(L"File access error.\n"), KoString::npos) << editor.transcript().toUtf8();
    EXPECT_EQ(editor.transcript().find(L"Translation"), KoString::npos);
    EXPECT_FALSE(fs::exists(storeFilePath()));
    if (geteuid() != 0) {
        const fs::path locked = dir / "locked";
        fs::create_directory(locked);
        fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_exec);
        TestEditor again;
        again.reply(L"8").reply(text(locked / "plan")).reply(L"").reply(L"").reply(L"");
        run(L"-DGNEXPORT", again);
        fs::permissions(locked, fs::perms::owner_all);
        EXPECT_NE(again.transcript().find(L"File access error.\n"), KoString::npos);
        EXPECT_TRUE(fs::is_empty(locked));
    }
}

TEST_F(ExportFlow, V7ProbesOneFilePerLayoutWithViewports)
{
    KoDbDatabase* db = koDocManagerPtr()->curDocument()->database();
    KoDbObjectId layoutId, blockId;
    ASSERT_EQ(db->createLayout(L"Sheet", layoutId, blockId), Kora::eOk);
    {
        KoDbObjectPointer<KoDbBlockTableRecord> block(blockId, KoDb::kForWrite);
        auto* viewport = new KoDbViewport;
        viewport->setDatabaseDefaults(db);
        ASSERT_EQ(block->appendKoDbEntity(viewport), Kora::eOk);
        viewport->close();
    }
    TestEditor editor;
    editor.reply(L"7").reply(text(dir / "plan")).reply(L"").reply(L"").reply(L"");
    run(L"-DGNEXPORT", editor);
    EXPECT_TRUE(fs::exists(dir / "plan.dgn"));
    EXPECT_TRUE(fs::exists(dir / "plan - Sheet.dgn"));
    EXPECT_FALSE(fs::exists(dir / "plan - Layout1.dgn"));  // never set up
}

TEST_F(ExportFlow, CancelAtEveryPromptWritesNoFile)
{
    addSolid();
    const KoString replies[] = {L"8", text(dir / "plan"), L"", L"", L""};
    for (int answered = 0; answered <= 5; ++answered) {
        TestEditor editor;
        for (int i = 0; i < answered; ++i) editor.reply(replies[i]);
        editor.cancel();
        run(L"-DGNEXPORT", editor);
        EXPECT_EQ(editor.prompts().size(), static_cast<size_t>(answered + 1));
        // Cancel at the unsupported-content question goes on to export.
        if (answered == 5) continue;
        EXPECT_TRUE(fs::is_empty(dir)) << "cancelled after " << answered << " replies";
        EXPECT_FALSE(fs::exists(storeFilePath()));
        EXPECT_EQ(editor.transcript().find(L"Translation"), KoString::npos);
    }
    // A closed file dialog ends the command too.
    Kora::Ui::Test::queueFileDialogAnswer({});
    TestEditor tilde;
    tilde.reply(L"8").reply(L"~");
    run(L"-DGNEXPORT", tilde);
    EXPECT_EQ(tilde.prompts().size(), 2u);
}

TEST_F(ExportFlow, TildeOpensTheFileDialogForTheChosenVersionOnly)
{
    koDocManagerPtr()->curDocument()->setFileName(L"/drawings/site.dxf");
    fs::create_directory(dir / "out");
    Kora::Ui::Test::queueFileDialogAnswer({text(dir / "out" / "plan")});
    TestEditor editor;
    editor.reply(L"7").reply(L"~").cancel();
    run(L"-DGNEXPORT", editor);
    EXPECT_EQ(editor.prompts(), (std::vector<KoString>{kV7Prompt, filePrompt(folder() + L"site.dgn"), kUnits}));
    const auto asked = Kora::Ui::Test::fileDialogsAsked();
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].title, L"Export a dgn file");
    EXPECT_EQ(asked[0].initialPath, folder() + L"site");
    EXPECT_EQ(asked[0].filters, std::vector<KoString>{L"V7 DGN (*.dgn)"});
    EXPECT_TRUE(asked[0].save);
    // The chosen file's folder is kept for the next export.
    EXPECT_EQ(initialDirectory(L"DgnExportFileDlg"), text(dir / "out") + L"/");
}

TEST_F(ExportFlow, TheDialogFormChoosesFileAndVersionInTheFileDialog)
{
    ASSERT_EQ(koraSetSysVarText(L"_KX_DGNEXPORTTYPE", L"0"), KORTNORM);
    Kora::Ui::Test::queueFileDialogAnswer({});
    TestEditor cancelled;
    run(L"DGNEXPORT", cancelled);
    EXPECT_TRUE(cancelled.prompts().empty());
    EXPECT_EQ(variable(L"_KX_DGNEXPORTTYPE"), 0);
    EXPECT_EQ(initialDirectory(L"DgnExportFileDlg"), folder());

    fs::create_directory(dir / "out");
    Kora::Ui::Test::queueFileDialogAnswer({text(dir / "out" / "plan.dgn"), 1});
    TestEditor chosen;
    run(L"DGNEXPORT", chosen);
    EXPECT_TRUE(chosen.prompts().empty());
    const auto asked = Kora::Ui::Test::fileDialogsAsked();
    ASSERT_EQ(asked.size(), 2u);
    EXPECT_EQ(asked[1].filters, (std::vector<KoString>{L"V8 DGN (*.dgn)", L"V7 DGN (*.dgn)"}));
    EXPECT_EQ(asked[1].filterIndex, 0) << "the stored version is offered first";
    EXPECT_EQ(variable(L"_KX_DGNEXPORTTYPE"), 1);
    EXPECT_EQ(initialDirectory(L"DgnExportFileDlg"), text(dir / "out") + L"/");
    EXPECT_NE(chosen.transcript().find(L"export settings dialog is not available yet; use -DGNEXPORT"), KoString::npos)
        << chosen.transcript().toUtf8();
    EXPECT_FALSE(fs::exists(dir / "out" / "plan.dgn"));
}

TEST_F(ExportFlow, WithoutADisplayTheFileDialogsSaySo)
{
    Kora::Test::WithoutDisplay noDisplay;
    TestEditor editor;
    run(L"DGNEXPORT", editor);
    EXPECT_NE(editor.transcript().find(L"DGNEXPORT needs a display. Use -DGNEXPORT to work at the command line."),
              KoString::npos)
        << editor.transcript().toUtf8();

    TestEditor tilde;
    tilde.reply(L"8").reply(L"~");
    run(L"-DGNEXPORT", tilde);
    EXPECT_EQ(tilde.prompts().size(), 2u);
    EXPECT_NE(tilde.transcript().find(L"The file dialog needs a display"), KoString::npos) << tilde.transcript().toUtf8();
    EXPECT_TRUE(fs::is_empty(dir));
}

TEST_F(ExportFlow, TheDialogFormAsksAtTheCommandLineWithoutFileDialogs)
{
    ASSERT_EQ(koraSetSysVarText(L"FILEDIA", L"0"), KORTNORM);
    TestEditor editor;
    editor.cancel();
    run(L"DGNEXPORT", editor);
    EXPECT_EQ(editor.prompts(), (std::vector<KoString>{kV7Prompt}));
}

TEST_F(ExportFlow, TheTranslationWritesADesignTheLibraryReadsBack)
{
    Kora::Test::appendToModel(*koDocManagerPtr()->curDocument()->database(), new KoDbLine({0, 0, 0}, {10, 5, 0}));
    TestEditor editor;
    editor.reply(L"7").reply(text(dir / "plan")).reply(L"").reply(L"").reply(text(fs::path(KORA_TEST_DATA_DIR) / "dgn" / "seed_2d.dgn"));
    run(L"-DGNEXPORT", editor);
    EXPECT_NE(editor.transcript().find(L"\nTranslation successful."), KoString::npos) << editor.transcript().toUtf8();
    DgnFileProp prop;
    ASSERT_EQ(DgnFile::addPropFromDgnFile(text(dir / "plan.dgn"), prop), KORTNORM);
    EXPECT_EQ(prop.version, kDgnVersionV7);
    EXPECT_EQ(prop.levels, std::vector<KoString>{L"1"}) << "layer 0 takes the first free level";
}
