// B-spline curves on uniform knots, open and closed (periodic).
#include <cmath>

#include "v8_test_support.h"

using namespace Kora::Dgn::V8;

namespace {

::testing::AssertionResult same(const Point& a, const Point& b)
{
    if (std::abs(a.x - b.x) < 1e-12 && std::abs(a.y - b.y) < 1e-12 && std::abs(a.z - b.z) < 1e-12)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "(" << a.x << ", " << a.y << ", " << a.z << ") is not (" << b.x << ", "
                                         << b.y << ", " << b.z << ")";
}

TEST(V8BSpline, UniformCubicOpenAndClosed)
{
    BSplineBody curve;
    curve.order = 4;
    curve.poles = {{0, 0, 0}, {6, 0, 0}, {6, 6, 0}, {0, 6, 0}, {0, 12, 0}};

    // Open: two spans, each starting at (P[k] + 4 P[k+1] + P[k+2]) / 6.
    EXPECT_EQ(curve.spans(), 2u);
    EXPECT_TRUE(same(curve.at(0), Point{5, 1, 0}));
    EXPECT_TRUE(same(curve.at(1), Point{5, 5, 0}));
    EXPECT_TRUE(same(curve.at(2), Point{1, 7, 0}));
    // Halfway along a span: (P0 + 23 P1 + 23 P2 + P3) / 48.
    const Point half = curve.at(0.5);
    EXPECT_NEAR(half.x, (0 + 23 * 6 + 23 * 6 + 0) / 48.0, 1e-12);
    EXPECT_NEAR(half.y, (0 + 0 + 23 * 6 + 6) / 48.0, 1e-12);

    // Closed: one span per pole, the last ones wrapping to the first poles,
    // so the curve ends where it starts.
    curve.closed = true;
    EXPECT_EQ(curve.spans(), 5u);
    EXPECT_TRUE(same(curve.at(4), Point{1, 2, 0})); // (P4 + 4 P0 + P1) / 6
    EXPECT_TRUE(same(curve.at(5), curve.at(0)));

    // Parameters outside the curve are held to its ends.
    EXPECT_TRUE(same(curve.at(-3), curve.at(0)));
    EXPECT_TRUE(same(curve.at(std::nan("")), curve.at(0)));

    // Fewer poles than the order: no span; the first pole stands for it.
    curve.poles.resize(3);
    EXPECT_EQ(curve.spans(), 0u);
    EXPECT_TRUE(same(curve.at(0.5), Point{0, 0, 0}));
}

} // namespace
