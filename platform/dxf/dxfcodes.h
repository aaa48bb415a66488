// What a DXF group code holds, by its number.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

namespace Kora::Dxf {

// The application name of the platform's own extended data (underlay layers).
constexpr const char* kKoraApp = "KORA_UNDERLAY";

enum class ValueKind { String, Double, Int, Handle, Binary, Invalid };

inline ValueKind valueKind(int code)
{
    if (code >= 0 && code <= 9) return ValueKind::String;
    if (code >= 10 && code <= 59) return ValueKind::Double;
    if (code >= 60 && code <= 99) return ValueKind::Int;
    if (code >= 100 && code <= 102) return ValueKind::String;
    if (code == 105) return ValueKind::Handle;
    if (code >= 110 && code <= 149) return ValueKind::Double;
    if (code >= 160 && code <= 179) return ValueKind::Int;
    if (code >= 210 && code <= 239) return ValueKind::Double;
    if (code >= 270 && code <= 299) return ValueKind::Int;
    if (code >= 300 && code <= 309) return ValueKind::String;
    if (code >= 310 && code <= 319) return ValueKind::Binary;
    if (code >= 320 && code <= 369) return ValueKind::Handle;
    if (code >= 370 && code <= 389) return ValueKind::Int;
    if (code >= 390 && code <= 399) return ValueKind::Handle;
    if (code >= 400 && code <= 409) return ValueKind::Int;
    if (code >= 410 && code <= 419) return ValueKind::String;
    if (code >= 420 && code <= 429) return ValueKind::Int;
    if (code >= 430 && code <= 439) return ValueKind::String;
    if (code >= 440 && code <= 459) return ValueKind::Int;
    if (code >= 460 && code <= 469) return ValueKind::Double;
    if (code >= 470 && code <= 479) return ValueKind::String;
    if (code >= 480 && code <= 481) return ValueKind::Handle;
    if (code == 999) return ValueKind::String;
    if (code >= 1000 && code <= 1009) return ValueKind::String;
    if (code >= 1010 && code <= 1059) return ValueKind::Double;
    if (code >= 1060 && code <= 1071) return ValueKind::Int;
    return ValueKind::Invalid;
}

inline std::string_view trimmed(std::string_view v)
{
    while (!v.empty() && (v.front() == ' ' || v.front() == '\t')) v.remove_prefix(1);
    while (!v.empty() && (v.back() == ' ' || v.back() == '\t' || v.back() == '\r')) v.remove_suffix(1);
    return v;
}

// Plain decimals ("-12.5", "3351.84999999986") whose digits make an
// integer of at most 2^53, with at most 22 digits after the point: the
// integer and the power of ten are exact doubles, so their quotient is the
// correctly rounded value, as the general parser would give. Most numbers
// of a drawing are such; false for any other text.
inline bool parsePlainDecimal(std::string_view v, double& out)
{
    static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                         1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const bool negative = !v.empty() && v.front() == '-';
    if (negative) v.remove_prefix(1);
    uint64_t digits = 0;
    int count = 0, decimals = -1;
    for (const char c : v) {
        if (c >= '0' && c <= '9') {
            if (++count > 19) return false;
            digits = digits * 10 + static_cast<uint64_t>(c - '0');
            if (decimals >= 0) ++decimals;
        } else if (c == '.' && decimals < 0) {
            decimals = 0;
        } else {
            return false;
        }
    }
    if (count == 0 || digits > (uint64_t {1} << 53) || decimals > 22) return false;
    const double d = static_cast<double>(digits) / kPowers[decimals < 0 ? 0 : decimals];
    out = negative ? -d : d;
    return true;
}

inline bool parseDouble(std::string_view v, double& out)
{
    v = trimmed(v);
    if (!v.empty() && v.front() == '+') v.remove_prefix(1);
    if (v.empty()) return false;
    if (parsePlainDecimal(v, out)) return true;
    const auto [end, ec] = std::from_chars(v.data(), v.data() + v.size(), out);
    return ec == std::errc() && end == v.data() + v.size();
}

inline bool parseInt(std::string_view v, int64_t& out)
{
    v = trimmed(v);
    if (!v.empty() && v.front() == '+') v.remove_prefix(1);
    if (v.empty()) return false;
    const auto [end, ec] = std::from_chars(v.data(), v.data() + v.size(), out);
    if (ec == std::errc() && end == v.data() + v.size()) return true;
    // Some writers put "1.0" where an integer belongs.
    double d;
    if (!parseDouble(v, d) || d != static_cast<double>(static_cast<int64_t>(d))) return false;
    out = static_cast<int64_t>(d);
    return true;
}

inline bool parseHandle(std::string_view v, uint64_t& out)
{
    v = trimmed(v);
    if (v.empty() || v.size() > 16) return false;
    const auto [end, ec] = std::from_chars(v.data(), v.data() + v.size(), out, 16);
    return ec == std::errc() && end == v.data() + v.size();
}

inline bool validValue(int code, std::string_view v)
{
    double d;
    int64_t i;
    uint64_t h;
    switch (valueKind(code)) {
    case ValueKind::Double: return parseDouble(v, d);
    case ValueKind::Int: return parseInt(v, i);
    // "0" stands for no handle in pointer groups; handles are hexadecimal.
    case ValueKind::Handle: return trimmed(v).empty() || parseHandle(v, h);
    case ValueKind::Invalid: return false;
    default: return true;
    }
}

}  // namespace Kora::Dxf
