// Vectors, 4x4 matrices and bounding spheres, as the vern3D format uses them.
//
// Matrices are row-major float32 (m[4*i + j]); points are row vectors, (x, y, z, 1) * M; rows 0..2
// hold the axes, row 3 the translation; world = local * parentWorld (Vern3DLayout.h). Every
// operation is written out element by element in a fixed evaluation order, all in float32: the
// converter writes these results into files, so their bits are part of the format. Build with
// floating-point contraction off (-ffp-contract=off) to keep them.
//
// Contract: pure functions of their arguments; nothing allocates, reports or keeps state, so
// they may be called from any thread. Nothing is checked: a singular matrix gives infinite or
// not-a-number elements from Inverse, an axis of length zero gives not-a-number from
// AxisAngleMatrix, and those values flow on.
#pragma once

#include "vern/Vern3DLayout.h"

namespace vern3d {

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
// Rows 0..2 of dst = A's upper-left 3x3 times rows 0..2 of B (all four columns); row 3 of dst
// stays. dst must be a third matrix, neither A nor B.
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
// Grows target to enclose added (the rule by which node and mesh spheres are built).
void MergeSphere(Sphere& target, const Sphere& added);

}  // namespace vern3d
