// The drawing database: every object of one drawing, its tables,
// dictionaries and header variables. DXF files are read and written by
// the DXF codec (kora/dxf/dxf.h).
#pragma once

#include <memory>

#include "kora/db/color.h"
#include "kora/db/dictionary.h"
#include "kora/db/entities.h"
#include "kora/db/geometry.h"
#include "kora/db/object.h"
#include "kora/db/symboltables.h"

class KORA_API KoDbDatabase {
public:
    // With buildDefaultDrawing the database holds what a new drawing has:
    // layer "0", linetypes "ByBlock", "ByLayer" and "Continuous", model
    // space and one paper-space layout ("Layout1"), the named-objects
    // dictionary with "ACAD_LAYOUT" and "ACAD_GROUP", a text style and a
    // dimension style "Standard". Without it the database is empty, ready
    // to be read into.
    explicit KoDbDatabase(bool buildDefaultDrawing = true);
    ~KoDbDatabase();
    KoDbDatabase(const KoDbDatabase&) = delete;
    KoDbDatabase& operator=(const KoDbDatabase&) = delete;

    // The file last read or written ("" for a new drawing).
    const KoString& filename() const;

    KoDbObjectId blockTableId() const;
    KoDbObjectId layerTableId() const;
    KoDbObjectId linetypeTableId() const;
    KoDbObjectId textStyleTableId() const;
    KoDbObjectId dimStyleTableId() const;
    KoDbObjectId regAppTableId() const;
    KoDbObjectId viewportTableId() const;
    KoDbObjectId viewTableId() const;
    KoDbObjectId UCSTableId() const;
    Kora::ErrorStatus getBlockTable(KoDbBlockTable*& table, KoDb::OpenMode mode) const;
    Kora::ErrorStatus getLayerTable(KoDbLayerTable*& table, KoDb::OpenMode mode) const;
    Kora::ErrorStatus getLinetypeTable(KoDbLinetypeTable*& table, KoDb::OpenMode mode) const;

    KoDbObjectId namedObjectsDictionaryId() const;
    Kora::ErrorStatus getNamedObjectsDictionary(KoDbDictionary*& dictionary, KoDb::OpenMode mode) const;
    // "ACAD_LAYOUT" of the named-objects dictionary (null when missing).
    KoDbObjectId layoutDictionaryId() const;

    // "*Model_Space" and "*Paper_Space" (null when missing).
    KoDbObjectId modelSpaceId() const;
    KoDbObjectId paperSpaceId() const;
    KoDbObjectId layerZero() const;
    KoDbObjectId byLayerLinetype() const;
    KoDbObjectId byBlockLinetype() const;
    KoDbObjectId continuousLinetype() const;

    // A new paper-space layout with its block ("*Paper_Space" for the first
    // sheet, "*Paper_Space0", "*Paper_Space1", ... after it). No viewport
    // is created: the sheet has none until someone sets it up.
    Kora::ErrorStatus createLayout(const KoString& name, KoDbObjectId& layoutId, KoDbObjectId& blockId);

    // The id of a handle; with createIfNotFound an id without object is made.
    Kora::ErrorStatus getKoDbObjectId(KoDbObjectId& id, bool createIfNotFound, KoDbHandle handle);
    // Adds an object that has no other owner; it is open for write after.
    Kora::ErrorStatus addKoDbObject(KoDbObjectId& id, KoDbObject* object);
    // Objects of this database that are open now.
    int openObjectCount() const;
    // The next handle to be given out.
    KoDbHandle handseed() const;

    // Header variables.
    int insunits() const;
    Kora::ErrorStatus setInsunits(int units);
    KoDbObjectId clayer() const;
    Kora::ErrorStatus setClayer(KoDbObjectId layer);
    KoDbObjectId celtype() const;
    Kora::ErrorStatus setCeltype(KoDbObjectId linetype);
    KoCmColor cecolor() const;
    Kora::ErrorStatus setCecolor(const KoCmColor& color);
    KoDb::LineWeight celweight() const;
    Kora::ErrorStatus setCelweight(KoDb::LineWeight weight);
    double celtscale() const;
    Kora::ErrorStatus setCeltscale(double scale);
    double ltscale() const;
    Kora::ErrorStatus setLtscale(double scale);
    // 0 English, 1 metric.
    int measurement() const;
    Kora::ErrorStatus setMeasurement(int value);
    // Whether model space (TILEMODE 1) or a sheet is current.
    bool tilemode() const;
    Kora::ErrorStatus setTilemode(bool modelSpace);
    KoGePoint3d extmin() const;
    KoGePoint3d extmax() const;
    // Recomputes EXTMIN and EXTMAX from the model-space entities.
    Kora::ErrorStatus updateExt();
    // Header variables kept as read without a property ("$DIMSCALE", ...);
    // null when the drawing has no such variable.
    const KoDbDxfTags* headerVariable(const char* name) const;

    // The database's internal state (opaque outside the library).
    struct Impl;

private:
    friend struct KoDbAccess;
    std::unique_ptr<Impl> m_impl;
};
