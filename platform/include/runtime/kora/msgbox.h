// The host's message box, owned by its main window, with the product name
// as caption. The type word and answers use the classic numbers.
#pragma once

#include <functional>

#include "kora/export.h"

enum KoMessageBoxType : unsigned {
    KOMB_OK = 0x0,
    KOMB_OKCANCEL = 0x1,
    KOMB_YESNOCANCEL = 0x3,
    KOMB_YESNO = 0x4,
    KOMB_ICONERROR = 0x10,
    KOMB_ICONQUESTION = 0x20,
    KOMB_ICONWARNING = 0x30,
    KOMB_ICONINFORMATION = 0x40,
};

enum KoMessageBoxAnswer : int {
    KOID_OK = 1,
    KOID_CANCEL = 2,
    KOID_YES = 6,
    KOID_NO = 7,
};

// Shows a message box and answers the button chosen. Without a window
// system the question is asked at the command line.
KORA_API int koraMessageBox(const wchar_t* text, const wchar_t* caption, unsigned type);

// Replaces how message boxes are shown (the dialog kit installs its Qt
// box; tests install scripted answers). Answers the previous handler.
using KoMessageBoxHandler = std::function<int(const wchar_t* text, const wchar_t* caption, unsigned type)>;
KORA_API KoMessageBoxHandler koraSetMessageBoxHandler(KoMessageBoxHandler handler);
