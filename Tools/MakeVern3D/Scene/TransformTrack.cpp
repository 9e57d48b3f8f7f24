// Animation preparation (local transform, accumulated rotation-key orientations) and evaluation
// of a node's local transform at a time. What keys mean is the vern3D library's
// (vern/Vern3DAnimation.h); the converter evaluates them the way an engine that loads the file does.
#include "Scene/BaseNode.h"

#include "vern/Vern3DAnimation.h"

void TransformNode::PrepareNode(OpenPath& path)
{
    // The parent's record decides whether the local transform is relative to a parent world;
    // asking for it has the same effect on the ancestors' bounds as any other request.
    Matrix parentWorld = Matrix::Identity();
    if (parent) {
        path.MergeAncestors(path.Size() - 1);
        if (parent->IsTransformNode())
            parentWorld = static_cast<TransformNode*>(parent)->world;
    }
    const Matrix local = Multiply(world, Inverse(parentWorld));
    track.matrix = local;
    vern3d::AccumulateRotationKeys(local, rotationKeys);

    track.positionKeys.insert(track.positionKeys.end(), positionKeys.begin(), positionKeys.end());
    track.rotationKeys.insert(track.rotationKeys.end(), rotationKeys.begin(), rotationKeys.end());
}

void TransformTrack::Evaluate(uint32_t time) { vern3d::EvaluateKeys(positionKeys, rotationKeys, time, matrix); }
