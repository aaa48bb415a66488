// Plain geometric value types of the drawing database: points, vectors and
// axis-aligned extents. World coordinates, doubles throughout.
#pragma once

#include <cmath>

#include "kora/export.h"
#include "kora/status.h"

struct KoGeVector3d {
    double x = 0.0, y = 0.0, z = 0.0;

    constexpr KoGeVector3d() = default;
    constexpr KoGeVector3d(double ax, double ay, double az) : x(ax), y(ay), z(az) {}
    static constexpr KoGeVector3d kXAxis() { return {1.0, 0.0, 0.0}; }
    static constexpr KoGeVector3d kZAxis() { return {0.0, 0.0, 1.0}; }

    double length() const { return std::sqrt(x * x + y * y + z * z); }
    KoGeVector3d normal() const
    {
        const double l = length();
        return l > 0.0 ? KoGeVector3d(x / l, y / l, z / l) : *this;
    }
    KoGeVector3d crossProduct(const KoGeVector3d& v) const
    {
        return {y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x};
    }
    double dotProduct(const KoGeVector3d& v) const { return x * v.x + y * v.y + z * v.z; }
    friend KoGeVector3d operator*(const KoGeVector3d& v, double s) { return {v.x * s, v.y * s, v.z * s}; }
    friend KoGeVector3d operator+(const KoGeVector3d& a, const KoGeVector3d& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
    friend bool operator==(const KoGeVector3d&, const KoGeVector3d&) = default;
};

struct KoGePoint3d {
    double x = 0.0, y = 0.0, z = 0.0;

    constexpr KoGePoint3d() = default;
    constexpr KoGePoint3d(double ax, double ay, double az = 0.0) : x(ax), y(ay), z(az) {}
    static constexpr KoGePoint3d kOrigin() { return {}; }

    double distanceTo(const KoGePoint3d& p) const { return (p - *this).length(); }
    friend KoGeVector3d operator-(const KoGePoint3d& a, const KoGePoint3d& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
    friend KoGePoint3d operator+(const KoGePoint3d& p, const KoGeVector3d& v) { return {p.x + v.x, p.y + v.y, p.z + v.z}; }
    friend bool operator==(const KoGePoint3d&, const KoGePoint3d&) = default;
};

struct KoGePoint2d {
    double x = 0.0, y = 0.0;

    constexpr KoGePoint2d() = default;
    constexpr KoGePoint2d(double ax, double ay) : x(ax), y(ay) {}
    friend bool operator==(const KoGePoint2d&, const KoGePoint2d&) = default;
};

// Axis-aligned box. A default-constructed box is empty (min above max) and
// grows with addPoint.
class KORA_API KoDbExtents {
public:
    KoDbExtents() = default;
    KoDbExtents(const KoGePoint3d& minPoint, const KoGePoint3d& maxPoint) : m_min(minPoint), m_max(maxPoint) {}

    const KoGePoint3d& minPoint() const { return m_min; }
    const KoGePoint3d& maxPoint() const { return m_max; }
    bool isValid() const { return m_min.x <= m_max.x && m_min.y <= m_max.y && m_min.z <= m_max.z; }
    void addPoint(const KoGePoint3d& p);
    void addExt(const KoDbExtents& other);
    Kora::ErrorStatus set(const KoGePoint3d& minPoint, const KoGePoint3d& maxPoint);

private:
    KoGePoint3d m_min {1e300, 1e300, 1e300};
    KoGePoint3d m_max {-1e300, -1e300, -1e300};
};
