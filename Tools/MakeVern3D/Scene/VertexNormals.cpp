#include "Scene/VertexNormals.h"

#include "AbstractData/Parallel.h"

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
    // Passes of adjacent exchanges of strictly greater neighbours: a stable sort. Files list the
    // records in order, and so does a second call.
    const auto before = [](const MeshFaceNormals& a, const MeshFaceNormals& b) {
        return static_cast<uint32_t>(a.faceIndex) < static_cast<uint32_t>(b.faceIndex);
    };
    if (!std::is_sorted(mesh.normals.begin(), mesh.normals.end(), before))
        std::stable_sort(mesh.normals.begin(), mesh.normals.end(), before);
}

namespace {

Vector3 DivideByLength(const Vector3& sum)
{
    const float length = Length(sum);
    return {sum.x / length, sum.y / length, sum.z / length};
}

}  // namespace

VertexNormals::VertexNormals(const Mesh& mesh, uint32_t threads) : mesh(mesh)
{
    const auto& faces = mesh.faces;
    // With one record per face in face order (as after moving a mesh into node space, from a file
    // that lists them all), each face's record is its own.
    recordsInPlace = mesh.normals.size() == faces.size();
    for (size_t k = 0; recordsInPlace && k < faces.size(); ++k)
        recordsInPlace = mesh.normals[k].faceIndex == static_cast<int32_t>(k);
    if (!recordsInPlace) {
        faceRecords.resize(faces.size());
        for (size_t k = 0; k < faces.size(); ++k)
            faceRecords[k] = FindFaceNormals(static_cast<int32_t>(k), mesh);
    }

    // Vertex numbers are normally below the vertex count; others go to a map.
    heads.assign(mesh.vertices.size(), -1);
    // Each part reads every face: on two threads that costs what it saves.
    constexpr size_t kFacesPerPart = 1 << 16;
    const size_t parts = threads > 2 ? std::min<size_t>(threads, faces.size() / kFacesPerPart) : 1;
    const bool inRange = std::all_of(faces.begin(), faces.end(), [&](const MeshFace& face) {
        return static_cast<uint32_t>(face.a) < heads.size() && static_cast<uint32_t>(face.b) < heads.size() &&
               static_cast<uint32_t>(face.c) < heads.size();
    });
    if (parts <= 1 || !inRange) {
        sums.reserve(faces.size() * 3);
        for (size_t k = 0; k < faces.size(); ++k)
            AddFace(k, sums, [](int32_t) { return true; });
        return;
    }
    // Each part owns a range of vertex numbers, so it alone writes their heads; its entries are
    // numbered within the part and moved behind the earlier parts' afterwards.
    std::vector<std::vector<Sum>> partSums(parts);
    const size_t span = (heads.size() + parts - 1) / parts;
    ParallelFor(parts, static_cast<uint32_t>(parts), [&](size_t part) {
        const auto low = static_cast<uint32_t>(part * span);
        const auto high = static_cast<uint32_t>(std::min(heads.size(), (part + 1) * span));
        partSums[part].reserve(faces.size() * 3 / parts);
        for (size_t k = 0; k < faces.size(); ++k)
            AddFace(k, partSums[part], [&](int32_t vertex) {
                return static_cast<uint32_t>(vertex) >= low && static_cast<uint32_t>(vertex) < high;
            });
    });
    std::vector<size_t> base(parts + 1, 0);
    for (size_t part = 0; part < parts; ++part)
        base[part + 1] = base[part] + partSums[part].size();
    sums.resize(base[parts]);
    ParallelFor(parts, static_cast<uint32_t>(parts), [&](size_t part) {
        const auto shift = static_cast<int32_t>(base[part]);
        for (size_t i = 0; i < partSums[part].size(); ++i) {
            Sum entry = partSums[part][i];
            entry.next = entry.next < 0 ? -1 : entry.next + shift;
            sums[base[part] + i] = entry;
        }
        const size_t low = part * span, high = std::min(heads.size(), (part + 1) * span);
        for (size_t vertex = low; vertex < high; ++vertex)
            heads[vertex] = heads[vertex] < 0 ? -1 : heads[vertex] + shift;
        std::vector<Sum>().swap(partSums[part]);
    });
}

template <typename Owns>
void VertexNormals::AddFace(size_t k, std::vector<Sum>& into, Owns owns)
{
    const MeshFace& face = mesh.faces[k];
    if (face.smoothingGroup == -1)
        return;
    const int32_t corners[3] = {face.a, face.b, face.c};
    const int32_t record = FaceRecord(static_cast<int32_t>(k));
    for (int i = 0; i < 3; ++i) {
        // A face that uses a vertex twice still counts once.
        if ((i > 0 && corners[i] == corners[0]) || (i > 1 && corners[i] == corners[1]) || !owns(corners[i]))
            continue;
        int32_t* head = nullptr;
        if (static_cast<uint32_t>(corners[i]) < heads.size())
            head = &heads[static_cast<size_t>(corners[i])];
        else
            head = &otherHeads.try_emplace(corners[i], -1).first->second;
        Sum* entry = nullptr;
        for (int32_t at = *head; at >= 0; at = into[static_cast<size_t>(at)].next)
            if (into[static_cast<size_t>(at)].group == face.smoothingGroup) {
                entry = &into[static_cast<size_t>(at)];
                break;
            }
        if (!entry) {
            // New entries go to the front: the lists are short, their order does not matter.
            into.push_back({face.smoothingGroup, *head, 0, {}});
            *head = static_cast<int32_t>(into.size() - 1);
            entry = &into.back();
        }
        if (record < 0)
            continue;
        entry->sum = Add(entry->sum, mesh.normals[static_cast<size_t>(record)].faceNormal);
        ++entry->count;
    }
}

int32_t VertexNormals::FaceRecord(int32_t face) const
{
    if (recordsInPlace)
        return face >= 0 && static_cast<size_t>(face) < mesh.normals.size() ? face : FindFaceNormals(face, mesh);
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
