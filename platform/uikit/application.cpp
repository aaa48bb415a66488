#include "kora/ui/application.h"

#include <QApplication>
#include <QClipboard>
#include <QScreen>

#include <cstdlib>
#include <filesystem>

#include "kora/editor.h"
#include "uikitqt.h"

namespace fs = std::filesystem;

double koraGetDPIScale()
{
    if (const char* forced = std::getenv("KORA_DPI_SCALE")) {
        char* end = nullptr;
        const double value = std::strtod(forced, &end);
        if (end != forced && value > 0) return value;
    }
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance())) return 1.0;
    const QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? screen->logicalDotsPerInch() / 96.0 : 1.0;
}

namespace Kora::Ui {

namespace {

bool envSet(const char* name)
{
    const char* value = std::getenv(name);
    return value && *value;
}

// Without an application the clipboard is the process's own.
KoString& processClipboard()
{
    static KoString text;
    return text;
}

}  // namespace

bool hasDisplay()
{
    return envSet("DISPLAY") || envSet("WAYLAND_DISPLAY") || envSet("QT_QPA_PLATFORM");
}

bool ensureApplication()
{
    if (qobject_cast<QApplication*>(QCoreApplication::instance())) return true;
    if (QCoreApplication::instance() || !hasDisplay()) return false;
    // The application lives as long as the process: the console host has
    // no point at which the last dialog is known to be gone.
    static int argc = 1;
    static char name[] = "kora";
    static char* argv[] = {name, nullptr};
    new QApplication(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    return true;
}

void reportNeedsDisplay(const wchar_t* command, const wchar_t* commandLineForm)
{
    koutPrintf(L"\n%s needs a display.", command);
    if (commandLineForm) koutPrintf(L" Use %s to work at the command line.", commandLineForm);
}

void setClipboardText(const KoString& text)
{
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance())) QGuiApplication::clipboard()->setText(toQ(text));
    else processClipboard() = text;
}

KoString clipboardText()
{
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance())) return fromQ(QGuiApplication::clipboard()->text());
    return processClipboard();
}

KoString helpPagePath(const KoString& topic)
{
    std::error_code ec;
    const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    return KoString::fromUtf8((exe.parent_path().parent_path() / "share" / "kora" / "help" / (topic.toUtf8() + ".html")).string());
}

}  // namespace Kora::Ui
