// The host's file dialogs: the real Qt dialog with its filters and their
// index, the remembered folder, the default extension, and the navigation
// dialog's text result.
#include <QFileDialog>
#include <QTimer>

#include <filesystem>
#include <fstream>

#include "kora/config.h"
#include "kora/ui/filedialog.h"
#include "uikittest.h"

namespace fs = std::filesystem;
using namespace Kora::Ui;
namespace Answers = Kora::Ui::Test;

namespace {

fs::path scratch(const char* name)
{
    const fs::path folder = fs::path(std::getenv("KORA_USER_ROOT")) / "filedialogs" / name;
    fs::create_directories(folder);
    return folder;
}

void forgetFolder(const wchar_t* name)
{
    koraConfig()->removeItem(4, (KoString(L"UserInterfaceSettings\\FileDialogFolders\\") + name).c_str());
}

}  // namespace

using FileDialogTest = UiTest;

TEST_F(FileDialogTest, TheFilterIndexGoesInAndComesBack)
{
    const fs::path folder = scratch("export");
    QStringList shownFilters;
    QString shownFilter;
    QTimer::singleShot(0, [&] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(dialog, nullptr);
        shownFilters = dialog->nameFilters();
        shownFilter = dialog->selectedNameFilter();
        EXPECT_EQ(dialog->acceptMode(), QFileDialog::AcceptSave);
        dialog->selectNameFilter(shownFilters.value(0));
        dialog->selectFile(QString::fromStdString((folder / "plan").string()));
        static_cast<QDialog*>(dialog)->accept();
    });
    KoString chosen;
    int index = 1;
    const int rc = getFileNameByFileDialog(L"Export a dgn file", KoString::fromUtf8((folder / "drawing").string()), L"dgn;dgn",
                                           KOFD_SAVE | KOFD_OVERWRITEPROMPT, L"V8 DGN (*.dgn)|V7 DGN (*.dgn)", chosen, &index);
    ASSERT_EQ(rc, 0);
    EXPECT_EQ(shownFilters, (QStringList{"V8 DGN (*.dgn)", "V7 DGN (*.dgn)"}));
    EXPECT_EQ(shownFilter, QString("V7 DGN (*.dgn)")) << "the index given chooses the filter shown";
    EXPECT_EQ(index, 0) << "the filter chosen comes back";
    EXPECT_EQ(chosen.toUtf8(), (folder / "plan.dgn").string()) << "the filter's extension is added";
}

TEST_F(FileDialogTest, PairedFiltersAndTheRememberedFolder)
{
    forgetFolder(L"Select Reference File");
    const fs::path folder = scratch("attach");
    std::ofstream(folder / "site.dgn") << "x";
    Answers::queueFileDialogAnswer({KoString::fromUtf8((folder / "site.dgn").string()), 0});
    KoString chosen;
    ASSERT_EQ(getFileNameByFileDialog(L"Select Reference File", L"", L"dgn;*", 0x10080002,
                                      L"Microstation DGN (*.dgn)|*.dgn|All files|*.*", chosen, nullptr, L"Select Reference File"),
              0);
    EXPECT_EQ(chosen.toUtf8(), (folder / "site.dgn").string());

    // The next dialog of that name starts in the folder of the last choice.
    Answers::queueFileDialogAnswer({});
    EXPECT_EQ(getFileNameByFileDialog(L"Select Reference File", L"", L"dgn;*", 0x10080002, L"Microstation DGN(*.dgn)|All DGN File(*.*)",
                                      chosen, nullptr, L"Select Reference File"),
              1)
        << "an empty answer is a cancel";
    const auto asked = Answers::fileDialogsAsked();
    ASSERT_EQ(asked.size(), 2u);
    EXPECT_EQ(asked[0].filters, (std::vector<KoString>{L"Microstation DGN (*.dgn)", L"All files (*.*)"}));
    EXPECT_EQ(asked[1].filters, (std::vector<KoString>{L"Microstation DGN(*.dgn)", L"All DGN File(*.*)"}));
    EXPECT_EQ(asked[1].initialPath.toUtf8(), folder.string() + "/");
    EXPECT_FALSE(asked[1].save);
}

TEST_F(FileDialogTest, TheNavigationDialogAnswersTextOrCancel)
{
    const fs::path folder = scratch("seeds");
    std::ofstream(folder / "seed.dgn") << "x";
    QTimer::singleShot(0, [&] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(dialog, nullptr);
        EXPECT_EQ(dialog->fileMode(), QFileDialog::ExistingFile);
        EXPECT_EQ(dialog->nameFilters().value(0), QString("DGN (*.dgn)"));
        EXPECT_EQ(dialog->directory().absolutePath().toStdString(), folder.string());
        dialog->selectFile("seed.dgn");
        static_cast<QDialog*>(dialog)->accept();
    });
    koresbuf* result = nullptr;
    ASSERT_EQ(koedGetFileNavDialog(L"Select Seed File", KoString::fromUtf8(folder.string() + "/"), L"dgn", 0, &result), KORTNORM);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->restype, KORTSTR);
    EXPECT_EQ(KoString(result->resval.rstring).toUtf8(), (folder / "seed.dgn").string());
    koutRelRb(result);

    Answers::queueFileDialogAnswer({});
    EXPECT_EQ(koedGetFileNavDialog(L"Add properties from drawing file", L"", L"dwt;dwg;dxf", 0, &result), KORTCAN);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(Answers::fileDialogsAsked().back().filters.front(), L"DWT DWG DXF (*.dwt *.dwg *.dxf)");
}
