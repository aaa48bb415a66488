#include "kora/db/units.h"

namespace {

struct Unit {
    double meters;
    const wchar_t* name;
};

// Indexed by INSUNITS code.
constexpr Unit kUnits[] = {
    {0.0, L"Unitless"},
    {0.0254, L"Inches"},
    {0.3048, L"Feet"},
    {1609.344, L"Miles"},
    {0.001, L"Millimeters"},
    {0.01, L"Centimeters"},
    {1.0, L"Meters"},
    {1000.0, L"Kilometers"},
    {0.0254e-6, L"Microinches"},
    {0.0254e-3, L"Mils"},
    {0.9144, L"Yards"},
    {1e-10, L"Angstroms"},
    {1e-9, L"Nanometers"},
    {1e-6, L"Microns"},
    {0.1, L"Decimeters"},
    {10.0, L"Dekameters"},
    {100.0, L"Hectometers"},
    {1e9, L"Gigameters"},
    {1.495978707e11, L"Astronomical units"},
    {9.4607304725808e15, L"Light years"},
    {3.0856775814913673e16, L"Parsecs"},
    {1200.0 / 3937.0, L"US Survey Feet"},
    {100.0 / 3937.0, L"US Survey Inch"},
    {3600.0 / 3937.0, L"US Survey Yard"},
    {6336000.0 / 3937.0, L"US Survey Mile"},
};

bool known(int units) { return units >= 0 && units <= KoDb::kUnitsMax; }

}  // namespace

double kodbUnitsToMeters(int units) { return known(units) ? kUnits[units].meters : 0.0; }

const wchar_t* kodbUnitsName(int units) { return known(units) ? kUnits[units].name : L""; }

Kora::ErrorStatus koraGetUnitsConversion(int fromUnits, int toUnits, double& factor)
{
    if (!known(fromUnits) || !known(toUnits)) return Kora::eInvalidInput;
    if (fromUnits == KoDb::kUnitsUndefined || toUnits == KoDb::kUnitsUndefined) return Kora::eNotApplicable;
    // Same code: exactly 1, not a ratio that might round.
    factor = fromUnits == toUnits ? 1.0 : kUnits[fromUnits].meters / kUnits[toUnits].meters;
    return Kora::eOk;
}
