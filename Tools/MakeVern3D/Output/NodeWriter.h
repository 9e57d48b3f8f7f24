// What a node's write operations share while the scene tree is written.
//
// Writing a node has two steps: BeginWrite builds what the node's chunks hold (for a mesh, its
// render mesh and the sphere over its frames: MeshNode::BuildOutput) without touching the
// writer, then, after its children, EndWrite turns that into bytes (the frame stream rebuilds
// the frames as it goes, into whatever sink it is given). Settings are read-only throughout;
// every report goes through the file's Reporter.
#pragma once

#include "Output/LittleEndian.h"
#include "Scene/BaseNode.h"

class Reporter;
struct ConvertSettings;
struct Scene;
class VernWriter;

struct NodeWriteContext {
    VernWriter& writer;
    Scene& scene;  // the tree being written, its materials and its bound of list entries
    const ConvertSettings& settings;
    Reporter& reporter;
    OpenPath path;              // the nodes whose chunks are open, root first
    LittleEndianBuffer record;  // scratch space for one record
};

// A node's write stopped on an error it has already reported with file and line (output beyond
// the bound of the file's lists): no further report, and no output is left for the input.
constexpr HRESULT kWriteRefused = static_cast<HRESULT>(0x80044101u);
