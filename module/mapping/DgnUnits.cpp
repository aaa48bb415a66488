#include "mapping/DgnUnits.h"

#include "export/DgnSeedCatalogue.h"
#include "kora/dxf/dxf.h"
#include "kora/status.h"
#include "kora/db/database.h"
#include "kora/dgn/dgnfile.h"
#include "module.h"

namespace Kora::DgnCommands {

namespace {

void enterNames(const std::vector<KoString>& names, DgnMappingTable& table, int& count)
{
    for (const KoString& name : names) table.emplace(name, name);
    count = static_cast<int>(names.size());
}

}  // namespace

void symbolTableNames(KoDbObjectId tableId, std::vector<KoString>& names)
{
    KoDbSymbolTable* table = nullptr;
    if (kodbOpenObject(table, tableId, KoDb::kForRead) != Kora::eOk) return;
    for (auto it = table->newIterator(); !it->done(); it->step()) {
        KoDbObjectId id;
        KoDbSymbolTableRecord* record = nullptr;
        if (it->getRecordId(id) != Kora::eOk || kodbOpenObject(record, id, KoDb::kForRead) != Kora::eOk) continue;
        names.push_back(record->getName());
        record->close();
    }
    table->close();
}

KoString dgnUnitFullName(const KoString& abbreviation)
{
    struct Unit {
        const wchar_t* abbreviation;
        unsigned id;
        const wchar_t* fallback;
    };
    // Miles and mils share string 703: a resource library that has it names
    // both by its text.
    static constexpr Unit kUnits[] = {
        {L"Mm", 713, L"Megameters"}, {L"km", 707, L"Kilometers"},  {L"m", 706, L"Meters"},
        {L"dm", 711, L"Decimeters"}, {L"cm", 705, L"Centimeters"}, {L"mm", 704, L"Millimeters"},
        {L"um", 710, L"Micrometers"}, {L"nm", 709, L"Nanometers"}, {L"pm", 714, L"Picometers"},
        {L"mi", 703, L"Miles"},      {L"yd", 712, L"Yards"},       {L"ft", 702, L"Feet"},
        {L"in", 701, L"Inches"},     {L"mil", 703, L"Mils"},       {L"ui", 708, L"Microinches"},
    };
    for (const Unit& unit : kUnits) {
        if (abbreviation == unit.abbreviation) return loadLocalString(unit.id, unit.fallback);
    }
    return loadLocalString(700, L"custom");
}

bool dgnFileUnits(const KoString& path, KoString& masterName, KoString& subName, bool& is3d)
{
    DgnFileProp properties;
    if (DgnFile::addPropFromDgnFile(path, properties) != KORTNORM) return false;
    if (properties.models.empty()) {
        seedUnitNamesByFileName(path, masterName, subName);
    } else {
        masterName = dgnUnitFullName(properties.models.front().masterUnit);
        subName = dgnUnitFullName(properties.models.front().subUnit);
    }
    is3d = properties.is3d;
    return true;
}

void readDrawingNames(const KoString& path, DgnMappingSetup& record)
{
    // Drawings are read as DXF; this host has no DWG or DWT reader, so such
    // files (and anything else) leave the record as it was.
    const int dot = path.reverseFind(L'.');
    if (dot < 0 || !path.mid(dot).equalsNoCase(L".dxf")) return;
    KoDbDatabase drawing(false);
    if (kodbReadDxfFile(drawing, path) != Kora::eOk) return;
    std::vector<KoString> layers, linetypes;
    symbolTableNames(drawing.layerTableId(), layers);
    symbolTableNames(drawing.linetypeTableId(), linetypes);
    enterNames(layers, record.layerMap, record.layerCount);
    enterNames(linetypes, record.lineTypeMap, record.lineTypeCount);
}

}  // namespace Kora::DgnCommands
