// What an export has to know about a drawing before it asks anything: does
// it hold content a DGN file cannot take, is it 3D; which files a V7 export
// writes besides the one named; and can those files be written at all.
#pragma once

#include <vector>

#include "kora/kostring.h"

class KoDbDatabase;

namespace Kora::DgnCommands {

struct DrawingExportScan {
    bool hasUnsupportedEntities = false;  // solids, surfaces, bodies, OLE frames
    bool has3dContent = false;            // some entity's extents leave Z = 0 by more than 1e-7
};

// Scans every block of the drawing except external references; a null
// database gives two clear flags.
DrawingExportScan scanDrawingForExport(KoDbDatabase* database);

// The extra files a V7 export writes, one per paper-space layout that has
// viewports: "plan.dgn" and a layout "Layout1" give "plan - Layout1.dgn".
std::vector<KoString> layoutFileList(KoDbDatabase* database, const KoString& outputPath);

// Creates the file, or empties an existing one, to learn before a long
// translation that it can be written. False when it cannot.
bool probeWrite(const KoString& path);

}  // namespace Kora::DgnCommands
