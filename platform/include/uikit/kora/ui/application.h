// The dialog kit's application: the Qt application is made when the first
// dialog needs it and only when there is a display, so the console host
// keeps working without one. None of the kit's public headers include Qt:
// a module uses the kit without being linked to Qt itself.
#pragma once

#include "kora/export.h"
#include "kora/kostring.h"

// The display's scale: the primary screen's logical DPI / 96, 1.0 without a
// screen. KORA_DPI_SCALE, when set to a positive number, overrides it (tests
// and people on odd screens).
KORA_API double koraGetDPIScale();

namespace Kora::Ui {

// What a dialog entry point answers when no dialog can be shown.
inline constexpr int kNeedsDisplay = -1;

// True when a window system can be reached: DISPLAY or WAYLAND_DISPLAY is
// set, or QT_QPA_PLATFORM names a platform (offscreen included).
KORA_API bool hasDisplay();

// Makes the Qt application when there is none yet and a display exists.
// Answers false without a display.
KORA_API bool ensureApplication();

// Installs the kit's message boxes and help into the runtime (the host does
// it at start; more calls do nothing). Message boxes are then answered by
// the test queue, else shown as Qt boxes when there is a display, else
// asked at the command line as before; help opens the topic's page.
KORA_API void installHostServices();

// Prints at the command line that the command needs a display and, when
// it has one, the command-line form that works without ("-DGNATTACH").
KORA_API void reportNeedsDisplay(const wchar_t* command, const wchar_t* commandLineForm = nullptr);

// The clipboard's text. Without an application the kit keeps the text
// itself, so copy and paste still work inside the process.
KORA_API void setClipboardText(const KoString& text);
KORA_API KoString clipboardText();

// The path of the help page of a topic: share/kora/help/<topic>.html
// beside the executable's folder.
KORA_API KoString helpPagePath(const KoString& topic);

}  // namespace Kora::Ui
