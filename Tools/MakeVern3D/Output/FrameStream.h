// The frame stream at the end of a mesh chunk: frame 0 complete, then each frame that differs
// from the last stored one with the components chosen by the flags, then the end marker.
#pragma once

#include "LittleEndian.h"
#include "RenderRecords.h"
#include "Status.h"

#include <cstdint>
#include <functional>

class MeshNode;

// Component flags of the frames after the first (-map, -man, -mac, -mam, -mat): the layout's.
inline constexpr uint32_t kFramePosition = vern3d::kComponentPosition;
inline constexpr uint32_t kFrameNormal = vern3d::kComponentNormal;
inline constexpr uint32_t kFrameColour = vern3d::kComponentColour;
inline constexpr uint32_t kFrameMaterial = vern3d::kComponentMaterial;
inline constexpr uint32_t kFrameTexture = vern3d::kComponentTexture;

void AppendFullVertex(LittleEndianBuffer& out, const MeshVertex& vertex);
void AppendFrameComponents(LittleEndianBuffer& out, const MeshVertex& vertex, uint32_t flags);

// Receives the stream piece by piece; the first failure ends the stream.
using FrameSink = std::function<HRESULT(const LittleEndianBuffer&)>;
HRESULT WriteFrameStream(MeshNode& node, uint32_t flags, const FrameSink& write);
