// Corner normals from face normals and smoothing groups.
//
// A corner's normal is the normalised sum of the face normals of every face that has the
// corner's smoothing group (compared by the stored group number) and uses the corner's vertex,
// added in face order; a face without group (-1) keeps its own normal. Face normal records are
// looked up by face number with a binary search, so the list must be sorted by face number.
#pragma once

#include "Scene/SceneRecords.h"

#include <cstdint>
#include <unordered_map>
#include <vector>

// Position in mesh.normals of the record for `face`, or -1; a binary search that gives the
// same answers on lists that are not sorted as it has always given.
int32_t FindFaceNormals(int32_t face, const Mesh& mesh);

// Sorts the normal records by face number (unsigned), keeping the order of equal numbers.
void SortFaceNormals(Mesh& mesh);

// The sums for every (vertex, group) pair, made once in face order, so that each corner costs
// one lookup instead of a scan over all faces. Built after the records are sorted; the mesh
// must stay unchanged while the index is used. A large mesh is indexed on `threads` threads (from
// three on), each summing for a range of vertex numbers over all faces in order (the sums keep
// their order).
class VertexNormals {
public:
    explicit VertexNormals(const Mesh& mesh, uint32_t threads = 1);

    // The corner normal of `vertex` in `face` with smoothing group `group`. Where no face
    // normal can be found (no record for the face, or no face of the group uses the vertex)
    // the answer is (0, 0, 0). Opposed normals that sum to zero give not-a-number components.
    Vector3 VertexNormal(int32_t face, int32_t vertex, int32_t group) const;

private:
    struct Sum {
        int32_t group;
        int32_t next;  // next entry of the same vertex, -1 at the end
        uint32_t count;
        Vector3 sum;
    };

    int32_t FaceRecord(int32_t face) const;
    const Sum* Find(int32_t vertex, int32_t group) const;
    // Adds face `k`'s normal to the sums of its corners whose vertex numbers `owns` accepts.
    template <typename Owns>
    void AddFace(size_t k, std::vector<Sum>& into, Owns owns);

    const Mesh& mesh;
    bool recordsInPlace = false;       // record k is face k's, for every face
    std::vector<int32_t> faceRecords;  // FindFaceNormals of every face, unless in place
    std::vector<int32_t> heads;        // first entry per vertex number in [0, heads.size())
    std::unordered_map<int32_t, int32_t> otherHeads;  // vertex numbers outside that range
    std::vector<Sum> sums;
};
