// Entities: the drawable objects of block table records.
#pragma once

#include <vector>

#include "kora/db/color.h"
#include "kora/db/geometry.h"
#include "kora/db/object.h"

// A record kept as read: a DXF object name and its tags (handle and owner
// included). Entities that own sub-records (attributes of a block
// reference, vertices of meshes) keep them this way when no property
// models them.
struct KoDbDxfRecord {
    std::string dxfName;
    KoDbDxfTags tags;
    friend bool operator==(const KoDbDxfRecord&, const KoDbDxfRecord&) = default;
};

struct KoGeScale3d {
    double sx = 1.0, sy = 1.0, sz = 1.0;
    friend bool operator==(const KoGeScale3d&, const KoGeScale3d&) = default;
};

class KORA_API KoDbEntity : public KoDbObject {
public:
    KORX_DECLARE_MEMBERS(KoDbEntity)
    KoDbEntity();
    ~KoDbEntity() override;

    // The block table record the entity belongs to.
    KoDbObjectId blockId() const { return ownerId(); }

    const KoCmColor& color() const { return m_color; }
    Kora::ErrorStatus setColor(const KoCmColor& color);
    int colorIndex() const { return m_color.colorIndex(); }
    Kora::ErrorStatus setColorIndex(int index);

    KoDbObjectId layerId() const { return m_layer; }
    Kora::ErrorStatus setLayer(KoDbObjectId layer);
    // By name, in the entity's database (or the one its current layer is
    // in); eKeyNotFound when there is no such layer.
    Kora::ErrorStatus setLayer(const KoString& name);
    // The layer's name ("" when none can be read).
    KoString layer() const;

    KoDbObjectId linetypeId() const { return m_linetype; }
    Kora::ErrorStatus setLinetype(KoDbObjectId linetype);
    Kora::ErrorStatus setLinetype(const KoString& name);
    KoString linetype() const;
    double linetypeScale() const { return m_linetypeScale; }
    Kora::ErrorStatus setLinetypeScale(double scale);
    KoDb::LineWeight lineWeight() const { return m_lineWeight; }
    Kora::ErrorStatus setLineWeight(KoDb::LineWeight weight);
    bool visibility() const { return m_visible; }
    Kora::ErrorStatus setVisibility(bool visible);

    // Current layer, colour, linetype, linetype scale and line weight of
    // the database (or of the entity's own database when null).
    Kora::ErrorStatus setDatabaseDefaults(KoDbDatabase* database = nullptr);

    // The world-space box of the geometry. eNotApplicable when the entity
    // has none that can be computed (opaque modeller data, empty shapes).
    virtual Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const;

protected:
    friend struct KoDbAccess;
    // Called when the entity has joined a database.
    virtual void subAppended();

private:
    KoCmColor m_color;
    KoDbObjectId m_layer;
    KoDbObjectId m_linetype;
    double m_linetypeScale = 1.0;
    KoDb::LineWeight m_lineWeight = KoDb::kLnWtByLayer;
    bool m_visible = true;
};

class KORA_API KoDbCurve : public KoDbEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbCurve)
};

class KORA_API KoDbLine : public KoDbCurve {
public:
    KORX_DECLARE_MEMBERS(KoDbLine)
    KoDbLine() = default;
    KoDbLine(const KoGePoint3d& start, const KoGePoint3d& end) : m_start(start), m_end(end) {}

    const KoGePoint3d& startPoint() const { return m_start; }
    const KoGePoint3d& endPoint() const { return m_end; }
    Kora::ErrorStatus setStartPoint(const KoGePoint3d& p);
    Kora::ErrorStatus setEndPoint(const KoGePoint3d& p);
    double thickness() const { return m_thickness; }
    Kora::ErrorStatus setThickness(double t);
    const KoGeVector3d& normal() const { return m_normal; }
    Kora::ErrorStatus setNormal(const KoGeVector3d& n);
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    KoGePoint3d m_start, m_end;
    double m_thickness = 0.0;
    KoGeVector3d m_normal = KoGeVector3d::kZAxis();
};

class KORA_API KoDbCircle : public KoDbCurve {
public:
    KORX_DECLARE_MEMBERS(KoDbCircle)
    KoDbCircle() = default;
    KoDbCircle(const KoGePoint3d& center, const KoGeVector3d& normal, double radius)
        : m_center(center), m_normal(normal), m_radius(radius) {}

    const KoGePoint3d& center() const { return m_center; }
    Kora::ErrorStatus setCenter(const KoGePoint3d& p);
    double radius() const { return m_radius; }
    Kora::ErrorStatus setRadius(double r);
    const KoGeVector3d& normal() const { return m_normal; }
    Kora::ErrorStatus setNormal(const KoGeVector3d& n);
    double thickness() const { return m_thickness; }
    Kora::ErrorStatus setThickness(double t);
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    KoGePoint3d m_center;
    KoGeVector3d m_normal = KoGeVector3d::kZAxis();
    double m_radius = 0.0;
    double m_thickness = 0.0;
};

// Angles in radians, counter-clockwise about the normal from the x axis of
// the arc's plane.
class KORA_API KoDbArc : public KoDbCurve {
public:
    KORX_DECLARE_MEMBERS(KoDbArc)
    KoDbArc() = default;
    KoDbArc(const KoGePoint3d& center, double radius, double startAngle, double endAngle)
        : m_center(center), m_radius(radius), m_start(startAngle), m_end(endAngle) {}

    const KoGePoint3d& center() const { return m_center; }
    Kora::ErrorStatus setCenter(const KoGePoint3d& p);
    double radius() const { return m_radius; }
    Kora::ErrorStatus setRadius(double r);
    double startAngle() const { return m_start; }
    Kora::ErrorStatus setStartAngle(double a);
    double endAngle() const { return m_end; }
    Kora::ErrorStatus setEndAngle(double a);
    const KoGeVector3d& normal() const { return m_normal; }
    Kora::ErrorStatus setNormal(const KoGeVector3d& n);
    double thickness() const { return m_thickness; }
    Kora::ErrorStatus setThickness(double t);
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    KoGePoint3d m_center;
    KoGeVector3d m_normal = KoGeVector3d::kZAxis();
    double m_radius = 0.0, m_start = 0.0, m_end = 0.0;
    double m_thickness = 0.0;
};

class KORA_API KoDbEllipse : public KoDbCurve {
public:
    KORX_DECLARE_MEMBERS(KoDbEllipse)
    KoDbEllipse() = default;
    Kora::ErrorStatus set(const KoGePoint3d& center, const KoGeVector3d& normal, const KoGeVector3d& majorAxis,
                          double radiusRatio, double startParam = 0.0, double endParam = 6.283185307179586);

    const KoGePoint3d& center() const { return m_center; }
    const KoGeVector3d& normal() const { return m_normal; }
    const KoGeVector3d& majorAxis() const { return m_major; }
    double radiusRatio() const { return m_ratio; }
    double startParam() const { return m_startParam; }
    double endParam() const { return m_endParam; }
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    KoGePoint3d m_center;
    KoGeVector3d m_normal = KoGeVector3d::kZAxis();
    KoGeVector3d m_major {1.0, 0.0, 0.0};
    double m_ratio = 1.0, m_startParam = 0.0, m_endParam = 6.283185307179586;
};

// Lightweight polyline: 2D vertices with bulges and widths in a plane.
class KORA_API KoDbPolyline : public KoDbCurve {
public:
    KORX_DECLARE_MEMBERS(KoDbPolyline)
    struct Vertex {
        KoGePoint2d point;
        double bulge = 0.0;
        double startWidth = 0.0, endWidth = 0.0;
        friend bool operator==(const Vertex&, const Vertex&) = default;
    };

    int numVerts() const { return static_cast<int>(m_vertices.size()); }
    const std::vector<Vertex>& vertices() const { return m_vertices; }
    Kora::ErrorStatus setVertices(std::vector<Vertex> vertices);
    Kora::ErrorStatus addVertexAt(int index, const KoGePoint2d& point, double bulge = 0.0, double startWidth = 0.0,
                                  double endWidth = 0.0);
    Kora::ErrorStatus getPointAt(int index, KoGePoint3d& point) const;
    bool isClosed() const { return m_closed; }
    Kora::ErrorStatus setClosed(bool closed);
    bool hasPlinegen() const { return m_plinegen; }
    Kora::ErrorStatus setPlinegen(bool plinegen);
    double constantWidth() const { return m_constantWidth; }
    Kora::ErrorStatus setConstantWidth(double width);
    double elevation() const { return m_elevation; }
    Kora::ErrorStatus setElevation(double elevation);
    double thickness() const { return m_thickness; }
    Kora::ErrorStatus setThickness(double t);
    const KoGeVector3d& normal() const { return m_normal; }
    Kora::ErrorStatus setNormal(const KoGeVector3d& n);
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    std::vector<Vertex> m_vertices;
    double m_constantWidth = 0.0, m_elevation = 0.0, m_thickness = 0.0;
    KoGeVector3d m_normal = KoGeVector3d::kZAxis();
    bool m_closed = false, m_plinegen = false;
};

class KORA_API KoDb3dPolyline : public KoDbCurve {
public:
    KORX_DECLARE_MEMBERS(KoDb3dPolyline)
    const std::vector<KoGePoint3d>& vertices() const { return m_vertices; }
    Kora::ErrorStatus setVertices(std::vector<KoGePoint3d> vertices);
    Kora::ErrorStatus appendVertex(const KoGePoint3d& point);
    bool isClosed() const { return m_closed; }
    Kora::ErrorStatus setClosed(bool closed);
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    std::vector<KoGePoint3d> m_vertices;
    bool m_closed = false;
};

class KORA_API KoDbSpline : public KoDbCurve {
public:
    KORX_DECLARE_MEMBERS(KoDbSpline)
    int degree() const { return m_degree; }
    bool isRational() const { return (m_flags & 4) != 0; }
    bool isClosed() const { return (m_flags & 1) != 0; }
    bool isPeriodic() const { return (m_flags & 2) != 0; }
    // DXF spline flags (1 closed, 2 periodic, 4 rational, 8 planar, 16 linear).
    int flags() const { return m_flags; }
    const std::vector<double>& knots() const { return m_knots; }
    const std::vector<KoGePoint3d>& controlPoints() const { return m_controlPoints; }
    // Empty unless rational.
    const std::vector<double>& weights() const { return m_weights; }
    const std::vector<KoGePoint3d>& fitPoints() const { return m_fitPoints; }
    // Sets the control-point form; weights empty for a non-rational spline.
    Kora::ErrorStatus setNurbsData(int degree, int flags, std::vector<double> knots, std::vector<KoGePoint3d> controlPoints,
                                   std::vector<double> weights = {});
    Kora::ErrorStatus setFitPoints(std::vector<KoGePoint3d> fitPoints);
    const KoGeVector3d& startFitTangent() const { return m_startTangent; }
    const KoGeVector3d& endFitTangent() const { return m_endTangent; }
    Kora::ErrorStatus setFitTangents(const KoGeVector3d& start, const KoGeVector3d& end);
    const KoGeVector3d& normal() const { return m_normal; }
    Kora::ErrorStatus setNormal(const KoGeVector3d& n);
    // The convex hull of the control points (or of the fit points).
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    int m_degree = 3;
    int m_flags = 8;
    std::vector<double> m_knots, m_weights;
    std::vector<KoGePoint3d> m_controlPoints, m_fitPoints;
    KoGeVector3d m_startTangent, m_endTangent;
    KoGeVector3d m_normal;  // zero: not planar or unknown
};

class KORA_API KoDbPoint : public KoDbEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbPoint)
    KoDbPoint() = default;
    explicit KoDbPoint(const KoGePoint3d& position) : m_position(position) {}
    const KoGePoint3d& position() const { return m_position; }
    Kora::ErrorStatus setPosition(const KoGePoint3d& p);
    double thickness() const { return m_thickness; }
    Kora::ErrorStatus setThickness(double t);
    const KoGeVector3d& normal() const { return m_normal; }
    Kora::ErrorStatus setNormal(const KoGeVector3d& n);
    double ecsRotation() const { return m_ecsRotation; }
    Kora::ErrorStatus setEcsRotation(double angle);
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    KoGePoint3d m_position;
    KoGeVector3d m_normal = KoGeVector3d::kZAxis();
    double m_thickness = 0.0, m_ecsRotation = 0.0;
};

// Single-line text. The text style is named (its table is kept as read).
class KORA_API KoDbText : public KoDbEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbText)
    enum TextHorzMode { kTextLeft = 0, kTextCenter = 1, kTextRight = 2, kTextAlign = 3, kTextMid = 4, kTextFit = 5 };
    enum TextVertMode { kTextBase = 0, kTextBottom = 1, kTextVertMid = 2, kTextTop = 3 };

    const KoGePoint3d& position() const { return m_position; }
    Kora::ErrorStatus setPosition(const KoGePoint3d& p);
    const KoGePoint3d& alignmentPoint() const { return m_alignment; }
    Kora::ErrorStatus setAlignmentPoint(const KoGePoint3d& p);
    const KoString& textString() const { return m_text; }
    Kora::ErrorStatus setTextString(const KoString& text);
    double height() const { return m_height; }
    Kora::ErrorStatus setHeight(double h);
    double rotation() const { return m_rotation; }
    Kora::ErrorStatus setRotation(double angle);
    double widthFactor() const { return m_widthFactor; }
    Kora::ErrorStatus setWidthFactor(double factor);
    double oblique() const { return m_oblique; }
    Kora::ErrorStatus setOblique(double angle);
    const KoString& textStyleName() const { return m_style; }
    Kora::ErrorStatus setTextStyleName(const KoString& style);
    TextHorzMode horizontalMode() const { return m_horz; }
    Kora::ErrorStatus setHorizontalMode(TextHorzMode mode);
    TextVertMode verticalMode() const { return m_vert; }
    Kora::ErrorStatus setVerticalMode(TextVertMode mode);
    // Group 71: 2 mirrored in x, 4 upside down.
    int generationFlags() const { return m_generation; }
    Kora::ErrorStatus setGenerationFlags(int flags);
    double thickness() const { return m_thickness; }
    Kora::ErrorStatus setThickness(double t);
    const KoGeVector3d& normal() const { return m_normal; }
    Kora::ErrorStatus setNormal(const KoGeVector3d& n);
    // An estimate from the insertion point, height and number of characters
    // (glyph metrics need the font).
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    KoGePoint3d m_position, m_alignment;
    KoString m_text;
    KoString m_style = L"Standard";
    double m_height = 2.5, m_rotation = 0.0, m_widthFactor = 1.0, m_oblique = 0.0, m_thickness = 0.0;
    KoGeVector3d m_normal = KoGeVector3d::kZAxis();
    TextHorzMode m_horz = kTextLeft;
    TextVertMode m_vert = kTextBase;
    int m_generation = 0;
};

class KORA_API KoDbMText : public KoDbEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbMText)
    enum AttachmentPoint {
        kTopLeft = 1, kTopCenter, kTopRight, kMiddleLeft, kMiddleCenter, kMiddleRight, kBottomLeft, kBottomCenter,
        kBottomRight
    };

    const KoGePoint3d& location() const { return m_location; }
    Kora::ErrorStatus setLocation(const KoGePoint3d& p);
    // The text with its formatting codes, as stored.
    const KoString& contents() const { return m_contents; }
    Kora::ErrorStatus setContents(const KoString& text);
    double textHeight() const { return m_height; }
    Kora::ErrorStatus setTextHeight(double h);
    double width() const { return m_width; }
    Kora::ErrorStatus setWidth(double w);
    // Direction of the text's x axis in world space.
    const KoGeVector3d& direction() const { return m_direction; }
    Kora::ErrorStatus setDirection(const KoGeVector3d& d);
    double rotation() const;
    Kora::ErrorStatus setRotation(double angle);
    const KoGeVector3d& normal() const { return m_normal; }
    Kora::ErrorStatus setNormal(const KoGeVector3d& n);
    AttachmentPoint attachment() const { return m_attachment; }
    Kora::ErrorStatus setAttachment(AttachmentPoint attachment);
    int flowDirection() const { return m_flow; }
    Kora::ErrorStatus setFlowDirection(int direction);
    double lineSpacingFactor() const { return m_spacingFactor; }
    Kora::ErrorStatus setLineSpacingFactor(double factor);
    int lineSpacingStyle() const { return m_spacingStyle; }
    Kora::ErrorStatus setLineSpacingStyle(int style);
    const KoString& textStyleName() const { return m_style; }
    Kora::ErrorStatus setTextStyleName(const KoString& style);
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    KoGePoint3d m_location;
    KoString m_contents;
    KoString m_style = L"Standard";
    double m_height = 2.5, m_width = 0.0, m_spacingFactor = 1.0;
    KoGeVector3d m_direction = KoGeVector3d::kXAxis();
    KoGeVector3d m_normal = KoGeVector3d::kZAxis();
    AttachmentPoint m_attachment = kTopLeft;
    int m_flow = 1, m_spacingStyle = 1;
};

class KORA_API KoDbBlockReference : public KoDbEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbBlockReference)
    KoDbBlockReference() = default;
    KoDbBlockReference(const KoGePoint3d& position, KoDbObjectId block) : m_position(position), m_block(block) {}

    KoDbObjectId blockTableRecord() const { return m_block; }
    Kora::ErrorStatus setBlockTableRecord(KoDbObjectId block);
    const KoGePoint3d& position() const { return m_position; }
    Kora::ErrorStatus setPosition(const KoGePoint3d& p);
    const KoGeScale3d& scaleFactors() const { return m_scale; }
    Kora::ErrorStatus setScaleFactors(const KoGeScale3d& scale);
    double rotation() const { return m_rotation; }
    Kora::ErrorStatus setRotation(double angle);
    const KoGeVector3d& normal() const { return m_normal; }
    Kora::ErrorStatus setNormal(const KoGeVector3d& n);
    // Attributes and their end marker, kept as read.
    const std::vector<KoDbDxfRecord>& attributeRecords() const { return m_attributes; }
    void setAttributeRecords(std::vector<KoDbDxfRecord> records) { m_attributes = std::move(records); }
    // The extents of the block's entities placed by this reference (nested
    // references included, rotation about the normal honoured for planar
    // references).
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    KoGePoint3d m_position;
    KoDbObjectId m_block;
    KoGeScale3d m_scale;
    double m_rotation = 0.0;
    KoGeVector3d m_normal = KoGeVector3d::kZAxis();
    std::vector<KoDbDxfRecord> m_attributes;
};

class KORA_API KoDbHatch : public KoDbEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbHatch)
    enum HatchPatternType { kUserDefined = 0, kPreDefined = 1, kCustomDefined = 2 };
    enum EdgeType { kLine = 1, kCirArc = 2, kEllArc = 3, kSpline = 4 };

    struct Edge {
        EdgeType type = kLine;
        KoGePoint2d start, end;        // line
        KoGePoint2d center;            // arcs
        KoGePoint2d majorAxis;         // elliptic arc: end point of major axis relative to center
        double radius = 0.0;           // circular arc radius, or elliptic minor/major ratio
        double startAngle = 0.0, endAngle = 0.0;  // degrees, as in files
        bool counterClockwise = true;
        int degree = 3;                // spline
        bool rational = false, periodic = false;
        std::vector<double> knots, weights;
        std::vector<KoGePoint2d> controlPoints, fitPoints;
        KoGePoint2d startTangent, endTangent;
        bool hasFitTangents = false;
        friend bool operator==(const Edge&, const Edge&) = default;
    };
    struct Loop {
        int type = 1;                  // bit flags: 1 external, 2 polyline, 16 outermost, ...
        bool isPolyline() const { return (type & 2) != 0; }
        // Polyline loops.
        std::vector<KoGePoint2d> vertices;
        std::vector<double> bulges;    // empty when no vertex has a bulge
        bool closed = true;
        // Edge loops.
        std::vector<Edge> edges;
        std::vector<KoDbHandle> sourceObjects;
        friend bool operator==(const Loop&, const Loop&) = default;
    };
    struct PatternLine {
        double angle = 0.0;            // degrees
        KoGePoint2d base, offset;
        std::vector<double> dashes;
        friend bool operator==(const PatternLine&, const PatternLine&) = default;
    };

    bool isSolidFill() const { return m_solid; }
    const KoString& patternName() const { return m_pattern; }
    HatchPatternType patternType() const { return m_patternType; }
    Kora::ErrorStatus setPattern(HatchPatternType type, const KoString& name);
    // A solid fill: pattern "SOLID".
    Kora::ErrorStatus setSolidFill();
    double patternAngle() const { return m_angle; }
    double patternScale() const { return m_scale; }
    bool patternDouble() const { return m_double; }
    Kora::ErrorStatus setPatternGeometry(double angleDegrees, double scale, bool isDouble);
    const std::vector<PatternLine>& patternLines() const { return m_lines; }
    Kora::ErrorStatus setPatternLines(std::vector<PatternLine> lines);
    bool associative() const { return m_associative; }
    Kora::ErrorStatus setAssociative(bool associative);
    // Group 75: 0 normal (odd parity), 1 outer, 2 ignore.
    int hatchStyle() const { return m_style; }
    Kora::ErrorStatus setHatchStyle(int style);
    double elevation() const { return m_elevation; }
    Kora::ErrorStatus setElevation(double z);
    const KoGeVector3d& normal() const { return m_normal; }
    Kora::ErrorStatus setNormal(const KoGeVector3d& n);
    int numLoops() const { return static_cast<int>(m_loops.size()); }
    const std::vector<Loop>& loops() const { return m_loops; }
    Kora::ErrorStatus appendLoop(Loop loop);
    Kora::ErrorStatus setLoops(std::vector<Loop> loops);
    const std::vector<KoGePoint2d>& seedPoints() const { return m_seeds; }
    Kora::ErrorStatus setSeedPoints(std::vector<KoGePoint2d> seeds);
    double pixelSize() const { return m_pixelSize; }
    void setPixelSize(double size) { m_pixelSize = size; }
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    KoString m_pattern = L"SOLID";
    HatchPatternType m_patternType = kPreDefined;
    bool m_solid = true, m_associative = false, m_double = false;
    int m_style = 0;
    double m_angle = 0.0, m_scale = 1.0, m_elevation = 0.0, m_pixelSize = 0.0;
    KoGeVector3d m_normal = KoGeVector3d::kZAxis();
    std::vector<Loop> m_loops;
    std::vector<PatternLine> m_lines;
    std::vector<KoGePoint2d> m_seeds;
};

// A view of model space placed on a sheet (or the sheet itself, number 1).
class KORA_API KoDbViewport : public KoDbEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbViewport)
    const KoGePoint3d& centerPoint() const { return m_center; }
    Kora::ErrorStatus setCenterPoint(const KoGePoint3d& p);
    double width() const { return m_width; }
    Kora::ErrorStatus setWidth(double w);
    double height() const { return m_height; }
    Kora::ErrorStatus setHeight(double h);
    // The viewport's number on its sheet; 1 is the sheet's own viewport.
    int number() const { return m_number; }
    Kora::ErrorStatus setNumber(int number);
    // Group 68: 0 off, positive on (its stacking order), -1 on but off screen.
    int status() const { return m_status; }
    Kora::ErrorStatus setStatus(int status);
    const KoGePoint2d& viewCenter() const { return m_viewCenter; }
    Kora::ErrorStatus setViewCenter(const KoGePoint2d& p);
    double viewHeight() const { return m_viewHeight; }
    Kora::ErrorStatus setViewHeight(double h);
    const KoGePoint3d& viewTarget() const { return m_viewTarget; }
    Kora::ErrorStatus setViewTarget(const KoGePoint3d& p);
    const KoGeVector3d& viewDirection() const { return m_viewDirection; }
    Kora::ErrorStatus setViewDirection(const KoGeVector3d& d);
    double twistAngle() const { return m_twist; }
    Kora::ErrorStatus setTwistAngle(double angle);
    double lensLength() const { return m_lens; }
    Kora::ErrorStatus setLensLength(double length);
    // Group 90 status bits.
    int statusFlags() const { return m_flags; }
    Kora::ErrorStatus setStatusFlags(int flags);
    Kora::ErrorStatus getGeomExtents(KoDbExtents& extents) const override;

private:
    KoGePoint3d m_center;
    double m_width = 0.0, m_height = 0.0;
    int m_number = 2, m_status = 1, m_flags = 0x8060;
    KoGePoint2d m_viewCenter;
    double m_viewHeight = 1.0, m_twist = 0.0, m_lens = 50.0;
    KoGePoint3d m_viewTarget;
    KoGeVector3d m_viewDirection = KoGeVector3d::kZAxis();
};

// Entities whose data the database keeps without interpreting it: solid
// modeller bodies and OLE objects. Their geometry has no computable
// extents here.
class KORA_API KoDbOpaqueEntity : public KoDbEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbOpaqueEntity)
    // The DXF name it was read with ("3DSOLID", "EXTRUDEDSURFACE", ...).
    const std::string& dxfName() const { return m_dxfName; }
    void setDxfName(std::string name) { m_dxfName = std::move(name); }

private:
    std::string m_dxfName;
};

class KORA_API KoDb3dSolid : public KoDbOpaqueEntity {
public:
    KORX_DECLARE_MEMBERS(KoDb3dSolid)
    KoDb3dSolid();
};

class KORA_API KoDbRegion : public KoDbOpaqueEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbRegion)
    KoDbRegion();
};

class KORA_API KoDbBody : public KoDbOpaqueEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbBody)
    KoDbBody();
};

class KORA_API KoDbSurface : public KoDbOpaqueEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbSurface)
    KoDbSurface();
};

class KORA_API KoDbOleFrame : public KoDbOpaqueEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbOleFrame)
    KoDbOleFrame();
};

class KORA_API KoDbOle2Frame : public KoDbOleFrame {
public:
    KORX_DECLARE_MEMBERS(KoDbOle2Frame)
    KoDbOle2Frame();
};

// An entity of a kind the database does not know, kept whole (with the
// records that follow it in files, such as vertices and their end marker)
// and written back unchanged.
class KORA_API KoDbUnknownEntity : public KoDbOpaqueEntity {
public:
    KORX_DECLARE_MEMBERS(KoDbUnknownEntity)
    const std::vector<KoDbDxfRecord>& subRecords() const { return m_subRecords; }
    void setSubRecords(std::vector<KoDbDxfRecord> records) { m_subRecords = std::move(records); }

private:
    std::vector<KoDbDxfRecord> m_subRecords;
};
