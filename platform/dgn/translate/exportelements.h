// Drawing entities to V7 elements: the geometry side of the export.
//
// Each entity becomes one element or one complex element (a tree of
// elements: cells hold cells) in the design's units of resolution. A point
// that does not fit the 32-bit design plane stops the conversion with
// OutsidePlane; nothing of that file is kept.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "exportsymbology.h"
#include "kora/dgn/v7/writer.h"

namespace Kora::Dgn::ExportDetail {

struct OutsidePlane : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// An element and, for a complex element, its components.
struct Node {
    V7::Element element;
    std::vector<Node> children;
};

// An affine map of world points: the rows of a 3x4 matrix.
struct Transform {
    double m[3][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
    KoGePoint3d apply(const KoGePoint3d& p) const;
    KoGeVector3d applyVector(const KoGeVector3d& v) const;
    Transform operator*(const Transform& inner) const;
};

class ElementBuilder {
public:
    // `drawingToMaster` is the master units one drawing unit is worth.
    ElementBuilder(const V7::Units& units, bool is3d, double drawingToMaster, SymbologyMapper& symbology,
                   DgnTranslationReport& report);

    // Appends the elements of one entity to `out`. Entities without a V7
    // element are counted in the report instead. Throws OutsidePlane.
    void convert(const KoDbEntity& entity, const Transform& transform, const ByBlock& byBlock, std::vector<Node>& out);

private:
    struct Conic; // a full ellipse or an elliptic arc in world space
    void line(const KoDbLine& e, const Transform& t, const Symbol& s, std::vector<Node>& out);
    void polyline(const KoDbPolyline& e, const Transform& t, const Symbol& s, std::vector<Node>& out);
    void conic(const Conic& c, const Transform& t, const Symbol& s, std::vector<Node>& out);
    void text(const KoDbText& e, const Transform& t, const Symbol& s, std::vector<Node>& out);
    void mtext(const KoDbMText& e, const Transform& t, const Symbol& s, std::vector<Node>& out);
    void cell(const KoDbBlockReference& e, const Transform& t, const ByBlock& byBlock, const Symbol& s, std::vector<Node>& out);
    void hatch(const KoDbHatch& e, const Transform& t, const Symbol& s, std::vector<Node>& out);
    // A chain of points as a line string, or as a shape when closed; more
    // than a line string holds become a complex chain or shape.
    void points(const std::vector<KoGePoint3d>& world, bool closed, const Transform& t, const Symbol& s,
                std::vector<Node>& out, const std::vector<std::byte>& linkage = {}, std::uint16_t properties = 0);
    // The same with the points already in UORs (room for one more, which
    // closing a shape may add).
    void points(std::vector<V7::IntPoint> p, bool closed, const Symbol& s, std::vector<Node>& out,
                const std::vector<std::byte>& linkage = {}, std::uint16_t properties = 0);

    V7::IntPoint uor(const KoGePoint3d& world, const Transform& t) const;
    V7::DoublePoint uorExact(const KoGePoint3d& world, const Transform& t) const;
    double uorLength(double drawingLength) const;
    V7::Orientation orientation(const KoGeVector3d& xAxis, const KoGeVector3d& normal) const;
    Node element(V7::ElementType type, const Symbol& s, V7::Body body) const;

    const V7::Units& m_units;
    bool m_is3d;
    double m_toMaster;
    SymbologyMapper& m_symbology;
    DgnTranslationReport& m_report;
    std::uint16_t m_nextTextNode = 1;
    int m_depth = 0; // of block references being written
};

// Writes `node` (an element or a complex element) to `writer`; answers
// how many elements were written.
std::expected<std::size_t, std::string> appendNode(V7::Writer& writer, Node& node);

} // namespace Kora::Dgn::ExportDetail
