#include "inputparse.h"

#include <cmath>
#include <cwchar>

namespace Kora::Runtime {

std::optional<double> parseReal(const KoString& text)
{
    const KoString t = text.trimmed();
    if (t.isEmpty()) return std::nullopt;
    wchar_t* end = nullptr;
    const double value = std::wcstod(t.c_str(), &end);
    if (!end || *end != 0 || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::optional<KoGePoint3d> parsePoint(const KoString& text, const KoGePoint3d* base)
{
    KoString t = text.trimmed();
    const bool relative = !t.isEmpty() && t.getAt(0) == L'@';
    if (relative) t = t.mid(1);
    double c[3] = {0, 0, 0};
    int count = 0;
    int start = 0;
    while (count < 3) {
        int comma = t.find(L',', start);
        if (comma == KoString::npos) comma = t.length();
        const std::optional<double> v = parseReal(t.mid(start, comma - start));
        if (!v) return std::nullopt;
        c[count++] = *v;
        if (comma == t.length()) break;
        start = comma + 1;
    }
    if (count < 2 || start > t.length()) return std::nullopt;
    if (count == 3 && t.find(L',', start) != KoString::npos) return std::nullopt;
    KoGePoint3d p(c[0], c[1], c[2]);
    if (relative) {
        const KoGePoint3d& from = base ? *base : lastPoint();
        p = KoGePoint3d(from.x + p.x, from.y + p.y, from.z + p.z);
    }
    return p;
}

KoGePoint3d& lastPoint()
{
    static KoGePoint3d point;
    return point;
}

}  // namespace Kora::Runtime
