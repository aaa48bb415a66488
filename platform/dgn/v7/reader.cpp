#include "kora/dgn/v7/reader.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "kora/dgn/wholefile.h"
#include "layout.h"

namespace Kora::Dgn::V7 {

namespace {

using namespace Layout;

bool startsWith(std::span<const std::byte> bytes, std::initializer_list<unsigned> signature)
{
    if (bytes.size() < signature.size()) return false;
    std::size_t i = 0;
    for (const unsigned b : signature)
        if (std::to_integer<unsigned>(bytes[i++]) != b) return false;
    return true;
}

ReadError makeError(ReadError::Code code, std::string message, std::size_t offset = 0, std::size_t index = 0)
{
    return ReadError{code, std::move(message), offset, index};
}

// Why bytes of this kind cannot be read as a design; `subject` leads the
// message (the file's name, or nothing for bytes in memory).
std::optional<ReadError> refusal(FileKind kind, bool empty, const std::string& subject)
{
    switch (kind) {
    case FileKind::NotDgn:
        return makeError(ReadError::Code::NotDgn,
                         subject + (empty ? "empty file: not a DGN file" : "not a DGN file (unknown signature)"));
    case FileKind::V8:
        return makeError(ReadError::Code::UnsupportedV8,
                         subject + "V8 DGN file (compound document): only V7 files can be read");
    case FileKind::V7CellLibrary:
        return makeError(ReadError::Code::CellLibrary, subject + "V7 cell library, not a design file");
    case FileKind::V7Design2d:
    case FileKind::V7Design3d:
        break;
    }
    return std::nullopt;
}

// The longest signature recognise() looks at.
constexpr std::size_t SignatureBytes = 8;

} // namespace

FileKind recognise(std::span<const std::byte> firstBytes)
{
    if (startsWith(firstBytes, {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1})) return FileKind::V8;
    if (startsWith(firstBytes, {0x08, 0x09, 0xFE, 0x02})) return FileKind::V7Design2d;
    if (startsWith(firstBytes, {0xC8, 0x09, 0xFE, 0x02})) return FileKind::V7Design3d;
    if (startsWith(firstBytes, {0x08, 0x05, 0x17, 0x00})) return FileKind::V7CellLibrary;
    return FileKind::NotDgn;
}

std::string fileKindName(FileKind kind)
{
    switch (kind) {
    case FileKind::V7Design2d: return "V7 2D design";
    case FileKind::V7Design3d: return "V7 3D design";
    case FileKind::V7CellLibrary: return "V7 cell library";
    case FileKind::V8: return "V8 (compound document)";
    case FileKind::NotDgn: break;
    }
    return "not a DGN file";
}

std::string ReadError::describe() const
{
    return message + " (element " + std::to_string(elementIndex) + " at byte offset " + std::to_string(offset) + ")";
}

double Units::uorPerMaster() const
{
    if (subPerMaster == 0 || uorPerSub == 0) return 1.0;
    return static_cast<double>(subPerMaster) * static_cast<double>(uorPerSub);
}

DoublePoint Units::toMaster(const DoublePoint& uor) const
{
    const double scale = uorPerMaster();
    return {(uor.x - globalOrigin.x) / scale, (uor.y - globalOrigin.y) / scale, (uor.z - globalOrigin.z) / scale};
}

DoublePoint Units::toMaster(const IntPoint& uor) const
{
    return toMaster(DoublePoint{static_cast<double>(uor.x), static_cast<double>(uor.y), static_cast<double>(uor.z)});
}

double Units::lengthToMaster(double uor) const
{
    return uor / uorPerMaster();
}

DoublePoint Units::toUorExact(const DoublePoint& master) const
{
    const double scale = uorPerMaster();
    return {master.x * scale + globalOrigin.x, master.y * scale + globalOrigin.y, master.z * scale + globalOrigin.z};
}

bool Units::toUor(const DoublePoint& master, IntPoint& uor) const
{
    const DoublePoint exact = toUorExact(master);
    const double values[3] = {std::round(exact.x), std::round(exact.y), std::round(exact.z)};
    for (const double v : values)
        if (!(v >= -2147483648.0 && v <= 2147483647.0)) return false;
    uor = {static_cast<std::int32_t>(values[0]), static_cast<std::int32_t>(values[1]), static_cast<std::int32_t>(values[2])};
    return true;
}

double Units::lengthToUor(double master) const
{
    return master * uorPerMaster();
}

std::expected<Reader, ReadError> Reader::open(std::vector<std::byte> bytes)
{
    auto buffer = std::make_shared<const std::vector<std::byte>>(std::move(bytes));
    const std::span<const std::byte> file(*buffer);
    const FileKind kind = recognise(file);
    if (auto refused = refusal(kind, file.empty(), {})) return std::unexpected(std::move(*refused));
    // The signature is the header of a whole TCB (766 words follow), which
    // must be in the file to be of use.
    if (TcbBytes > file.size())
        return std::unexpected(makeError(ReadError::Code::Truncated,
                                         "truncated design header: the TCB needs " + std::to_string(TcbBytes)
                                             + " bytes, the file has " + std::to_string(file.size())));
    Reader reader(buffer);
    const Element tcbElement = decodeElement(ElementBytes(buffer, 0, TcbBytes), false);
    const Tcb& tcb = std::get<Tcb>(tcbElement.body);
    reader.m_info.kind = kind;
    reader.m_info.is3d = tcb.is3d;
    reader.m_info.units = {tcb.masterName, tcb.subName, tcb.subPerMaster, tcb.uorPerSub, tcb.globalOrigin};
    if (tcb.subPerMaster <= 0 || tcb.uorPerSub <= 0)
        reader.m_diagnostics.push_back({Diagnostic::Code::NoWorkingUnits, Diagnostic::Severity::Warning, 0, 0,
                                        "the TCB gives no working units (sub units per master " + std::to_string(tcb.subPerMaster)
                                            + ", UOR per sub unit " + std::to_string(tcb.uorPerSub)
                                            + "); coordinates are read as UOR"});
    return reader;
}

bool Reader::next(Element& element)
{
    if (m_done) return false;
    const std::size_t remaining = m_file.size() - m_offset;
    // The end of the design is the 0xFFFF word or the end of the file.
    if (remaining == 0 || (remaining >= 2 && m_file[m_offset] == std::byte{0xFF} && m_file[m_offset + 1] == std::byte{0xFF})) {
        m_done = true;
        return false;
    }
    if (remaining < HeaderSize) {
        m_error = makeError(ReadError::Code::Truncated,
                            "truncated element header: " + std::to_string(remaining) + " bytes left at the end of the file",
                            m_offset, m_index);
        m_done = true;
        return false;
    }
    const std::size_t size = HeaderSize + 2 * std::size_t{decodeWord(m_file.subspan(m_offset + 2).first<2>())};
    if (size > remaining) {
        m_error = makeError(ReadError::Code::Truncated,
                            "element runs past the end of the file: " + std::to_string(size) + " bytes announced, "
                                + std::to_string(remaining) + " left",
                            m_offset, m_index);
        m_done = true;
        return false;
    }
    Diagnostic problem;
    element = decodeElement(ElementBytes(m_buffer, m_offset, size), m_info.is3d, &problem);
    element.offset = m_offset;
    element.index = m_index;
    if (problem.code != Diagnostic::Code::None) {
        problem.offset = m_offset;
        problem.elementIndex = m_index;
        m_diagnostics.push_back(std::move(problem));
    }

    // B-spline knots, weights and boundaries mean something only right
    // after their curve or surface header and poles.
    switch (element.type()) {
    case ElementType::BSplineCurveHeader:
    case ElementType::BSplineSurfaceHeader:
        m_inBSpline = true;
        break;
    case ElementType::BSplineKnot:
    case ElementType::BSplineWeight:
    case ElementType::BSplineBoundary:
    case ElementType::BSplinePole:
        if (!m_inBSpline)
            m_diagnostics.push_back({Diagnostic::Code::BSplineComponentAlone, Diagnostic::Severity::Warning, m_offset, m_index,
                                     elementTypeName(element.type()) + " element without a B-spline curve or surface header"});
        break;
    default:
        m_inBSpline = false;
        break;
    }

    m_offset += size;
    ++m_index;
    return true;
}

std::expected<Design, ReadError> readDesign(std::vector<std::byte> bytes)
{
    Design design;
    auto reader = Reader::open(std::move(bytes));
    if (!reader) return std::unexpected(reader.error());
    design.info = reader->info();
    Element element;
    while (reader->next(element)) {
        if (const auto* colours = element.as<ColourTable>()) design.colourTable = *colours;
        design.elements.push_back(std::move(element));
    }
    if (reader->error()) return std::unexpected(*reader->error());
    design.diagnostics = reader->diagnostics();
    return design;
}

std::expected<std::vector<std::byte>, ReadError> readFileBytes(const std::filesystem::path& path)
{
    // The first bytes say what the file is: anything but a V7 design is
    // refused before the rest is read.
    return readWholeFile<ReadError>(
        path, SignatureBytes, MaxUnsizedFileBytes,
        [&](const std::vector<std::byte>& head) { return refusal(recognise(head), head.empty(), path.string() + ": "); },
        [](WholeFileProblem problem, std::string message) {
            return makeError(problem == WholeFileProblem::Access ? ReadError::Code::FileAccess : ReadError::Code::TooLong,
                             std::move(message));
        });
}

std::expected<Design, ReadError> readDesignFile(const std::filesystem::path& path)
{
    auto bytes = readFileBytes(path);
    if (!bytes) return std::unexpected(bytes.error());
    return readDesign(std::move(*bytes));
}

} // namespace Kora::Dgn::V7
