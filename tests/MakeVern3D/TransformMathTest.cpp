// Transform maths: hand-worked cases, identities on seeded random inputs, and the exact float
// evaluation order of the products (their bits reach the output file).
#include "TransformMath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <numbers>
#include <random>
#include <string>

namespace {

constexpr double kPi = std::numbers::pi;

Matrix FromRows(std::initializer_list<std::initializer_list<float>> rows)
{
    Matrix m;
    int i = 0;
    for (const auto& row : rows) {
        int j = 0;
        for (float value : row)
            m(i, j++) = value;
        ++i;
    }
    return m;
}

Matrix Translation(float x, float y, float z)
{
    Matrix m = Matrix::Identity();
    m(3, 0) = x;
    m(3, 1) = y;
    m(3, 2) = z;
    return m;
}

Matrix UniformScale(float s)
{
    Matrix m = Matrix::Identity();
    m(0, 0) = s;
    m(1, 1) = s;
    m(2, 2) = s;
    return m;
}

std::uint32_t Bits(float value) { return std::bit_cast<std::uint32_t>(value); }

// Reference arithmetic in double, independent of the code under test.
struct Product {
    double value[4][4];
    double magnitude[4][4];  // sum of |a_ik * b_kj|: the scale that rounding errors are relative to
};

Product ProductInDouble(const Matrix& a, const Matrix& b)
{
    Product p{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k) {
                p.value[i][j] += double(a(i, k)) * double(b(k, j));
                p.magnitude[i][j] += std::abs(double(a(i, k)) * double(b(k, j)));
            }
    return p;
}

// Determinant by Gaussian elimination with partial pivoting.
double DeterminantInDouble(const Matrix& m)
{
    double a[4][4];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            a[i][j] = m(i, j);
    double det = 1.0;
    for (int c = 0; c < 4; ++c) {
        int pivot = c;
        for (int r = c + 1; r < 4; ++r)
            if (std::abs(a[r][c]) > std::abs(a[pivot][c]))
                pivot = r;
        if (a[pivot][c] == 0.0)
            return 0.0;
        if (pivot != c) {
            std::swap(a[pivot], a[c]);
            det = -det;
        }
        det *= a[c][c];
        for (int r = c + 1; r < 4; ++r) {
            const double f = a[r][c] / a[c][c];
            for (int k = c; k < 4; ++k)
                a[r][k] -= f * a[c][k];
        }
    }
    return det;
}

// Expects a * b == factor * I within a relative tolerance of each element's product magnitude.
void ExpectProductIsScaledIdentity(const Matrix& a, const Matrix& b, double factor, double relative,
                                   const std::string& label)
{
    const Product p = ProductInDouble(a, b);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            const double expected = i == j ? factor : 0.0;
            EXPECT_NEAR(p.value[i][j], expected, relative * (1.0 + p.magnitude[i][j]))
                << label << " at [" << i << "][" << j << "]";
        }
}

struct Vec3d {
    double x, y, z;
};

Vec3d ToDouble(const Vector3& v) { return {v.x, v.y, v.z}; }
double DotD(const Vec3d& a, const Vec3d& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vec3d CrossD(const Vec3d& a, const Vec3d& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
Vec3d UnitD(const Vec3d& a)
{
    const double l = std::sqrt(DotD(a, a));
    return {a.x / l, a.y / l, a.z / l};
}
Vec3d RowD(const Matrix& m, int i) { return {m(i, 0), m(i, 1), m(i, 2)}; }
// v as a row vector times the upper-left 3x3 of m.
Vec3d RotateD(const Vec3d& v, const Matrix& m)
{
    return {v.x * m(0, 0) + v.y * m(1, 0) + v.z * m(2, 0), v.x * m(0, 1) + v.y * m(1, 1) + v.z * m(2, 1),
            v.x * m(0, 2) + v.y * m(1, 2) + v.z * m(2, 2)};
}

void ExpectMatrixNear(const Matrix& actual, const Matrix& expected, float tolerance, const std::string& label)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_NEAR(actual(i, j), expected(i, j), tolerance) << label << " at [" << i << "][" << j << "]";
}

TEST(TransformMathTest, VectorOperationsMatchHandWorkedValues)
{
    const Vector3 x{1, 0, 0}, y{0, 1, 0}, z{0, 0, 1};
    struct CrossCase {
        Vector3 a, b, expected;
    };
    const CrossCase crosses[] = {
        {x, y, z}, {y, z, x}, {z, x, y}, {y, x, {0, 0, -1}}, {{1, 2, 3}, {4, 5, 6}, {-3, 6, -3}},
    };
    for (const CrossCase& c : crosses) {
        const Vector3 r = Cross(c.a, c.b);
        EXPECT_EQ(r.x, c.expected.x);
        EXPECT_EQ(r.y, c.expected.y);
        EXPECT_EQ(r.z, c.expected.z);
    }

    EXPECT_EQ(Dot({1, 2, 3}, {4, 5, 6}), 32.0f);
    EXPECT_EQ(Length({2, 3, 6}), 7.0f);
    EXPECT_EQ(Length({-2, -3, -6}), 7.0f);

    const Vector3 n = Normalize({0, 3, 4});
    EXPECT_FLOAT_EQ(n.x, 0.0f);
    EXPECT_FLOAT_EQ(n.y, 0.6f);
    EXPECT_FLOAT_EQ(n.z, 0.8f);

    // (1, 2, 3) turned a quarter about z (x -> y) and moved by (10, 20, 30).
    const Matrix m = FromRows({{0, 1, 0, 0}, {-1, 0, 0, 0}, {0, 0, 1, 0}, {10, 20, 30, 1}});
    const Vector3 p = TransformPoint({1, 2, 3}, m);
    EXPECT_EQ(p.x, 8.0f);
    EXPECT_EQ(p.y, 21.0f);
    EXPECT_EQ(p.z, 33.0f);
}

TEST(TransformMathTest, InverseOfKnownTransforms)
{
    struct Case {
        const char* name;
        Matrix m;
        Matrix expected;
        float tolerance;
    };
    const Case cases[] = {
        {"identity", Matrix::Identity(), Matrix::Identity(), 0.0f},
        {"translation", Translation(2.0f, -3.0f, 5.5f), Translation(-2.0f, 3.0f, -5.5f), 0.0f},
        {"scale by 4", UniformScale(4.0f), UniformScale(0.25f), 0.0f},
        {"scale by 3", UniformScale(3.0f), UniformScale(1.0f / 3.0f), 1e-7f},
        // p' = p R + t, so the inverse is R^T with translation -t R^T.
        {"quarter turn about z, then translation",
         FromRows({{0, 1, 0, 0}, {-1, 0, 0, 0}, {0, 0, 1, 0}, {1, 2, 3, 1}}),
         FromRows({{0, -1, 0, 0}, {1, 0, 0, 0}, {0, 0, 1, 0}, {-2, 1, -3, 1}}), 0.0f},
    };
    for (const Case& c : cases) {
        const Matrix inverse = Inverse(c.m);
        // Tolerance 0 compares with ==, so the sign of a zero does not matter here.
        ExpectMatrixNear(inverse, c.expected, c.tolerance, c.name);
    }
}

TEST(TransformMathTest, InverseDividesByTheUpperLeftDeterminant)
{
    // With column 3 = (0, 0, 0, 2) the full determinant is twice the upper-left one, so
    // adjugate / upper-left determinant is twice the true inverse: Inverse(M) * M = 2 I.
    Matrix m = FromRows({{1, 2, 0, 0}, {0, 1, 3, 0}, {2, 0, 1, 0}, {4, 5, 6, 2}});
    ExpectProductIsScaledIdentity(Inverse(m), m, 2.0, 1e-6, "column 3 = (0,0,0,2)");

    // A zero scale is not caught: the division by a zero determinant gives non-finite elements.
    Matrix singular = UniformScale(1.0f);
    singular(0, 0) = 0.0f;
    const Matrix inverse = Inverse(singular);
    EXPECT_FALSE(std::isfinite(inverse(0, 0)));
    EXPECT_TRUE(std::isnan(inverse(0, 1)));
}

TEST(TransformMathTest, InverseOfRandomAffineTransformsIsTheInverse)
{
    std::mt19937 random(20240611);
    std::uniform_real_distribution<float> axisPart(-2.0f, 2.0f);
    std::uniform_real_distribution<float> translationPart(-10.0f, 10.0f);
    int tested = 0;
    while (tested < 200) {
        Matrix m = Matrix::Identity();
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                m(i, j) = axisPart(random);
        for (int j = 0; j < 3; ++j)
            m(3, j) = translationPart(random);
        // Skip nearly singular draws, whose inverse is legitimately inaccurate.
        if (std::abs(DeterminantInDouble(m)) < 0.25)
            continue;
        const Matrix inverse = Inverse(m);
        const std::string label = "draw " + std::to_string(tested);
        ExpectProductIsScaledIdentity(m, inverse, 1.0, 1e-5, label + ", M * Inverse(M)");
        ExpectProductIsScaledIdentity(inverse, m, 1.0, 1e-5, label + ", Inverse(M) * M");
        ++tested;
    }
}

TEST(TransformMathTest, AdjugateTimesMatrixIsDeterminantTimesIdentity)
{
    std::mt19937 random(7001);
    std::uniform_real_distribution<float> element(-2.0f, 2.0f);
    for (int draw = 0; draw < 200; ++draw) {
        // General matrices: column 3 is random too, so every cofactor and sign takes part.
        Matrix m;
        for (float& value : m.m)
            value = element(random);
        const Matrix adjugate = Adjugate(m);
        const double det = DeterminantInDouble(m);
        const std::string label = "draw " + std::to_string(draw);
        ExpectProductIsScaledIdentity(adjugate, m, det, 1e-5, label + ", Adjugate(M) * M");
        ExpectProductIsScaledIdentity(m, adjugate, det, 1e-5, label + ", M * Adjugate(M)");
    }
}

TEST(TransformMathTest, MultiplyRotationReplacesRowsZeroToTwoOnly)
{
    // A's row 3 and column 3 and B's row 3 must not take part.
    const Matrix a = FromRows({{1, 2, 0, 7}, {0, 1, 0, 7}, {0, 0, 2, 7}, {9, 9, 9, 1}});
    const Matrix b = FromRows({{1, 0, 0, 1}, {0, 1, 0, 2}, {0, 0, 1, 3}, {10, 20, 30, 1}});
    Matrix dst = FromRows({{-1, -1, -1, -1}, {-1, -1, -1, -1}, {-1, -1, -1, -1}, {5, 6, 7, 1}});
    MultiplyRotation(dst, a, b);
    const Matrix expected = FromRows({{1, 2, 0, 5}, {0, 1, 0, 2}, {0, 0, 2, 6}, {5, 6, 7, 1}});
    ExpectMatrixNear(dst, expected, 0.0f, "MultiplyRotation");
}

// The products are pinned to float sums taken left to right in index order. The reference is
// written out with explicit float temporaries; the inputs mix magnitudes from 2^-8 to 2^8 so that
// a double accumulator or another summation order changes some results (checked below).
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

    int differsFromDouble = 0;
    int differsFromReversed = 0;
    for (int round = 0; round < 100; ++round) {
        const Matrix a = draw();
        const Matrix b = draw();
        const Matrix product = Multiply(a, b);
        Matrix rotated = draw();
        const Matrix keptRows = rotated;
        MultiplyRotation(rotated, a, b);

        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) {
                float p0 = a(i, 0) * b(0, j);
                float p1 = a(i, 1) * b(1, j);
                float p2 = a(i, 2) * b(2, j);
                float p3 = a(i, 3) * b(3, j);
                float sum = p0;
                sum = sum + p1;
                sum = sum + p2;
                const float threeTerms = sum;
                sum = sum + p3;
                EXPECT_EQ(Bits(product(i, j)), Bits(sum)) << "Multiply at [" << i << "][" << j << "]";
                if (i < 3)
                    EXPECT_EQ(Bits(rotated(i, j)), Bits(threeTerms)) << "MultiplyRotation at [" << i << "][" << j << "]";
                else
                    EXPECT_EQ(Bits(rotated(i, j)), Bits(keptRows(i, j))) << "MultiplyRotation row 3";

                const double wide = double(p0) + double(p1) + double(p2) + double(p3);
                differsFromDouble += static_cast<float>(wide) != sum;
                float reversed = p3;
                reversed = reversed + p2;
                reversed = reversed + p1;
                reversed = reversed + p0;
                differsFromReversed += reversed != sum;
            }
    }
    // Without these the comparison above could not tell the orders apart.
    EXPECT_GT(differsFromDouble, 0);
    EXPECT_GT(differsFromReversed, 0);
}

TEST(TransformMathTest, NormalizeRowsScalesTheAxesOnly)
{
    Matrix m = FromRows({{3, 4, 0, 7}, {0, 0, -2, 8}, {1, 2, 2, 9}, {5, 6, 7, 1}});
    NormalizeRows(m);
    const Matrix expected =
        FromRows({{0.6f, 0.8f, 0, 7}, {0, 0, -1, 8}, {1.0f / 3, 2.0f / 3, 2.0f / 3, 9}, {5, 6, 7, 1}});
    ExpectMatrixNear(m, expected, 1e-7f, "NormalizeRows");
}

TEST(TransformMathTest, AxisBasisRows)
{
    struct Case {
        const char* name;
        Vector3 axis;
        Matrix expected;
    };
    const Case cases[] = {
        // u = (0, -4, 3), w = a x u = (25, 0, 0).
        {"axis (0,3,4)", {0, 3, 4}, FromRows({{0, -0.8f, 0.6f, 0}, {1, 0, 0, 0}, {0, 0.6f, 0.8f, 0}, {0, 0, 0, 1}})},
        // Along x the first choice of u vanishes: u = (-a.y, a.x, 0) = (0, 2, 0), w = (0, 0, 4).
        {"axis (2,0,0)", {2, 0, 0}, FromRows({{0, 1, 0, 0}, {0, 0, 1, 0}, {1, 0, 0, 0}, {0, 0, 0, 1}})},
        // u = (0, -3, 0), w = (0, 0, 9): still right-handed for a negative axis.
        {"axis (-3,0,0)", {-3, 0, 0}, FromRows({{0, -1, 0, 0}, {0, 0, 1, 0}, {-1, 0, 0, 0}, {0, 0, 0, 1}})},
        // u = (0, -1, 0), w = (1, 0, 0).
        {"axis (0,0,1)", {0, 0, 1}, FromRows({{0, -1, 0, 0}, {1, 0, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}})},
    };
    for (const Case& c : cases)
        ExpectMatrixNear(AxisBasis(c.axis), c.expected, 1e-7f, c.name);
}

TEST(TransformMathTest, AxisAngleMatrixAboutCoordinateAxes)
{
    // Rows are the images of x, y and z under the right-handed turn by theta.
    auto aboutX = [](double c, double s) {
        return FromRows({{1, 0, 0, 0}, {0, float(c), float(s), 0}, {0, float(-s), float(c), 0}, {0, 0, 0, 1}});
    };
    auto aboutY = [](double c, double s) {
        return FromRows({{float(c), 0, float(-s), 0}, {0, 1, 0, 0}, {float(s), 0, float(c), 0}, {0, 0, 0, 1}});
    };
    auto aboutZ = [](double c, double s) {
        return FromRows({{float(c), float(s), 0, 0}, {float(-s), float(c), 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}});
    };
    for (double theta : {0.0, 0.7, -2.5, kPi / 2}) {
        const double c = std::cos(theta), s = std::sin(theta);
        const std::string at = " theta " + std::to_string(theta);
        ExpectMatrixNear(AxisAngleMatrix({1, 0, 0}, float(theta)), aboutX(c, s), 1e-6f, "x" + at);
        ExpectMatrixNear(AxisAngleMatrix({2, 0, 0}, float(theta)), aboutX(c, s), 1e-6f, "2x" + at);
        ExpectMatrixNear(AxisAngleMatrix({-3, 0, 0}, float(theta)), aboutX(c, -s), 1e-6f, "-3x" + at);
        ExpectMatrixNear(AxisAngleMatrix({0, 1, 0}, float(theta)), aboutY(c, s), 1e-6f, "y" + at);
        ExpectMatrixNear(AxisAngleMatrix({0, 0, 1}, float(theta)), aboutZ(c, s), 1e-6f, "z" + at);
    }

    const Vector3 turned = TransformPoint({1, 0, 0}, AxisAngleMatrix({0, 0, 1}, float(kPi / 2)));
    EXPECT_NEAR(turned.x, 0.0f, 1e-6f);
    EXPECT_NEAR(turned.y, 1.0f, 1e-6f);
    EXPECT_NEAR(turned.z, 0.0f, 1e-6f);
}

TEST(TransformMathTest, AxisAngleMatrixIsTheRotationAboutRandomAxes)
{
    std::mt19937 random(31337);
    std::uniform_real_distribution<float> component(-1.0f, 1.0f);
    std::uniform_real_distribution<float> angle(-3.0f, 3.0f);
    for (int draw = 0; draw < 300; ++draw) {
        Vector3 axis{component(random), component(random), component(random)};
        // Every so often zero out components, to reach the fallback and the axis-aligned cases.
        if (draw % 5 == 1)
            axis.y = 0.0f;
        if (draw % 5 == 2)
            axis.z = 0.0f;
        if (draw % 10 == 3)
            axis.y = axis.z = 0.0f;
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
        // [3][3] is the basis determinant, 1 up to rounding.
        EXPECT_NEAR(r(3, 3), 1.0f, 1e-6f) << label;
        EXPECT_NEAR(DotD(RowD(r, 0), CrossD(RowD(r, 1), RowD(r, 2))), 1.0, 2e-6) << label;

        const Vec3d a = UnitD(ToDouble(axis));
        const Vec3d image = RotateD(a, r);
        EXPECT_NEAR(image.x, a.x, 2e-6) << label;
        EXPECT_NEAR(image.y, a.y, 2e-6) << label;
        EXPECT_NEAR(image.z, a.z, 2e-6) << label;

        // A vector perpendicular to the axis turns by theta, counter-clockwise seen from the axis tip.
        const Vec3d v = UnitD(CrossD(a, {component(random), component(random), component(random) + 2.0}));
        const Vec3d turned = RotateD(v, r);
        const double measured = std::atan2(DotD(a, CrossD(v, turned)), DotD(v, turned));
        EXPECT_NEAR(measured, theta, 5e-6) << label;

        ExpectProductIsScaledIdentity(r, AxisAngleMatrix(axis, -theta), 1.0, 2e-6, label + ", R(theta) R(-theta)");
    }
}

TEST(TransformMathTest, MergeSphereWorkedCases)
{
    struct Case {
        const char* name;
        Sphere target;
        Sphere added;
        Sphere expected;
        float tolerance;  // 0: the result must be bitwise the expected sphere
    };
    const float nextAfterTwo = std::nextafter(2.0f, 3.0f);
    const Case cases[] = {
        {"a sphere with itself", {{1, 2, 3}, 4}, {{1, 2, 3}, 4}, {{1, 2, 3}, 4}, 0.0f},
        {"two unit spheres 3 apart", {{0, 0, 0}, 1}, {{3, 0, 0}, 1}, {{1.5f, 0, 0}, 2.5f}, 0.0f},
        // dist 7 + r 1 < R 8.5: already enclosed.
        {"added strictly inside", {{0, 0, 0}, 8.5f}, {{2, 3, 6}, 1}, {{0, 0, 0}, 8.5f}, 0.0f},
        // dist 7 + R 1 < r 8.5: the added sphere replaces the target.
        {"target strictly inside", {{2, 3, 6}, 1}, {{0, 0, 0}, 8.5f}, {{0, 0, 0}, 8.5f}, 0.0f},
        // Centres under 1e-6 apart and neither sphere inside the other: the centre stays, the larger
        // radius wins.
        {"nearly coincident centres", {{1, 1, 1}, 2}, {{1, 1, 1.0000005f}, nextAfterTwo}, {{1, 1, 1}, nextAfterTwo},
         0.0f},
        // 2e-6 apart is beyond that threshold: the far points are (1, 1, -1) and (1, 1, 3.000002).
        {"centres just apart", {{1, 1, 1}, 2}, {{1, 1, 1.000002f}, 2}, {{1, 1, 1.000001f}, 2.000001f}, 2e-7f},
        // Different radii along y: far points (0, 5, 0) and (0, -2, 0).
        {"unequal spheres 4 apart", {{0, 0, 0}, 2}, {{0, 4, 0}, 1}, {{0, 1.5f, 0}, 3.5f}, 0.0f},
    };
    for (const Case& c : cases) {
        Sphere s = c.target;
        MergeSphere(s, c.added);
        if (c.tolerance == 0.0f) {
            EXPECT_EQ(Bits(s.centre.x), Bits(c.expected.centre.x)) << c.name;
            EXPECT_EQ(Bits(s.centre.y), Bits(c.expected.centre.y)) << c.name;
            EXPECT_EQ(Bits(s.centre.z), Bits(c.expected.centre.z)) << c.name;
            EXPECT_EQ(Bits(s.radius), Bits(c.expected.radius)) << c.name;
        } else {
            EXPECT_NEAR(s.centre.x, c.expected.centre.x, c.tolerance) << c.name;
            EXPECT_NEAR(s.centre.y, c.expected.centre.y, c.tolerance) << c.name;
            EXPECT_NEAR(s.centre.z, c.expected.centre.z, c.tolerance) << c.name;
            EXPECT_NEAR(s.radius, c.expected.radius, c.tolerance) << c.name;
        }
    }
}

// At dist + r == R (and dist + R == r) neither sphere counts as enclosing the other: the general
// step runs. Its result equals the enclosing sphere up to rounding, and with dist = 7 the rounding
// of 1/7 moves the centre a few ulps off the origin, which is what makes the branch visible.
TEST(TransformMathTest, MergeSphereContainmentIsStrict)
{
    const Sphere origin8{{0, 0, 0}, 8};
    const Sphere unitAt7{{2, 3, 6}, 1};  // |(2, 3, 6)| = 7 exactly

    Sphere grown = origin8;
    MergeSphere(grown, unitAt7);
    Sphere replaced = unitAt7;
    MergeSphere(replaced, origin8);

    for (const Sphere& s : {grown, replaced}) {
        EXPECT_EQ(s.radius, 8.0f);  // (7 + 8 + 1) / 2, exact
        EXPECT_NEAR(s.centre.x, 0.0f, 1e-6f);
        EXPECT_NEAR(s.centre.y, 0.0f, 1e-6f);
        EXPECT_NEAR(s.centre.z, 0.0f, 1e-6f);
        const bool centreIsExactlyOrigin = Bits(s.centre.x) == 0 && Bits(s.centre.y) == 0 && Bits(s.centre.z) == 0;
        EXPECT_FALSE(centreIsExactlyOrigin) << "the containment shortcut was taken at the boundary";
    }
}

TEST(TransformMathTest, MergeSphereEnclosesBothRandomSpheres)
{
    std::mt19937 random(99);
    std::uniform_real_distribution<float> coordinate(-10.0f, 10.0f);
    std::uniform_real_distribution<float> radius(0.0f, 12.0f);
    for (int draw = 0; draw < 500; ++draw) {
        const Sphere target{{coordinate(random), coordinate(random), coordinate(random)}, radius(random)};
        const Sphere added{{coordinate(random), coordinate(random), coordinate(random)}, radius(random)};
        Sphere merged = target;
        MergeSphere(merged, added);
        const std::string label = "draw " + std::to_string(draw);

        const Vec3d c = ToDouble(merged.centre);
        for (const Sphere& input : {target, added}) {
            const Vec3d d{input.centre.x - c.x, input.centre.y - c.y, input.centre.z - c.z};
            EXPECT_LE(std::sqrt(DotD(d, d)) + input.radius, merged.radius + 1e-5 * (1 + merged.radius)) << label;
        }
        // And no larger than needed: the smallest sphere enclosing both.
        const Vec3d between{target.centre.x - added.centre.x, target.centre.y - added.centre.y,
                            target.centre.z - added.centre.z};
        const double dist = std::sqrt(DotD(between, between));
        const double smallest = std::max({double(target.radius), double(added.radius),
                                          (dist + target.radius + added.radius) / 2});
        EXPECT_NEAR(merged.radius, smallest, 1e-5 * (1 + smallest)) << label;
    }
}

}  // namespace
