// Writes a PNG of each of the kit's dialogs, drawn offscreen, into every
// folder named on the command line (the build's and docs/pictures).
#include <QApplication>
#include <QBuffer>
#include <QTimer>
#include <QWidget>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <vector>

#include "kora/atomicfile.h"
#include "kora/msgbox.h"
#include "kora/ui/application.h"
#include "kora/ui/attachdialog.h"
#include "kora/ui/filedialog.h"

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> g_folders;
int g_failures = 0;

// Grabs the modal dialog the call shows, then closes it.
void picture(const char* name, const std::function<void()>& show)
{
    QTimer::singleShot(100, [name] {
        QWidget* dialog = QApplication::activeModalWidget();
        if (!dialog) {
            std::fprintf(stderr, "uikit_pictures: %s was not shown\n", name);
            ++g_failures;
            return;
        }
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        dialog->grab().save(&buffer, "PNG");
        for (const fs::path& folder : g_folders) {
            std::error_code ec;
            fs::create_directories(folder, ec);
            const auto written = Kora::writeFileAtomically(folder / (std::string(name) + ".png"), std::string_view(png.constData(), png.size()));
            if (!written) {
                std::fprintf(stderr, "uikit_pictures: %s\n", written.error().message.c_str());
                ++g_failures;
            }
        }
        QMetaObject::invokeMethod(dialog, "reject");
    });
    show();
}

}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) g_folders.emplace_back(argv[i]);
    if (!Kora::Ui::ensureApplication()) {
        std::fprintf(stderr, "uikit_pictures: needs a display (QT_QPA_PLATFORM=offscreen will do)\n");
        return 1;
    }
    Kora::Ui::installHostServices();

    picture("attach-options", [] {
        KoUiDgnAttachSource source{L"/home/user/projects/harbour/survey/site-plan-2026.dgn",
                                   {L"Default", L"Sheet 1", L"Drainage"},
                                   {L"roads-Default"},
                                   nullptr};
        KoUiDgnAttachData data;
        koraDgnAttachOptionsDialog(source, data);
    });
    picture("message-box", [] {
        koraMessageBox(L"Are you sure you want to delete \"Roads\"?", nullptr, KOMB_YESNO | KOMB_ICONWARNING);
    });
    picture("file-dialog", [] {
        KoString chosen;
        int index = 0;
        getFileNameByFileDialog(L"Export a dgn file", L"/tmp/drawing", L"dgn;dgn", KOFD_SAVE | KOFD_OVERWRITEPROMPT,
                                L"V8 DGN (*.dgn)|V7 DGN (*.dgn)", chosen, &index);
    });
    return g_failures == 0 ? 0 : 1;
}
