// Reading V8 design files: models, levels, shared cell definitions and the
// graphic elements of a model, as records ready for an importer.
//
// Every record is in master units of its model (doubles), measured from
// the model's global origin, and carries its level, colour index, weight,
// line style and graphic group. Complex elements (chains, shapes, cells,
// text nodes, B-spline curves) are a header followed by its components,
// which may be complex themselves; each component names its header by
// index. What is not decoded stays an
// UnknownBody element with its type and bytes: nothing is dropped.
//
// Faults: a fault in the container or a page (a sector chain that loops,
// a stream past the end, a page that does not inflate, an element longer
// than its page) fails the read with a ReadError. A fault inside one
// element (too short for its type, a count that does not fit) keeps the
// element as UnknownBody and adds a Diagnostic.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <limits>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "kora/dgn/v8/container.h"

namespace Kora::Dgn::V8 {

// What the reader met inside an element, in the shape of the V7 codec's
// record: callers and tests decide by the code.
struct Diagnostic {
    enum class Code {
        None,
        ShortElement,     // too short for its display header or its type's record; kept as unknown
        CountOutside,     // a point or text count that does not fit the element; kept as unknown
        ComponentAlone,   // a component without a complex header waiting for it
        NoModelHeader,    // a model storage without a readable model header; the model is skipped
    };
    enum class Severity { Warning, Error };
    Code code = Code::None;
    Severity severity = Severity::Warning;
    std::size_t offset = 0;       // byte offset of the element in its inflated page
    std::size_t elementIndex = 0; // index in the model's element list
    std::string message;
};

// Recognition: a compound document that holds the DGN streams (/Dgn~H and
// the /Dgn-Md storage) is a V8 design.
enum class FileKind { NotDgn, CompoundNotDgn, V8 };
FileKind recognise(const CompoundFile& file);

struct Point {
    double x = 0;
    double y = 0;
    double z = 0;
    bool operator==(const Point&) const = default;
};

// A unit: its label as the file spells it and how many of it make a metre.
struct Unit {
    std::string label;
    double perMetre = 1;
};

struct Model {
    std::string name;
    std::string description;
    std::string storage;   // "/Dgn-Md/#000000"
    std::uint64_t id = 0;
    bool is3d = true;
    Unit master;
    Unit sub;
    double uorPerMaster = 1;
    Point globalOrigin;    // in UOR
    double subPerMaster() const { return sub.perMetre / master.perMetre; }
    Point toMaster(const Point& uor) const;
    double lengthToMaster(double uor) const { return uor / uorPerMaster; }
};

struct Level {
    std::uint32_t id = 0;
    std::string name;
};

// Element bodies. Angles are radians, counter-clockwise from the x axis of
// the element's own frame (xAxis, yAxis: unit vectors in the model).
struct LinearBody {                 // line, line string, shape, point string, curve, B-spline poles
    std::vector<Point> points;
};
struct ConicBody {                  // ellipse (start 0, sweep 2 pi) and arc
    Point centre;
    double primary = 0;             // semi-axis along xAxis
    double secondary = 0;           // semi-axis along yAxis
    Point xAxis{1, 0, 0};
    Point yAxis{0, 1, 0};
    double start = 0;
    double sweep = 0;
    Point at(double angle) const;   // the point of the conic at a parametric angle
};
struct TextBody {
    Point origin;
    double height = 0;
    double width = 0;
    Point xAxis{1, 0, 0};           // the baseline direction
    double rotation = 0;            // the baseline's angle in the xy plane
    std::uint32_t font = 0;
    std::string text;               // UTF-8
};
struct ComplexBody {};              // complex chain/shape header, text node: its components follow
struct CellBody {                   // cell header: its components follow
    Point origin;
    std::array<double, 9> transform{1, 0, 0, 0, 1, 0, 0, 0, 1}; // row-major 3x3
};
struct SharedCellBody {             // an instance of a shared cell definition
    std::string name;               // the definition's name
    Point origin;
    std::array<double, 9> transform{1, 0, 0, 0, 1, 0, 0, 0, 1}; // row-major, scale in master units
};
struct BSplineBody {                // B-spline curve header; its poles are its type-21 component
    int order = 4;
    bool closed = false;
    std::vector<Point> poles;
    // The curve at parameter t in [0, spans()]: uniform knots, periodic
    // when closed.
    std::size_t spans() const;
    Point at(double t) const;
};
struct UnknownBody {};

using Body = std::variant<UnknownBody, LinearBody, ConicBody, TextBody, ComplexBody, CellBody, SharedCellBody,
                          BSplineBody>;

inline constexpr std::size_t NoParent = std::numeric_limits<std::size_t>::max();

struct Element {
    std::uint16_t type = 0;         // 3 line, 4 line string, ... (the DGN type numbers)
    bool is3d = false;
    bool complexHeader = false;
    std::uint32_t componentCount = 0; // a complex header's own components (nested ones count once)
    bool component = false;
    std::size_t parent = NoParent;  // index of the complex header this is a component of
    bool hole = false;              // a shape that is a hole of its cell or group
    std::uint64_t id = 0;
    std::uint32_t level = 0;        // the level id, resolved through File::levels()
    std::uint32_t graphicGroup = 0;
    std::uint32_t colour = 0;       // colour index
    std::uint32_t weight = 0;
    std::int32_t style = 0;         // 0..7 the standard styles
    std::optional<std::uint32_t> fillColour; // a filled shape's fill colour index (its fill linkage)
    Point rangeLow;                 // the element's range, master units
    Point rangeHigh;
    Body body;
    std::vector<std::byte> bytes;   // the element's bytes, kept for UnknownBody only
};

struct SharedCellDefinition {
    std::string name;
    std::vector<Element> elements;  // the definition header first, its components after
};

struct ModelContents {
    std::vector<Element> elements;
    std::vector<Diagnostic> diagnostics;
};

class File {
public:
    // Opens the container, checks that it is a DGN, reads the models, the
    // levels and the shared cell definitions.
    static std::expected<File, ReadError> open(std::vector<std::byte> bytes);

    const std::vector<Model>& models() const { return m_models; }
    const std::vector<Level>& levels() const { return m_levels; }
    const std::vector<SharedCellDefinition>& sharedCells() const { return m_sharedCells; }
    const std::vector<Diagnostic>& diagnostics() const { return m_diagnostics; }
    // The level's name, or its number when the level table has no entry.
    std::string levelName(std::uint32_t id) const;

    // The graphic elements of models()[index], in file order.
    std::expected<ModelContents, ReadError> readModel(std::size_t index) const;

private:
    explicit File(CompoundFile container) : m_container(std::move(container)) {}

    CompoundFile m_container;
    std::vector<Model> m_models;
    std::vector<Level> m_levels;
    std::vector<SharedCellDefinition> m_sharedCells;
    std::vector<Diagnostic> m_diagnostics;
};

// Text bytes of a text element to UTF-8: FF FE 01 00 marks Windows-1252;
// otherwise valid UTF-8 is taken as it is and anything else read as
// Windows-1252.
std::string textToUtf8(std::span<const std::byte> bytes);

} // namespace Kora::Dgn::V8
