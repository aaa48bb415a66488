#include "mapping/DgnUnits.h"

#include "export/DgnSeedCatalogue.h"
#include "kora/status.h"
#include "mapping/DgnFileReaders.h"
#include "module.h"

namespace dgn {

namespace {

void enterNames(const std::vector<KoString>& names, DgnMappingTable& table, int& count)
{
    for (const KoString& name : names) table.emplace(name, name);
    count = static_cast<int>(names.size());
}

}  // namespace

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
    DgnFileProperties properties;
    if (readDgnFileProperties(path, properties) != KORTNORM) return false;
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
    const int dot = path.reverseFind(L'.');
    if (dot < 0) return;
    const KoString extension = path.mid(dot);
    DrawingNameReader::Format format;
    if (extension.equalsNoCase(L".dwg") || extension.equalsNoCase(L".dwt")) format = DrawingNameReader::Format::Dwg;
    else if (extension.equalsNoCase(L".dxf")) format = DrawingNameReader::Format::Dxf;
    else return;
    std::vector<KoString> layers, linetypes;
    if (!readDrawingTableNames(path, format, layers, linetypes)) return;
    enterNames(layers, record.layerMap, record.layerCount);
    enterNames(linetypes, record.lineTypeMap, record.lineTypeCount);
}

}  // namespace dgn
