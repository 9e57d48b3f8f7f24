// The converter's vectors, matrices and spheres are the vern3D library's: one definition of the
// maths whose bits reach the file.
#pragma once

#include "vern/Vern3DMath.h"

using vern3d::Matrix;
using vern3d::Sphere;
using vern3d::Vector3;

using vern3d::Add;
using vern3d::Adjugate;
using vern3d::AxisAngleMatrix;
using vern3d::AxisBasis;
using vern3d::Cross;
using vern3d::Dot;
using vern3d::Inverse;
using vern3d::Length;
using vern3d::MergeSphere;
using vern3d::Multiply;
using vern3d::MultiplyRotation;
using vern3d::Normalize;
using vern3d::NormalizeRows;
using vern3d::Scale;
using vern3d::Subtract;
using vern3d::TransformPoint;
