// The frame stream at the end of a mesh chunk: frame 0 complete, then each frame that differs
// from the last stored one with the components chosen by the flags, then the byte 0x00; and the
// operations file's moves of frames.
#pragma once

#include "AbstractData/Status.h"
#include "Output/LittleEndian.h"
#include "Scene/RenderRecords.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class MeshNode;
class Reporter;

// Component flags of the frames after the first (-map, -man, -mac, -mam, -mat): the layout's.
inline constexpr uint32_t kFramePosition = vern3d::kComponentPosition;
inline constexpr uint32_t kFrameNormal = vern3d::kComponentNormal;
inline constexpr uint32_t kFrameColour = vern3d::kComponentColour;
inline constexpr uint32_t kFrameMaterial = vern3d::kComponentMaterial;
inline constexpr uint32_t kFrameTexture = vern3d::kComponentTexture;
inline constexpr uint32_t kFrameAll = vern3d::kComponentAll;

// The records of an operations file in file order, each displacement taken into the space of a
// node with world matrix `world`; records whose range is reversed are left out. A file that cannot
// be opened gives none (and `opened` false); the first record that does not match ends the reading.
std::vector<MeshMove> ReadMeshMoves(const std::string& path, const Matrix& world, bool* opened);

// Walks a node's frames in increasing order and gives for each the offsets of the records whose
// range holds it, in file order: adding them one after the other to a position gives the bits of
// applying the records one after the other to every frame.
class MoveSweep {
public:
    explicit MoveSweep(const std::vector<MeshMove>& moves);
    const std::vector<Vector3>& At(size_t frame);  // `frame` grows from call to call

private:
    const std::vector<MeshMove>& moves;
    std::vector<uint32_t> byFirst;  // record indices ordered by their first frame
    size_t started = 0;
    std::vector<uint32_t> active;  // records that have started, in file order
    std::vector<Vector3> offsets;
};

void AppendFullVertex(LittleEndianBuffer& out, const MeshVertex& vertex);
void AppendFrameComponents(LittleEndianBuffer& out, const MeshVertex& vertex, uint32_t flags);

// Builds the stream of a node's frames and hands it to `sink` piece by piece (a stored frame at a
// time); the first failure ends the stream. The frames are rebuilt one after the other; only the
// last stored one, the current one and the next one are kept. A frame left out because it equals
// the last stored one is said through `reporter`, when the stream reaches it.
using FrameSink = std::function<HRESULT(const LittleEndianBuffer&)>;
HRESULT StreamFrames(MeshNode& node, uint32_t flags, Reporter& reporter, const FrameSink& sink);
