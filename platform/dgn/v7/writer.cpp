#include "kora/dgn/v7/writer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>

#include "records.h"

namespace Kora::Dgn::V7 {

namespace {

using namespace Layout;

constexpr std::int32_t PlaneMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t PlaneMax = std::numeric_limits<std::int32_t>::max();

// Bounding box in UOR, grown point by point, rounded outwards.
struct Box {
    double low[3] = {std::numeric_limits<double>::max(), std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
    double high[3] = {std::numeric_limits<double>::lowest(), std::numeric_limits<double>::lowest(), std::numeric_limits<double>::lowest()};
    bool empty = true;

    void add(double x, double y, double z)
    {
        const double v[3] = {x, y, z};
        for (int i = 0; i < 3; ++i) {
            low[i] = std::min(low[i], v[i]);
            high[i] = std::max(high[i], v[i]);
        }
        empty = false;
    }
    void add(const IntPoint& p) { add(p.x, p.y, p.z); }
    void add(const Range& r)
    {
        add(r.low);
        add(r.high);
    }
    static std::int32_t clamp(double v)
    {
        if (!(v > PlaneMin)) return PlaneMin;
        if (!(v < PlaneMax)) return PlaneMax;
        return static_cast<std::int32_t>(v);
    }
    Range range(bool is3d) const
    {
        if (empty) return {};
        Range r{{clamp(std::floor(low[0])), clamp(std::floor(low[1])), clamp(std::floor(low[2]))},
                {clamp(std::ceil(high[0])), clamp(std::ceil(high[1])), clamp(std::ceil(high[2]))}};
        if (!is3d) { // 2D elements span the whole z axis
            r.low.z = PlaneMin;
            r.high.z = PlaneMax;
        }
        return r;
    }
};

// Direction of an element's local x and y axes in the design.
void axes(const Orientation& o, bool is3d, double ax[3], double ay[3])
{
    if (is3d) {
        const auto m = quaternionMatrix(o.quaternion);
        for (int i = 0; i < 3; ++i) {
            ax[i] = m[i][0];
            ay[i] = m[i][1];
        }
    } else {
        const double a = angleDegrees(o.angle) * M_PI / 180.0;
        ax[0] = std::cos(a), ax[1] = std::sin(a), ax[2] = 0;
        ay[0] = -std::sin(a), ay[1] = std::cos(a), ay[2] = 0;
    }
}

void addConic(Box& box, const DoublePoint& origin, double primary, double secondary, const Orientation& o, bool is3d)
{
    // The box of the whole ellipse: exact for its extreme points along each axis.
    double ax[3], ay[3];
    axes(o, is3d, ax, ay);
    double half[3];
    for (int i = 0; i < 3; ++i) half[i] = std::hypot(primary * ax[i], secondary * ay[i]);
    box.add(origin.x - half[0], origin.y - half[1], origin.z - half[2]);
    box.add(origin.x + half[0], origin.y + half[1], origin.z + half[2]);
}

std::optional<Range> computedRange(const Element& e, bool is3d)
{
    Box box;
    std::visit(
        [&](const auto& body) {
            using T = std::decay_t<decltype(body)>;
            if constexpr (std::is_same_v<T, Line>) {
                box.add(body.start);
                box.add(body.end);
            } else if constexpr (std::is_same_v<T, Vertices> || std::is_same_v<T, PointString>) {
                for (const auto& p : body.points) box.add(p);
            } else if constexpr (std::is_same_v<T, Ellipse> || std::is_same_v<T, Arc>) {
                addConic(box, body.origin, std::abs(body.primaryAxis), std::abs(body.secondaryAxis), body.orientation, is3d);
            } else if constexpr (std::is_same_v<T, Text>) {
                double ax[3], ay[3];
                axes(body.orientation, is3d, ax, ay);
                const double w = textSizeUor(body.lengthMultiplier) * static_cast<double>(body.text.size());
                const double h = textSizeUor(body.heightMultiplier);
                for (const double u : {0.0, w})
                    for (const double v : {0.0, h})
                        box.add(body.origin.x + u * ax[0] + v * ay[0], body.origin.y + u * ax[1] + v * ay[1],
                                body.origin.z + u * ax[2] + v * ay[2]);
            } else if constexpr (std::is_same_v<T, TextNode>) {
                box.add(body.origin);
            } else if constexpr (std::is_same_v<T, CellHeader>) {
                box.add(body.rangeLow);
                box.add(body.rangeHigh);
            } else if constexpr (std::is_same_v<T, Cone>) {
                const double r = std::max(std::abs(body.radius1), std::abs(body.radius2));
                for (const auto& c : {body.centre1, body.centre2}) {
                    box.add(c.x - r, c.y - r, c.z - r);
                    box.add(c.x + r, c.y + r, c.z + r);
                }
            } else if constexpr (std::is_same_v<T, RasterHeader>) {
                box.add(body.origin);
                box.add(body.origin.x + body.xExtent * body.scale, body.origin.y - body.yExtent * body.scale, body.origin.z);
            }
        },
        e.body);
    if (box.empty) return std::nullopt;
    return box.range(is3d);
}

// Size of the record in bytes, from the start of the element to where the
// attribute linkages begin; 0 for a record that cannot be written.
struct Sizing {
    std::size_t bodyEnd = 0;
    std::size_t padding = 0; // zero bytes after the record that are not linkage
    std::string problem;
};

Sizing sizeOf(const Element& e, bool is3d)
{
    return std::visit(
        [&](const auto& body) -> Sizing {
            using T = std::decay_t<decltype(body)>;
            if constexpr (std::is_same_v<T, RawBody>) {
                if (e.source.size() < HeaderSize) return {e.source.size(), 0, "an element without a record needs its source bytes"};
                return {e.source.size(), 0, {}};
            } else {
                Measure m;
                Records::fields(m, body, Records::Dims(is3d));
                return {m.end(), m.trailingPadding(), m.problem()};
            }
        },
        e.body);
}

void writeBody(Out& out, const Element& e, bool is3d)
{
    std::visit(
        [&](const auto& body) {
            if constexpr (!std::is_same_v<std::decay_t<decltype(body)>, RawBody>)
                Records::fields(out, body, Records::Dims(is3d));
        },
        e.body);
}

} // namespace

namespace {

// Appends the element's bytes to `to`; on a problem, says what it is and
// leaves `to` as it was.
std::optional<std::string> appendElement(const Element& e, bool is3d, std::vector<std::byte>& to)
{
    const Header& h = e.header;
    const bool raw = std::holds_alternative<RawBody>(e.body);
    const bool display = hasDisplayHeader(h.type) && (!raw || e.source.size() >= BodyOffset);
    const Sizing sizing = sizeOf(e, is3d);
    if (!sizing.problem.empty()) return sizing.problem;
    if (h.level > 63) return "level " + std::to_string(h.level) + " is over 63";

    std::size_t total = sizing.bodyEnd;
    if (!raw) {
        if (display && total < BodyOffset) total = BodyOffset;
        total += h.attributes.empty() ? sizing.padding : h.attributes.size();
        total += total % 2;
    }
    if (total > MaxElementBytes) return "element too long: " + std::to_string(total) + " bytes";

    // An element read from a file keeps its own bytes where no record field
    // covers them. When its size differs from what the record needs (slack
    // after the record, as some writers leave), it keeps its layout as long
    // as its record and linkages are those it was read with.
    bool keepLayout = e.source.size() == total;
    if (!keepLayout && !raw && !e.source.empty()) {
        const Element original = decodeElement(e.source, is3d);
        keepLayout = original.body == e.body && original.header.attributes == h.attributes;
    }
    const std::size_t start = to.size();
    if (keepLayout) to.insert(to.end(), e.source.begin(), e.source.end());
    else to.resize(start + total, std::byte{0});
    const std::span<std::byte> bytes(to.data() + start, to.size() - start);
    const bool sameSize = bytes.size() == total;
    Out out(bytes);

    std::uint8_t levelByte = static_cast<std::uint8_t>(h.level | (std::to_integer<std::uint8_t>(bytes[0]) & 0x40) | (h.complex ? 0x80 : 0));
    if (const Tcb* tcb = e.as<Tcb>(); tcb && e.source.empty() && tcb->is3d) levelByte |= 0xC0; // the 3D signature C8 09 FE 02
    out.byte(0, levelByte);
    out.byte(1, static_cast<std::uint8_t>(static_cast<unsigned>(h.type) | (h.deleted ? 0x80 : 0)));
    out.word(2, static_cast<std::uint16_t>((bytes.size() - HeaderSize) / 2));

    if (display) {
        if (const std::optional<Range> r = h.range ? h.range : computedRange(e, is3d)) {
            const std::int32_t values[6] = {r->low.x, r->low.y, r->low.z, r->high.x, r->high.y, r->high.z};
            for (std::size_t i = 0; i < 6; ++i) out.int32(RangeOffset + 4 * i, rangeToStored(values[i]));
        }
        out.word(GraphicGroupOffset, h.graphicGroup);
        std::uint16_t properties = h.properties;
        if (!raw && sameSize) {
            // Without linkages the index means nothing; an element read from
            // a file keeps whatever it had there.
            if (!keepLayout || !h.attributes.empty())
                out.word(AttributeIndexOffset, static_cast<std::uint16_t>((sizing.bodyEnd - AttributeIndexOffset - 2) / 2));
            properties = static_cast<std::uint16_t>(h.attributes.empty() ? properties & ~Property::Attributes
                                                                         : properties | Property::Attributes);
        }
        out.word(PropertiesOffset, properties);
        Records::symbology(out, SymbologyOffset, h.symbology);
    }
    if (!raw) {
        writeBody(out, e, is3d);
        if (sameSize) out.bytes(sizing.bodyEnd, h.attributes);
    }
    if (!out.ok()) {
        to.resize(start);
        return "internal error: " + elementTypeName(h.type) + " record does not fit its size";
    }
    return std::nullopt;
}

} // namespace

std::expected<std::vector<std::byte>, std::string> encodeElement(const Element& e, bool is3d)
{
    std::vector<std::byte> bytes;
    if (auto problem = appendElement(e, is3d, bytes)) return std::unexpected(std::move(*problem));
    return bytes;
}

Writer Writer::create(bool is3d, const Units& units)
{
    Writer w;
    w.m_info = {is3d ? FileKind::V7Design3d : FileKind::V7Design2d, is3d, units};
    Element tcb;
    tcb.header.type = ElementType::Tcb;
    tcb.header.level = 8;
    tcb.body = Tcb{is3d, units.subPerMaster, units.uorPerSub, units.masterName, units.subName, units.globalOrigin,
                   std::vector<std::byte>(TcbBytes - HeaderSize)};
    Element digitizer;
    digitizer.header.type = ElementType::DigitizerSetup;
    digitizer.body = DigitizerSetup{std::vector<std::byte>(DigitizerSetupBytes - HeaderSize)};
    Element levels;
    levels.header.type = ElementType::LevelSymbology;
    levels.body = LevelSymbology{{}, std::vector<std::byte>(LevelSymbologyOffset - HeaderSize)};
    // Records made here always fit their elements.
    for (const Element* e : {&tcb, &digitizer, &levels}) (void)w.append(*e);
    return w;
}

std::expected<Writer, ReadError> Writer::fromSeed(std::span<const std::byte> seed, SeedCopy copy)
{
    auto reader = Reader::open({seed.begin(), seed.end()});
    if (!reader) return std::unexpected(reader.error());
    Writer w;
    w.m_info = reader->info();
    Element element;
    bool inHeader = true;
    while (reader->next(element)) {
        const ElementType t = element.type();
        inHeader = inHeader && (t == ElementType::Tcb || t == ElementType::DigitizerSetup || t == ElementType::LevelSymbology);
        const bool wanted = inHeader || copy == SeedCopy::Everything
            || (copy == SeedCopy::HeaderAndColours && element.as<ColourTable>() != nullptr);
        if (!wanted) continue;
        // A seed element goes in as it is: the seed is read, never repaired.
        w.m_bytes.insert(w.m_bytes.end(), element.source.begin(), element.source.end());
        ++w.m_count;
    }
    if (reader->error()) return std::unexpected(*reader->error());
    return w;
}

std::expected<void, std::string> Writer::append(const Element& element)
{
    if (auto problem = appendElement(element, m_info.is3d, m_bytes)) return std::unexpected(std::move(*problem));
    ++m_count;
    return {};
}

std::expected<void, std::string> Writer::appendComplex(const Element& header, std::span<const Element> components)
{
    if (!isComplexHeader(header.type()))
        return std::unexpected(elementTypeName(header.type()) + " is not a complex element header");
    std::vector<std::vector<std::byte>> encoded;
    std::size_t componentBytes = 0;
    Box box;
    for (const Element& c : components) {
        Element component = c;
        component.header.complex = true;
        if (!component.header.range) component.header.range = computedRange(component, m_info.is3d);
        if (component.header.range) box.add(*component.header.range);
        auto bytes = encodeElement(component, m_info.is3d);
        if (!bytes) return std::unexpected(bytes.error());
        componentBytes += bytes->size();
        encoded.push_back(std::move(*bytes));
    }
    Element head = header;
    if (!head.header.range && !box.empty) head.header.range = box.range(m_info.is3d);
    auto first = encodeElement(head, m_info.is3d);
    if (!first) return std::unexpected(first.error());
    // The total length counts the words after the length word itself: the
    // rest of the header and every component.
    const std::size_t totalWords = (first->size() - BodyOffset - 2 + componentBytes) / 2;
    if (totalWords > 65535) return std::unexpected("complex element too long: " + std::to_string(totalWords) + " words");
    std::visit(
        [&](auto& body) {
            using T = std::decay_t<decltype(body)>;
            if constexpr (std::is_same_v<T, CellHeader> || std::is_same_v<T, ComplexHeader> || std::is_same_v<T, SurfaceHeader>
                          || std::is_same_v<T, TextNode>) {
                body.totalWords = static_cast<std::uint16_t>(totalWords);
                if constexpr (std::is_same_v<T, TextNode>)
                    body.stringCount = static_cast<std::uint16_t>(components.size());
                else if constexpr (!std::is_same_v<T, CellHeader>)
                    body.componentCount = static_cast<std::uint16_t>(components.size());
            }
        },
        head.body);
    first = encodeElement(head, m_info.is3d);
    if (!first) return std::unexpected(first.error());
    m_bytes.insert(m_bytes.end(), first->begin(), first->end());
    for (const auto& bytes : encoded) m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    m_count += 1 + components.size();
    return {};
}

std::vector<std::byte> Writer::finish()
{
    m_bytes.push_back(std::byte{0xFF});
    m_bytes.push_back(std::byte{0xFF});
    m_count = 0;
    return std::move(m_bytes);
}

} // namespace Kora::Dgn::V7
