// Writes a PNG of each of the kit's dialogs, drawn offscreen, into every
// folder named on the command line (the build's and docs/pictures).
#include <cstdio>

#include "grab.h"
#include "kora/msgbox.h"
#include "kora/ui/application.h"
#include "kora/ui/attachdialog.h"
#include "kora/ui/filedialog.h"

using Kora::Ui::Pictures::picture;

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) Kora::Ui::Pictures::folders.emplace_back(argv[i]);
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
    return Kora::Ui::Pictures::failures == 0 ? 0 : 1;
}
