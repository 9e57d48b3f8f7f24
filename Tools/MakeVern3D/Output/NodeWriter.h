// What a node's write operations share while the scene tree is written.
//
// Writing a node has two steps: BeginWrite takes over what the node's chunks hold (for a mesh, its
// render mesh and the sphere over its frames), then, after its children, EndWrite turns that into
// bytes (the frame stream rebuilds the frames as it goes, into whatever sink it is given).
// Settings are read-only throughout; every report goes through the file's Reporter.
//
// Mesh outputs are built ahead, on as many threads as the settings give: the writer first plans
// the mesh nodes whose writing will begin, in that order (PlanMeshBuilds), and each build runs
// apart from the others and from the writer (MeshNode::BuildOutput), with its reports kept. When
// a node's writing begins, the writer waits for its build, hands its reports to the file's
// Reporter and counts its entries against the file's bound (MeshNode::TakeOutput), so that the
// bytes and the console text are those of building each node at that moment.
#pragma once

#include "Output/LittleEndian.h"
#include "Parser/Reporter.h"
#include "Scene/BaseNode.h"

#include <memory>

struct ConvertSettings;
class EarlyBuilds;
class OrderedWork;
struct Scene;
class VernWriter;

// One mesh node's output, built ahead of its writing.
struct MeshBuild {
    MeshNode* node = nullptr;
    bool errorBefore = false;  // an earlier node reports an error while the file is written
    uint64_t allowed = 0;      // render vertices allowed: the bound's free entries when writing began
    MeshMaterials materials;
    // No node of the plan can pass the bound, whatever the others take: the build may free its
    // source lists at once (else they stay until the node is written, for the case below).
    bool withinBound = false;
    // What the build found: the most render vertices it checked against `allowed` and how many it
    // welded (beyond the entries free when the node's writing begins the build made then stops
    // earlier, so it is made again), whether its frames alone pass the bound, and its reports:
    // those of the render mesh, then of the frames.
    MeshNode::WeldCount count{0, 0};
    uint64_t frameCount = 0, sourceCount = 0;  // frames, and vertex sources they are rebuilt on
    bool framesPast = false;
    MeshNode::Built built = MeshNode::Built::Ready;
    bool made = false;         // built while the file was read (EarlyBuilds)
    bool operationsOpened = false;  // the operations file was read for the frames (a dependency)
    bool inNodeSpace = false;  // the node's own mesh and frames are in node space
    Reporter renderReports = Reporter::Deferred();
    Reporter frameReports = Reporter::Deferred();
    // The mesh chunk's payload, when the build has made it (every mesh without frames, and those
    // whose frames take little room): its bytes, cut where the writer writes them (the end of each
    // piece and the reports the stream made before it), and the stream's reports.
    bool serialised = false;
    std::unique_ptr<uint8_t[]> bytes;
    size_t size = 0;
    struct Piece {
        size_t end;
        size_t reports;
    };
    std::vector<Piece> pieces;
    Reporter streamReports = Reporter::Deferred();
};

// The mesh nodes of the scene whose writing will begin, in that order, each with the world
// transforms of its mesh and frames taken (MeshNode::PlanSpaces), its materials (`setKinds`: the
// TextureSetKinds of the scene's texture sets, which outlive the builds) and the render vertices
// it is allowed. A node with frames after an error is left out with its subtree, as its writing
// does.
// Builds made while the file was read are taken over where they may be (`early`, may be null).
std::vector<MeshBuild> PlanMeshBuilds(const Scene& scene, std::span<const uint8_t> setKinds,
                                      const ConvertSettings& settings, EarlyBuilds* early);

struct NodeWriteContext {
    VernWriter& writer;
    Scene& scene;  // the tree being written, its materials and its bound of list entries
    const ConvertSettings& settings;
    Reporter& reporter;
    OpenPath path;              // the nodes whose chunks are open, root first
    LittleEndianBuffer record;  // scratch space for one record
    // The planned mesh builds and the work that makes them; the next to be taken.
    std::vector<MeshBuild>* builds = nullptr;
    OrderedWork* work = nullptr;
    size_t nextBuild = 0;
};

// A node's write stopped on an error it has already reported with file and line (output beyond
// the bound of the file's lists): no further report, and no output is left for the input.
constexpr HRESULT kWriteRefused = static_cast<HRESULT>(0x80044101u);
