#include "kora/dbutil.h"

bool KxDbUtil::SplitString(const KoString& text, wchar_t separator, std::vector<KoString>& parts)
{
    parts.clear();
    int start = 0;
    for (;;) {
        const int at = text.find(separator, start);
        KoString part = at < 0 ? text.mid(start) : text.mid(start, at - start);
        part.trim();
        if (part.isEmpty()) {
            parts.clear();
            return false;
        }
        parts.push_back(part);
        if (at < 0) return true;
        start = at + 1;
    }
}
