// The scene tree: the root is a BaseNode, helper objects are TransformNodes, geometry objects
// MeshNodes. A node owns its children. Walks over the tree are iterative, so a hierarchy as deep
// as the input makes it never grows the stack.
#pragma once

#include "AbstractData/Status.h"
#include "Scene/RenderRecords.h"
#include "Scene/SceneRecords.h"
#include "Scene/TransformMath.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct ConvertSettings;
struct MeshBuild;
class OpenPath;
class Reporter;
struct Scene;
struct VernChunk;
class VertexWelder;

// What GetInfo reports: the file's NodeInfo record (vern/Vern3DLayout.h), written as it stands.
using NodeInfo = vern3d::NodeInfo;

// The node's keys for evaluation and the local transform at the time last evaluated.
class TransformTrack {
public:
    virtual ~TransformTrack() = default;

    // Sets the parts of `matrix` that the keys define to the local transform at `time`
    // (milliseconds), by the library's evaluation (vern/Vern3DAnimation.h).
    void Evaluate(uint32_t time);

    std::vector<PositionKey> positionKeys;
    std::vector<RotationKey> rotationKeys;
    Matrix matrix = Matrix::Identity();
};

struct NodeWriteContext;

// What building a render mesh reads of the scene's materials: the table entry of the node's
// material reference (none for -1), for each texture set whether it has entries and whether its
// first entry is an opacity map, and the line that reports about materials stand at.
struct MeshMaterials {
    static constexpr uint8_t kSetEntries = 1, kSetOpacity = 2;
    const MaterialTableEntry* entry = nullptr;
    std::span<const uint8_t> setKinds;  // kSetEntries | kSetOpacity, per texture set
    int32_t line = 0;
};
std::vector<uint8_t> TextureSetKinds(const std::vector<std::unique_ptr<TextureSet>>& sets);
// The materials of `materialRef` in `scene`, with the kinds of its texture sets.
MeshMaterials MaterialsOf(const Scene& scene, std::span<const uint8_t> setKinds, int32_t materialRef);

class BaseNode {
public:
    explicit BaseNode(std::string name = {});
    virtual ~BaseNode();
    BaseNode(const BaseNode&) = delete;
    BaseNode& operator=(const BaseNode&) = delete;

    // Fills `info` (zeroed, size set by the caller). For a transform node this also grows the
    // bounds of the ancestors, exactly as asking each parent for its own record would.
    virtual void GetInfo(NodeInfo& info);
    // Before the node's chunk exists: may compute the node's own bounds; `write` false leaves the
    // node (and its subtree) out of the file.
    virtual HRESULT BeginWrite(NodeWriteContext& context, bool* write);
    // After the children's chunks: the node's NodeInfo and name, then its further chunks.
    virtual HRESULT EndWrite(NodeWriteContext& context);
    // Local transform and key matrices of this node (children are prepared first by PrepareTree).
    virtual void PrepareNode(OpenPath& path);
    // The world transform at `time`: the parent's world for the root, local * parent otherwise.
    virtual Matrix GetTransform(uint32_t time);
    // The latest key or frame time in this subtree.
    uint32_t GetLastKeyTime();
    virtual uint32_t OwnLastKeyTime() const { return 0; }
    // The "createanimfrommesh" directive; reports at `line`.
    virtual void CreateAnimFromMesh(Reporter& reporter, int32_t line) {}
    virtual bool IsTransformNode() const { return false; }

    // Prepare of the whole subtree, children before their parents.
    void Prepare();
    // Writes the subtree's chunks under `parentChunk`; children first, then each node's own.
    HRESULT Write(NodeWriteContext& context, VernChunk* parentChunk);

    void AddChild(std::unique_ptr<BaseNode> child);
    // Depth-first pre-order search for the first node named exactly `name`.
    BaseNode* FindNode(const std::string& name);
    // Moves the children up to the parent (appended in order), unlinks and destroys this node.
    void Remove();

    // Name directives (reported at `line`) and -obj selection.
    void ApplyNameDirectives(Reporter& reporter, int32_t line);
    void SelectObjects(const std::vector<std::string>& names);

    BaseNode* Parent() const { return parent; }
    const std::vector<std::unique_ptr<BaseNode>>& Children() const { return children; }
    uint64_t LinkSequence() const { return linkSequence; }

    std::string name;
    bool nameCut = false;  // the file's name held a zero byte, where it was cut: it names no file
    bool hasBounds = false;
    Sphere bounds;
    VernChunk* chunk = nullptr;

protected:
    friend class OpenPath;
    std::vector<std::unique_ptr<BaseNode>> children;
    BaseNode* parent = nullptr;
    uint64_t linkSequence = 0;  // order of AddChild calls; siblings are in this order
};

class TransformNode : public BaseNode {
public:
    using BaseNode::BaseNode;

    void GetInfo(NodeInfo& info) override;
    HRESULT EndWrite(NodeWriteContext& context) override;
    void PrepareNode(OpenPath& path) override;
    Matrix GetTransform(uint32_t time) override;
    uint32_t OwnLastKeyTime() const override;
    bool IsTransformNode() const override { return true; }

    // This node's own record, given that the ancestors' merges have been made.
    void FillInfo(NodeInfo& info);

    Matrix world = Matrix::Identity();
    std::vector<PositionKey> positionKeys;
    std::vector<RotationKey> rotationKeys;
    TransformTrack track;

protected:
    HRESULT WriteAnimationChunk(NodeWriteContext& context);
};

class MeshNode : public TransformNode {
public:
    using TransformNode::TransformNode;
    ~MeshNode() override;

    uint32_t OwnLastKeyTime() const override;
    void CreateAnimFromMesh(Reporter& reporter, int32_t line) override;
    // Takes over the node's output, built ahead (TakeOutput); the mesh chunk follows the node's chunks.
    HRESULT BeginWrite(NodeWriteContext& context, bool* write) override;
    HRESULT EndWrite(NodeWriteContext& context) override;

    // Checks before anything is written what the mesh output would otherwise read out of range
    // (material reference, corners), or reads the vertex file that replaces the render mesh
    // (-ivertex). Reports at the scene's endLine; false on error (Output/MeshChecks.cpp).
    bool CheckBeforeWrite(Scene& scene, const ConvertSettings& settings, Reporter& reporter);
    bool ReadVertexFile(const ConvertSettings& settings, Reporter& reporter, int32_t line);

    // What the mesh chunk needs, built before any of its bytes is written (Output/MeshNodeWriter.cpp).
    // PlanSpaces, on the writing thread and in the order the nodes' writing begins, takes the
    // world transforms at the times of the mesh and of each frame (evaluating keys leaves the
    // ancestors' tracks as the last evaluation set them, so the order counts). BuildOutput may
    // then run on any thread, apart from other nodes: the render mesh in node space within the
    // entries `build` allows, and the sphere over every frame, its reports kept in `build`.
    // TakeOutput, when the node's writing begins, hands the reports on and counts the entries
    // against the scene's bound (building the render mesh again in the one case where the bound
    // would have stopped it earlier). Ready: the node is written; LeftOut: an error was reported
    // before, the node and its subtree are not written; Refused: the bound was passed (reported),
    // nothing may be written.
    enum class Built { Ready, LeftOut, Refused };
    void PlanSpaces();
    void BuildOutput(MeshBuild& build, const ConvertSettings& settings);
    Built TakeOutput(MeshBuild& build, Scene& scene, const ConvertSettings& settings, Reporter& reporter);
    // Frees the lists of the source mesh, the frames and the render mesh.
    void FreeLists();

    // The source of the render mesh: frame `analyse` (-analyse) when there is one, else the mesh.
    Mesh& SourceMesh(int32_t analyse)
    {
        return analyse > 0 && frames.size() >= static_cast<size_t>(analyse) + 1 ? *frames[static_cast<size_t>(analyse)]
                                                                              : mesh;
    }
    // Render mesh building (see RenderMesh.cpp). ToNodeSpace moves a mesh into node space with
    // `inverse`, the inverse world transform at its time. BuildRenderMesh builds the render mesh
    // and counts it against the scene's bound: false when it passes it (reported at the object's
    // *MESH line): nothing may be written. BuildRenderMeshWithin builds it as long as it holds
    // at most `allowed` vertices (it stops at the first face past that) and counts nothing: it
    // answers the most vertices it held when it checked, and the vertices welded (what counts
    // against the bound; numbering them per batch may repeat some). Both use `settings.threads`
    // threads.
    struct WeldCount {
        uint64_t peak;
        uint64_t welded;
    };
    void ToNodeSpace(Mesh& source, const Matrix& inverse, uint32_t threads = 1);
    bool BuildRenderMesh(Scene& scene, const ConvertSettings& settings, Reporter& reporter, Mesh& source);
    WeldCount BuildRenderMeshWithin(const MeshMaterials& materials, const ConvertSettings& settings,
                                    Reporter& reporter, Mesh& source, uint64_t allowed);
    int32_t FindOrAddVertex(const MeshVertex& vertex, int32_t face, int32_t position, int32_t texVertex,
                            int32_t smoothingGroup, uint32_t material, bool flip);

    // Frames (see FrameStream.cpp). A frame's vertex list is rebuilt when it is needed (once for
    // the sphere, once for the stream), so that only two or three lists live at any time; `parts`
    // (component flags) chooses what is filled, the material always is.
    void BuildFrameVertices(Mesh& frame, std::vector<MeshVertex>& list, uint32_t parts);
    // Whether frame b deviates from frame a in a component that `flags` selects.
    bool FramesChanged(const std::vector<MeshVertex>& a, const std::vector<MeshVertex>& b, uint32_t flags) const;

    int32_t materialRef = -1;
    std::vector<std::unique_ptr<Mesh>> frames;
    Mesh mesh;
    int32_t meshLine = 0;       // the line of the object's *MESH, for reports about its output
    int32_t animationLine = 0;  // ... and of its *MESH_ANIMATION

    // The output as built.
    bool meshChunk = false;        // the node writes a mesh chunk (its mesh had faces when planned)
    std::vector<Matrix> spaces;    // PlanSpaces: the world transforms of the mesh and each frame
    MeshBuild* output = nullptr;   // the build taken over, while the node is written
    std::vector<VertexSource> vertexSources;
    bool verticesLoaded = false;
    std::vector<MeshVertex> renderVertices;
    std::vector<MeshTriangle> renderTriangles;
    std::vector<MeshBatch> renderBatches;
    std::vector<MeshMove> frameMoves;  // the operations file's records, in node space
    Sphere meshSphere;  // over every frame, in node space

private:
    VertexWelder* welder = nullptr;  // BuildRenderMesh's, while it runs
};

// The chain of nodes from the root down to the node being visited, with the indices of those
// that hold bounds. A node's record asks its parent for its record, which asks the grandparent,
// and so on; each asked ancestor that has bounds grows its parent's. The path replays exactly
// those merges without walking the chain.
class OpenPath {
public:
    void Push(BaseNode* node);
    void Pop();
    bool Empty() const { return nodes.empty(); }
    BaseNode* Top() const { return nodes.back(); }
    size_t Size() const { return nodes.size(); }

    // The merges that asking nodes[count - 1] for its record makes (top-down, over nodes[0..count)).
    void MergeAncestors(size_t count);
    // nodes[index] has just got bounds.
    void NoteBounds(size_t index);

private:
    std::vector<BaseNode*> nodes;
    std::vector<size_t> bounded;  // ascending indices into nodes
};

// Grows node's parent's bounds by node's bounds seen in the parent's space; true when the
// parent had no bounds before.
bool MergeIntoParent(TransformNode& node);
// The same with the sphere already seen in the parent's space.
bool MergeIntoParent(TransformNode& node, const Sphere& seen);
// world * Inverse(parent world) when the parent is a transform node, else world.
Matrix LocalMatrix(const TransformNode& node);
