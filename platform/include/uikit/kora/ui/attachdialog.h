// The host's attach-options dialog: where and how a DGN file is attached
// as an underlay. The attach command fills the data block, runs the dialog
// and, when it answers KOID_OK, reads the block back and places the
// reference with those values.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "kora/export.h"
#include "kora/kostring.h"
#include "kora/msgbox.h"

// What the dialog shows and what it gives back. The command fills it
// before the call as it starts a dialog attach: empty paths and models,
// insertion point (0, 0, 0), its scale, rotation 0, then the flags.
struct KoUiDgnAttachData {
    KoString sourcePath;                 // out: the file as it was found
    KoString activePath;                 // out: the path the reference keeps
    std::vector<KoString> chosenModels;  // out: the chosen models; the first is the one attached
    double insertionPoint[3] = {0.0, 0.0, 0.0};
    double scale = 1.0;
    double rotation = 0.0;  // radians (the dialog shows degrees)
    // Non-zero: the value is given on screen after the dialog (the jig).
    int32_t pickInsertion = 1;
    int32_t pickRotation = 0;
    int32_t pickScale = 1;
    int32_t useMasterUnits = 1;  // non-zero: master units, else sub units
};

// What the command already knows: the file (empty when none was asked
// for), its models in file order, and the underlay names of the drawing
// (shown so the user sees what is attached already). modelsOf lists the
// models of a file the user browses to (no models: the file is refused).
struct KoUiDgnAttachSource {
    KoString path;
    std::vector<KoString> models;
    std::vector<KoString> existingItems;
    std::function<std::vector<KoString>(const KoString& path)> modelsOf;
};

// The dialog's id for the test driver, and its control ids.
namespace Kora::Ui::AttachDialog {
inline constexpr int kDialogId = 700;
enum Control : int {
    kPath = 701,         // the file, path-elided
    kBrowse = 702,
    kActivePath = 703,   // editable: the path the reference keeps
    kModels = 704,
    kPickInsertion = 705,
    kInsertionX = 706,
    kInsertionY = 707,
    kInsertionZ = 708,
    kPickScale = 709,
    kScale = 710,
    kPickRotation = 711,
    kRotation = 712,     // degrees
    kMasterUnits = 713,
    kSubUnits = 714,
    kExisting = 715,     // the drawing's underlays, read only
};
}  // namespace Kora::Ui::AttachDialog

// Runs the dialog modally: KOID_OK with `data` filled, KOID_CANCEL with
// `data` untouched, Kora::Ui::kNeedsDisplay without a display. OK is
// refused (with a message) while no file with a model is chosen or a
// number cannot be read or the scale is not positive.
KORA_API int koraDgnAttachOptionsDialog(const KoUiDgnAttachSource& source, KoUiDgnAttachData& data);
