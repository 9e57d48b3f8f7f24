#include "Scene/VertexNormals.h"

#include <algorithm>

int32_t FindFaceNormals(int32_t face, const Mesh& mesh)
{
    const auto& normals = mesh.normals;
    if (normals.empty())
        return -1;
    size_t lo = 0;
    size_t hi = normals.size();
    for (;;) {
        const size_t mid = (lo + hi) / 2;
        const auto index = static_cast<uint32_t>(normals[mid].faceIndex);
        if (index == static_cast<uint32_t>(face))
            return static_cast<int32_t>(mid);
        if (index < static_cast<uint32_t>(face)) {
            if (lo == mid)
                return -1;
            lo = mid;
        } else {
            if (hi == mid)
                return -1;
            hi = mid;
        }
    }
}

void SortFaceNormals(Mesh& mesh)
{
    // Passes of adjacent exchanges of strictly greater neighbours: a stable sort.
    std::stable_sort(mesh.normals.begin(), mesh.normals.end(), [](const MeshFaceNormals& a, const MeshFaceNormals& b) {
        return static_cast<uint32_t>(a.faceIndex) < static_cast<uint32_t>(b.faceIndex);
    });
}

namespace {

Vector3 DivideByLength(const Vector3& sum)
{
    const float length = Length(sum);
    return {sum.x / length, sum.y / length, sum.z / length};
}

}  // namespace

VertexNormals::VertexNormals(const Mesh& mesh) : mesh(mesh)
{
    const auto& faces = mesh.faces;
    faceRecords.resize(faces.size());
    for (size_t k = 0; k < faces.size(); ++k)
        faceRecords[k] = FindFaceNormals(static_cast<int32_t>(k), mesh);

    // Vertex numbers are normally below the vertex count; others go to a map.
    heads.assign(mesh.vertices.size(), -1);
    sums.reserve(faces.size() * 3);
    for (size_t k = 0; k < faces.size(); ++k) {
        const MeshFace& face = faces[k];
        if (face.smoothingGroup == -1)
            continue;
        const int32_t corners[3] = {face.a, face.b, face.c};
        for (int i = 0; i < 3; ++i) {
            // A face that uses a vertex twice still counts once.
            if ((i > 0 && corners[i] == corners[0]) || (i > 1 && corners[i] == corners[1]))
                continue;
            Sum& entry = FindOrAdd(corners[i], face.smoothingGroup);
            const int32_t record = faceRecords[k];
            if (record < 0)
                continue;
            const Vector3& normal = mesh.normals[static_cast<size_t>(record)].faceNormal;
            entry.sum = Add(entry.sum, normal);
            ++entry.count;
        }
    }
}

int32_t VertexNormals::FaceRecord(int32_t face) const
{
    if (face >= 0 && static_cast<size_t>(face) < faceRecords.size())
        return faceRecords[static_cast<size_t>(face)];
    return FindFaceNormals(face, mesh);
}

const VertexNormals::Sum* VertexNormals::Find(int32_t vertex, int32_t group) const
{
    int32_t entry = -1;
    if (vertex >= 0 && static_cast<size_t>(vertex) < heads.size()) {
        entry = heads[static_cast<size_t>(vertex)];
    } else {
        const auto found = otherHeads.find(vertex);
        entry = found == otherHeads.end() ? -1 : found->second;
    }
    for (; entry >= 0; entry = sums[static_cast<size_t>(entry)].next)
        if (sums[static_cast<size_t>(entry)].group == group)
            return &sums[static_cast<size_t>(entry)];
    return nullptr;
}

VertexNormals::Sum& VertexNormals::FindOrAdd(int32_t vertex, int32_t group)
{
    int32_t* head = nullptr;
    if (vertex >= 0 && static_cast<size_t>(vertex) < heads.size())
        head = &heads[static_cast<size_t>(vertex)];
    else
        head = &otherHeads.try_emplace(vertex, -1).first->second;
    for (int32_t entry = *head; entry >= 0; entry = sums[static_cast<size_t>(entry)].next)
        if (sums[static_cast<size_t>(entry)].group == group)
            return sums[static_cast<size_t>(entry)];
    // New entries go to the front: the lists are short, their order does not matter.
    sums.push_back({group, *head, 0, {}});
    *head = static_cast<int32_t>(sums.size() - 1);
    return sums.back();
}

Vector3 VertexNormals::VertexNormal(int32_t face, int32_t vertex, int32_t group) const
{
    if (group == -1) {
        const int32_t record = FaceRecord(face);
        if (record < 0)
            return {};
        // The sum starts from zero, as every sum does (so -0 becomes +0).
        return DivideByLength(Add(Vector3{}, mesh.normals[static_cast<size_t>(record)].faceNormal));
    }
    const Sum* entry = Find(vertex, group);
    if (!entry || entry->count == 0)
        return {};
    return DivideByLength(entry->sum);
}
