// Answers for the kit's modal questions, queued by tests so that flows
// through message boxes, file dialogs and popup menus run unattended. A
// queued answer is taken by the next question of its kind, shown or not;
// every question asked is recorded.
#pragma once

#include <optional>
#include <vector>

#include "kora/export.h"
#include "kora/kostring.h"
#include "kora/ui/controls.h"

namespace Kora::Ui::Test {

struct MessageBoxAsked {
    KoString text;
    KoString caption;
    unsigned type = 0;
};

// The next message box answers this (KOID_OK, KOID_YES, ...).
KORA_API void queueMessageBoxAnswer(int answer);
// Message boxes asked since the last clear, answered or not.
KORA_API std::vector<MessageBoxAsked> messageBoxesAsked();

// A file dialog's answer: the chosen path and filter index, or a cancel.
struct FileDialogAnswer {
    KoString path;  // empty: cancelled
    int filterIndex = 0;
};
struct FileDialogAsked {
    KoString title;
    KoString initialPath;  // folder and name the dialog opened at
    std::vector<KoString> filters;  // "Description (*.a *.b)"
    int filterIndex = 0;
    bool save = false;
};
KORA_API void queueFileDialogAnswer(const FileDialogAnswer& answer);
KORA_API std::vector<FileDialogAsked> fileDialogsAsked();

// The next popup menu answers this command (0: none chosen).
KORA_API void queueMenuAnswer(int command);

// Help pages the kit opened (instead of opening them) while recording.
KORA_API void recordHelpPages(bool on);
KORA_API std::vector<KoString> helpPagesOpened();

// Empties every queue and record.
KORA_API void clear();

}  // namespace Kora::Ui::Test
