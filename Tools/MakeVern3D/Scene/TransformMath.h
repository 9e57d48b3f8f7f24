// Vectors, 4x4 matrices and bounding spheres.
//
// Matrices are row-major float32 (m[4*i + j]); points are row vectors, (x, y, z, 1) * M; rows 0..2
// hold the axes, row 3 the translation; world = local * parentWorld. Operations are written out
// element by element, in a fixed evaluation order, because their bits reach the output file.
#pragma once

#include <array>
#include <cstddef>

struct Vector3 {
    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;
};

struct Matrix {
    std::array<float, 16> m{};

    float& operator()(int row, int column) { return m[static_cast<std::size_t>(4 * row + column)]; }
    float operator()(int row, int column) const { return m[static_cast<std::size_t>(4 * row + column)]; }

    static Matrix Identity();
};

static_assert(sizeof(Vector3) == 12);
static_assert(sizeof(Matrix) == 64);

struct Sphere {
    Vector3 centre;
    float radius = 0.0f;
};

Vector3 Add(const Vector3& a, const Vector3& b);
Vector3 Subtract(const Vector3& a, const Vector3& b);
Vector3 Scale(const Vector3& a, float factor);
float Length(const Vector3& a);
float Dot(const Vector3& a, const Vector3& b);
Vector3 Cross(const Vector3& a, const Vector3& b);
Vector3 Normalize(const Vector3& a);  // a * (1 / Length(a))

// (p, 1) * M: the transformed point.
Vector3 TransformPoint(const Vector3& p, const Matrix& m);

// The full product A * B (A applied first).
Matrix Multiply(const Matrix& a, const Matrix& b);
// Rows 0..2 of dst = A's upper-left 3x3 times rows 0..2 of B (all four columns); row 3 of dst stays.
void MultiplyRotation(Matrix& dst, const Matrix& a, const Matrix& b);
// Transposed cofactor matrix.
Matrix Adjugate(const Matrix& m);
// Adjugate divided by the determinant of the upper-left 3x3 (exact for column 3 = (0,0,0,1)).
Matrix Inverse(const Matrix& m);
// Rows 0..2 (their first three elements) scaled to unit length.
void NormalizeRows(Matrix& m);
// The basis used by AxisAngleMatrix: rows u, w, axis (normalised), row 3 (0,0,0,1).
Matrix AxisBasis(const Vector3& axis);
// Rotation by theta (radians, right-hand rule) about axis, for row vectors.
Matrix AxisAngleMatrix(const Vector3& axis, float theta);
// Grows target to enclose added.
void MergeSphere(Sphere& target, const Sphere& added);
