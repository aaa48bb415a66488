// The V8 import: the elements of one model, as the V8 reader gives them
// (in master units, measured from the global origin), placed through the
// same writer as V7 designs.
#include <cmath>
#include <filesystem>
#include <map>

#include "importwriter.h"
#include "kora/dgn/v8/reader.h"

namespace fs = std::filesystem;

namespace Kora::Dgn {

namespace {

namespace V8 = Kora::Dgn::V8;

// Reports name V8 element types as V7 ones: the numbers are the same.
std::string typeName(std::uint16_t type)
{
    return type <= 0x7F ? V7::elementTypeName(static_cast<V7::ElementType>(type)) : "Type " + std::to_string(type);
}

KoGeVector3d vector(const V8::Point& p) { return {p.x, p.y, p.z}; }

// The elements of one list (a model's, or a shared cell definition's):
// where each complex element's components end.
class ElementList {
public:
    explicit ElementList(const std::vector<V8::Element>& elements) : m_elements(elements) {}
    const V8::Element& operator[](std::size_t i) const { return m_elements[i]; }
    std::size_t size() const { return m_elements.size(); }
    // The index after `header` and everything nested in it.
    std::size_t end(std::size_t header) const
    {
        std::size_t i = header + 1;
        while (i < m_elements.size() && inside(i, header)) ++i;
        return i;
    }

private:
    bool inside(std::size_t i, std::size_t header) const
    {
        std::size_t p = m_elements[i].parent;
        while (p != V8::NoParent && p > header) p = m_elements[p].parent;
        return p == header;
    }
    const std::vector<V8::Element>& m_elements;
};

class V8Importer {
public:
    V8Importer(const V8::File& file, const V8::Model& model, const DgnImportState& state, ImportWriter& out)
        : m_file(file), m_state(state), m_out(out), m_scale(state.masterUnits == 0 ? model.subPerMaster() : 1.0)
    {
    }

    // Fills the sink's block with the elements; false when cancelled.
    bool run(const std::vector<V8::Element>& elements, const Sink& sink)
    {
        const ElementList list(elements);
        for (std::size_t i = 0; i < list.size();) {
            i = importElement(list, i, sink);
            if (!m_out.progress(i, list.size())) return false;
        }
        return true;
    }

private:
    std::size_t importElement(const ElementList& list, std::size_t index, const Sink& sink);
    void importComplex(const ElementList& list, std::size_t index, std::size_t end, const Sink& sink);
    void importTextNode(const ElementList& list, std::size_t index, std::size_t end, const Sink& sink);
    void importCell(const ElementList& list, std::size_t index, std::size_t end, const Sink& sink);
    void importSharedCell(const V8::Element& element, const Sink& sink);
    void importText(const V8::Element& element, const Sink& sink);
    bool appendOutline(const V8::Element& element, const Sink& sink, Outline& outline) const;
    void place(const KoDbObjectId& blockId, const V8::Point& origin, double rotation, double scale,
               const V8::Element& element, const Sink& sink);

    KoGePoint3d point(const V8::Point& p, const Sink& sink) const
    {
        return sink.local({p.x * m_scale, p.y * m_scale, p.z * m_scale});
    }
    std::vector<KoGePoint3d> points(const V8::Element& element, const Sink& sink) const
    {
        std::vector<KoGePoint3d> result;
        if (const auto* linear = std::get_if<V8::LinearBody>(&element.body))
            for (const V8::Point& p : linear->points) result.push_back(point(p, sink));
        return result;
    }
    double length(double master, const Sink& sink) const { return master * m_scale / sink.scale; }
    // Level 0 without a table entry (cell headers carry it) is the
    // drawing's layer "0", as V7 level 0 is.
    KoString layerName(std::uint32_t level) const
    {
        const std::string name = m_file.levelName(level);
        return name == "0" ? KoString() : KoString::fromUtf8(name);
    }
    DesignSymbology symbology(const V8::Element& element) const
    {
        return {layerName(element.level), static_cast<int>(std::min<std::uint32_t>(element.colour, ColourCount)),
                element.style, static_cast<int>(std::min<std::uint32_t>(element.weight, WeightCount - 1))};
    }
    void add(KoDbEntity* entity, const V8::Element& element, const Sink& sink)
    {
        m_out.add(entity, symbology(element), sink, typeName(element.type));
    }
    void skip(const V8::Element& element, const char* reason) { m_out.skip(typeName(element.type), reason); }

    const V8::File& m_file;
    const DgnImportState& m_state;
    ImportWriter& m_out;
    double m_scale;
    std::map<std::string, KoDbObjectId> m_sharedCells; // definition name -> its block
};

std::size_t V8Importer::importElement(const ElementList& list, std::size_t index, const Sink& sink)
{
    const V8::Element& element = list[index];
    const std::size_t next = element.complexHeader ? list.end(index) : index + 1;
    ++m_out.report().itemsRead;
    if (std::holds_alternative<V8::UnknownBody>(element.body)) {
        skip(element, "not translatable");
        return next;
    }
    switch (element.type) {
    case 3: {
        const auto ends = points(element, sink);
        add(new KoDbLine(ends.at(0), ends.at(1)), element, sink);
        break;
    }
    case 4:
    case 6:
        m_out.addPolyline(points(element, sink), element.type == 6, symbology(element),
                          element.fillColour ? std::optional<int>(static_cast<int>(*element.fillColour)) : std::nullopt,
                          sink, typeName(element.type));
        break;
    case 11:
        if (auto* spline = curveEntity(points(element, sink)))
            add(spline, element, sink);
        else
            skip(element, "curve with fewer than six points");
        break;
    case 15:
    case 16: {
        const auto& conic = std::get<V8::ConicBody>(element.body);
        const double primary = length(conic.primary, sink), secondary = length(conic.secondary, sink);
        if (primary <= 0.0 || secondary <= 0.0) {
            skip(element, "arc or ellipse without size");
            break;
        }
        add(conicEntity(point(conic.centre, sink), sink.turned(vector(conic.xAxis)), sink.turned(vector(conic.yAxis)),
                        primary, secondary, conic.start, conic.sweep),
            element, sink);
        break;
    }
    case 17:
        importText(element, sink);
        break;
    case 22:
        for (const KoGePoint3d& p : points(element, sink)) add(new KoDbPoint(p), element, sink);
        break;
    case 27: {
        const auto& curve = std::get<V8::BSplineBody>(element.body);
        std::vector<KoGePoint3d> poles;
        for (const V8::Point& p : curve.poles) poles.push_back(point(p, sink));
        m_out.report().itemsRead += next - index - 1;
        if (poles.size() < 2 || curve.order < 2)
            skip(element, "B-spline curve without poles");
        else
            add(bsplineEntity(curve.order, curve.closed, std::move(poles), {}, {}), element, sink);
        break;
    }
    case 7:
        importTextNode(list, index, next, sink);
        break;
    case 12:
    case 14:
        importComplex(list, index, next, sink);
        break;
    case 2:
        importCell(list, index, next, sink);
        break;
    case 35:
        importSharedCell(element, sink);
        break;
    default:
        skip(element, "not translatable");
        break;
    }
    return next;
}

void V8Importer::importText(const V8::Element& element, const Sink& sink)
{
    const auto& text = std::get<V8::TextBody>(element.body);
    const KoGeVector3d xAxis = sink.turned(vector(text.xAxis));
    const KoGeVector3d yAxis = KoGeVector3d::kZAxis().crossProduct(xAxis);
    add(textEntity(point(text.origin, sink), xAxis, yAxis, KoString::fromUtf8(text.text), length(text.height, sink),
                   length(text.width, sink), JustifyLeftBottom),
        element, sink);
}

void V8Importer::importTextNode(const ElementList& list, std::size_t index, std::size_t end, const Sink& sink)
{
    if (m_state.explodeTextNodes == 1) {
        for (std::size_t i = index + 1; i < end;) i = importElement(list, i, sink);
        return;
    }
    std::vector<KoString> lines;
    const V8::Element* first = nullptr;
    for (std::size_t i = index + 1; i < end; ++i) {
        ++m_out.report().itemsRead;
        const auto* text = std::get_if<V8::TextBody>(&list[i].body);
        if (!text) {
            skip(list[i], "not a text in a text node");
            continue;
        }
        if (!first) first = &list[i];
        lines.push_back(KoString::fromUtf8(text->text));
    }
    if (!first) {
        skip(list[index], "empty text node");
        return;
    }
    // The node's own origin and size are not read: its first text places
    // and sizes it, and speaks for its symbology.
    const auto& text = std::get<V8::TextBody>(first->body);
    add(mtextEntity(point(text.origin, sink), sink.turned(vector(text.xAxis)), lines, length(text.height, sink),
                    JustifyLeftBottom),
        *first, sink);
}

bool V8Importer::appendOutline(const V8::Element& element, const Sink& sink, Outline& outline) const
{
    const double tolerance = 1e-9 * std::max(1.0, m_scale / sink.scale);
    if (element.type == 3 || element.type == 4) {
        for (const KoGePoint3d& p : points(element, sink))
            if (!outline.append(p, 0.0, tolerance)) return false;
        return true;
    }
    const auto* arc = std::get_if<V8::ConicBody>(&element.body);
    if (element.type != 16 || !arc || std::abs(arc->primary - arc->secondary) > 1e-12 * arc->primary)
        return false;
    return outline.appendArc(point(arc->centre, sink), sink.turned(vector(arc->xAxis)), sink.turned(vector(arc->yAxis)),
                             length(arc->primary, sink), arc->start, arc->sweep, tolerance);
}

void V8Importer::importComplex(const ElementList& list, std::size_t index, std::size_t end, const Sink& sink)
{
    const V8::Element& header = list[index];
    const bool closed = header.type == 14;
    Outline outline;
    bool single = end > index + 1;
    for (std::size_t i = index + 1; i < end && single; ++i) single = appendOutline(list[i], sink, outline);
    if (single && outline.vertices.size() >= 2) {
        m_out.report().itemsRead += end - index - 1;
        if (closed && outline.vertices.size() > 2 && outline.vertices.front().point == outline.vertices.back().point)
            outline.vertices.pop_back();
        // The components carry the symbology, the header its level and fill.
        DesignSymbology symbology = this->symbology(list[index + 1]);
        symbology.level = layerName(header.level);
        m_out.addOutline(outline, closed, symbology,
                         header.fillColour ? std::optional<int>(static_cast<int>(*header.fillColour)) : std::nullopt,
                         sink, typeName(header.type));
        return;
    }
    if (end == index + 1) {
        skip(header, "complex element without components");
        return;
    }
    // Components off one plane, or other than lines, line strings and
    // circular arcs, stay as they are.
    for (std::size_t i = index + 1; i < end;) i = importElement(list, i, sink);
    if (closed && header.fillColour) skip(header, "fill of a shape that is not flat");
}

void V8Importer::place(const KoDbObjectId& blockId, const V8::Point& origin, double rotation, double scale,
                       const V8::Element& element, const Sink& sink)
{
    auto* reference = new KoDbBlockReference(point(origin, sink), blockId);
    const double relative = scale / sink.scale;
    reference->setScaleFactors({relative, relative, relative});
    reference->setRotation(rotation - sink.rotation);
    add(reference, element, sink);
}

void V8Importer::importCell(const ElementList& list, std::size_t index, std::size_t end, const Sink& sink)
{
    const V8::Element& element = list[index];
    const auto& cell = std::get<V8::CellBody>(element.body);
    // As for V7: the block holds the components in the cell's own frame
    // when its transformation is a turn about Z and a uniform scale, and as
    // the model draws them otherwise.
    const auto [rotation, scale] = turnAndScale(cell.transform).value_or(std::pair{0.0, 1.0});
    const KoDbObjectId blockId = addBlock(m_out.database(), m_out.prefixed(L"CELL"), m_out.created());
    KoDbBlockTableRecord* block = nullptr;
    if (blockId.isNull() || kodbOpenObject(block, blockId, KoDb::kForWrite) != eOk) {
        skip(element, "cell whose block could not be made");
        return;
    }
    const Sink inner{block, point(cell.origin, Sink{}), rotation, scale};
    for (std::size_t i = index + 1; i < end;) i = importElement(list, i, inner);
    block->close();
    place(blockId, cell.origin, rotation, scale, element, sink);
}

void V8Importer::importSharedCell(const V8::Element& element, const Sink& sink)
{
    const auto& instance = std::get<V8::SharedCellBody>(element.body);
    const auto frame = turnAndScale(instance.transform);
    if (!frame) {
        skip(element, "shared cell placed other than turned and scaled");
        return;
    }
    auto found = m_sharedCells.find(instance.name);
    if (found == m_sharedCells.end()) {
        // The definition becomes a block the first time it is placed; its
        // components are drawn about its origin.
        const V8::SharedCellDefinition* definition = nullptr;
        for (const auto& d : m_file.sharedCells())
            if (d.name == instance.name) definition = &d;
        if (!definition) {
            skip(element, "shared cell whose definition is missing");
            return;
        }
        const KoDbObjectId blockId = addBlock(m_out.database(), m_out.prefixed(KoString::fromUtf8(instance.name)),
                                              m_out.created());
        KoDbBlockTableRecord* block = nullptr;
        if (blockId.isNull() || kodbOpenObject(block, blockId, KoDb::kForWrite) != eOk) {
            skip(element, "shared cell whose block could not be made");
            return;
        }
        // The definition's header is not content; its components are.
        const ElementList list(definition->elements);
        for (std::size_t i = 1; i < list.size();) i = importElement(list, i, Sink{block, {}});
        block->close();
        found = m_sharedCells.emplace(instance.name, blockId).first;
    }
    place(found->second, instance.origin, frame->first, frame->second, element, sink);
}

} // namespace

int importV8Design(const DgnImportState& state, KoDbDatabase* database, const ImportTarget& target,
                   DgnTranslationReport& report, KoDbObjectId* blockId)
{
    const fs::path path(state.file.toUtf8());
    auto bytes = V8::readFileBytes(path);
    if (!bytes) {
        report.notes.push_back(state.file + KoString::fromUtf8(": " + bytes.error().describe()));
        return KORTERROR;
    }
    auto file = V8::File::open(std::move(*bytes));
    if (!file) {
        report.notes.push_back(state.file + KoString::fromUtf8(": " + file.error().describe()));
        return KORTERROR;
    }
    const auto& models = file->models();
    std::size_t chosen = 0;
    if (!state.model.isEmpty() && state.model != L"Default") {
        while (chosen < models.size() && KoString::fromUtf8(models[chosen].name) != state.model) ++chosen;
    }
    if (chosen >= models.size()) {
        report.notes.push_back(state.file + L": no model named \"" + state.model + L"\".");
        return KORTERROR;
    }
    // The whole model is read and decoded before the drawing is touched.
    auto contents = file->readModel(chosen);
    if (!contents) {
        report.notes.push_back(state.file + KoString::fromUtf8(": " + contents.error().describe()));
        return KORTERROR;
    }
    const std::optional<V7::ColourTable> noColourTable;
    return placeDesign(state, database, target, report, blockId, KoString::fromUtf8(path.stem().string()),
                       [&](KoDbObjectId spaceId, std::vector<KoDbObjectId>& created, std::vector<Replacement>&) {
                           ImportWriter out(state, database, target, report, created, noColourTable);
                           V8Importer importer(*file, models[chosen], state, out);
                           KoDbBlockTableRecord* space = nullptr;
                           if (kodbOpenObject(space, spaceId, KoDb::kForWrite) != eOk) return Placement::Failed;
                           const bool finished = importer.run(contents->elements, Sink{space, {}});
                           space->close();
                           return finished ? Placement::Done : Placement::Cancelled;
                       });
}

} // namespace Kora::Dgn
