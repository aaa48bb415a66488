// Drawing units: the INSUNITS codes of drawings and blocks, and the factor
// between two of them.
#pragma once

#include "kora/export.h"
#include "kora/status.h"

namespace KoDb {

enum UnitsValue : int {
    kUnitsUndefined = 0,
    kUnitsInches = 1,
    kUnitsFeet = 2,
    kUnitsMiles = 3,
    kUnitsMillimeters = 4,
    kUnitsCentimeters = 5,
    kUnitsMeters = 6,
    kUnitsKilometers = 7,
    kUnitsMicroinches = 8,
    kUnitsMils = 9,
    kUnitsYards = 10,
    kUnitsAngstroms = 11,
    kUnitsNanometers = 12,
    kUnitsMicrons = 13,
    kUnitsDecimeters = 14,
    kUnitsDekameters = 15,
    kUnitsHectometers = 16,
    kUnitsGigameters = 17,
    kUnitsAstronomical = 18,
    kUnitsLightYears = 19,
    kUnitsParsecs = 20,
    kUnitsUSSurveyFeet = 21,
    kUnitsUSSurveyInch = 22,
    kUnitsUSSurveyYard = 23,
    kUnitsUSSurveyMile = 24,
    kUnitsMax = kUnitsUSSurveyMile,
};

}  // namespace KoDb

// Metres in one unit of `units`; 0 for unitless and unknown codes.
KORA_API double kodbUnitsToMeters(int units);
// English name of a unit code ("Millimeters"), "Unitless" for 0, "" for unknown codes.
KORA_API const wchar_t* kodbUnitsName(int units);
// The factor that turns a length in `fromUnits` into `toUnits`. Both must
// be real units (1..24): unitless has no factor (eNotApplicable), and codes
// outside the list answer eInvalidInput. `factor` is only written on eOk.
KORA_API Kora::ErrorStatus koraGetUnitsConversion(int fromUnits, int toUnits, double& factor);
