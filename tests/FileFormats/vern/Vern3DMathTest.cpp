// Transform maths: hand-worked cases, identities on seeded random inputs, and the exact float
// evaluation order of the products (their bits reach the output file).
#include "vern/Vern3DMath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>

namespace {

using namespace vern3d;

Matrix FromRows(std::initializer_list<std::initializer_list<float>> rows)
{
    Matrix m;
    size_t k = 0;
    for (const auto& row : rows)
        for (float value : row)
            m.m[k++] = value;
    return m;
}

Matrix Diagonal(float s, float x = 0, float y = 0, float z = 0)
{
    return FromRows({{s, 0, 0, 0}, {0, s, 0, 0}, {0, 0, s, 0}, {x, y, z, 1}});
}

std::uint32_t Bits(float value) { return std::bit_cast<std::uint32_t>(value); }

// Determinant in double: the signed sum over all 24 permutations.
double DeterminantInDouble(const Matrix& m)
{
    int p[4] = {0, 1, 2, 3};
    double det = 0;
    do {
        double term = 1;
        for (int i = 0; i < 4; ++i) {
            term *= m(i, p[i]);
            for (int j = i + 1; j < 4; ++j)
                term = p[i] > p[j] ? -term : term;
        }
        det += term;
    } while (std::next_permutation(p, p + 4));
    return det;
}

// Expects a * b == factor * I (computed in double), relative to each element's product magnitude.
void ExpectProductIsScaledIdentity(const Matrix& a, const Matrix& b, double factor, double relative, const std::string& label)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double value = 0, magnitude = 0;
            for (int k = 0; k < 4; ++k) {
                value += double(a(i, k)) * double(b(k, j));
                magnitude += std::abs(double(a(i, k)) * double(b(k, j)));
            }
            EXPECT_NEAR(value, i == j ? factor : 0.0, relative * (1.0 + magnitude)) << label << " [" << i << "][" << j << "]";
        }
}

void ExpectMatrixNear(const Matrix& actual, const Matrix& expected, float tolerance, const std::string& label)
{
    for (int k = 0; k < 16; ++k)
        EXPECT_NEAR(actual.m[k], expected.m[k], tolerance) << label << " element " << k;
}

struct Vec3d { double x, y, z; };
Vec3d D(const Vector3& v) { return {v.x, v.y, v.z}; }
Vec3d Minus(const Vec3d& a, const Vec3d& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
double DotD(const Vec3d& a, const Vec3d& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
double LengthD(const Vec3d& a) { return std::sqrt(DotD(a, a)); }
Vec3d CrossD(const Vec3d& a, const Vec3d& b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
Vec3d UnitD(const Vec3d& a) { return {a.x / LengthD(a), a.y / LengthD(a), a.z / LengthD(a)}; }
Vec3d RowD(const Matrix& m, int i) { return {m(i, 0), m(i, 1), m(i, 2)}; }
Vec3d ColumnD(const Matrix& m, int j) { return {m(0, j), m(1, j), m(2, j)}; }
// v as a row vector times the upper-left 3x3 of m.
Vec3d RotateD(const Vec3d& v, const Matrix& m) { return {DotD(v, ColumnD(m, 0)), DotD(v, ColumnD(m, 1)), DotD(v, ColumnD(m, 2))}; }

TEST(TransformMathTest, VectorOperationsAndNormalizeRowsMatchHandWorkedValues)
{
    const Vector3 r = Cross({1, 2, 3}, {4, 5, 6}), z = Cross({0, 1, 0}, {1, 0, 0});
    EXPECT_TRUE(r.x == -3 && r.y == 6 && r.z == -3 && z.x == 0 && z.y == 0 && z.z == -1);
    EXPECT_EQ(Dot({1, 2, 3}, {4, 5, 6}), 32.0f);
    EXPECT_EQ(Length({-2, -3, -6}), 7.0f);
    const Vector3 n = Normalize({0, 3, 4});
    EXPECT_TRUE(n.x == 0.0f && n.y == 0.6f && n.z == 0.8f);
    // (1, 2, 3) turned a quarter about z (x -> y) and moved by (10, 20, 30).
    const Vector3 p = TransformPoint({1, 2, 3}, FromRows({{0, 1, 0, 0}, {-1, 0, 0, 0}, {0, 0, 1, 0}, {10, 20, 30, 1}}));
    EXPECT_TRUE(p.x == 8 && p.y == 21 && p.z == 33);
    // NormalizeRows keeps row and column 3; MultiplyRotation follows from ProductsAreLeftToRightFloatSums.
    Matrix m = FromRows({{3, 4, 0, 7}, {0, 0, -2, 8}, {1, 2, 2, 9}, {5, 6, 7, 1}});
    NormalizeRows(m);
    ExpectMatrixNear(m, FromRows({{0.6f, 0.8f, 0, 7}, {0, 0, -1, 8}, {1.0f / 3, 2.0f / 3, 2.0f / 3, 9}, {5, 6, 7, 1}}),
                     1e-7f, "NormalizeRows");
}

TEST(TransformMathTest, InverseOfKnownTransforms)
{
    const struct { const char* name; Matrix m, expected; float tolerance; } cases[] = {
        {"identity", Matrix::Identity(), Matrix::Identity(), 0.0f},
        {"translation", Diagonal(1, 2.0f, -3.0f, 5.5f), Diagonal(1, -2.0f, 3.0f, -5.5f), 0.0f},
        {"scale by 4", Diagonal(4), Diagonal(0.25f), 0.0f}, {"scale by 3", Diagonal(3), Diagonal(1.0f / 3.0f), 1e-7f},
        // p' = p R + t, so the inverse is R^T with translation -t R^T.
        {"quarter turn about z, then translation", FromRows({{0, 1, 0, 0}, {-1, 0, 0, 0}, {0, 0, 1, 0}, {1, 2, 3, 1}}),
         FromRows({{0, -1, 0, 0}, {1, 0, 0, 0}, {0, 0, 1, 0}, {-2, 1, -3, 1}}), 0.0f},
    };
    for (const auto& c : cases)
        ExpectMatrixNear(Inverse(c.m), c.expected, c.tolerance, c.name);
    // Column 3 = (0, 0, 0, 2) doubles the full determinant; Inverse divides by the upper-left one.
    const Matrix m = FromRows({{1, 2, 0, 0}, {0, 1, 3, 0}, {2, 0, 1, 0}, {4, 5, 6, 2}});
    ExpectProductIsScaledIdentity(Inverse(m), m, 2.0, 1e-6, "column 3 = (0,0,0,2)");
    // A zero scale is not caught: the division gives non-finite elements.
    const Matrix singular = Inverse(FromRows({{0, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}));
    EXPECT_FALSE(std::isfinite(singular(0, 0)));
    EXPECT_TRUE(std::isnan(singular(0, 1)));
}

TEST(TransformMathTest, InverseAndAdjugateOfRandomMatrices)
{
    std::mt19937 random(20240611);
    std::uniform_real_distribution<float> element(-2.0f, 2.0f), translation(-10.0f, 10.0f);
    for (int draw = 0; draw < 300; ++draw) {
        const std::string label = "draw " + std::to_string(draw);
        // General matrices: column 3 is random too, so every cofactor and sign takes part.
        Matrix m;
        for (float& value : m.m)
            value = element(random);
        const Matrix adjugate = Adjugate(m);
        ExpectProductIsScaledIdentity(adjugate, m, DeterminantInDouble(m), 1e-5, label + " Adj(M) M");
        ExpectProductIsScaledIdentity(m, adjugate, DeterminantInDouble(m), 1e-5, label + " M Adj(M)");

        for (int j = 0; j < 3; ++j) {
            m(j, 3) = 0;
            m(3, j) = translation(random);
        }
        m(3, 3) = 1;
        if (std::abs(DeterminantInDouble(m)) < 0.25)
            continue;  // nearly singular: the inverse is legitimately inaccurate
        const Matrix inverse = Inverse(m);
        ExpectProductIsScaledIdentity(m, inverse, 1.0, 1e-5, label + " M Inv(M)");
        ExpectProductIsScaledIdentity(inverse, m, 1.0, 1e-5, label + " Inv(M) M");
    }
}

// The products are float sums taken left to right in index order. Inputs mix magnitudes from 2^-8
// to 2^8 so that a double accumulator or another order changes some results (checked below).
TEST(TransformMathTest, ProductsAreLeftToRightFloatSums)
{
    std::mt19937 random(424242);
    std::uniform_real_distribution<float> mantissa(-1.0f, 1.0f);
    std::uniform_int_distribution<int> exponent(-8, 8);
    auto draw = [&] {
        Matrix m;
        for (float& value : m.m)
            value = std::ldexp(mantissa(random), exponent(random));
        return m;
    };
    int differsFromDouble = 0, differsFromReversed = 0;
    for (int round = 0; round < 100; ++round) {
        const Matrix a = draw(), b = draw();
        const Matrix product = Multiply(a, b);
        Matrix rotated = draw();
        const Matrix kept = rotated;
        MultiplyRotation(rotated, a, b);
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) {
                const float p0 = a(i, 0) * b(0, j), p1 = a(i, 1) * b(1, j), p2 = a(i, 2) * b(2, j), p3 = a(i, 3) * b(3, j);
                const float threeTerms = p0 + p1 + p2, sum = threeTerms + p3;  // each + rounds to float
                EXPECT_EQ(Bits(product(i, j)), Bits(sum)) << "Multiply [" << i << "][" << j << "]";
                EXPECT_EQ(Bits(rotated(i, j)), Bits(i < 3 ? threeTerms : kept(i, j)))
                    << "MultiplyRotation [" << i << "][" << j << "]";
                differsFromDouble += static_cast<float>(double(p0) + double(p1) + double(p2) + double(p3)) != sum;
                differsFromReversed += p3 + p2 + p1 + p0 != sum;
            }
    }
    EXPECT_GT(differsFromDouble, 0);
    EXPECT_GT(differsFromReversed, 0);
}

TEST(TransformMathTest, AxisBasisRows)
{
    const struct { Vector3 axis; Matrix expected; } cases[] = {
        // u = (0, -4, 3), w = a x u = (25, 0, 0).
        {{0, 3, 4}, FromRows({{0, -0.8f, 0.6f, 0}, {1, 0, 0, 0}, {0, 0.6f, 0.8f, 0}, {0, 0, 0, 1}})},
        // Along x the first choice of u vanishes: u = (-a.y, a.x, 0) = (0, 2, 0), w = (0, 0, 4).
        {{2, 0, 0}, FromRows({{0, 1, 0, 0}, {0, 0, 1, 0}, {1, 0, 0, 0}, {0, 0, 0, 1}})},
        // Still right-handed for a negative axis.
        {{-3, 0, 0}, FromRows({{0, -1, 0, 0}, {0, 0, 1, 0}, {-1, 0, 0, 0}, {0, 0, 0, 1}})},
        {{0, 0, 1}, FromRows({{0, -1, 0, 0}, {1, 0, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}})},
    };
    for (const auto& c : cases)
        ExpectMatrixNear(AxisBasis(c.axis), c.expected, 1e-7f, std::to_string(c.axis.x) + std::to_string(c.axis.z));
}

TEST(TransformMathTest, AxisAngleMatrixIsTheRotationAboutRandomAxes)
{
    std::mt19937 random(31337);
    std::uniform_real_distribution<float> component(-1.0f, 1.0f), angle(-3.0f, 3.0f);
    for (int draw = 0; draw < 300; ++draw) {
        Vector3 axis{component(random), component(random), component(random)};
        // Zero out components now and then, to reach the fallback and the axis-aligned cases.
        axis.y = draw % 5 == 1 || draw % 10 == 3 ? 0.0f : axis.y;
        axis.z = draw % 5 == 2 || draw % 10 == 3 ? 0.0f : axis.z;
        if (Length(axis) < 0.1f)
            continue;
        const float theta = angle(random);
        const Matrix r = AxisAngleMatrix(axis, theta);
        const std::string label = "draw " + std::to_string(draw);
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(r(i, 3), 0.0f, 1e-7f) << label;
            EXPECT_NEAR(r(3, i), 0.0f, 1e-7f) << label;
            for (int j = 0; j < 3; ++j)
                EXPECT_NEAR(DotD(RowD(r, i), RowD(r, j)), i == j ? 1.0 : 0.0, 2e-6) << label;
        }
        EXPECT_NEAR(r(3, 3), 1.0f, 1e-6f) << label;  // the basis determinant
        EXPECT_NEAR(DotD(RowD(r, 0), CrossD(RowD(r, 1), RowD(r, 2))), 1.0, 2e-6) << label;
        const Vec3d a = UnitD(D(axis));
        EXPECT_NEAR(LengthD(Minus(RotateD(a, r), a)), 0.0, 2e-6) << label;  // the axis stays
        // A vector perpendicular to the axis turns by theta, counter-clockwise seen from the tip.
        const Vec3d v = UnitD(CrossD(a, {component(random), component(random), component(random) + 2.0}));
        const Vec3d turned = RotateD(v, r);
        EXPECT_NEAR(std::atan2(DotD(a, CrossD(v, turned)), DotD(v, turned)), theta, 5e-6) << label;
    }
}

TEST(TransformMathTest, MergeSphereWorkedCases)
{
    const float nextAfterTwo = std::nextafter(2.0f, 3.0f);
    const struct { const char* name; Sphere target, added, expected; float tolerance; } cases[] = {  // tolerance 0: bitwise
        {"a sphere with itself", {{1, 2, 3}, 4}, {{1, 2, 3}, 4}, {{1, 2, 3}, 4}, 0.0f},
        {"two unit spheres 3 apart", {{0, 0, 0}, 1}, {{3, 0, 0}, 1}, {{1.5f, 0, 0}, 2.5f}, 0.0f},
        {"added strictly inside", {{0, 0, 0}, 8.5f}, {{2, 3, 6}, 1}, {{0, 0, 0}, 8.5f}, 0.0f},
        {"target strictly inside", {{2, 3, 6}, 1}, {{0, 0, 0}, 8.5f}, {{0, 0, 0}, 8.5f}, 0.0f},
        // Centres under 1e-6 apart, neither inside the other: the centre stays, the larger radius wins.
        {"nearly coincident centres", {{1, 1, 1}, 2}, {{1, 1, 1.0000005f}, nextAfterTwo}, {{1, 1, 1}, nextAfterTwo}, 0.0f},
        {"centres just apart", {{1, 1, 1}, 2}, {{1, 1, 1.000002f}, 2}, {{1, 1, 1.000001f}, 2.000001f}, 2e-7f},
        {"unequal spheres 4 apart", {{0, 0, 0}, 2}, {{0, 4, 0}, 1}, {{0, 1.5f, 0}, 3.5f}, 0.0f},
    };
    for (const auto& c : cases) {
        Sphere s = c.target;
        MergeSphere(s, c.added);
        const float got[] = {s.centre.x, s.centre.y, s.centre.z, s.radius};
        const float want[] = {c.expected.centre.x, c.expected.centre.y, c.expected.centre.z, c.expected.radius};
        for (int k = 0; k < 4; ++k)
            EXPECT_TRUE(c.tolerance ? std::abs(got[k] - want[k]) <= c.tolerance : Bits(got[k]) == Bits(want[k]))
                << c.name << " component " << k << ": " << got[k];
    }
    // At dist + r == R (and dist + R == r) neither encloses the other and the general step runs;
    // with dist = 7 the rounding of 1/7 moves its centre a few ulps off the origin.
    const Sphere origin8{{0, 0, 0}, 8}, unitAt7{{2, 3, 6}, 1};
    Sphere grown = origin8, replaced = unitAt7;
    MergeSphere(grown, unitAt7);
    MergeSphere(replaced, origin8);
    for (const Sphere& s : {grown, replaced}) {
        EXPECT_EQ(s.radius, 8.0f);
        EXPECT_LE(std::abs(s.centre.x) + std::abs(s.centre.y) + std::abs(s.centre.z), 3e-6f);
        EXPECT_NE(Bits(s.centre.x) | Bits(s.centre.y) | Bits(s.centre.z), 0u) << "the containment shortcut was taken";
    }
}

TEST(TransformMathTest, MergeSphereEnclosesBothRandomSpheresMinimally)
{
    std::mt19937 random(99);
    std::uniform_real_distribution<float> coordinate(-10.0f, 10.0f), radius(0.0f, 12.0f);
    for (int draw = 0; draw < 500; ++draw) {
        const Sphere target{{coordinate(random), coordinate(random), coordinate(random)}, radius(random)};
        const Sphere added{{coordinate(random), coordinate(random), coordinate(random)}, radius(random)};
        Sphere merged = target;
        MergeSphere(merged, added);
        const Vec3d c = D(merged.centre);
        for (const Sphere& input : {target, added})
            EXPECT_LE(LengthD(Minus(D(input.centre), c)) + input.radius, merged.radius + 1e-5 * (1 + merged.radius)) << draw;
        const double between = LengthD(Minus(D(target.centre), D(added.centre)));
        const double smallest = std::max({double(target.radius), double(added.radius),
                                          (between + target.radius + added.radius) / 2});
        EXPECT_NEAR(merged.radius, smallest, 1e-5 * (1 + smallest)) << draw;
    }
}

}  // namespace
