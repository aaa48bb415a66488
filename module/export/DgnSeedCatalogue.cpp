#include "export/DgnSeedCatalogue.h"

#include <unistd.h>

#include <algorithm>

#include "kora/config.h"
#include "kora/editor.h"
#include "kora/userpaths.h"
#include "kora/dgn/dgnfile.h"
#include "module.h"

namespace Kora::DgnCommands {

namespace {

constexpr const wchar_t* kV7Seeds[] = {
    L"V7-Imperial-Arch-01-Seed2D.dgn",  L"V7-Imperial-Arch-01-Seed3D.dgn",  L"V7-Imperial-Arch-02-Seed2D.dgn",
    L"V7-Imperial-Arch-02-Seed3D.dgn",  L"V7-Imperial-Civil-01-Seed2D.dgn", L"V7-Imperial-Civil-01-Seed3D.dgn",
    L"V7-Imperial-Civil-02-Seed2D.dgn", L"V7-Imperial-Civil-02-Seed3D.dgn", L"V7-Metric-Seed2D.dgn",
    L"V7-Metric-Seed3D.dgn",
};
constexpr const wchar_t* kV8Seeds[] = {
    L"V8-Imperial-Seed2D.dgn", L"V8-Imperial-Seed3D.dgn", L"V8-Metric-Seed2D.dgn", L"V8-Metric-Seed3D.dgn",
};

constexpr int kConfigBranch = 4;

// A damaged count must not make load or save walk billions of keys; no
// dialog list ever holds this many seeds.
constexpr int kMaxPersistedSeeds = 4096;

// "UserInterfaceSettings\DgnExportDialog\V7\" (or V8), a configuration key
// path rather than a file path; empty for an unknown version.
KoString seedListFolder(int version)
{
    if (version != kDgnVersionV8 && version != kDgnVersionV7) return KoString();
    return KoString(L"UserInterfaceSettings") + L"\\" + L"DgnExportDialog" + L"\\"
         + (version == kDgnVersionV7 ? L"V7" : L"V8") + L"\\";
}

KoString seedKey(const KoString& folder, int index) { return folder + KoString::format(L"SeedFile%d", index); }

int storedSeedCount(const KoString& folder)
{
    KoraVariant value;
    if (koraConfig()->getValue(kConfigBranch, folder + L"SeedFileCount", value) != Kora::eOk
        || value.type() != KoraVariant::kInteger)
        return 0;
    return std::clamp(value.intValue(), 0, kMaxPersistedSeeds);
}

}  // namespace

KoString seedFilePath(const KoString& fileName)
{
    wchar_t folder[1024] = {};
    GetUserLocalApplicationDataTemplatePath(folder, 1024);
    return KoString(folder) + L"/" + fileName;
}

void buildSeedCatalogue(int version, DgnSeedCatalogue& target)
{
    if (version == kDgnVersionV7) {
        for (const wchar_t* name : kV7Seeds) target.insert(seedFilePath(name));
    } else if (version == kDgnVersionV8) {
        for (const wchar_t* name : kV8Seeds) target.insert(seedFilePath(name));
    }
}

void listSeedCatalogue(const DgnSeedCatalogue& catalogue)
{
    for (const KoString& path : catalogue) koedPrompt(path);
}

bool isValidSeedFile(const KoString& path)
{
    if (path.isEmpty() || access(path.toUtf8().c_str(), F_OK) != 0) return false;
    const int dot = path.reverseFind(L'.');
    return dot >= 0 && path.mid(dot + 1).equalsNoCase(L"dgn");
}

void seedUnitNamesByFileName(const KoString& path, KoString& masterName, KoString& subName)
{
    struct Names {
        const wchar_t* fileName;
        unsigned masterId;
        const wchar_t* master;
        unsigned subId;
        const wchar_t* sub;
    };
    // Only the V7 seeds are known by name; the V8 ones, metric included,
    // fall to the default with every other file.
    static constexpr Names kNames[] = {
        {L"V7-Imperial-Arch-01-Seed2D.dgn", 702, L"Feet", 701, L"Inches"},
        {L"V7-Imperial-Arch-01-Seed3D.dgn", 702, L"Feet", 701, L"Inches"},
        {L"V7-Imperial-Arch-02-Seed2D.dgn", 702, L"Feet", 701, L"Inches"},
        {L"V7-Imperial-Arch-02-Seed3D.dgn", 702, L"Feet", 701, L"Inches"},
        {L"V7-Metric-Seed2D.dgn", 706, L"Meters", 704, L"Millimeters"},
        {L"V7-Metric-Seed3D.dgn", 706, L"Meters", 704, L"Millimeters"},
        {L"V7-Imperial-Civil-01-Seed2D.dgn", 702, L"Feet", 700, L"Custom"},
        {L"V7-Imperial-Civil-01-Seed3D.dgn", 702, L"Feet", 700, L"Custom"},
        {L"V7-Imperial-Civil-02-Seed2D.dgn", 702, L"Feet", 700, L"Custom"},
        {L"V7-Imperial-Civil-02-Seed3D.dgn", 702, L"Feet", 700, L"Custom"},
    };
    const KoString fileName = path.mid(path.reverseFind(L'/') + 1);
    for (const Names& names : kNames) {
        if (fileName.equalsNoCase(names.fileName)) {
            masterName = loadLocalString(names.masterId, names.master);
            subName = loadLocalString(names.subId, names.sub);
            return;
        }
    }
    masterName = loadLocalString(702, L"Feet");
    subName = loadLocalString(701, L"Inches");
}

bool seedVersion(const KoString& path, int& version)
{
    DgnFileProp properties;
    if (DgnFile::addPropFromDgnFile(path, properties) != KORTNORM) return false;
    version = properties.version;
    return true;
}

void loadPersistedSeeds(int version, DgnSeedCatalogue& target)
{
    const KoString folder = seedListFolder(version);
    if (folder.isEmpty()) return;
    const int count = storedSeedCount(folder);
    for (int i = 0; i < count; ++i) {
        KoraVariant value;
        koraConfig()->getValue(kConfigBranch, seedKey(folder, i), value);
        const KoString path = value.stringValue();
        if (isValidSeedFile(path)) target.insert(path);
    }
}

void savePersistedSeeds(int version, const DgnSeedCatalogue& seeds)
{
    const KoString folder = seedListFolder(version);
    if (folder.isEmpty() || seeds.empty()) return;
    KoraConfig* config = koraConfig();
    const int oldCount = storedSeedCount(folder);
    for (int i = 0; i < oldCount; ++i) config->removeItem(kConfigBranch, seedKey(folder, i));
    int written = 0;
    for (const KoString& path : seeds) {
        if (isValidSeedFile(path)) config->setValue(kConfigBranch, seedKey(folder, written++), KoraVariant(path));
    }
    config->setValue(kConfigBranch, folder + L"SeedFileCount", KoraVariant(written));
}

void loadSeedList(int version, DgnSeedCatalogue& target)
{
    loadPersistedSeeds(version, target);
    if (target.empty()) buildSeedCatalogue(version, target);
}

KoString defaultSeedFile(int version, const KoString& storedSeedFileName)
{
    DgnSeedCatalogue catalogue;
    buildSeedCatalogue(version, catalogue);
    if (catalogue.contains(storedSeedFileName)) return storedSeedFileName;
    return catalogue.empty() ? KoString() : *catalogue.begin();
}

}  // namespace Kora::DgnCommands
