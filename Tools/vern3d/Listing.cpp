#include "Listing.h"

#include "TextEncoding.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace vern3d {

namespace {

std::string Number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

template <typename Values>
std::string List(const Values& values)
{
    std::string text = "(";
    for (size_t i = 0; i < values.size(); ++i)
        text += (i ? ", " : "") + Number(values[i]);
    return text + ")";
}

std::string List(const Vector3& v) { return List(std::array{v.x, v.y, v.z}); }
std::string List(const Sphere& s) { return List(std::array{s.centre.x, s.centre.y, s.centre.z, s.radius}); }

std::string Quoted(const std::string& name) { return "'" + ToUtf8(name) + "'"; }

bool IsVern3D(const std::array<uint8_t, 16>& type)
{
    return type == GuidBytes(kFileTypeVern3D);
}

// How many entries of a list of `count` to show, and the line that says what was left out.
size_t Shown(size_t count, size_t limit) { return limit == 0 ? count : std::min(count, limit); }
void MoreLine(std::ostream& out, const std::string& indent, size_t count, size_t shown)
{
    if (shown < count)
        out << indent << "... " << count - shown << " more\n";
}

}  // namespace

std::string FormatGuid(const std::array<uint8_t, 16>& b)
{
    char text[40];
    std::snprintf(text, sizeof text, "{%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X}", b[3],
                  b[2], b[1], b[0], b[5], b[4], b[7], b[6], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
    return text;
}

std::string ComponentNames(uint32_t flags)
{
    static const char* const names[] = {"position", "normal", "colour", "material", "texture"};
    std::string text;
    for (int bit = 0; bit < 5; ++bit) {
        if (flags & (1u << bit))
            text += (text.empty() ? "" : " ") + std::string(names[bit]);
    }
    return text.empty() ? "none" : text;
}

void PrintInfo(const Scene& scene, const std::string& path, std::ostream& out)
{
    const Totals totals = CountTotals(scene);
    out << path << "\n";
    out << "  container   header " << scene.headerSize << " bytes, directory entries of " << scene.entrySize
        << " bytes, " << scene.chunkCount << " chunks, " << scene.fileSize << " bytes\n";
    out << "  file type   " << FormatGuid(scene.fileType) << (IsVern3D(scene.fileType) ? " (vern3D)" : "") << "\n";
    out << "  nodes       " << totals.nodes << ", depth " << totals.maxDepth << "\n";
    out << "  meshes      " << totals.meshes << ": " << totals.triangles << " triangles, " << totals.vertices
        << " vertices, " << totals.batches << " batches\n";
    const NodeInfo& root = scene.nodes[0].info;
    if (root.flags & kNodeBounds)
        out << "  bounds      centre " << List(root.bounds.centre)
            << ", radius " << Number(root.bounds.radius) << "\n";
    else
        out << "  bounds      none\n";
    out << "  textures    " << totals.textureSets << " sets, " << totals.textures << " bitmaps\n";
    for (size_t s = 0; s < scene.textureSets.size(); ++s) {
        out << "    set " << s << ":";
        if (scene.textureSets[s].empty())
            out << " (no bitmap)";
        for (const TextureEntry& entry : scene.textureSets[s])
            out << " " << Quoted(entry.fileName) << " flags " << entry.flags << ((entry.flags & kTextureOpacity) ? " (opacity)" : "");
        out << "\n";
    }
    out << "  keys        " << totals.animatedNodes << " nodes with keys\n";
    for (const Node& node : scene.nodes) {
        if (node.hasAnimation)
            out << "    " << Quoted(node.name) << ": " << node.animation.positionKeys.size() << " position, "
                << node.animation.rotationKeys.size() << " rotation\n";
    }
    out << "  mesh frames " << totals.animatedMeshes << " meshes with animation frames\n";
    for (const Node& node : scene.nodes) {
        if (node.hasMesh && node.mesh.header.frameCount > 1)
            out << "    " << Quoted(node.name) << ": " << node.mesh.frames.size() << " stored of "
                << node.mesh.header.frameCount << ", components " << ComponentNames(node.mesh.header.flags) << "\n";
    }
}

std::string InfoJson(const Scene& scene, const std::string& path)
{
    using nlohmann::json;
    const Totals totals = CountTotals(scene);
    json document;
    document["file"] = ToUtf8(path);
    document["container"] = {{"headerSize", scene.headerSize},
                             {"entrySize", scene.entrySize},
                             {"chunks", scene.chunkCount},
                             {"bytes", scene.fileSize}};
    document["fileType"] = FormatGuid(scene.fileType);
    document["nodes"] = totals.nodes;
    document["depth"] = totals.maxDepth;
    document["meshCount"] = totals.meshes;
    document["triangles"] = totals.triangles;
    document["vertices"] = totals.vertices;
    document["batches"] = totals.batches;
    const NodeInfo& root = scene.nodes[0].info;
    document["bounds"] = (root.flags & kNodeBounds)
                             ? json{{"centre", {root.bounds.centre.x, root.bounds.centre.y, root.bounds.centre.z}}, {"radius", root.bounds.radius}}
                             : json(nullptr);
    json sets = json::array();
    for (const auto& set : scene.textureSets) {
        json entries = json::array();
        for (const TextureEntry& entry : set)
            entries.push_back({{"file", ToUtf8(entry.fileName)}, {"flags", entry.flags}, {"opacity", (entry.flags & kTextureOpacity) != 0}});
        sets.push_back(entries);
    }
    document["textureSets"] = sets;
    json keys = json::array();
    json meshes = json::array();
    for (const Node& node : scene.nodes) {
        if (node.hasAnimation)
            keys.push_back({{"node", ToUtf8(node.name)},
                            {"positionKeys", node.animation.positionKeys.size()},
                            {"rotationKeys", node.animation.rotationKeys.size()}});
        if (node.hasMesh) {
            const MeshHeader& header = node.mesh.header;
            json components = json::array();
            for (int bit = 0; bit < 5; ++bit)
                if (header.flags & (1u << bit))
                    components.push_back(ComponentNames(1u << bit));
            meshes.push_back({{"node", ToUtf8(node.name)},
                              {"batches", header.batchCount},
                              {"triangles", header.triangleCount},
                              {"vertices", header.vertexCount},
                              {"frames", header.frameCount},
                              {"storedFrames", node.mesh.frames.size()},
                              {"componentFlags", header.flags},
                              {"components", components}});
        }
    }
    document["animatedNodes"] = keys;
    document["meshes"] = meshes;
    // Non-finite numbers have no JSON form: nlohmann writes them as null.
    return document.dump(2, ' ', false, json::error_handler_t::replace);
}

void PrintDump(const Scene& scene, std::ostream& out, size_t limit)
{
    out << "file type " << FormatGuid(scene.fileType) << ", " << scene.chunkCount << " chunks, " << scene.fileSize
        << " bytes\n";
    for (size_t i = 0; i < scene.nodes.size(); ++i) {
        const Node& node = scene.nodes[i];
        const NodeInfo& info = node.info;
        out << "node " << i << " " << Quoted(node.name) << ", depth " << node.depth;
        if (node.parent != UINT32_MAX)
            out << ", parent " << node.parent;
        out << ", " << node.children.size() << " children, data offset " << node.chunkOffset << "\n";
        out << "  flags " << info.flags << "\n";
        if (info.flags & kNodeMatrix) {
            for (int row = 0; row < 4; ++row)
                out << "  matrix row " << row << " "
                    << List(std::array{info.matrix(row, 0), info.matrix(row, 1), info.matrix(row, 2), info.matrix(row, 3)})
                    << "\n";
        }
        if (info.flags & kNodeBounds)
            out << "  bounds " << List(info.bounds) << " (centre, radius)\n";
        if ((info.flags & kNodeParentBounds) == kNodeParentBounds)
            out << "  parent-space bounds " << List(info.parentBounds) << "\n";
        if (node.hasAnimation) {
            const Animation& animation = node.animation;
            out << "  keys: flags " << animation.flags << ", " << animation.positionKeys.size() << " position, "
                << animation.rotationKeys.size() << " rotation\n";
            const size_t positions = Shown(animation.positionKeys.size(), limit);
            for (size_t k = 0; k < positions; ++k) {
                const PositionKey& key = animation.positionKeys[k];
                out << "    position " << k << " at " << key.time << " ms: " << List(key.position) << " in "
                    << List(key.inTangent) << " out " << List(key.outTangent) << "\n";
            }
            MoreLine(out, "    ", animation.positionKeys.size(), positions);
            const size_t rotations = Shown(animation.rotationKeys.size(), limit);
            for (size_t k = 0; k < rotations; ++k) {
                const RotationKey& key = animation.rotationKeys[k];
                out << "    rotation " << k << " at " << key.time << " ms: axis " << List(key.axis) << " angle "
                    << Number(key.angle) << " matrix " << List(key.matrix.m) << "\n";
            }
            MoreLine(out, "    ", animation.rotationKeys.size(), rotations);
        }
        if (!node.hasMesh)
            continue;
        const Mesh& mesh = node.mesh;
        const MeshHeader& header = mesh.header;
        out << "  mesh: " << header.batchCount << " batches, " << header.triangleCount << " triangles, "
            << header.vertexCount << " vertices, " << header.frameCount << " frames (" << mesh.frames.size()
            << " stored), components " << ComponentNames(header.flags) << ", sphere " << List(header.centre)
            << " radius " << Number(header.radius) << "\n";
        const size_t batches = Shown(mesh.batches.size(), limit);
        for (size_t b = 0; b < batches; ++b) {
            const Batch batch = mesh.batches[b];
            out << "    batch " << b << ": triangles " << batch.firstTriangle << " + " << batch.triangleCount
                << ", vertices " << batch.firstVertex << " + " << batch.vertexCount << ", texture set "
                << batch.textureSet << "\n";
        }
        MoreLine(out, "    ", mesh.batches.size(), batches);
        const size_t triangles = Shown(mesh.triangles.size(), limit);
        for (size_t t = 0; t < triangles; ++t) {
            const Triangle triangle = mesh.triangles[t];
            out << "    triangle " << t << ": corners " << triangle.corners[0] << " " << triangle.corners[1] << " "
                << triangle.corners[2] << ", edges " << triangle.flags << ", texture set " << triangle.textureSet
                << "\n";
        }
        MoreLine(out, "    ", mesh.triangles.size(), triangles);
        const size_t frames = Shown(mesh.frames.size(), limit);
        for (size_t f = 0; f < frames; ++f) {
            const StoredFrame& frame = mesh.frames[f];
            out << "    frame " << f << " at " << frame.time << " ms (delta " << frame.delta << "), "
                << frame.storedBytes << " bytes stored\n";
            const size_t vertices = Shown(mesh.vertices.size(), limit);
            for (size_t v = 0; v < vertices; ++v) {
                const Vertex vertex = mesh.FrameVertex(f, v);
                char colour[16];
                std::snprintf(colour, sizeof colour, "%08X", vertex.colour);
                out << "      vertex " << v << ": " << List(vertex.position) << " normal " << List(vertex.normal)
                    << " colour " << colour << " material " << vertex.material << " uv "
                    << List(std::array{vertex.u, vertex.v}) << "\n";
            }
            MoreLine(out, "      ", mesh.vertices.size(), vertices);
        }
        MoreLine(out, "    ", mesh.frames.size(), frames);
    }
    out << "texture table: " << scene.textureSets.size() << " sets\n";
    for (size_t s = 0; s < scene.textureSets.size(); ++s) {
        out << "  set " << s << ": " << scene.textureSets[s].size() << " bitmaps\n";
        for (const TextureEntry& entry : scene.textureSets[s])
            out << "    " << Quoted(entry.fileName) << " flags " << entry.flags << "\n";
    }
}

}  // namespace vern3d
