#include "decode.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "bytes.h"

namespace Kora::Dgn::V8 {

namespace {

constexpr std::uint16_t StringLinkageId = 22226;
constexpr std::uint16_t FillLinkageId = 0x41;
constexpr std::uint32_t ThreeDFlag = 0x800;
constexpr std::uint32_t HoleFlag = 0x8000;
constexpr std::uint16_t BSplinePoleType = 21;

// Reads doubles from an element; `ok` turns false at the first read past
// its end, so a decoder checks once at the end of its record.
class Fields {
public:
    Fields(std::span<const std::byte> bytes, const Model& model) : m_bytes(bytes), m_model(model) {}

    double number(std::size_t offset)
    {
        if (offset + 8 > m_bytes.size()) m_ok = false;
        return readDouble(m_bytes, offset);
    }
    Point uorPoint(std::size_t offset, bool is3d)
    {
        return {number(offset), number(offset + 8), is3d ? number(offset + 16) : 0.0};
    }
    // A point in master units; a 2D point stays in the plane z = 0.
    Point point(std::size_t offset, bool is3d)
    {
        Point p = m_model.toMaster(uorPoint(offset, is3d));
        if (!is3d) p.z = 0;
        return p;
    }
    double length(std::size_t offset) { return m_model.lengthToMaster(number(offset)); }
    bool ok() const { return m_ok; }
    std::span<const std::byte> bytes() const { return m_bytes; }

private:
    std::span<const std::byte> m_bytes;
    const Model& m_model;
    bool m_ok = true;
};

// The frame of a rotation: a 2D angle, or a 3D rotation stored as a unit
// quaternion (w, x, y, z).
void frameFromAngle(double angle, Point& xAxis, Point& yAxis)
{
    xAxis = {std::cos(angle), std::sin(angle), 0};
    yAxis = {-std::sin(angle), std::cos(angle), 0};
}

void frameFromQuaternion(Fields& f, std::size_t offset, Point& xAxis, Point& yAxis)
{
    const double w = f.number(offset), x = f.number(offset + 8), y = f.number(offset + 16), z = f.number(offset + 24);
    xAxis = {1 - 2 * (y * y + z * z), 2 * (x * y + w * z), 2 * (x * z - w * y)};
    yAxis = {2 * (x * y - w * z), 1 - 2 * (x * x + z * z), 2 * (y * z + w * x)};
}

// Line strings, shapes, point strings, curves and B-spline poles: a count
// at 0x68, the points from 0x70.
bool decodePoints(Fields& f, bool is3d, LinearBody& body, Diagnostic& problem)
{
    const std::size_t count = readU32(f.bytes(), 0x68);
    const std::size_t stride = is3d ? 24 : 16;
    if (f.bytes().size() < 0x70 || count > (f.bytes().size() - 0x70) / stride) {
        problem = {Diagnostic::Code::CountOutside, Diagnostic::Severity::Error, 0, 0,
                   std::to_string(count) + " points do not fit the element"};
        return false;
    }
    body.points.reserve(count);
    for (std::size_t i = 0; i < count; ++i) body.points.push_back(f.point(0x70 + i * stride, is3d));
    return true;
}

bool decodeText(Fields& f, bool is3d, TextBody& text, Diagnostic& problem)
{
    const auto bytes = f.bytes();
    text.font = readU32(bytes, 0x68);
    const std::size_t length = readU16(bytes, 0x6E);
    // Sizes are stored as multipliers of 6/1000 UOR.
    text.width = f.length(0x70) * 6 / 1000;
    text.height = f.length(0x78) * 6 / 1000;
    std::size_t payload = 0;
    if (is3d) {
        Point yAxis;
        frameFromQuaternion(f, 0x90, text.xAxis, yAxis);
        text.rotation = std::atan2(text.xAxis.y, text.xAxis.x);
        text.origin = f.point(0xB0, true);
        payload = 0xCA;
    } else {
        text.rotation = f.number(0x90);
        Point yAxis;
        frameFromAngle(text.rotation, text.xAxis, yAxis);
        text.origin = f.point(0x98, false);
        payload = 0xAA;
    }
    if (payload + length > bytes.size()) {
        problem = {Diagnostic::Code::CountOutside, Diagnostic::Severity::Error, 0, 0,
                   std::to_string(length) + " text bytes do not fit the element"};
        return false;
    }
    text.text = textToUtf8(bytes.subspan(payload, length));
    return true;
}

void decodeConic(Fields& f, bool is3d, bool arc, ConicBody& conic)
{
    std::size_t at = 0x68;
    if (arc) {
        conic.start = f.number(at);
        conic.sweep = f.number(at + 8);
        at += 16;
    } else {
        conic.sweep = 2 * std::numbers::pi;
    }
    conic.primary = f.length(at);
    conic.secondary = f.length(at + 8);
    if (is3d) {
        frameFromQuaternion(f, at + 16, conic.xAxis, conic.yAxis);
        conic.centre = f.point(at + 48, true);
    } else {
        frameFromAngle(f.number(at + 16), conic.xAxis, conic.yAxis);
        conic.centre = f.point(at + 24, false);
    }
}

void readMatrix(Fields& f, std::size_t offset, std::size_t n, double scale, std::array<double, 9>& m)
{
    m = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    for (std::size_t r = 0; r < n; ++r)
        for (std::size_t c = 0; c < n; ++c) m[r * 3 + c] = f.number(offset + (r * n + c) * 8) / scale;
}

} // namespace

void linkComponents(std::vector<Element>& elements, std::vector<Diagnostic>& diagnostics)
{
    // The open complex headers, innermost last, with the components each
    // still waits for. An element that is no component closes them all.
    struct Open {
        std::size_t header;
        std::uint32_t waiting;
    };
    std::vector<Open> open;
    for (std::size_t i = 0; i < elements.size(); ++i) {
        Element& element = elements[i];
        if (!element.component) {
            open.clear();
        } else if (open.empty()) {
            diagnostics.push_back({Diagnostic::Code::ComponentAlone, Diagnostic::Severity::Warning, 0, i,
                                   "a component without a complex header waiting for it"});
        } else {
            element.parent = open.back().header;
            --open.back().waiting;
            auto* curve = std::get_if<BSplineBody>(&elements[element.parent].body);
            const auto* poles = std::get_if<LinearBody>(&element.body);
            if (curve && poles && element.type == BSplinePoleType) curve->poles = poles->points;
        }
        if (element.complexHeader && element.componentCount > 0) open.push_back({i, element.componentCount});
        while (!open.empty() && open.back().waiting == 0) open.pop_back();
    }
}

std::string linkageString(std::span<const std::byte> element, std::uint32_t stringId)
{
    // Linkages follow the attribute offset (in words): a header word whose
    // low byte is the linkage's length in words less one, the linkage id,
    // then its data. A string linkage holds a string id, a byte length and
    // UTF-16 text behind the marker U+FDFF.
    std::size_t at = std::size_t{readU32(element, 8)} * 2;
    while (at + 12 <= element.size()) {
        const std::uint16_t header = readU16(element, at);
        const std::size_t size = (std::size_t{header & 0xFFu} + 1) * 2;
        if (readU16(element, at + 2) == StringLinkageId && readU32(element, at + 4) == stringId) {
            const std::size_t length = readU32(element, at + 8);
            const std::size_t from = at + 12;
            if (length > element.size() - from) return {};
            std::u16string units;
            for (std::size_t i = 0; i + 1 < length; i += 2) units += static_cast<char16_t>(readU16(element, from + i));
            if (!units.empty() && units.front() == 0xFDFF) units.erase(0, 1);
            while (!units.empty() && units.back() == 0) units.pop_back();
            return utf16ToUtf8(units);
        }
        at += size;
    }
    return {};
}

// The fill colour of a fill linkage: as in V7 designs, the byte at 8 of
// the linkage (the sample's one filled shape holds index 0 there; its shown
// colour, a true colour, is kept elsewhere and not read).
std::optional<std::uint32_t> fillColour(std::span<const std::byte> element)
{
    std::size_t at = std::size_t{readU32(element, 8)} * 2;
    while (at + 12 <= element.size()) {
        const std::uint16_t header = readU16(element, at);
        if (readU16(element, at + 2) == FillLinkageId) return std::to_integer<std::uint32_t>(element[at + 8]);
        at += (std::size_t{header & 0xFFu} + 1) * 2;
    }
    return std::nullopt;
}

Element decodeElement(std::span<const std::byte> bytes, const Model& model, Diagnostic& problem)
{
    Element element;
    const std::uint32_t typeWord = readU32(bytes, 0);
    element.type = static_cast<std::uint16_t>(typeWord & 0xFFFF);
    element.complexHeader = (typeWord & ComplexHeaderFlag) != 0;
    element.component = (typeWord & ComponentFlag) != 0;
    // Every complex header of the sample (cell, chain, shape, text node,
    // B-spline curve, shared cell definition) has its component count here.
    if (element.complexHeader) element.componentCount = readU32(bytes, 0x68);
    problem = {};
    auto keepUnknown = [&] {
        element.body = UnknownBody{};
        element.bytes.assign(bytes.begin(), bytes.end());
        return element;
    };
    if (bytes.size() < DisplayHeaderSize) {
        problem = {Diagnostic::Code::ShortElement, Diagnostic::Severity::Error, 0, 0,
                   "type " + std::to_string(element.type) + " element of " + std::to_string(bytes.size())
                       + " bytes has no display header"};
        return keepUnknown();
    }
    element.level = readU32(bytes, 0x0C);
    element.id = readU64(bytes, 0x10);
    element.graphicGroup = readU32(bytes, 0x20);
    const std::uint32_t flags = readU32(bytes, 0x28);
    element.is3d = (flags & ThreeDFlag) != 0;
    element.hole = (flags & HoleFlag) != 0;
    element.style = readI32(bytes, 0x2C);
    element.weight = readU32(bytes, 0x30);
    element.colour = readU32(bytes, 0x34);
    // The range: its low corner and its size, six 64-bit UOR values.
    auto range = [&](std::size_t at) { return static_cast<double>(static_cast<std::int64_t>(readU64(bytes, at))); };
    const Point low{range(0x38), range(0x40), range(0x48)};
    element.rangeLow = model.toMaster(low);
    element.rangeHigh = model.toMaster({low.x + range(0x50), low.y + range(0x58), low.z + range(0x60)});

    Fields f(bytes, model);
    const bool is3d = element.is3d;
    switch (element.type) {
    case 3: { // line
        element.body = LinearBody{{f.point(0x68, is3d), f.point(is3d ? 0x80 : 0x78, is3d)}};
        break;
    }
    case 4: case 6: case 11: case 21: case 22: { // line string, shape, curve, B-spline poles, point string
        if (element.type == 6) element.fillColour = fillColour(bytes);
        LinearBody body;
        if (!decodePoints(f, is3d, body, problem)) return keepUnknown();
        element.body = std::move(body);
        break;
    }
    case 15: case 16: { // ellipse, arc
        ConicBody conic;
        decodeConic(f, is3d, element.type == 16, conic);
        element.body = conic;
        break;
    }
    case 17: {
        TextBody text;
        if (!decodeText(f, is3d, text, problem)) return keepUnknown();
        element.body = std::move(text);
        break;
    }
    case 7: case 12: case 14: case 34: // text node, complex chain and shape, shared cell definition
        if (element.type == 14) element.fillColour = fillColour(bytes);
        element.body = ComplexBody{};
        break;
    case 2: { // cell header
        CellBody cell;
        if (is3d) {
            readMatrix(f, 0xA0, 3, 1, cell.transform);
            cell.origin = f.point(0xE8, true);
        } else {
            readMatrix(f, 0x90, 2, 1, cell.transform);
            cell.origin = f.point(0xB0, false);
        }
        element.body = cell;
        break;
    }
    case 35: { // shared cell instance; only the 3D layout is known
        if (!is3d) return keepUnknown();
        SharedCellBody instance;
        instance.name = linkageString(bytes, 1);
        readMatrix(f, 0xA0, 3, model.uorPerMaster, instance.transform);
        instance.origin = f.point(0xE8, true);
        element.body = std::move(instance);
        break;
    }
    case 27: { // B-spline curve header: order less two in the low nibble
        BSplineBody curve;
        curve.order = (static_cast<int>(readU32(bytes, 0x6C)) & 0x0F) + 2;
        curve.closed = (static_cast<std::uint8_t>(bytes.size() > 0x6D ? bytes[0x6D] : std::byte{0}) & 1) != 0;
        element.body = std::move(curve);
        break;
    }
    default:
        return keepUnknown();
    }
    if (!f.ok()) {
        problem = {Diagnostic::Code::ShortElement, Diagnostic::Severity::Error, 0, 0,
                   "type " + std::to_string(element.type) + " element of " + std::to_string(bytes.size())
                       + " bytes is too short for its record"};
        return keepUnknown();
    }
    return element;
}

std::string textToUtf8(std::span<const std::byte> bytes)
{
    // Windows-1252's 0x80..0x9F; the rest of the code page is Latin-1.
    static constexpr char16_t High[32] = {
        0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178};
    auto windows1252 = [](std::span<const std::byte> text) {
        std::string out;
        for (const std::byte b : text) {
            const auto c = static_cast<std::uint8_t>(b);
            appendUtf8(out, c >= 0x80 && c < 0xA0 ? High[c - 0x80] : c);
        }
        return out;
    };
    constexpr std::byte Marker[4] = {std::byte{0xFF}, std::byte{0xFE}, std::byte{0x01}, std::byte{0x00}};
    if (bytes.size() >= 4 && std::equal(Marker, Marker + 4, bytes.begin())) return windows1252(bytes.subspan(4));

    // Valid UTF-8 (no overlong forms, no surrogates) is taken as it is.
    std::size_t i = 0;
    while (i < bytes.size()) {
        const auto c = static_cast<std::uint8_t>(bytes[i]);
        std::size_t follow = 0;
        char32_t min = 0;
        if (c < 0x80) follow = 0;
        else if ((c & 0xE0) == 0xC0) follow = 1, min = 0x80;
        else if ((c & 0xF0) == 0xE0) follow = 2, min = 0x800;
        else if ((c & 0xF8) == 0xF0) follow = 3, min = 0x10000;
        else break;
        if (i + follow >= bytes.size() && follow > 0) break;
        char32_t value = follow == 0 ? c : c & (0x3F >> follow);
        bool ok = true;
        for (std::size_t k = 1; k <= follow; ++k) {
            const auto next = static_cast<std::uint8_t>(bytes[i + k]);
            if ((next & 0xC0) != 0x80) ok = false;
            value = (value << 6) | (next & 0x3F);
        }
        if (!ok || value < min || value > 0x10FFFF || (value >= 0xD800 && value < 0xE000)) break;
        i += follow + 1;
    }
    if (i == bytes.size()) return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return windows1252(bytes);
}

Point Model::toMaster(const Point& uor) const
{
    return {(uor.x - globalOrigin.x) / uorPerMaster, (uor.y - globalOrigin.y) / uorPerMaster,
            (uor.z - globalOrigin.z) / uorPerMaster};
}

Point ConicBody::at(double angle) const
{
    const double u = primary * std::cos(angle), v = secondary * std::sin(angle);
    return {centre.x + u * xAxis.x + v * yAxis.x, centre.y + u * xAxis.y + v * yAxis.y,
            centre.z + u * xAxis.z + v * yAxis.z};
}

std::size_t BSplineBody::spans() const
{
    const std::size_t n = poles.size();
    if (order < 2 || n < static_cast<std::size_t>(order)) return 0;
    return closed ? n : n - order + 1;
}

Point BSplineBody::at(double t) const
{
    // De Boor on uniform knots: span k uses poles k .. k + order - 1
    // (indexes taken modulo the pole count when the curve is closed).
    const std::size_t count = spans();
    if (count == 0) return poles.empty() ? Point{} : poles.front();
    const std::size_t n = poles.size();
    const auto p = static_cast<std::size_t>(order - 1);
    t = std::isnan(t) ? 0.0 : std::clamp(t, 0.0, static_cast<double>(count));
    const std::size_t k = std::min(static_cast<std::size_t>(t), count - 1);
    const double u = t - static_cast<double>(k) + static_cast<double>(p); // in knot units, knots at integers
    std::vector<Point> d(p + 1);
    for (std::size_t j = 0; j <= p; ++j) d[j] = poles[(k + j) % n];
    for (std::size_t r = 1; r <= p; ++r)
        for (std::size_t j = p; j >= r; --j) {
            const double knot = static_cast<double>(j);
            const double alpha = (u - knot) / static_cast<double>(p + 1 - r);
            d[j] = {(1 - alpha) * d[j - 1].x + alpha * d[j].x, (1 - alpha) * d[j - 1].y + alpha * d[j].y,
                    (1 - alpha) * d[j - 1].z + alpha * d[j].z};
        }
    return d[p];
}

} // namespace Kora::Dgn::V8
