// Turns the mesh animation of a rigid body into transform keys ("createanimfrommesh"): the first
// three vertices of every frame give a position (vertex 2) and two body directions, from which
// each frame's turn relative to the frame before is found. The node's world becomes the
// coordinate frame of frame 0; its keys are replaced; its frames and its mesh's faces are dropped.
//
// The frames give world-space coordinates while the keys act as the node's local transform, so
// the result is right only for a node whose parent sits at the origin without rotation.
#include "Parser/Reporter.h"
#include "Scene/BaseNode.h"
#include "resources/Messages.h"

#include <cmath>

namespace {

// The float32 value nearest 1/3: the tangents lie at one and two thirds of each step.
constexpr float kOneThird = 0.333333343f;

// Origin and the two unit directions fixed in the body, from one frame's first three vertices.
struct BodyFrame {
    Vector3 origin;
    Vector3 a;  // unit(P2 - P1)
    Vector3 b;  // unit(P2 - P0)
};

BodyFrame BodyFrameOf(const Mesh& frame)
{
    const Vector3& p0 = frame.vertices[0];
    const Vector3& p1 = frame.vertices[1];
    const Vector3& p2 = frame.vertices[2];
    return {p2, Normalize(Subtract(p2, p1)), Normalize(Subtract(p2, p0))};
}

// Frame 0's coordinate frame: rows nrm, e1, nrm x e1, origin P2. Degenerate triangles are not
// caught; the matrix then holds non-finite values.
Matrix FirstFrameWorld(const Mesh& frame)
{
    const Vector3& p0 = frame.vertices[0];
    const Vector3& p1 = frame.vertices[1];
    const Vector3& p2 = frame.vertices[2];
    const Vector3 e1 = Normalize(Subtract(p1, p2));
    const Vector3 e0 = Normalize(Subtract(p0, p2));
    const Vector3 nrm = Normalize(Cross(e0, e1));
    const Vector3 rows[4] = {nrm, e1, Normalize(Cross(nrm, e1)), p2};

    Matrix world = Matrix::Identity();
    for (int i = 0; i < 4; ++i) {
        world(i, 0) = rows[i].x;
        world(i, 1) = rows[i].y;
        world(i, 2) = rows[i].z;
    }
    return world;
}

// The turn that carries the previous directions onto the current ones: its axis is perpendicular
// to both direction changes; the angle is measured between a and aPrevious seen along that axis.
// The angle is stored with the sign that evaluation negates. No turn (or an axis that cannot be
// found, as when da x db vanishes) gives axis z and angle 0.
void TurnBetween(const BodyFrame& current, const BodyFrame& previous, Vector3& axis, float& angle)
{
    const Vector3 da = Subtract(current.a, previous.a);
    const Vector3 db = Subtract(current.b, previous.b);
    axis = Normalize(Cross(da, db));

    const Matrix toAxisSpace = Inverse(AxisBasis(axis));
    Vector3 seen = TransformPoint(current.a, toAxisSpace);
    Vector3 seenBefore = TransformPoint(previous.a, toAxisSpace);
    seen.z = 0.0f;
    seenBefore.z = 0.0f;

    angle = std::acos(Dot(seen, seenBefore) / (Length(seen) * Length(seenBefore)));
    if (Cross(seen, seenBefore).z < 0.0f)
        angle = -angle;
    if (std::isnan(angle)) {
        axis = {0.0f, 0.0f, 1.0f};
        angle = 0.0f;
    }
}

}  // namespace

void MeshNode::CreateAnimFromMesh(Reporter& reporter, int32_t line)
{
    if (frames.empty()) {
        reporter.Error(line, kMessageAnimFromMeshNeedsFrames, name);
        return;
    }
    // Every frame is read at vertices 0 to 2; a shorter one fails the conversion before anything
    // changes, like a missing animation.
    for (size_t i = 0; i < frames.size(); ++i) {
        if (frames[i]->vertices.size() < 3) {
            reporter.Error(line, kMessageAnimFromMeshShortFrame, name, static_cast<int32_t>(i));
            return;
        }
    }

    const size_t count = frames.size();
    std::vector<PositionKey> newPositionKeys(count);
    std::vector<RotationKey> newRotationKeys(count + 1);

    world = FirstFrameWorld(*frames[0]);

    BodyFrame previous = BodyFrameOf(*frames[0]);
    Vector3 axis{0.0f, 0.0f, 1.0f};
    for (size_t i = 0; i < count; ++i) {
        const Mesh& frame = *frames[i];
        const BodyFrame current = BodyFrameOf(frame);
        float angle = 0.0f;
        TurnBetween(current, previous, axis, angle);

        newPositionKeys[i].time = frame.time;
        newPositionKeys[i].position = current.origin;
        newRotationKeys[i].time = frame.time;
        newRotationKeys[i].axis = axis;
        newRotationKeys[i].angle = angle;
        previous = current;
    }

    // A straight path: the control points lie at one and two thirds of each step.
    newPositionKeys.front().inTangent = newPositionKeys.front().position;
    newPositionKeys.back().outTangent = newPositionKeys.back().position;
    for (size_t k = 1; k < count; ++k) {
        PositionKey& before = newPositionKeys[k - 1];
        PositionKey& after = newPositionKeys[k];
        const Vector3 third = Scale(Subtract(after.position, before.position), kOneThird);
        before.outTangent = Add(before.position, third);
        after.inTangent = Subtract(after.position, third);
    }

    // Key k's matrix holds the orientation at key k - 1, so the closing key (no turn, at the last
    // frame's time) is the one that carries the orientation reached at the last frame.
    newRotationKeys[count].time = frames[count - 1]->time;
    newRotationKeys[count].axis = axis;
    newRotationKeys[count].angle = 0.0f;

    positionKeys = std::move(newPositionKeys);
    rotationKeys = std::move(newRotationKeys);
    mesh.faces.clear();
    frames.clear();
}
