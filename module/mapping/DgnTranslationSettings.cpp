#include "mapping/DgnTranslationSettings.h"

#include <string>

#include "kora/editor.h"
#include "kora/profile.h"
#include "mapping/DgnSetupFile.h"

namespace Kora::DgnCommands {

namespace {

constexpr unsigned kBufferSize = 2046;

// The first listed section whose name contains `part` (case-sensitive);
// empty when none does.
KoString findSection(const wchar_t* part)
{
    for (const KoString& section : setupFileSectionNames()) {
        if (section.find(part) >= 0) return section;
    }
    return KoString();
}

int readInt(const KoString& section, const wchar_t* key)
{
    return static_cast<int>(koGetPrivateProfileInt(section, key, -1, dgnSetupFilePath()));
}

KoString readText(const KoString& section, const wchar_t* key)
{
    wchar_t buffer[kBufferSize] = {};
    koGetPrivateProfileString(section, key, L"", buffer, kBufferSize, dgnSetupFilePath());
    return KoString(buffer);
}

bool isIn(int value, int first, int last) { return value >= first && value <= last; }

// Keeps `target` unless `value` is in range.
void takeIfIn(int value, int first, int last, int& target)
{
    if (isIn(value, first, last)) target = value;
}

constexpr const wchar_t* kImportMode = L"DGNIMPORTMODE";

}  // namespace

bool readImportSettings(DgnImportSettings& settings)
{
    KoProfileBatch batch(dgnSetupFilePath());  // all values from one state of the file
    const KoString section = findSection(L"IMPORTSECTION");
    if (section.isEmpty()) return false;
    settings.existingXRefOperation = readInt(section, L"ExistingXRefOperation");
    settings.isMasterUnits = readInt(section, L"IsMasterUnits");
    settings.translationOption = readInt(section, L"TranslationOption");
    settings.explodeTextNode = readInt(section, L"ExplodeTextNode");
    settings.mappingSetupName = readText(section, L"MappingSetupName");
    return true;
}

bool readExportSettings(DgnExportSettings& settings)
{
    KoProfileBatch batch(dgnSetupFilePath());  // all values from one state of the file
    const KoString section = findSection(L"EXPORTSECTION");
    if (section.isEmpty()) return false;
    settings.existingXRefOperation = readInt(section, L"ExistingXRefOperation");
    settings.isMasterUnits = readInt(section, L"IsMasterUnits");
    settings.translationOption = readInt(section, L"TranslationOption");
    settings.mappingSetupName = readText(section, L"MappingSetupName");
    settings.seedFileName = readText(section, L"SeedFileName");
    return true;
}

bool writeImportSettings(const DgnImportSettings& settings)
{
    constexpr const wchar_t* kSection = L"IMPORTSECTION";
    SetupFileUpdate update;
    update.write(kSection, L"ExistingXRefOperation", std::to_wstring(settings.existingXRefOperation));
    update.write(kSection, L"IsMasterUnits", std::to_wstring(settings.isMasterUnits));
    update.write(kSection, L"TranslationOption", std::to_wstring(settings.translationOption));
    update.write(kSection, L"ExplodeTextNode", std::to_wstring(settings.explodeTextNode));
    update.write(kSection, L"MappingSetupName", settings.mappingSetupName);
    return update.finish();
}

bool writeExportSettings(const DgnExportSettings& settings)
{
    constexpr const wchar_t* kSection = L"EXPORTSECTION";
    SetupFileUpdate update;
    update.write(kSection, L"ExistingXRefOperation", std::to_wstring(settings.existingXRefOperation));
    update.write(kSection, L"IsMasterUnits", std::to_wstring(settings.isMasterUnits));
    update.write(kSection, L"TranslationOption", std::to_wstring(settings.translationOption));
    update.write(kSection, L"MappingSetupName", settings.mappingSetupName);
    update.write(kSection, L"SeedFileName", settings.seedFileName);
    return update.finish();
}

void takeStoredSettings(const DgnImportSettings& stored, DgnImportChoices& choices)
{
    takeIfIn(stored.existingXRefOperation, 0, 2, choices.existingXRefOperation);
    takeIfIn(stored.explodeTextNode, 0, 1, choices.explodeTextNode);
    if (isIn(stored.isMasterUnits, 0, 1)) choices.units = stored.isMasterUnits == 1 ? 0 : 1;
    choices.mappingSetupName = stored.mappingSetupName;
    takeIfIn(stored.translationOption, 0, 2, choices.translationOption);
}

void takeStoredSettings(const DgnExportSettings& stored, DgnExportChoices& choices)
{
    takeIfIn(stored.existingXRefOperation, 0, 2, choices.existingXRefOperation);
    if (isIn(stored.isMasterUnits, 0, 1)) choices.useSubUnits = stored.isMasterUnits == 1 ? 0 : 1;
    choices.mappingSetupName = stored.mappingSetupName;
    takeIfIn(stored.translationOption, 0, 2, choices.translationOption);
    choices.seedFileName = stored.seedFileName;
}

void loadImportChoices(DgnImportChoices& choices)
{
    DgnImportSettings stored;
    if (readImportSettings(stored)) takeStoredSettings(stored, choices);
    koresbuf mode;
    if (koedGetVar(kImportMode, &mode) != KORTNORM) return;
    choices.importIntoCurrent = mode.resval.rint != 0;
    choices.importAlternative = mode.resval.rint == 0 || mode.resval.rint == 1 ? 1 : 0;
}

bool saveImportChoices(const DgnImportChoices& choices)
{
    // Values a choice does not hold in range keep what the file has.
    DgnImportSettings settings;
    readImportSettings(settings);
    takeIfIn(choices.existingXRefOperation, 0, 2, settings.existingXRefOperation);
    settings.explodeTextNode = choices.explodeTextNode != 0 ? 1 : 0;
    if (isIn(choices.units, 0, 1)) settings.isMasterUnits = choices.units == 0 ? 1 : 0;
    settings.mappingSetupName = choices.mappingSetupName;
    takeIfIn(choices.translationOption, 0, 2, settings.translationOption);
    const bool written = writeImportSettings(settings);

    koresbuf mode;
    mode.restype = KORTSHORT;
    mode.resval.rint = static_cast<short>(!choices.importIntoCurrent ? 0 : choices.importAlternative == 1 ? 1 : 2);
    koedSetVar(kImportMode, &mode);
    return written;
}

void loadExportChoices(DgnExportChoices& choices)
{
    DgnExportSettings stored;
    if (readExportSettings(stored)) takeStoredSettings(stored, choices);
}

bool saveExportChoices(const DgnExportChoices& choices)
{
    DgnExportSettings settings;
    readExportSettings(settings);
    takeIfIn(choices.existingXRefOperation, 0, 2, settings.existingXRefOperation);
    if (isIn(choices.useSubUnits, 0, 1)) settings.isMasterUnits = choices.useSubUnits == 1 ? 0 : 1;
    settings.mappingSetupName = choices.mappingSetupName;
    takeIfIn(choices.translationOption, 0, 2, settings.translationOption);
    settings.seedFileName = choices.seedFileName;
    return writeExportSettings(settings);
}

}  // namespace Kora::DgnCommands
