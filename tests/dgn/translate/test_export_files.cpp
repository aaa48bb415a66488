// Which files the export writes and what it does with files already there:
// sheets beside model space, keep / overwrite / ask, the answers of the
// overwrite prompt, cancels, folders that refuse files, and V8.
#include "export_test_support.h"

#include <deque>

using namespace Kora::Test;
namespace fs = std::filesystem;

namespace {

// Answers the overwrite prompt from a queue and records what it was asked.
class ScriptedService : public KxDgnExportInternalService {
public:
    explicit ScriptedService(std::deque<int> answers, bool enabled = true) : m_answers(std::move(answers)), m_enabled(enabled) {}
    bool isEnabled() override { return m_enabled; }
    int promptFileOverwrite(KoString fileName) override
    {
        asked.push_back(fs::path(fileName.toUtf8()).filename().string());
        if (m_answers.empty()) return kDgnOverwriteCancel;
        const int answer = m_answers.front();
        m_answers.pop_front();
        return answer;
    }
    bool isUcsIconVisible() override { return true; }
    std::vector<std::string> asked;

private:
    std::deque<int> m_answers;
    bool m_enabled;
};

DgnExport exporter(int existing)
{
    DgnExport e;
    e.seedFile = seed("V7-Metric-Seed2D.dgn");
    e.existingXRefOperation = existing;
    return e;
}

// A drawing with a sheet that has a viewport: two files, plan.dgn and
// "plan - Layout1.dgn".
class ExistingFiles : public ::testing::Test {
protected:
    void SetUp() override
    {
        db = readDrawing(KORA_EXPORT_FIXTURE);
        folder = scratch(::testing::UnitTest::GetInstance()->current_test_info()->name());
        model = folder / "plan.dgn";
        sheet = folder / "plan - Layout1.dgn";
        writeFile(model, "old model");
        writeFile(sheet, "old sheet");
    }
    static void writeFile(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
    bool isDesign(const fs::path& path) const { return fileText(path).rfind("\x08\x09\xFE\x02", 0) == 0; }

    std::unique_ptr<KoDbDatabase> db;
    fs::path folder, model, sheet;
};

} // namespace

TEST(DgnExportFiles, SheetsWithViewportsGetFilesNamedAfterThem)
{
    auto db = readDrawing(fixture("layouts.dxf"));
    const auto folder = scratch("export-sheets");
    DgnExport e = exporter(kDgnExistingOverwrite);
    ASSERT_EQ(runExport(e, folder / "site.plan.dgn", *db), KORTNORM);
    // "Empty" has no viewport and gets no file.
    const std::vector<KoString> expected = {wide(folder / "site.plan.dgn"), wide(folder / "site.plan - Layout1.dgn"),
                                            wide(folder / "site.plan - Sheet2.dgn")};
    EXPECT_EQ(e.report().filesWritten, expected);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 3);
    // Each sheet holds its own paper-space entities.
    const auto layout1 = ogrFeatures(folder / "site.plan - Layout1.dgn");
    ASSERT_EQ(layout1.size(), 1u);
    EXPECT_NEAR(layout1[0].points.back().x, 50, 5e-8);
    const auto sheet2 = ogrFeatures(folder / "site.plan - Sheet2.dgn");
    ASSERT_EQ(sheet2.size(), 1u);
    EXPECT_EQ(sheet2[0].type, 15);

    // A name without an extension takes the sheet's name at its end.
    ASSERT_EQ(runExport(e, folder / "bare", *db), KORTNORM);
    EXPECT_TRUE(fs::exists(folder / "bare - Sheet2"));
}

// The main file is the caller's choice and always written; the operation
// settles the sheet files that already hold something.
TEST_F(ExistingFiles, KeepLeavesTheSheetAndSaysSo)
{
    DgnExport e = exporter(kDgnExistingKeep);
    ASSERT_EQ(runExport(e, model, *db), KORTNORM);
    EXPECT_TRUE(isDesign(model));
    EXPECT_EQ(fileText(sheet), "old sheet");
    EXPECT_EQ(e.report().filesWritten, std::vector<KoString>{wide(model)});
    EXPECT_EQ(std::count_if(e.report().notes.begin(), e.report().notes.end(),
                            [](const KoString& n) { return n.find(L"Kept the existing file") >= 0; }),
              1);
}

TEST_F(ExistingFiles, OverwriteReplacesThemWithoutAsking)
{
    DgnExport e = exporter(kDgnExistingOverwrite);
    ScriptedService service({});
    ASSERT_EQ(runExport(e, model, *db, &service), KORTNORM);
    EXPECT_TRUE(service.asked.empty());
    EXPECT_TRUE(isDesign(model));
    EXPECT_TRUE(isDesign(sheet));
}

TEST_F(ExistingFiles, AskIsAboutTheSheetOnly)
{
    for (int answer : {kDgnOverwriteKeep, kDgnOverwriteReplace, kDgnOverwriteReplaceAll}) {
        writeFile(model, "old model");
        writeFile(sheet, "old sheet");
        DgnExport e = exporter(kDgnExistingAsk);
        ScriptedService service({answer});
        ASSERT_EQ(runExport(e, model, *db, &service), KORTNORM);
        EXPECT_EQ(service.asked, std::vector<std::string>{"plan - Layout1.dgn"});
        EXPECT_TRUE(isDesign(model));
        EXPECT_EQ(isDesign(sheet), answer != kDgnOverwriteKeep) << answer;
    }
}

TEST_F(ExistingFiles, AnEmptySheetAsTheWriteProbeLeavesItIsWrittenWithoutAsking)
{
    writeFile(sheet, "");
    DgnExport e = exporter(kDgnExistingAsk);
    ScriptedService service({});
    ASSERT_EQ(runExport(e, model, *db, &service), KORTNORM);
    EXPECT_TRUE(service.asked.empty());
    EXPECT_TRUE(isDesign(sheet));
}

TEST_F(ExistingFiles, CancelWritesNothing)
{
    DgnExport e = exporter(kDgnExistingAsk);
    ScriptedService service({kDgnOverwriteCancel});
    KoString printed;
    EXPECT_EQ(runExport(e, model, *db, &service, &printed), KORTERROR);
    EXPECT_TRUE(e.report().cancelled);
    EXPECT_EQ(fileText(model), "old model");
    EXPECT_EQ(fileText(sheet), "old sheet");
    EXPECT_GE(printed.find(L"cancelled"), 0);
}

TEST_F(ExistingFiles, NobodyToAskKeepsTheSheet)
{
    DgnExport e = exporter(kDgnExistingAsk);
    ScriptedService disabled({kDgnOverwriteReplace}, false);
    ASSERT_EQ(runExport(e, model, *db, &disabled), KORTNORM);
    EXPECT_TRUE(disabled.asked.empty());
    EXPECT_TRUE(isDesign(model));
    EXPECT_EQ(fileText(sheet), "old sheet");
    ASSERT_EQ(runExport(e, model, *db, nullptr), KORTNORM);
    EXPECT_EQ(fileText(sheet), "old sheet");
}

TEST_F(ExistingFiles, CancelThroughProgressLeavesEveryFileAsItWas)
{
    for (int cancelAt : {1, 2}) {
        DgnExport e = exporter(kDgnExistingOverwrite);
        int calls = 0;
        std::vector<double> fractions;
        e.progress = [&](double fraction) {
            fractions.push_back(fraction);
            return ++calls < cancelAt;
        };
        EXPECT_EQ(runExport(e, model, *db), KORTERROR);
        EXPECT_TRUE(e.report().cancelled);
        EXPECT_EQ(fileText(model), "old model");
        EXPECT_EQ(fileText(sheet), "old sheet");
        EXPECT_EQ(fractions.front(), 0.0);
        if (cancelAt == 2) {
            EXPECT_EQ(fractions.back(), 1.0); // built, and cancelled before writing
        }
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 2); // no temporary file left
}

TEST(DgnExportFiles, FolderThatCannotTakeFilesFailsCleanly)
{
    auto db = readDrawing(KORA_EXPORT_FIXTURE);
    const auto folder = scratch("export-nofolder");
    DgnExport e = exporter(kDgnExistingOverwrite);
    KoString printed;
    EXPECT_EQ(runExport(e, folder / "missing" / "plan.dgn", *db, nullptr, &printed), KORTERROR);
    EXPECT_GE(printed.find(L"plan.dgn"), 0) << printed.toUtf8();
    EXPECT_TRUE(e.report().filesWritten.empty());
    EXPECT_FALSE(fs::exists(folder / "missing"));
}

TEST(DgnExportFiles, SeedThatIsNoDesignFails)
{
    auto db = readDrawing(KORA_EXPORT_FIXTURE);
    const auto folder = scratch("export-badseed");
    DgnExport e = exporter(kDgnExistingOverwrite);
    e.seedFile = wide(KORA_EXPORT_FIXTURE);
    KoString printed;
    EXPECT_EQ(runExport(e, folder / "plan.dgn", *db, nullptr, &printed), KORTERROR);
    EXPECT_GE(printed.find(L"Seed file"), 0) << printed.toUtf8();
    EXPECT_FALSE(fs::exists(folder / "plan.dgn"));
}

TEST(DgnExportFiles, V8IsRefusedWithAWordOnV7)
{
    auto db = readDrawing(KORA_EXPORT_FIXTURE);
    const auto folder = scratch("export-v8");
    DgnExport e = exporter(kDgnExistingOverwrite);
    KoString printed;
    EXPECT_EQ(runExport(e, folder / "plan.dgn", *db, nullptr, &printed, false), KORTERROR);
    EXPECT_GE(printed.find(L"cannot write DGN V8"), 0) << printed.toUtf8();
    EXPECT_GE(printed.find(L"V7"), 0);
    EXPECT_FALSE(fs::exists(folder / "plan.dgn"));
}
