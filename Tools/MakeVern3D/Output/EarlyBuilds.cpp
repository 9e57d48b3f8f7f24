#include "Output/EarlyBuilds.h"

#include "ConvertSettings.h"
#include "Scene/Scene.h"

#include <algorithm>
#include <cstring>

namespace {

// Objects built early have at most this many faces (larger ones are built on several threads
// anyway), and at most this many wait in the queue.
constexpr size_t kEarlyFaces = 1 << 16;
constexpr size_t kWaiting = 512;

template <typename Record>
uint64_t HashRecords(uint64_t hash, const std::vector<Record>& records)
{
    const auto* bytes = reinterpret_cast<const uint8_t*>(records.data());
    const size_t size = records.size() * sizeof(Record);
    hash = (hash ^ size) * 0x9E3779B97F4A7C15ull;
    size_t at = 0;
    for (; at + 8 <= size; at += 8) {
        uint64_t word;
        std::memcpy(&word, bytes + at, 8);
        hash = (hash ^ word) * 0xFF51AFD7ED558CCDull;
        hash ^= hash >> 32;
    }
    for (; at < size; ++at)
        hash = (hash ^ bytes[at]) * 0x100000001B3ull;
    return hash;
}

// Every list of a mesh and its time: a change between reading and writing shows.
uint64_t HashMesh(const Mesh& mesh)
{
    uint64_t hash = static_cast<uint64_t>(static_cast<uint32_t>(mesh.time));
    hash = HashRecords(hash, mesh.vertices);
    hash = HashRecords(hash, mesh.faces);
    hash = HashRecords(hash, mesh.texVertices);
    hash = HashRecords(hash, mesh.texFaces);
    return HashRecords(hash, mesh.normals);
}

bool SameSlot(const MaterialSlot& a, const MaterialSlot& b)
{
    return a.textureSetIndex == b.textureSetIndex && a.propertiesIndex == b.propertiesIndex && a.twoSided == b.twoSided;
}

bool SameEntry(const MaterialTableEntry& a, const MaterialTableEntry& b)
{
    if (!SameSlot(a.slot, b.slot) || !a.subMaterials != !b.subMaterials)
        return false;
    return !a.subMaterials || std::equal(a.subMaterials->begin(), a.subMaterials->end(), b.subMaterials->begin(),
                                         b.subMaterials->end(), SameSlot);
}

// The world transform the writing will take for `node` when no node of its chain has keys: each
// local transform as preparing the node makes it, multiplied top-down as evaluating it does.
bool KeylessWorld(const MeshNode& node, Matrix& world)
{
    constexpr size_t kLongest = 16;
    const TransformNode* chain[kLongest];
    size_t depth = 0;
    for (const BaseNode* at = &node; at && at->IsTransformNode(); at = at->Parent()) {
        const auto* transform = static_cast<const TransformNode*>(at);
        if (depth == kLongest || transform->positionKeys.size() >= 2 || transform->rotationKeys.size() >= 2)
            return false;
        chain[depth++] = transform;
    }
    world = Matrix::Identity();
    for (size_t k = depth; k > 0; --k) {
        const TransformNode* const* at = &chain[k - 1];
        const BaseNode* parent = (*at)->Parent();
        const Matrix parentWorld =
            parent && parent->IsTransformNode() ? static_cast<const TransformNode*>(parent)->world : Matrix::Identity();
        world = Multiply(Multiply((*at)->world, Inverse(parentWorld)), world);
    }
    return true;
}

}  // namespace

struct EarlyBuilds::Early {
    // Taken on the reading thread.
    const MeshNode* node = nullptr;
    Matrix world;
    int32_t materialRef = 0;
    int32_t meshLine = 0;
    uint64_t allowed = 0;
    MaterialTableEntry entry;
    std::shared_ptr<const std::vector<uint8_t>> setKinds;
    // Made by the build's thread, read after Finish: set only for a build that reported nothing.
    bool made = false;
    uint64_t meshHash = 0;
    MeshNode::WeldCount count{0, 0};
    uint64_t sourceCount = 0;
    Sphere sphere;
    std::unique_ptr<uint8_t[]> bytes;
    size_t size = 0;
    std::vector<MeshBuild::Piece> pieces;

    void Build(const ConvertSettings& settings, const Mesh& mesh)
    {
        // Corners outside the mesh are refused before writing: such an object is not built.
        const auto outside = [&](int32_t corner) { return static_cast<uint32_t>(corner) >= mesh.vertices.size(); };
        for (const MeshFace& face : mesh.faces)
            if (outside(face.a) || outside(face.b) || outside(face.c))
                return;
        meshHash = HashMesh(mesh);
        MeshNode standIn(std::string{});
        standIn.materialRef = materialRef;
        standIn.meshLine = meshLine;
        standIn.spaces = {world};
        standIn.mesh = mesh;
        MeshBuild build;
        build.allowed = allowed;   // no less than when the writing begins
        build.withinBound = true;  // the stand-in's lists are not needed again
        build.materials = MeshMaterials{&entry, *setKinds, 0};
        standIn.BuildOutput(build, settings);
        if (!build.serialised || build.built != MeshNode::Built::Ready || build.renderReports.KeptCount() ||
            build.frameReports.KeptCount() || build.streamReports.KeptCount())
            return;
        count = build.count;
        sourceCount = build.sourceCount;
        sphere = standIn.meshSphere;
        bytes = std::move(build.bytes);
        size = build.size;
        pieces = std::move(build.pieces);
        made = true;
    }
};

EarlyBuilds::EarlyBuilds(const ConvertSettings& settings)
    : settings(settings), queue(ThreadCount(settings.threads), kWaiting)
{
}

EarlyBuilds::~EarlyBuilds() { queue.Finish(); }

void EarlyBuilds::ObjectRead(MeshNode& node, const Scene& scene)
{
    if (!node.Parent() || !node.frames.empty() || node.mesh.faces.empty() || node.mesh.faces.size() > kEarlyFaces ||
        node.materialRef < 0 || static_cast<size_t>(node.materialRef) >= scene.materialTable.size())
        return;
    Matrix world;
    if (!KeylessWorld(node, world))
        return;

    // What the reader may still change is copied here; the mesh, which it leaves as it is once its
    // object has been read, is read by the build's thread.
    Early& early = builds.emplace_back();
    early.node = &node;
    early.world = world;
    early.materialRef = node.materialRef;
    early.meshLine = node.meshLine;
    early.allowed = scene.lists.Free();
    const MaterialTableEntry& entry = scene.materialTable[static_cast<size_t>(node.materialRef)];
    early.entry.slot = entry.slot;
    if (entry.subMaterials)
        early.entry.subMaterials = std::make_unique<std::vector<MaterialSlot>>(*entry.subMaterials);
    // Sets already read keep their entries: a new set count is all that makes new kinds.
    if (!setKinds || setKinds->size() != scene.textureSets.size())
        setKinds = std::make_shared<const std::vector<uint8_t>>(TextureSetKinds(scene.textureSets));
    early.setKinds = setKinds;
    Early* const made = &early;
    const Mesh* const mesh = &node.mesh;
    if (!queue.Post([this, made, mesh] { made->Build(settings, *mesh); }))
        builds.pop_back();
}

void EarlyBuilds::Finish()
{
    queue.Finish();
    byNode.reserve(builds.size());
    for (Early& early : builds)
        if (early.made)
            byNode.emplace_back(early.node, &early);
    std::sort(byNode.begin(), byNode.end());
}

bool EarlyBuilds::TakeOver(MeshBuild& build)
{
    MeshNode& node = *build.node;
    const auto found = std::lower_bound(byNode.begin(), byNode.end(), std::pair<const MeshNode*, Early*>{&node, nullptr});
    if (found == byNode.end() || found->first != &node)
        return false;
    Early& early = *found->second;
    const MeshMaterials& materials = build.materials;
    if (!early.made || !node.frames.empty() || node.verticesLoaded || node.spaces.size() != 1 ||
        std::memcmp(&node.spaces[0], &early.world, sizeof(Matrix)) != 0 || node.materialRef != early.materialRef ||
        !materials.entry || !SameEntry(*materials.entry, early.entry) ||
        materials.setKinds.size() < early.setKinds->size() ||
        !std::equal(early.setKinds->begin(), early.setKinds->end(), materials.setKinds.begin()) ||
        HashMesh(node.mesh) != early.meshHash)
        return false;
    build.count = early.count;
    build.frameCount = 0;
    build.sourceCount = early.sourceCount;
    build.serialised = true;
    build.bytes = std::move(early.bytes);
    build.size = early.size;
    build.pieces = std::move(early.pieces);
    build.made = true;
    node.meshSphere = early.sphere;
    early.made = false;
    return true;
}
