#include "DgnModelUnits.h"

#include <algorithm>
#include <optional>

#include "kora/db/units.h"
#include "kora/editor.h"
#include "module.h"

namespace Kora::DgnCommands {

namespace {

constexpr size_t kAnswerLength = 260;

std::vector<KoString> modelNames(const KoDbUnderlayFile& file)
{
    std::vector<KoString> names;
    for (int i = 0; i < file.modelCount(); ++i) {
        const DgnModelProp* model = nullptr;
        if (file.getModel(i, model) == Kora::eOk) names.push_back(model->name);
    }
    return names;
}

// Reads a reply with spaces; nullopt when the prompt was not answered.
std::optional<KoString> ask(const KoString& prompt)
{
    wchar_t answer[kAnswerLength] = {};
    if (koedGetString(1, prompt.c_str(), answer, kAnswerLength) != KORTNORM) return std::nullopt;
    return KoString(answer);
}

}  // namespace

int chooseModel(const KoDbUnderlayFile& file, KoString& modelName, const KoString& dgnPath)
{
    const std::vector<KoString> names = modelNames(file);
    const KoString defaultName = names.empty() ? KoString() : names.front();
    const auto has = [&](const KoString& name) { return std::ranges::find(names, name) != names.end(); };
    const KoString prompt = KoString::format(loadLocalString(408, L"Enter name of model or [?] <%s>:").c_str(),
                                             defaultName.c_str());
    for (;;) {
        const std::optional<KoString> answer = ask(prompt);
        if (!answer) return 0;
        if (answer->isEmpty()) {
            modelName = defaultName;
            return 1;
        }
        if (*answer == L"?") {
            const std::optional<KoString> pattern = ask(loadLocalString(411, L"Enter model(s) to list <*>:"));
            if (!pattern) return 0;
            if (pattern->isEmpty() || *pattern == L"*") {
                for (const KoString& name : names) koedPrompt(name.c_str());
                continue;
            }
            if (has(*pattern)) {
                modelName = *pattern;
                return 1;
            }
            continue;
        }
        if (has(*answer)) {
            modelName = *answer;
            return 1;
        }
        const KoString message = KoString::format(loadLocalString(410, L"There is no %s in <%s>:").c_str(),
                                                  answer->c_str(), dgnPath.c_str());
        koedPrompt(message.c_str());
    }
}

int chooseUnits(bool& useMasterUnits)
{
    koedInitGet(0, loadLocalString(412, L"Master Sub _Master Sub").c_str());
    const KoString prompt = KoString::format(loadLocalString(413, L"Specify conversion units [Master/Sub] <%s>: ").c_str(),
                                             loadLocalString(414, L"Master").c_str());
    wchar_t keyword[kAnswerLength] = {};
    const int status = koedGetKword(prompt.c_str(), keyword, kAnswerLength);
    if (status == KORTNONE) return 1;
    if (status != KORTNORM) return 0;
    const KoString answer(keyword);
    if (answer.equalsNoCase(L"Master")) useMasterUnits = true;
    else if (answer.equalsNoCase(L"Sub")) useMasterUnits = false;
    return 1;
}

void unitScale(const KoDbUnderlayFile& file, const KoString& modelName, bool useMasterUnits, double& scale)
{
    const DgnModelProp* model = nullptr;
    if (file.getModel(modelName, model) != Kora::eOk) return;
    const int dgnUnits = useMasterUnits ? model->masterUnits : model->subUnits;
    koresbuf insunits;
    if (koedGetVar(L"INSUNITS", &insunits) != KORTNORM) return;
    koraGetUnitsConversion(dgnUnits, insunits.resval.rint, scale);
}

}  // namespace Kora::DgnCommands
