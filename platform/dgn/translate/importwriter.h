// What the V7 and V8 imports share once an element is in drawing units:
// the records they make (layers, linetypes, blocks, entities with their
// symbology), the entities both versions build the same way, progress and
// the undo of an import that does not finish.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "importdesign.h"
#include "kora/db/database.h"
#include "kora/dgn/naming.h"
#include "kora/dgn/translate.h"
#include "kora/dgn/v7/elements.h"

namespace Kora::Dgn {

// The live record of that name in a symbol table (null when none).
KoDbObjectId recordNamed(KoDbObjectId tableId, const KoString& name);

// A new block named `base` or, when that is taken, the first free
// "base_2", ..., remembered as made by the import.
KoDbObjectId addBlock(KoDbDatabase* database, const KoString& base, std::vector<KoDbObjectId>& created,
                      const KoString& path = {});

// Undoes an import: erases what it made, newest first.
void eraseCreated(const std::vector<KoDbObjectId>& created);

// Where entities go: a block open for write, and the frame of the block in
// the design's drawing units: the point that becomes its origin, and the
// turn about Z and the scale of its axes.
struct Sink {
    KoDbBlockTableRecord* block = nullptr;
    KoGePoint3d base;
    double rotation = 0.0;
    double scale = 1.0;

    KoGeVector3d turned(const KoGeVector3d& v) const;
    KoGePoint3d local(const KoGePoint3d& p) const;
};

// The turn about Z and the uniform scale of a cell's row-major 3x3
// transformation, when it is one; nothing for any other transformation and
// for the all-zero matrix some writers leave. A scale within 1e-5 of 1 is 1.
std::optional<std::pair<double, double>> turnAndScale(const std::array<double, 9>& m);

// A 2D outline with bulges, the shape a lightweight polyline takes.
struct Outline {
    std::vector<KoDbPolyline::Vertex> vertices;
    double elevation = 0.0;

    // Appends a point (merged with the last one when within `tolerance`,
    // which then takes the bulge); false when it leaves the outline's plane.
    bool append(const KoGePoint3d& p, double bulge, double tolerance);
    // Appends a circular arc given by its centre, its axes (in the XY
    // plane, facing up or down), radius, start and sweep (radians); it is
    // reversed when it runs against the outline. False when it cannot be
    // part of a flat outline.
    bool appendArc(const KoGePoint3d& centre, const KoGeVector3d& xAxis, const KoGeVector3d& yAxis, double radius,
                   double start, double sweep, double tolerance);
};

// An element's symbology as the design stores it: the level by the name
// users see (empty: the drawing's layer "0"), the colour index (one outside
// 0..255 is no table index: ByLayer), the line style and the weight.
struct DesignSymbology {
    KoString level;
    int colour = 0;
    int style = 0;
    int weight = 0;
};

// A circle, an arc or an ellipse for a conic given by its centre, its unit
// axes, its semi-axes along them, its start and its sweep (radians,
// counter-clockwise about x × y; 2 pi or more is whole).
KoDbEntity* conicEntity(const KoGePoint3d& centre, const KoGeVector3d& xAxis, const KoGeVector3d& yAxis,
                        double primary, double secondary, double start, double sweep);

// A text whose stored origin is its lower left corner; a justification
// (left, left margin, centre, right margin, right as code / 3; top,
// centre, bottom as code % 3) other than left/bottom sets the alignment
// point from the character cell and the number of characters.
inline constexpr int JustifyLeftBottom = 2;
KoDbText* textEntity(const KoGePoint3d& origin, const KoGeVector3d& xAxis, const KoGeVector3d& yAxis,
                     const KoString& text, double height, double width, int justification);

// An MTEXT of lines (escaped and joined with \P) at `location`.
KoDbMText* mtextEntity(const KoGePoint3d& location, const KoGeVector3d& direction, const std::vector<KoString>& lines,
                       double height, int justification);

// A curve through its points but the first two and the last two, which
// only set its end tangents; null with fewer than six points.
KoDbSpline* curveEntity(const std::vector<KoGePoint3d>& points);

// A B-spline of `order` through its poles: clamped ends and the interior
// knots given (uniform when there are not as many as the poles need), or
// periodic with uniform knots when closed; weights when not empty.
KoDbSpline* bsplineEntity(int order, bool closed, std::vector<KoGePoint3d> poles, std::vector<double> interior,
                          std::vector<double> weights);

class ImportWriter {
public:
    ImportWriter(const DgnImportState& state, KoDbDatabase* database, const ImportTarget& target,
                 DgnTranslationReport& report, std::vector<KoDbObjectId>& created,
                 const std::optional<V7::ColourTable>& colours);

    // Adds `entity` to the sink's block with the drawing's form of
    // `symbology`; one the block refuses is counted as `typeName` not added.
    void add(KoDbEntity* entity, const DesignSymbology& symbology, const Sink& sink, const std::string& typeName);
    // A polyline through the points (its repeated last point dropped when
    // closed): lightweight when flat, 3D otherwise; a closed flat one with
    // a fill colour also gets its solid hatch.
    void addPolyline(std::vector<KoGePoint3d> points, bool closed, const DesignSymbology& symbology,
                     std::optional<int> fill, const Sink& sink, const std::string& typeName);
    void addOutline(const Outline& outline, bool closed, const DesignSymbology& symbology, std::optional<int> fill,
                    const Sink& sink, const std::string& typeName);
    KoString prefixed(const KoString& name) const { return m_target.namePrefix + name; }
    void skip(const std::string& typeName, const char* reason) { m_report.skip(typeName, reason); }
    // Reports `done` of `total` elements now and then; false when the
    // caller cancels.
    bool progress(std::size_t done, std::size_t total);

    KoDbDatabase* database() const { return m_db; }
    DgnTranslationReport& report() const { return m_report; }
    std::vector<KoDbObjectId>& created() const { return m_created; }

private:
    KoDbObjectId layer(const KoString& level);
    KoDbObjectId linetype(int style);

    const DgnImportState& m_state;
    KoDbDatabase* m_db;
    const ImportTarget& m_target;
    DgnTranslationReport& m_report;
    std::vector<KoDbObjectId>& m_created;
    const std::optional<V7::ColourTable>& m_colourTable;
    std::map<KoString, KoDbObjectId> m_layers;
    std::map<int, KoDbObjectId> m_linetypes;
    std::array<std::optional<KoCmColor>, ColourCount> m_colours;
    std::array<std::optional<KoDb::LineWeight>, WeightCount> m_weights;
    std::size_t m_nextReport = 0;
    std::chrono::steady_clock::time_point m_lastReport; // the first report is never held back
};

// How a design's content was placed: finished, cancelled (everything is
// undone), or refused with a note.
enum class Placement { Done, Cancelled, Failed };

// A block that replaces another once the whole import has succeeded.
struct Replacement {
    KoDbObjectId old;
    KoDbObjectId fresh;
};

// Runs an import around `fill`, which puts the design into the block
// `spaceId` (model space, or the block made for the design, with its
// reference at the origin): progress at the end, the undo of everything
// made when it is cancelled or fails, the replacements when it is done.
int placeDesign(const DgnImportState& state, KoDbDatabase* database, const ImportTarget& target,
                DgnTranslationReport& report, KoDbObjectId* blockId, const KoString& stem,
                const std::function<Placement(KoDbObjectId spaceId, std::vector<KoDbObjectId>& created,
                                              std::vector<Replacement>& replacements)>& fill);

// The V8 import: `state.model` of the file (its first model for "" and
// "Default"), through the same machinery as the V7 import.
int importV8Design(const DgnImportState& state, KoDbDatabase* database, const ImportTarget& target,
                   DgnTranslationReport& report, KoDbObjectId* blockId);

} // namespace Kora::Dgn
