#include "vern/Vern3DMath.h"

#include <algorithm>
#include <cassert>
#include <cmath>

// Evaluation rules, fixed because the results' bits reach the output file:
// - all arithmetic is float32, intermediate sums included (no double accumulators);
// - a sum of products is the plain left-to-right sum in index order, ((p0 + p1) + p2) + p3;
// - square root, sine and cosine are the float overloads of <cmath>;
// - scaling by "1 / x" is one float division followed by multiplications, never x / divisions.
// The build must not contract a * b + c into fused multiply-adds, which would change the roundings.

namespace vern3d {

namespace {

// The determinant of the 3x3 minor of m on rows r0 < r1 < r2 and columns c0 < c1 < c2, expanded
// along its first row: a(ei - fh) - b(di - fg) + c(dh - eg).
float Minor3(const Matrix& m, int r0, int r1, int r2, int c0, int c1, int c2)
{
    const float a = m(r0, c0), b = m(r0, c1), c = m(r0, c2);
    const float d = m(r1, c0), e = m(r1, c1), f = m(r1, c2);
    const float g = m(r2, c0), h = m(r2, c1), i = m(r2, c2);
    return a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
}

// The signed cofactor of m at [row][column]: the minor without that row and column, negated when
// row + column is odd. (Negation is exact, so zeros at odd positions come out as -0.)
float Cofactor(const Matrix& m, int row, int column)
{
    int rows[3];
    int columns[3];
    for (int k = 0, n = 0; k < 4; ++k)
        if (k != row)
            rows[n++] = k;
    for (int k = 0, n = 0; k < 4; ++k)
        if (k != column)
            columns[n++] = k;
    const float minor = Minor3(m, rows[0], rows[1], rows[2], columns[0], columns[1], columns[2]);
    return (row + column) % 2 == 0 ? minor : -minor;
}

}  // namespace

Vector3 Add(const Vector3& a, const Vector3& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }

Vector3 Subtract(const Vector3& a, const Vector3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }

Vector3 Scale(const Vector3& a, float factor) { return {a.x * factor, a.y * factor, a.z * factor}; }

float Length(const Vector3& a) { return std::sqrt(a.x * a.x + a.y * a.y + a.z * a.z); }

float Dot(const Vector3& a, const Vector3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

Vector3 Cross(const Vector3& a, const Vector3& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

Vector3 Normalize(const Vector3& a) { return Scale(a, 1.0f / Length(a)); }

Vector3 TransformPoint(const Vector3& p, const Matrix& m)
{
    // The implicit w = 1 adds row 3 as it stands (1 * x is exact).
    return {p.x * m(0, 0) + p.y * m(1, 0) + p.z * m(2, 0) + m(3, 0),
            p.x * m(0, 1) + p.y * m(1, 1) + p.z * m(2, 1) + m(3, 1),
            p.x * m(0, 2) + p.y * m(1, 2) + p.z * m(2, 2) + m(3, 2)};
}

Matrix Multiply(const Matrix& a, const Matrix& b)
{
    Matrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r(i, j) = a(i, 0) * b(0, j) + a(i, 1) * b(1, j) + a(i, 2) * b(2, j) + a(i, 3) * b(3, j);
    return r;
}

void MultiplyRotation(Matrix& dst, const Matrix& a, const Matrix& b)
{
    // Rows are written while a and b are still read, so the destination must be a third matrix.
    assert(&dst != &a && &dst != &b);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j)
            dst(i, j) = a(i, 0) * b(0, j) + a(i, 1) * b(1, j) + a(i, 2) * b(2, j);
}

Matrix Adjugate(const Matrix& m)
{
    Matrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r(i, j) = Cofactor(m, j, i);
    return r;
}

Matrix Inverse(const Matrix& m)
{
    // Dividing by the upper-left 3x3 determinant instead of the full one is what makes this exact
    // only for affine matrices; a singular one yields inf/NaN elements, which callers let through.
    Matrix r = Adjugate(m);
    const float determinant = Minor3(m, 0, 1, 2, 0, 1, 2);
    for (float& element : r.m)
        element = element / determinant;
    return r;
}

void NormalizeRows(Matrix& m)
{
    for (int i = 0; i < 3; ++i) {
        const float factor = 1.0f / Length({m(i, 0), m(i, 1), m(i, 2)});
        m(i, 0) = m(i, 0) * factor;
        m(i, 1) = m(i, 1) * factor;
        m(i, 2) = m(i, 2) * factor;
    }
}

Matrix AxisBasis(const Vector3& axis)
{
    // (0, -z, y) is perpendicular to the axis unless the axis lies along x; then take (-y, x, 0).
    Vector3 u{0.0f, -axis.z, axis.y};
    if (u.y == 0.0f && u.z == 0.0f)
        u = {-axis.y, axis.x, 0.0f};
    // u x w = axis * |u|^2, so (u, w, axis) is right-handed and the rotation below turns u towards w.
    const Vector3 w = Cross(axis, u);

    Matrix basis = Matrix::Identity();
    const Vector3 rows[3] = {u, w, axis};
    for (int i = 0; i < 3; ++i) {
        basis(i, 0) = rows[i].x;
        basis(i, 1) = rows[i].y;
        basis(i, 2) = rows[i].z;
        basis(i, 3) = 0.0f;
    }
    NormalizeRows(basis);
    return basis;
}

Matrix AxisAngleMatrix(const Vector3& axis, float theta)
{
    const Matrix basis = AxisBasis(axis);
    const float c = std::cos(theta);
    const float s = std::sin(theta);

    Matrix z = Matrix::Identity();
    z(0, 0) = c;
    z(0, 1) = s;
    z(1, 0) = -s;
    z(1, 1) = c;

    // Into the basis (its adjugate is its inverse, being orthonormal with determinant 1), turn in
    // the u-w plane, and back out.
    return Multiply(Adjugate(basis), Multiply(z, basis));
}

void MergeSphere(Sphere& target, const Sphere& added)
{
    const Vector3 d = Subtract(target.centre, added.centre);
    const float dist = Length(d);

    if (dist + added.radius < target.radius)
        return;
    if (dist + target.radius < added.radius) {
        target = added;
        return;
    }
    // Below this the direction between the centres is meaningless.
    if (dist < 0.000001f) {
        target.radius = std::max(target.radius, added.radius);
        return;
    }

    // u points from the added centre towards the target's; the new sphere spans the two far points.
    const Vector3 u = Scale(d, 1.0f / dist);
    const Vector3 farAdded = Subtract(added.centre, Scale(u, added.radius));
    const Vector3 farTarget = Add(target.centre, Scale(u, target.radius));
    target.centre = Scale(Add(farAdded, farTarget), 0.5f);
    target.radius = (dist + target.radius + added.radius) * 0.5f;
}

}  // namespace vern3d
