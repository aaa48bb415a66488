#include <algorithm>
#include <string>

#include "kora/dgn/exportservice.h"
#include "kora/dgn/translate.h"

KxDgnExportInternalService::~KxDgnExportInternalService() = default;

void DgnTranslationReport::skip(const std::string& kind, const std::string& reason, std::size_t count)
{
    auto it = std::find_if(skipped.begin(), skipped.end(),
                           [&](const Skipped& s) { return s.kind == kind && s.reason == reason; });
    if (it == skipped.end())
        skipped.push_back({kind, reason, count});
    else
        it->count += count;
}

std::vector<KoString> DgnTranslationReport::summary() const
{
    const bool import = direction == Direction::Import;
    std::vector<KoString> lines;
    lines.push_back(KoString::fromUtf8((import ? "DGN elements read: " : "Drawing entities read: ") +
                                       std::to_string(itemsRead)));
    lines.push_back(KoString::fromUtf8((import ? "Entities created: " : "DGN elements written: ") +
                                       std::to_string(itemsWritten)));
    for (const Skipped& s : skipped)
        lines.push_back(KoString::fromUtf8("Not translated: " + std::to_string(s.count) + " " + s.kind + " (" +
                                           s.reason + ")"));
    for (const KoString& path : referencesNotFound)
        lines.push_back(KoString(L"Reference file not found: ") + path);
    for (const KoString& path : filesWritten)
        lines.push_back(KoString(L"Written: ") + path);
    for (const KoString& note : notes)
        lines.push_back(note);
    if (cancelled)
        lines.push_back(KoString(L"Cancelled."));
    return lines;
}
