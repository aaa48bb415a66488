// The entity kinds files hold, described once for the reader, the writer
// and kodbDxfName(): each kind's DXF name, the class that models it, its
// subclasses and their fields (group code <-> property, long texts, lists
// and repeated groups among them), and the records and extended data that
// follow some kinds. A hatch's nested, counted data (boundary loops,
// pattern lines, seed points) is laid out in dxfhatchlayout.h; its fields
// here say where each part stands, and the reader and the writer run the
// layout there, each with its own side.
#pragma once

#include <array>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "kora/db/entities.h"

namespace Kora::Dxf {

enum class FieldType : unsigned char {
    Real,
    Angle,   // degrees in files, radians in the model
    Int,
    Point,   // x at the code, y at code + 10, z at code + 20
    Point2,  // x at the code, y at code + 10
    Normal,  // a point-like vector, left out at the Z axis
    Text,
    LongText,  // in pieces of code 3 before the last one at the code
    BlockName, // a block record, by its name
    Handle,    // an object, by its handle
    Point2List,  // 2D points, each x at the code and y at code + 10
    Group,       // a repeated group of numbers (vertices), see EntityGroup
    RealList,    // numbers, each at the code
    PointList,   // points, each x at the code, y at code + 10, z at code + 20
    Nested,      // counted data laid out in its own routine, from its count at the code
};

// The routines of nested data (dxfhatchlayout.h).
enum class Nested : unsigned char {
    None,
    HatchLoops,
    HatchPatternLines,
    HatchSeedPoints,
};

// Values a kind sets in one go (a spline's degree, flags, knots and
// points), gathered by field code while the record is read: lists, and
// the numbers of fields that have no setter of their own.
struct Gathered {
    std::vector<std::pair<int, double>> numbers;
    std::vector<std::pair<int, std::vector<double>>> reals;
    std::vector<std::pair<int, std::vector<KoGePoint3d>>> points;
    std::vector<KoGePoint3d> vertices;  // of the records that follow, see EntitySequence

    // The value of that code in a list of them, added when not there yet.
    template <class V>
    static V& at(std::vector<std::pair<int, V>>& values, int code)
    {
        for (auto& [c, v] : values)
            if (c == code) return v;
        return values.emplace_back(code, V()).second;
    }
    template <class V>
    static V valueOf(const std::vector<std::pair<int, V>>& values, int code, V usual = V())
    {
        for (const auto& [c, v] : values)
            if (c == code) return v;
        return usual;
    }
    double number(int code, double usual) const { return valueOf(numbers, code, usual); }
    std::vector<double> realList(int code) const { return valueOf(reals, code); }
    std::vector<KoGePoint3d> pointList(int code) const { return valueOf(points, code); }
};

// One number of a repeated group, kept in slot `slot` of an item; written
// always, or when its slot or `alsoSlot` is not zero.
struct GroupMember {
    int code = 0;
    int slot = 0;
    int alsoSlot = -1;
    bool always = false;
};
using GroupItem = std::array<double, 5>;
struct EntityGroup {
    std::span<const GroupMember> members;  // the first one opens a new item
    std::vector<GroupItem> (*items)(const KoDbEntity&);
    Kora::ErrorStatus (*setItems)(KoDbEntity&, const std::vector<GroupItem>&);

    const GroupMember* member(int code) const
    {
        for (const GroupMember& m : members)
            if (m.code == code) return &m;
        return nullptr;
    }
};

// The code of all but the last piece of a long text.
constexpr int kTextPieceCode = 3;

struct EntityField {
    int code = 0;
    FieldType type = FieldType::Real;
    // Written when `always`, or when the value is not the usual one (a
    // number's `usual`, text other than `usualText` in any case, a normal
    // off the Z axis); also only where `written` (if given) says so. When
    // required, a record without it does not fit the model and is kept whole,
    // and a required point has no usual value: coordinates left out are zero.
    bool always = false;
    bool required = false;
    // Set with the points, in field order, after the other values: for a
    // value that depends on a point (an angle in the plane of a normal).
    bool late = false;
    double usual = 0.0;
    const wchar_t* usualText = nullptr;
    bool (*written)(const KoDbEntity&) = nullptr;
    double (*number)(const KoDbEntity&) = nullptr;
    Kora::ErrorStatus (*setNumber)(KoDbEntity&, double) = nullptr;
    KoGePoint3d (*point)(const KoDbEntity&) = nullptr;
    Kora::ErrorStatus (*setPoint)(KoDbEntity&, const KoGePoint3d&) = nullptr;
    KoString (*text)(const KoDbEntity&) = nullptr;
    Kora::ErrorStatus (*setText)(KoDbEntity&, const KoString&) = nullptr;
    KoDbObjectId (*id)(const KoDbEntity&) = nullptr;
    Kora::ErrorStatus (*setId)(KoDbEntity&, KoDbObjectId) = nullptr;
    std::vector<KoGePoint2d> (*points)(const KoDbEntity&) = nullptr;
    Kora::ErrorStatus (*setPoints)(KoDbEntity&, std::vector<KoGePoint2d>) = nullptr;
    const EntityGroup* group = nullptr;
    std::vector<double> (*reals)(const KoDbEntity&) = nullptr;
    std::vector<KoGePoint3d> (*pointList)(const KoDbEntity&) = nullptr;
    Nested nested = Nested::None;

    bool isPoint() const { return type == FieldType::Point || type == FieldType::Point2 || type == FieldType::Normal; }
    bool isFlat() const { return type == FieldType::Point2 || type == FieldType::Point2List; }
    // Whether a group code is this field's (any coordinate of a point).
    bool takes(int c) const
    {
        const bool coordinates = isPoint() || type == FieldType::Point2List || type == FieldType::PointList;
        return c == code || (coordinates && (c == code + 10 || (c == code + 20 && !isFlat()))) ||
               (type == FieldType::LongText && c == kTextPieceCode) || (type == FieldType::Group && group->member(c));
    }
};

struct EntitySubclass {
    std::string_view marker;
    std::span<const EntityField> fields;
};

// The vertex records that follow an entity, each a point at code 10 with
// flags at code 70, ended by a SEQEND record. They are written anew (new
// handles, the entity's layer); a vertex with any of `refusedFlags` does
// not fit the model.
struct EntitySequence {
    std::string_view record;
    std::span<const std::string_view> markers;
    int flags = 0;
    int refusedFlags = 0;
    std::vector<KoGePoint3d> (*vertices)(const KoDbEntity&);
};

struct EntityKind {
    std::string_view dxfName;
    bool (*is)(const KoDbEntity*);
    std::span<const EntitySubclass> subclasses;
    KoDbEntity* (*make)();
    // Records that follow the entity's own (attributes), kept as read.
    const std::vector<KoDbDxfRecord>& (*records)(const KoDbEntity&) = nullptr;
    void (*setRecords)(KoDbEntity&, std::vector<KoDbDxfRecord>) = nullptr;
    // The kind's own part of the extended data, written after the
    // entity's; the reader takes it out of what it read.
    KoDbDxfTags (*xdata)(const KoDbEntity&) = nullptr;
    void (*takeXdata)(KoDbEntity&, KoDbDxfTags&) = nullptr;
    // Sets what the kind gathers (see Gathered), after its other fields.
    Kora::ErrorStatus (*assemble)(KoDbEntity&, const Gathered&) = nullptr;
    const EntitySequence* sequence = nullptr;

    bool isMarker(std::string_view name) const;
    // The first field, in subclass and field order, that takes a group
    // code; null for none.
    const EntityField* field(int code) const;
};

// The kind of that DXF name, or of that entity; null for none.
const EntityKind* entityKind(std::string_view dxfName);
const EntityKind* entityKind(const KoDbEntity* entity);

}  // namespace Kora::Dxf
