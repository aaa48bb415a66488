#include "dxfentitykinds.h"

#include "dxfcodes.h"

#include <algorithm>
#include <array>
#include <climits>
#include <functional>
#include <numbers>
#include <type_traits>

#include "kora/db/underlay.h"

namespace Kora::Dxf {

namespace {

template <class>
struct SetterArg;
template <class C, class A>
struct SetterArg<Kora::ErrorStatus (C::*)(A)> {
    using type = std::remove_cvref_t<A>;
};

template <class E, auto Get, auto Set>
constexpr EntityField number(int code, FieldType type, bool always = false, double usual = 0.0)
{
    return {.code = code,
            .type = type,
            .always = always,
            .usual = usual,
            .number = [](const KoDbEntity& e) -> double { return std::invoke(Get, static_cast<const E&>(e)); },
            .setNumber = [](KoDbEntity& e, double v) { return std::invoke(Set, static_cast<E&>(e), v); }};
}

// An integer, or an enumeration whose values outside [Lo, Hi] are taken
// as the nearest one.
template <class E, auto Get, auto Set, int Lo = INT_MIN, int Hi = INT_MAX>
constexpr EntityField integer(int code, bool always = false, int usual = 0)
{
    using Value = typename SetterArg<decltype(Set)>::type;
    return {.code = code,
            .type = FieldType::Int,
            .always = always,
            .usual = static_cast<double>(usual),
            .number = [](const KoDbEntity& e) -> double { return static_cast<int>((static_cast<const E&>(e).*Get)()); },
            .setNumber = [](KoDbEntity& e, double v) {
                return (static_cast<E&>(e).*Set)(static_cast<Value>(std::clamp(static_cast<int>(v), Lo, Hi)));
            }};
}

template <class E, auto Get, auto Set>
constexpr EntityField text(int code, const wchar_t* usual = nullptr, FieldType type = FieldType::Text)
{
    return {.code = code,
            .type = type,
            .always = usual == nullptr,
            .usualText = usual,
            .text = [](const KoDbEntity& e) -> KoString { return (static_cast<const E&>(e).*Get)(); },
            .setText = [](KoDbEntity& e, const KoString& v) { return (static_cast<E&>(e).*Set)(v); }};
}

template <class E, auto Get, auto Set>
constexpr EntityField point(int code, FieldType type = FieldType::Point, bool (*written)(const KoDbEntity&) = nullptr)
{
    using Value = std::remove_cvref_t<decltype((std::declval<const E&>().*Get)())>;
    constexpr bool flat = std::is_same_v<Value, KoGePoint2d>;
    return {.code = code,
            .type = flat ? FieldType::Point2 : type,
            .always = type == FieldType::Point,
            .written = written,
            .point = [](const KoDbEntity& e) {
                const Value& v = (static_cast<const E&>(e).*Get)();
                if constexpr (flat) return KoGePoint3d(v.x, v.y, 0.0);
                else return KoGePoint3d(v.x, v.y, v.z);
            },
            .setPoint = [](KoDbEntity& e, const KoGePoint3d& p) {
                if constexpr (flat) return std::invoke(Set, static_cast<E&>(e), Value {p.x, p.y});
                else return std::invoke(Set, static_cast<E&>(e), Value {p.x, p.y, p.z});
            }};
}

template <class E, auto Get, auto Set>
constexpr EntityField reference(int code, FieldType type)
{
    return {.code = code,
            .type = type,
            .always = true,
            .id = [](const KoDbEntity& e) { return (static_cast<const E&>(e).*Get)(); },
            .setId = [](KoDbEntity& e, KoDbObjectId id) { return (static_cast<E&>(e).*Set)(id); }};
}

// Scale factors are set whole, one at a time.
template <class E, double KoGeScale3d::*Part>
double scale(const E& e)
{
    return e.scaleFactors().*Part;
}

template <class E, double KoGeScale3d::*Part>
Kora::ErrorStatus setScale(E& e, double v)
{
    KoGeScale3d all = e.scaleFactors();
    all.*Part = v;
    return e.setScaleFactors(all);
}

template <class E, double KoGeScale3d::*Part>
constexpr EntityField scaleField(int code, bool always)
{
    return number<E, scale<E, Part>, setScale<E, Part>>(code, FieldType::Real, always, 1.0);
}

constexpr EntityField required(EntityField f)
{
    f.required = true;
    return f;
}

// A value read but never written (the file has another way to say it).
constexpr EntityField readOnly(EntityField f)
{
    f.written = [](const KoDbEntity&) { return false; };
    f.late = true;
    return f;
}

template <class E>
bool is(const KoDbEntity* e)
{
    return E::cast(e) != nullptr;
}

template <class E>
KoDbEntity* make()
{
    return new E;
}

constexpr std::array kLineFields {
    number<KoDbLine, &KoDbLine::thickness, &KoDbLine::setThickness>(39, FieldType::Real),
    point<KoDbLine, &KoDbLine::startPoint, &KoDbLine::setStartPoint>(10),
    point<KoDbLine, &KoDbLine::endPoint, &KoDbLine::setEndPoint>(11),
    point<KoDbLine, &KoDbLine::normal, &KoDbLine::setNormal>(210, FieldType::Normal),
};
constexpr std::array kLine {EntitySubclass {"AcDbLine", kLineFields}};

// Circles and arcs share the circle's subclass; a radius is required.
template <class E>
constexpr std::array kCircleFields {
    number<E, &E::thickness, &E::setThickness>(39, FieldType::Real),
    point<E, &E::center, &E::setCenter>(10),
    required(number<E, &E::radius, &E::setRadius>(40, FieldType::Real, true)),
    point<E, &E::normal, &E::setNormal>(210, FieldType::Normal),
};
constexpr std::array kCircle {EntitySubclass {"AcDbCircle", kCircleFields<KoDbCircle>}};

constexpr std::array kArcFields {
    number<KoDbArc, &KoDbArc::startAngle, &KoDbArc::setStartAngle>(50, FieldType::Angle, true),
    number<KoDbArc, &KoDbArc::endAngle, &KoDbArc::setEndAngle>(51, FieldType::Angle, true),
};
constexpr std::array kArc {EntitySubclass {"AcDbCircle", kCircleFields<KoDbArc>}, EntitySubclass {"AcDbArc", kArcFields}};

constexpr std::array kPointFields {
    point<KoDbPoint, &KoDbPoint::position, &KoDbPoint::setPosition>(10),
    number<KoDbPoint, &KoDbPoint::thickness, &KoDbPoint::setThickness>(39, FieldType::Real),
    point<KoDbPoint, &KoDbPoint::normal, &KoDbPoint::setNormal>(210, FieldType::Normal),
    number<KoDbPoint, &KoDbPoint::ecsRotation, &KoDbPoint::setEcsRotation>(50, FieldType::Angle),
};
constexpr std::array kPoint {EntitySubclass {"AcDbPoint", kPointFields}};

constexpr std::array kViewportFields {
    point<KoDbViewport, &KoDbViewport::centerPoint, &KoDbViewport::setCenterPoint>(10),
    number<KoDbViewport, &KoDbViewport::width, &KoDbViewport::setWidth>(40, FieldType::Real, true),
    number<KoDbViewport, &KoDbViewport::height, &KoDbViewport::setHeight>(41, FieldType::Real, true),
    integer<KoDbViewport, &KoDbViewport::status, &KoDbViewport::setStatus>(68, true),
    integer<KoDbViewport, &KoDbViewport::number, &KoDbViewport::setNumber>(69, true),
    point<KoDbViewport, &KoDbViewport::viewCenter, &KoDbViewport::setViewCenter>(12),
    point<KoDbViewport, &KoDbViewport::viewDirection, &KoDbViewport::setViewDirection>(16),
    point<KoDbViewport, &KoDbViewport::viewTarget, &KoDbViewport::setViewTarget>(17),
    number<KoDbViewport, &KoDbViewport::lensLength, &KoDbViewport::setLensLength>(42, FieldType::Real, true),
    number<KoDbViewport, &KoDbViewport::viewHeight, &KoDbViewport::setViewHeight>(45, FieldType::Real, true),
    number<KoDbViewport, &KoDbViewport::twistAngle, &KoDbViewport::setTwistAngle>(51, FieldType::Angle, true),
    integer<KoDbViewport, &KoDbViewport::statusFlags, &KoDbViewport::setStatusFlags>(90, true),
};
constexpr std::array kViewport {EntitySubclass {"AcDbViewport", kViewportFields}};

// The alignment point means something only for text not set at its
// start on the base line.
bool aligned(const KoDbEntity& e)
{
    const auto& t = static_cast<const KoDbText&>(e);
    return t.horizontalMode() != KoDbText::kTextLeft || t.verticalMode() != KoDbText::kTextBase;
}

using T = KoDbText;
constexpr std::array kTextFields {
    number<T, &T::thickness, &T::setThickness>(39, FieldType::Real),
    point<T, &T::position, &T::setPosition>(10),
    number<T, &T::height, &T::setHeight>(40, FieldType::Real, true),
    text<T, &T::textString, &T::setTextString>(1),
    number<T, &T::rotation, &T::setRotation>(50, FieldType::Angle),
    number<T, &T::widthFactor, &T::setWidthFactor>(41, FieldType::Real, false, 1.0),
    number<T, &T::oblique, &T::setOblique>(51, FieldType::Angle),
    text<T, &T::textStyleName, &T::setTextStyleName>(7, L"Standard"),
    integer<T, &T::generationFlags, &T::setGenerationFlags>(71),
    integer<T, &T::horizontalMode, &T::setHorizontalMode, 0, 5>(72),
    point<T, &T::alignmentPoint, &T::setAlignmentPoint>(11, FieldType::Point, aligned),
    point<T, &T::normal, &T::setNormal>(210, FieldType::Normal),
};
// The vertical mode has a subclass marker of its own before it.
constexpr std::array kTextVerticalFields {integer<T, &T::verticalMode, &T::setVerticalMode, 0, 3>(73)};
constexpr std::array kText {EntitySubclass {"AcDbText", kTextFields}, EntitySubclass {"AcDbText", kTextVerticalFields}};

// An ellipse is only ever set whole, so each of its fields sets it again
// with that one value changed; a value the model refuses fails that call.
struct EllipseValues {
    KoGePoint3d center;
    KoGeVector3d normal, major;
    double ratio, start, end;
};

template <auto Member, class V>
Kora::ErrorStatus setEllipse(KoDbEllipse& e, V v)
{
    EllipseValues all {e.center(), e.normal(), e.majorAxis(), e.radiusRatio(), e.startParam(), e.endParam()};
    all.*Member = v;
    return e.set(all.center, all.normal, all.major, all.ratio, all.start, all.end);
}

using El = KoDbEllipse;
constexpr std::array kEllipseFields {
    point<El, &El::center, setEllipse<&EllipseValues::center, const KoGePoint3d&>>(10),
    required(point<El, &El::majorAxis, setEllipse<&EllipseValues::major, const KoGeVector3d&>>(11)),
    point<El, &El::normal, setEllipse<&EllipseValues::normal, const KoGeVector3d&>>(210, FieldType::Normal),
    number<El, &El::radiusRatio, setEllipse<&EllipseValues::ratio, double>>(40, FieldType::Real, true),
    number<El, &El::startParam, setEllipse<&EllipseValues::start, double>>(41, FieldType::Real, true),
    number<El, &El::endParam, setEllipse<&EllipseValues::end, double>>(42, FieldType::Real, true),
};
constexpr std::array kEllipse {EntitySubclass {"AcDbEllipse", kEllipseFields}};

// The direction is written where it is not the usual one; a rotation is
// only read, in the plane of the normal, and a direction read wins over it.
bool directed(const KoDbEntity& e)
{
    const auto& m = static_cast<const KoDbMText&>(e);
    return m.direction() != KoGeVector3d::kXAxis() || m.normal() != KoGeVector3d::kZAxis();
}

using M = KoDbMText;
constexpr std::array kMTextFields {
    point<M, &M::location, &M::setLocation>(10),
    number<M, &M::textHeight, &M::setTextHeight>(40, FieldType::Real, true),
    number<M, &M::width, &M::setWidth>(41, FieldType::Real, true),
    integer<M, &M::attachment, &M::setAttachment>(71, true),
    integer<M, &M::flowDirection, &M::setFlowDirection>(72, false, 1),
    text<M, &M::contents, &M::setContents>(1, nullptr, FieldType::LongText),
    text<M, &M::textStyleName, &M::setTextStyleName>(7, L"Standard"),
    point<M, &M::normal, &M::setNormal>(210, FieldType::Normal),
    readOnly(number<M, &M::rotation, &M::setRotation>(50, FieldType::Angle)),
    point<M, &M::direction, &M::setDirection>(11, FieldType::Point, directed),
    integer<M, &M::lineSpacingStyle, &M::setLineSpacingStyle>(73, false, 1),
    number<M, &M::lineSpacingFactor, &M::setLineSpacingFactor>(44, FieldType::Real, false, 1.0),
};
constexpr std::array kMText {EntitySubclass {"AcDbMText", kMTextFields}};

// Whether attributes follow is told by the records themselves, both ways.
constexpr EntityField kAttributesFollow {
    .code = 66,
    .type = FieldType::Int,
    .number = [](const KoDbEntity& e) -> double { return !static_cast<const KoDbBlockReference&>(e).attributeRecords().empty(); },
    .setNumber = [](KoDbEntity&, double) { return Kora::eOk; }};

using B = KoDbBlockReference;
constexpr std::array kInsertFields {
    kAttributesFollow,
    required(reference<B, &B::blockTableRecord, &B::setBlockTableRecord>(2, FieldType::BlockName)),
    point<B, &B::position, &B::setPosition>(10),
    scaleField<B, &KoGeScale3d::sx>(41, false),
    scaleField<B, &KoGeScale3d::sy>(42, false),
    scaleField<B, &KoGeScale3d::sz>(43, false),
    number<B, &B::rotation, &B::setRotation>(50, FieldType::Angle),
    point<B, &B::normal, &B::setNormal>(210, FieldType::Normal),
};
constexpr std::array kInsert {EntitySubclass {"AcDbBlockReference", kInsertFields}};

const std::vector<KoDbDxfRecord>& attributes(const KoDbEntity& e)
{
    return static_cast<const B&>(e).attributeRecords();
}

void setAttributes(KoDbEntity& e, std::vector<KoDbDxfRecord> records)
{
    static_cast<B&>(e).setAttributeRecords(std::move(records));
}

using U = KoDbUnderlayReference;
constexpr EntityField kUnderlayFlags {
    .code = 280,
    .type = FieldType::Int,
    .always = true,
    .number = [](const KoDbEntity& e) -> double {
        const auto& u = static_cast<const U&>(e);
        return (u.isClipped() ? 1 : 0) | (u.isOn() ? 2 : 0) | (u.isMonochrome() ? 4 : 0) | (u.isAdjustedForBackground() ? 8 : 0);
    },
    .setNumber = [](KoDbEntity& e, double v) {
        auto& u = static_cast<U&>(e);
        const int f = static_cast<int>(v);
        u.setIsClipped(f & 1);
        u.setIsOn(f & 2);
        u.setIsMonochrome(f & 4);
        u.setIsAdjustedForBackground(f & 8);
        return Kora::eOk;
    }};

constexpr EntityField kClipBoundary {
    .code = 11,
    .type = FieldType::Point2List,
    .always = true,
    .points = [](const KoDbEntity& e) { return static_cast<const U&>(e).clipBoundary(); },
    .setPoints = [](KoDbEntity& e, std::vector<KoGePoint2d> p) { return static_cast<U&>(e).setClipBoundary(std::move(p)); }};

constexpr std::array kUnderlayFields {
    reference<U, &U::definitionId, &U::setDefinitionId>(340, FieldType::Handle),
    point<U, &U::position, &U::setPosition>(10),
    scaleField<U, &KoGeScale3d::sx>(41, true),
    scaleField<U, &KoGeScale3d::sy>(42, true),
    scaleField<U, &KoGeScale3d::sz>(43, true),
    number<U, &U::rotation, &U::setRotation>(50, FieldType::Angle, true),
    point<U, &U::normal, &U::setNormal>(210, FieldType::Normal),
    kUnderlayFlags,
    integer<U, &U::contrast, &U::setContrast, 20, 100>(281, true),
    integer<U, &U::fade, &U::setFade, 0, 80>(282, true),
    kClipBoundary,
};
constexpr std::array kUnderlay {EntitySubclass {"AcDbUnderlayReference", kUnderlayFields}};

// Layer states travel in the platform's own extended data: a name (1000)
// and whether it is on (1070) for each.
KoDbDxfTags underlayLayers(const KoDbEntity& e)
{
    KoDbDxfTags out;
    const auto& layers = static_cast<const U&>(e).underlayLayers();
    if (layers.empty()) return out;
    out.push_back({1001, kKoraApp});
    for (const KoDbUnderlayLayer& layer : layers) {
        out.push_back({1000, layer.name.toUtf8()});
        out.push_back({1070, layer.state == KoDbUnderlayLayer::kOn ? "1" : "0"});
    }
    return out;
}

void takeUnderlayLayers(KoDbEntity& e, KoDbDxfTags& xdata)
{
    std::vector<KoDbUnderlayLayer> layers;
    KoDbDxfTags rest;
    bool inKora = false;
    for (size_t k = 0; k < xdata.size(); ++k) {
        const KoDbDxfTag& t = xdata[k];
        if (t.code == 1001) inKora = t.value == kKoraApp;
        if (!inKora) {
            rest.push_back(t);
            continue;
        }
        if (t.code == 1000 && k + 1 < xdata.size() && xdata[k + 1].code == 1070) {
            int64_t state = 1;
            parseInt(xdata[k + 1].value, state);
            layers.push_back({KoString::fromUtf8(t.value), state ? KoDbUnderlayLayer::kOn : KoDbUnderlayLayer::kOff});
            ++k;
        }
    }
    xdata = std::move(rest);
    static_cast<U&>(e).setUnderlayLayers(std::move(layers));
}

// Vertices: x, y, start and end width (both or neither), bulge.
constexpr GroupMember kVertexMembers[] = {
    {.code = 10, .slot = 0, .always = true}, {.code = 20, .slot = 1, .always = true},
    {.code = 40, .slot = 2, .alsoSlot = 3},  {.code = 41, .slot = 3, .alsoSlot = 2},
    {.code = 42, .slot = 4},
};
constexpr EntityGroup kVertices {
    kVertexMembers,
    [](const KoDbEntity& e) {
        std::vector<GroupItem> items;
        for (const KoDbPolyline::Vertex& v : static_cast<const KoDbPolyline&>(e).vertices())
            items.push_back({v.point.x, v.point.y, v.startWidth, v.endWidth, v.bulge});
        return items;
    },
    [](KoDbEntity& e, const std::vector<GroupItem>& items) {
        std::vector<KoDbPolyline::Vertex> vs;
        vs.reserve(items.size());
        for (const GroupItem& i : items) vs.push_back({{i[0], i[1]}, i[4], i[2], i[3]});
        return static_cast<KoDbPolyline&>(e).setVertices(std::move(vs));
    }};

using P = KoDbPolyline;
constexpr std::array kPolylineFields {
    // The count follows from the vertices.
    EntityField {.code = 90,
                 .type = FieldType::Int,
                 .always = true,
                 .number = [](const KoDbEntity& e) -> double { return static_cast<const P&>(e).numVerts(); },
                 .setNumber = [](KoDbEntity&, double) { return Kora::eOk; }},
    EntityField {.code = 70,
                 .type = FieldType::Int,
                 .always = true,
                 .number = [](const KoDbEntity& e) -> double {
                     const auto& p = static_cast<const P&>(e);
                     return (p.isClosed() ? 1 : 0) | (p.hasPlinegen() ? 128 : 0);
                 },
                 .setNumber = [](KoDbEntity& e, double v) {
                     auto& p = static_cast<P&>(e);
                     const int f = static_cast<int>(v);
                     p.setClosed((f & 1) != 0);
                     p.setPlinegen((f & 128) != 0);
                     return Kora::eOk;
                 }},
    number<P, &P::constantWidth, &P::setConstantWidth>(43, FieldType::Real),
    number<P, &P::elevation, &P::setElevation>(38, FieldType::Real),
    number<P, &P::thickness, &P::setThickness>(39, FieldType::Real),
    EntityField {.code = 10, .type = FieldType::Group, .always = true, .group = &kVertices},
    point<P, &P::normal, &P::setNormal>(210, FieldType::Normal),
    // Vertex identifiers are given anew: read past, never written.
    EntityField {.code = 91,
                 .type = FieldType::Text,
                 .written = [](const KoDbEntity&) { return false; },
                 .setText = [](KoDbEntity&, const KoString&) { return Kora::eOk; }},
};
constexpr std::array kPolyline {EntitySubclass {"AcDbPolyline", kPolylineFields}};

using S = KoDbSpline;
// A count, written from its list and read past: the lists say it.
template <auto List>
constexpr EntityField count(int code)
{
    return {.code = code,
            .type = FieldType::Int,
            .always = true,
            .number = [](const KoDbEntity& e) -> double { return static_cast<double>((static_cast<const S&>(e).*List)().size()); },
            .setNumber = [](KoDbEntity&, double) { return Kora::eOk; }};
}
// Degree and flags have no setter: they are set with the knots and
// control points, gathered first.
template <auto Get>
constexpr EntityField splineInt(int code, int usual)
{
    return {.code = code,
            .type = FieldType::Int,
            .always = true,
            .usual = static_cast<double>(usual),
            .number = [](const KoDbEntity& e) -> double { return (static_cast<const S&>(e).*Get)(); }};
}
template <auto Get, bool Start>
constexpr EntityField tangent(int code)
{
    return {.code = code,
            .type = FieldType::Point,
            .always = true,
            .written = [](const KoDbEntity& e) { return (static_cast<const S&>(e).*Get)().length() > 0.0; },
            .point = [](const KoDbEntity& e) {
                const KoGeVector3d& v = (static_cast<const S&>(e).*Get)();
                return KoGePoint3d(v.x, v.y, v.z);
            },
            .setPoint = [](KoDbEntity& e, const KoGePoint3d& p) {
                auto& s = static_cast<S&>(e);
                const KoGeVector3d v(p.x, p.y, p.z);
                return Start ? s.setFitTangents(v, s.endFitTangent()) : s.setFitTangents(s.startFitTangent(), v);
            }};
}
template <auto Get>
constexpr EntityField reals(int code)
{
    return {.code = code,
            .type = FieldType::RealList,
            .always = true,
            .reals = [](const KoDbEntity& e) { return (static_cast<const S&>(e).*Get)(); }};
}
template <auto Get>
constexpr EntityField points(int code)
{
    return {.code = code,
            .type = FieldType::PointList,
            .always = true,
            .pointList = [](const KoDbEntity& e) { return (static_cast<const S&>(e).*Get)(); }};
}
constexpr std::array kSplineFields {
    point<S, &S::normal, &S::setNormal>(210, FieldType::Point,
                                         [](const KoDbEntity& e) { return static_cast<const S&>(e).normal().length() > 0.0; }),
    splineInt<&S::flags>(70, 0),
    splineInt<&S::degree>(71, 3),
    count<&S::knots>(72),
    count<&S::controlPoints>(73),
    count<&S::fitPoints>(74),
    tangent<&S::startFitTangent, true>(12),
    tangent<&S::endFitTangent, false>(13),
    reals<&S::knots>(40),
    reals<&S::weights>(41),
    points<&S::controlPoints>(10),
    points<&S::fitPoints>(11),
};
constexpr std::array kSpline {EntitySubclass {"AcDbSpline", kSplineFields}};

// A spline is either its control points (with degree, flags, knots and
// weights) or its fit points; one without either does not fit the model.
Kora::ErrorStatus assembleSpline(KoDbEntity& e, const Gathered& g)
{
    auto& s = static_cast<S&>(e);
    std::vector<KoGePoint3d> cps = g.pointList(10), fits = g.pointList(11);
    if (cps.empty() && fits.empty()) return Kora::eInvalidInput;
    if (!cps.empty()) {
        const Kora::ErrorStatus es = s.setNurbsData(static_cast<int>(g.number(71, 3)), static_cast<int>(g.number(70, 0)),
                                                    g.realList(40), std::move(cps), g.realList(41));
        if (es != Kora::eOk) return es;
    }
    return s.setFitPoints(std::move(fits));
}

using P3 = KoDb3dPolyline;
constexpr std::array kPolyline3Fields {
    // Written for readers that look for them; what they say is known.
    EntityField {.code = 66,
                 .type = FieldType::Int,
                 .always = true,
                 .number = [](const KoDbEntity&) { return 1.0; },
                 .setNumber = [](KoDbEntity&, double) { return Kora::eOk; }},
    EntityField {.code = 10,
                 .type = FieldType::Point,
                 .always = true,
                 .point = [](const KoDbEntity&) { return KoGePoint3d(); },
                 .setPoint = [](KoDbEntity&, const KoGePoint3d&) { return Kora::eOk; }},
    // The flags decide whether the polyline is modelled: gathered.
    EntityField {.code = 70,
                 .type = FieldType::Int,
                 .always = true,
                 .number = [](const KoDbEntity& e) -> double { return 8 | (static_cast<const P3&>(e).isClosed() ? 1 : 0); }},
};
constexpr std::array kPolyline3 {EntitySubclass {"AcDb3dPolyline", kPolyline3Fields}};
constexpr std::string_view kVertexMarkers[] {"AcDbVertex", "AcDb3dPolylineVertex"};
// Vertices of spline frames (16) are refused: the curve is not a plain polyline.
constexpr EntitySequence kPolyline3Vertices {"VERTEX", kVertexMarkers, 32, 16,
                                             [](const KoDbEntity& e) { return static_cast<const P3&>(e).vertices(); }};

// Only plain 3D polylines are modelled; 2D, smoothed and mesh polylines
// do not fit.
Kora::ErrorStatus assemblePolyline3(KoDbEntity& e, const Gathered& g)
{
    auto& p = static_cast<P3&>(e);
    const int flags = static_cast<int>(g.number(70, 0));
    if ((flags & 8) == 0 || (flags & (4 | 16 | 64)) != 0) return Kora::eInvalidInput;
    p.setVertices(g.vertices);
    p.setClosed((flags & 1) != 0);
    return Kora::eOk;
}

using H = KoDbHatch;

constexpr EntityField patterned(EntityField f)
{
    f.written = [](const KoDbEntity& e) { return !static_cast<const H&>(e).isSolidFill(); };
    return f;
}

constexpr EntityField alwaysWritten(EntityField f)
{
    f.always = true;
    return f;
}

constexpr EntityField nested(int code, Nested which)
{
    return {.code = code, .type = FieldType::Nested, .always = true, .nested = which};
}

// The pattern's name, type and geometry are set together in the model;
// each value read keeps the others as they stand.
Kora::ErrorStatus setPatternType(H& h, double type)
{
    return h.setPattern(static_cast<H::HatchPatternType>(std::clamp(static_cast<int>(type), 0, 2)), h.patternName());
}
Kora::ErrorStatus setPatternAngle(H& h, double angle)
{
    return h.setPatternGeometry(angle, h.patternScale(), h.patternDouble());
}
Kora::ErrorStatus setPatternScale(H& h, double scale)
{
    return h.setPatternGeometry(h.patternAngle(), scale > 0.0 ? scale : 1.0, h.patternDouble());
}
Kora::ErrorStatus setPatternDouble(H& h, double isDouble)
{
    return h.setPatternGeometry(h.patternAngle(), h.patternScale(), isDouble != 0.0);
}

constexpr std::array kHatchFields {
    // Only the elevation is taken from this point.
    EntityField {.code = 10,
                 .type = FieldType::Point,
                 .always = true,
                 .point = [](const KoDbEntity& e) { return KoGePoint3d(0.0, 0.0, static_cast<const H&>(e).elevation()); },
                 .setPoint = [](KoDbEntity& e, const KoGePoint3d& p) { return static_cast<H&>(e).setElevation(p.z); }},
    alwaysWritten(point<H, &H::normal, &H::setNormal>(210, FieldType::Normal)),
    EntityField {.code = 2,
                 .type = FieldType::Text,
                 .always = true,
                 .text = [](const KoDbEntity& e) { return static_cast<const H&>(e).patternName(); },
                 .setText = [](KoDbEntity& e, const KoString& name) {
                     auto& h = static_cast<H&>(e);
                     return h.setPattern(h.patternType(), name);
                 }},
    // Solid or not follows from the pattern name.
    EntityField {.code = 70,
                 .type = FieldType::Int,
                 .always = true,
                 .number = [](const KoDbEntity& e) -> double { return static_cast<const H&>(e).isSolidFill(); },
                 .setNumber = [](KoDbEntity&, double) { return Kora::eOk; }},
    integer<H, &H::associative, &H::setAssociative>(71, true),
    nested(91, Nested::HatchLoops),
    integer<H, &H::hatchStyle, &H::setHatchStyle>(75, true),
    number<H, &H::patternType, setPatternType>(76, FieldType::Int, true),
    patterned(number<H, &H::patternAngle, setPatternAngle>(52, FieldType::Real, true)),
    patterned(number<H, &H::patternScale, setPatternScale>(41, FieldType::Real, true)),
    patterned(number<H, &H::patternDouble, setPatternDouble>(77, FieldType::Int, true)),
    patterned(nested(78, Nested::HatchPatternLines)),
    EntityField {.code = 47,
                 .type = FieldType::Real,
                 .number = [](const KoDbEntity& e) { return static_cast<const H&>(e).pixelSize(); },
                 .setNumber = [](KoDbEntity& e, double v) {
                     static_cast<H&>(e).setPixelSize(v);
                     return Kora::eOk;
                 }},
    nested(98, Nested::HatchSeedPoints),
};
constexpr std::array kHatch {EntitySubclass {"AcDbHatch", kHatchFields}};

// An arc read without its angles is a whole circle's.
KoDbEntity* makeArc() { return new KoDbArc({}, 0.0, 0.0, 2 * std::numbers::pi); }

// In the order an entity is matched: subclasses before their bases.
const EntityKind kKinds[] = {
    {"LINE", is<KoDbLine>, kLine, make<KoDbLine>},
    {"ARC", is<KoDbArc>, kArc, makeArc},
    {"CIRCLE", is<KoDbCircle>, kCircle, make<KoDbCircle>},
    {"ELLIPSE", is<KoDbEllipse>, kEllipse, make<KoDbEllipse>},
    {"LWPOLYLINE", is<KoDbPolyline>, kPolyline, make<KoDbPolyline>},
    {"POLYLINE", is<KoDb3dPolyline>, kPolyline3, make<KoDb3dPolyline>, nullptr, nullptr, nullptr, nullptr, assemblePolyline3,
     &kPolyline3Vertices},
    {"SPLINE", is<KoDbSpline>, kSpline, make<KoDbSpline>, nullptr, nullptr, nullptr, nullptr, assembleSpline},
    {"POINT", is<KoDbPoint>, kPoint, make<KoDbPoint>},
    {"TEXT", is<KoDbText>, kText, make<KoDbText>},
    {"MTEXT", is<KoDbMText>, kMText, make<KoDbMText>},
    {"INSERT", is<KoDbBlockReference>, kInsert, make<KoDbBlockReference>, attributes, setAttributes},
    {"HATCH", is<KoDbHatch>, kHatch, make<KoDbHatch>},
    {"VIEWPORT", is<KoDbViewport>, kViewport, make<KoDbViewport>},
    {"DGNUNDERLAY", is<KoDbDgnReference>, kUnderlay, make<KoDbDgnReference>, nullptr, nullptr, underlayLayers,
     takeUnderlayLayers},
};

}  // namespace

bool EntityKind::isMarker(std::string_view name) const
{
    for (const EntitySubclass& s : subclasses)
        if (s.marker == name) return true;
    return false;
}

const EntityField* EntityKind::field(int code) const
{
    // Every tag of every entity read asks: looked up in a table per kind,
    // made once, rather than asked of each field in turn.
    constexpr int kHighestCode = 1071;
    using Table = std::vector<const EntityField*>;
    static const std::vector<Table> tables = [] {
        std::vector<Table> made;
        for (const EntityKind& k : kKinds) {
            Table& byCode = made.emplace_back(kHighestCode + 1);
            for (const EntitySubclass& s : k.subclasses)
                for (const EntityField& f : s.fields)
                    for (int c = 0; c <= kHighestCode; ++c)
                        if (!byCode[static_cast<size_t>(c)] && f.takes(c)) byCode[static_cast<size_t>(c)] = &f;
        }
        return made;
    }();
    if (code < 0 || code > kHighestCode) return nullptr;
    return tables[static_cast<size_t>(this - kKinds)][static_cast<size_t>(code)];
}

const EntityKind* entityKind(std::string_view dxfName)
{
    for (const EntityKind& k : kKinds)
        if (k.dxfName == dxfName) return &k;
    return nullptr;
}

const EntityKind* entityKind(const KoDbEntity* entity)
{
    for (const EntityKind& k : kKinds)
        if (k.is(entity)) return &k;
    return nullptr;
}

}  // namespace Kora::Dxf
