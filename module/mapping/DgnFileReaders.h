// What the module needs from the host's file readers, and where they plug
// in. The DGN import library reports a design file's properties; the
// drawing database reads the name tables of a drawing. Both are installed
// by the code that owns them; until then every read fails cleanly (a DGN
// file reads as unreadable, a drawing yields no names).
#pragma once

#include <vector>

#include "kora/kostring.h"

// One model of a DGN file with its working units as the file abbreviates
// them ("m", "mm", "ft", ...).
struct DgnModelProperties {
    KoString name;
    KoString masterUnit;
    KoString subUnit;
};

// The properties of a DGN file that the module reads.
struct DgnFileProperties {
    int version = -1;    // 0 V8, 1 V7 (the module's version flag)
    bool is3d = false;   // the file's 3D flag
    std::vector<DgnModelProperties> models;  // file order; may be empty
};

// The DGN import library's property reader.
class DgnPropertyReader {
public:
    virtual ~DgnPropertyReader() = default;
    // DgnFile::addPropFromDgnFile: fills `properties` and answers KORTNORM,
    // or answers another host result code when the file cannot be read.
    virtual int addPropFromDgnFile(const KoString& path, DgnFileProperties& properties) = 0;
};

// The drawing reader: a drawing file read into a temporary database.
class DrawingNameReader {
public:
    enum class Format { Dwg, Dxf };
    virtual ~DrawingNameReader() = default;
    // Reads the file (a DWG or DWT in shared mode, so other processes keep
    // read and write access) and, on success, answers the names of the
    // layer and linetype tables in table order, erased records skipped.
    virtual bool readTableNames(const KoString& path, Format format, std::vector<KoString>& layers,
                                std::vector<KoString>& linetypes) = 0;
};

namespace dgn {

// Installs a reader (null uninstalls it); the caller keeps it alive while
// it is installed.
void setDgnPropertyReader(DgnPropertyReader* reader);
void setDrawingNameReader(DrawingNameReader* reader);

// Reads a DGN file's properties with the installed reader; KORTERROR when
// none is installed.
int readDgnFileProperties(const KoString& path, DgnFileProperties& properties);
// Reads a drawing's name tables with the installed reader; false when none
// is installed.
bool readDrawingTableNames(const KoString& path, DrawingNameReader::Format format, std::vector<KoString>& layers,
                           std::vector<KoString>& linetypes);

}  // namespace dgn
