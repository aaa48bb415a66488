#include <cmath>

#include "designscan.h"

namespace Kora::Dgn {

namespace {

// The standard units by their vocabulary spelling, with their length and
// drawing-units code. Files label units in any case ("M", "MM") and with
// the usual marks for feet and inches, so labels are matched without case
// and against the marks; the ratio of the pair then tells "MM" millimetres
// from "Mm" megametres.
struct StandardUnit {
    const wchar_t* spelling;
    double metres;
    int code;
    const wchar_t* mark;  // another label that names the unit, or null
};

constexpr StandardUnit kUnits[] = {
    {L"Mm", 1e6, KoDb::kUnitsUndefined, nullptr},
    {L"km", 1e3, KoDb::kUnitsKilometers, nullptr},
    {L"m", 1.0, KoDb::kUnitsMeters, nullptr},
    {L"dm", 0.1, KoDb::kUnitsDecimeters, nullptr},
    {L"cm", 0.01, KoDb::kUnitsCentimeters, nullptr},
    {L"mm", 1e-3, KoDb::kUnitsMillimeters, nullptr},
    {L"um", 1e-6, KoDb::kUnitsMicrons, nullptr},
    {L"nm", 1e-9, KoDb::kUnitsNanometers, nullptr},
    {L"pm", 1e-12, KoDb::kUnitsUndefined, nullptr},
    {L"mi", 1609.344, KoDb::kUnitsMiles, nullptr},
    {L"yd", 0.9144, KoDb::kUnitsYards, nullptr},
    {L"ft", 0.3048, KoDb::kUnitsFeet, L"'"},
    {L"in", 0.0254, KoDb::kUnitsInches, L"\""},
    {L"mil", 2.54e-5, KoDb::kUnitsMils, nullptr},
    {L"ui", 2.54e-8, KoDb::kUnitsMicroinches, nullptr},
};

bool names(const StandardUnit& unit, const KoString& label)
{
    return label.equalsNoCase(unit.spelling) || (unit.mark && label == unit.mark);
}

// The code of a label that is a vocabulary spelling as it stands.
int codeOf(const KoString& label)
{
    for (const StandardUnit& unit : kUnits)
        if (label == unit.spelling) return unit.code;
    return KoDb::kUnitsUndefined;
}

}  // namespace

void identifyUnits(const KoString& masterLabel, const KoString& subLabel, double subPerMaster,
                   DgnModelProp& model)
{
    const KoString master = masterLabel.trimmed(), sub = subLabel.trimmed();
    for (const StandardUnit& m : kUnits) {
        if (!names(m, master)) continue;
        for (const StandardUnit& s : kUnits) {
            if (!names(s, sub)) continue;
            if (std::fabs(m.metres / s.metres - subPerMaster) > 1e-9 * subPerMaster) continue;
            model.masterUnit = m.spelling;
            model.subUnit = s.spelling;
            model.masterUnits = m.code;
            model.subUnits = s.code;
            return;
        }
    }
    model.masterUnit = masterLabel;
    model.subUnit = subLabel;
    model.masterUnits = codeOf(masterLabel);
    model.subUnits = codeOf(subLabel);
}

}  // namespace Kora::Dgn
