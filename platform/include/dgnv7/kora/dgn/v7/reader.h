// Reading V7 design files.
//
// A design file is a sequence of variable-length elements: a 4-byte header
// (level and complex bit, type and deleted bit, words to follow) and the
// words that follow. It starts with the design header (the TCB, type 9, and
// usually the digitizer setup and level symbology elements) and ends with
// the word 0xFFFF or the end of the file.
//
// Reader decodes one element at a time from the file's bytes, which it
// holds; every element it yields shares that buffer instead of copying its
// bytes, so memory stays bounded by the file itself and an element stays
// valid after the reader is gone. readDesign() is the convenience that
// collects every element.
//
// Faults: a fault in the file's structure (an element running past the end
// of the file, a truncated element header, a TCB cut short) stops
// reading with a ReadError that says what, at which byte offset and which
// element index. A fault inside one element (too short for its type, counts
// that do not fit, components without their header) keeps the element as a
// RawBody record and adds a Diagnostic; reading goes on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kora/dgn/v7/elements.h"

namespace Kora::Dgn::V7 {

// What the first bytes of a file say it is.
enum class FileKind {
    NotDgn,
    V7Design2d,   // 08 09 FE 02
    V7Design3d,   // C8 09 FE 02
    V7CellLibrary, // 08 05 17 00
    V8,           // OLE compound document D0 CF 11 E0 A1 B1 1A E1
};
FileKind recognise(std::span<const std::byte> firstBytes);
std::string fileKindName(FileKind kind); // "V7 2D design", "V8 (compound document)", ...

struct ReadError {
    enum class Code {
        NotDgn,          // the first bytes are no DGN signature
        UnsupportedV8,   // a V8 compound document
        CellLibrary,     // a cell library, not a design
        FileAccess,      // the file could not be opened or read
        TooLong,         // a pipe or device gave more than MaxUnsizedFileBytes
        Truncated,       // an element header or body runs past the end of the file
    };
    Code code = Code::NotDgn;
    std::string message;       // says what went wrong, in English
    std::size_t offset = 0;    // byte offset of the element at fault
    std::size_t elementIndex = 0;

    // "<message> (element <index> at byte offset <offset>)"
    std::string describe() const;
};

// What the reader met inside an element or the design header, in the shape
// of the platform's other readers' records: callers and tests decide by the
// code; the message is only ever shown.
struct Diagnostic {
    enum class Code {
        None,
        NoWorkingUnits,        // the TCB gives no units; coordinates are read as UOR
        ShortElement,          // too short for its display header or record; kept as raw bytes
        AttributeIndexOutside, // the attribute index points outside the element; linkages ignored
        BSplineComponentAlone, // a knot, weight, boundary or pole without its curve or surface header
    };
    enum class Severity {
        Warning, // read anyway; what was read may differ from what was meant
        Error,   // the part named could not be read (it is kept as it is)
    };
    Code code = Code::None;
    Severity severity = Severity::Warning;
    std::size_t offset = 0;       // byte offset of the element
    std::size_t elementIndex = 0;
    std::string message;
};

// Working units of a design: master units, sub units per master unit, UOR
// per sub unit, and the global origin (in UOR) that master coordinates are
// measured from.
struct Units {
    std::string masterName;
    std::string subName;
    std::int32_t subPerMaster = 1;
    std::int32_t uorPerSub = 1;
    DoublePoint globalOrigin;

    // UOR per master unit; 1 when the file leaves either factor at 0 (such
    // files exist; their coordinates are then read as plain UOR).
    double uorPerMaster() const;
    DoublePoint toMaster(const DoublePoint& uor) const;
    DoublePoint toMaster(const IntPoint& uor) const;
    double lengthToMaster(double uor) const;
    // Master coordinates back to the design plane, rounded to the nearest
    // UOR; false when the point lies outside the 32-bit plane.
    bool toUor(const DoublePoint& master, IntPoint& uor) const;
    DoublePoint toUorExact(const DoublePoint& master) const;
    double lengthToUor(double master) const;
};

// The design-wide facts found in the TCB.
struct DesignInfo {
    FileKind kind = FileKind::NotDgn;
    bool is3d = false;
    Units units;
};

class Reader {
public:
    // Checks the signature and decodes the TCB. The reader takes the file's
    // bytes and shares them with the elements it yields.
    static std::expected<Reader, ReadError> open(std::vector<std::byte> file);

    const DesignInfo& info() const { return m_info; }

    // Decodes the next element into `element` (whose vectors are reused).
    // False at the end of the design or on a structural fault; error() then
    // tells which.
    bool next(Element& element);
    const std::optional<ReadError>& error() const { return m_error; }
    const std::vector<Diagnostic>& diagnostics() const { return m_diagnostics; }
    std::size_t offset() const { return m_offset; }

private:
    explicit Reader(ElementBytes::Buffer file) : m_buffer(std::move(file)), m_file(*m_buffer) {}

    ElementBytes::Buffer m_buffer;
    std::span<const std::byte> m_file;
    DesignInfo m_info;
    std::size_t m_offset = 0;
    std::size_t m_index = 0;
    bool m_done = false;
    std::optional<ReadError> m_error;
    std::vector<Diagnostic> m_diagnostics;
    // Set while the components of a B-spline curve or surface may follow.
    bool m_inBSpline = false;
};

// A whole design in memory; its elements share the file's bytes.
struct Design {
    DesignInfo info;
    std::vector<Element> elements;
    std::vector<Diagnostic> diagnostics;
    std::optional<ColourTable> colourTable; // the last colour table in the file
};

// Reads every element. A structural fault fails the whole read; callers
// that want the elements before the fault use Reader.
std::expected<Design, ReadError> readDesign(std::vector<std::byte> bytes);
std::expected<Design, ReadError> readDesignFile(const std::filesystem::path& path);
// The bytes of a V7 design file. Its first bytes are read and recognised
// before anything else: what is no V7 design (V8, a cell library, anything
// else) is refused at once, with the file's name in the message. A file that
// is not a regular file (a pipe, a device) is read up to MaxUnsizedFileBytes.
inline constexpr std::size_t MaxUnsizedFileBytes = std::size_t{1} << 30;
std::expected<std::vector<std::byte>, ReadError> readFileBytes(const std::filesystem::path& path);

// Decodes one element from its bytes (the 4-byte header included) in a
// design of the given dimension. An element too short for its type's record
// comes back as RawBody with the reason in `problem`.
// The element keeps `bytes` as its source. A problem fills `problem`'s code,
// severity and message; its place is the caller's to say.
Element decodeElement(ElementBytes bytes, bool is3d, Diagnostic* problem = nullptr);

} // namespace Kora::Dgn::V7
