// What the kit installs into the runtime: message boxes and help. Without
// a display both stay as the runtime has them (asked and said at the
// command line).
#include <QApplication>
#include <QDesktopServices>
#include <QMessageBox>
#include <QUrl>

#include <filesystem>
#include <utility>

#include "kora/editor.h"
#include "kora/msgbox.h"
#include "kora/resources.h"
#include "uikitqt.h"

namespace Kora::Ui {

namespace {

KoMessageBoxHandler& commandLineBox()
{
    static KoMessageBoxHandler previous;
    return previous;
}

int qtMessageBox(const wchar_t* text, const wchar_t* caption, unsigned type)
{
    const KoString title = caption && *caption ? KoString(caption) : KoString(GetOemProductName());
    if (std::optional<int> answer = Test::takeMessageBoxAnswer({text ? text : L"", title, type})) return *answer;
    if (!ensureApplication()) return commandLineBox()(text, title, type);

    QMessageBox::Icon icon = QMessageBox::NoIcon;
    switch (type & 0xF0) {
    case KOMB_ICONERROR: icon = QMessageBox::Critical; break;
    case KOMB_ICONQUESTION: icon = QMessageBox::Question; break;
    case KOMB_ICONWARNING: icon = QMessageBox::Warning; break;
    case KOMB_ICONINFORMATION: icon = QMessageBox::Information; break;
    default: break;
    }
    QMessageBox::StandardButtons buttons = QMessageBox::Ok;
    switch (type & 0xF) {
    case KOMB_OKCANCEL: buttons = QMessageBox::Ok | QMessageBox::Cancel; break;
    case KOMB_YESNOCANCEL: buttons = QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel; break;
    case KOMB_YESNO: buttons = QMessageBox::Yes | QMessageBox::No; break;
    default: break;
    }
    // Owned by the dialog in front, else by the host's main window.
    QWidget* owner = QApplication::activeModalWidget();
    if (!owner) owner = QApplication::activeWindow();
    QMessageBox box(icon, toQ(title), toQ(text ? text : L""), buttons, owner);
    switch (box.exec()) {
    case QMessageBox::Yes: return KOID_YES;
    case QMessageBox::No: return KOID_NO;
    case QMessageBox::Cancel: return KOID_CANCEL;
    default: return (type & 0xF) == KOMB_OKCANCEL || (type & 0xF) == KOMB_YESNOCANCEL ? KOID_CANCEL : KOID_OK;
    }
}

// Help pages are HTML files shipped beside the executable; the host's own
// help file is the only one, so the file argument is not looked at.
bool showHelpPage(const wchar_t*, const wchar_t* topic)
{
    const KoString page = helpPagePath(topic);
    std::error_code ec;
    if (!std::filesystem::is_regular_file(page.toUtf8(), ec)) {
        koutPrintf(L"\nNo help page for \"%s\" (%s).", topic, page.c_str());
        return false;
    }
    if (Test::recordHelpPage(page)) return true;
    if (!ensureApplication()) {
        koutPrintf(L"\nHelp for \"%s\": %s", topic, page.c_str());
        return true;
    }
    return QDesktopServices::openUrl(QUrl::fromLocalFile(toQ(page)));
}

}  // namespace

void installHostServices()
{
    static bool installed = false;
    if (std::exchange(installed, true)) return;
    commandLineBox() = koraSetMessageBoxHandler(qtMessageBox);
    koraSetHelpHandler(showHelpPage);
}

}  // namespace Kora::Ui
