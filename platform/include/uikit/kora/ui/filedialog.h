// The host's file dialogs. Commands read FILEDIA themselves: with 0 they
// ask for the file at the command line and never come here.
#pragma once

#include "kora/editor.h"
#include "kora/export.h"
#include "kora/kostring.h"

// The flags of getFileNameByFileDialog. Other bits are accepted and have
// no meaning here.
enum KoFileDialogFlags : unsigned {
    KOFD_SAVE = 0x1,             // a save dialog; without it an open dialog
    KOFD_FILEMUSTEXIST = 0x2,    // open: only an existing file is accepted
    KOFD_OVERWRITEPROMPT = 0x4,  // save: asks before an existing file is replaced
};

// Asks for a file. Answers 0 with the chosen full path in `result`, 1 when
// the user cancelled, Kora::Ui::kNeedsDisplay (-1) without a display.
//   title            the window's title
//   initialPath      a folder and/or a name to start from; a bare name
//                    starts in the dialog's remembered folder
//   defaultExtension extensions without dots, one per filter, separated by
//                    ";" ("dgn;dgn"); the filter's own is added to a saved
//                    name that has none ("*" adds nothing)
//   filters          "Description (*.a)|*.a|Other (*.b)|*.b", or only the
//                    descriptions with their patterns in parentheses
//                    ("V8 DGN (*.dgn)|V7 DGN (*.dgn)")
//   filterIndex      in: the filter shown first (0-based); out: the filter
//                    the user chose. May be null.
//   dialogName       names the remembered folder (the title when null),
//                    kept in configuration branch 4 under
//                    "UserInterfaceSettings\FileDialogFolders\<name>"
KORA_API int getFileNameByFileDialog(const wchar_t* title, const wchar_t* initialPath, const wchar_t* defaultExtension,
                                     unsigned flags, const wchar_t* filters, KoString& result, int* filterIndex = nullptr,
                                     const wchar_t* dialogName = nullptr);

// The file navigation dialog: an open dialog for the extensions given
// ("dgn", "dwt;dwg;dxf"), starting at defaultPath. Answers KORTNORM and a
// new KORTSTR buffer holding the chosen path (free it with koutRelRb),
// KORTCAN when cancelled, KORTERROR without a display. flags: KOFD_SAVE
// makes it a save dialog.
KORA_API int koedGetFileNavDialog(const wchar_t* title, const wchar_t* defaultPath, const wchar_t* extensions, int flags,
                                  koresbuf** result);
