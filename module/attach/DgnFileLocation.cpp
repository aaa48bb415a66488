#include "DgnFileLocation.h"

#include <optional>
#include <vector>

#include "kora/editor.h"
#include "kora/ftp.h"
#include "kora/msgbox.h"
#include "module.h"

namespace Kora::DgnCommands {

namespace {

// A path as the user typed it, with room for long network paths.
constexpr size_t kPathLength = 2049;
// "ftp://": the part of a location that comes before the credentials.
constexpr int kFtpPrefixLength = 6;

std::optional<KoString> askText(const KoString& prompt, size_t length)
{
    std::vector<wchar_t> answer(length, L'\0');
    if (koedGetString(1, prompt.c_str(), answer.data(), answer.size()) != KORTNORM) return std::nullopt;
    return KoString(answer.data());
}

// Fetches an FTP location into a local copy; nullopt when cancelled, an
// empty path when it could not be fetched (already reported).
std::optional<KoString> fetchFtp(const KoString& typed)
{
    KoString account, password;
    if (!promptFtpCredentials(account, password)) return std::nullopt;
    KoString localPath;
    if (ftpToLocal(buildFtpUrl(typed, account, password), localPath)) return localPath;
    const KoString message =
        KoString::format(loadLocalString(22675, L"Not find file %ls,or wrong account password.").c_str(), typed.c_str());
    koutPrintf(L"%s\n", message.c_str());
    return KoString();
}

}  // namespace

void reportError(const KoString& message, Report report)
{
    if (report == Report::kMessageBox) koraMessageBox(message.c_str(), GetOemProductName(), KOMB_OK | KOMB_ICONWARNING);
    else koedPrompt(message.c_str());
}

Located locateByPrompt(bool allowFtp, Report report, KoDbUnderlayFile& file, KoString& dgnPath)
{
    const KoString prompt = loadLocalString(1022, L"Path to DGN file to attach: ");
    for (;;) {
        const std::optional<KoString> typed = askText(prompt, kPathLength);
        if (!typed) return Located::kCancelled;
        if (typed->isEmpty()) {
            koedPrompt(loadLocalString(1023, L"Filename cannot be blank").c_str());
            continue;
        }
        if (*typed == L"~") return Located::kFileDialog;

        KoString path;
        if (allowFtp && isFtpPath(*typed)) {
            const std::optional<KoString> local = fetchFtp(*typed);
            if (!local) return Located::kCancelled;
            if (local->isEmpty()) continue;
            path = *local;
        } else {
            wchar_t found[kPathLength] = {};
            if (koedFindFile(typed->c_str(), found, kPathLength) != KORTNORM) {
                const KoString message =
                    KoString::format(loadLocalString(22664, L"Not find file %s.").c_str(), typed->c_str());
                if (report == Report::kMessageBox) reportError(message, report);
                else koutPrintf(L"%s\n", message.c_str());
                continue;
            }
            path = found;
        }
        if (loadDgn(path, file, report) == LoadResult::kLoaded) {
            dgnPath = path;
            return Located::kLoaded;
        }
    }
}

bool promptFtpCredentials(KoString& account, KoString& password)
{
    const std::optional<KoString> typedAccount = askText(loadLocalString(22673, L"Please enter the account number:"), kPathLength);
    if (!typedAccount) return false;
    const std::optional<KoString> typedPassword = askText(loadLocalString(22674, L"Please input the password:"), kPathLength);
    if (!typedPassword) return false;
    account = *typedAccount;
    password = *typedPassword;
    return true;
}

KoString buildFtpUrl(const KoString& path, const KoString& account, const KoString& password)
{
    if (account.isEmpty() && password.isEmpty()) return path;
    if (path.length() <= kFtpPrefixLength) return path;
    return KoString::format(L"%s%s:%s@%s", path.left(kFtpPrefixLength).c_str(), account.c_str(), password.c_str(),
                            path.mid(kFtpPrefixLength).c_str());
}

LoadResult loadDgn(const KoString& dgnPath, KoDbUnderlayFile& file, Report report)
{
    // The dialog flow's texts come from the resource library alone.
    const bool builtIn = report == Report::kCommandLine;
    if (KoDbDgnUnderlayService::LoadDgnUnderlayFile(dgnPath, file) != Kora::eOk) {
        reportError(loadLocalString(20687, builtIn ? L"You have selected an unsupported DGN file, only V7 and V8 files are supported." : L""),
                    report);
        return LoadResult::kUnsupported;
    }
    if (file.modelCount() == 0) {
        reportError(loadLocalString(22671, builtIn ? L"There is no model in the selected DGN file. Please select again." : L""),
                    report);
        return LoadResult::kNoModel;
    }
    return LoadResult::kLoaded;
}

}  // namespace Kora::DgnCommands
