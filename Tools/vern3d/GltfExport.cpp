#include "GltfExport.h"

#include "TextEncoding.h"
#include "TransformSampling.h"

#include <tiny_gltf.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

namespace vern3d {

const double kZUpToYUp[16] = {1, 0, 0, 0, 0, 0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1};

namespace {

constexpr int kArrayBuffer = 34962;
constexpr int kElementArrayBuffer = 34963;

bool Finite(std::span<const float> values)
{
    return std::all_of(values.begin(), values.end(), [](float value) { return std::isfinite(value); });
}

std::array<float, 3> Xyz(const Vector3& v) { return {v.x, v.y, v.z}; }

std::array<float, 3> UnitNormal(const std::array<float, 3>& normal)
{
    const double length = std::sqrt(double{normal[0]} * normal[0] + double{normal[1]} * normal[1] +
                                    double{normal[2]} * normal[2]);
    if (!(length > 1e-12) || !std::isfinite(length))
        return {0.0f, 0.0f, 1.0f};  // a degenerate face has no direction: any unit vector will do
    return {static_cast<float>(normal[0] / length), static_cast<float>(normal[1] / length),
            static_cast<float>(normal[2] / length)};
}

// Appends accessors to the model's one buffer, each over a view of its own.
class BufferBuilder {
public:
    explicit BufferBuilder(tinygltf::Model& model) : model(model)
    {
        model.buffers.emplace_back();
    }

    int Floats(const std::vector<float>& values, int type, int components, int target, bool bounds)
    {
        const int accessor = Add(values.data(), values.size() * sizeof(float), TINYGLTF_COMPONENT_TYPE_FLOAT, type,
                                 values.size() / static_cast<size_t>(components), target);
        if (bounds) {
            tinygltf::Accessor& a = model.accessors[static_cast<size_t>(accessor)];
            a.minValues.assign(static_cast<size_t>(components), INFINITY);
            a.maxValues.assign(static_cast<size_t>(components), -INFINITY);
            for (size_t i = 0; i < values.size(); ++i) {
                const size_t c = i % static_cast<size_t>(components);
                a.minValues[c] = std::min<double>(a.minValues[c], values[i]);
                a.maxValues[c] = std::max<double>(a.maxValues[c], values[i]);
            }
        }
        return accessor;
    }

    int Indices(const std::vector<uint32_t>& values)
    {
        return Add(values.data(), values.size() * sizeof(uint32_t), TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT,
                   TINYGLTF_TYPE_SCALAR, values.size(), kElementArrayBuffer);
    }

private:
    int Add(const void* data, size_t bytes, int componentType, int type, size_t count, int target)
    {
        std::vector<unsigned char>& buffer = model.buffers[0].data;
        tinygltf::BufferView view;
        view.buffer = 0;
        view.byteOffset = buffer.size();
        view.byteLength = bytes;
        view.target = target;
        buffer.resize(buffer.size() + bytes);
        std::memcpy(buffer.data() + view.byteOffset, data, bytes);
        model.bufferViews.push_back(view);

        tinygltf::Accessor accessor;
        accessor.bufferView = static_cast<int>(model.bufferViews.size() - 1);
        accessor.componentType = componentType;
        accessor.type = type;
        accessor.count = count;
        model.accessors.push_back(accessor);
        return static_cast<int>(model.accessors.size() - 1);
    }

    tinygltf::Model& model;
};

// A relative URI for a bitmap name: every byte outside the unreserved set percent-encoded.
std::string FileUri(const std::string& name)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string uri;
    for (unsigned char c : name) {
        if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~') {
            uri += static_cast<char>(c);
        } else {
            uri += '%';
            uri += digits[c >> 4];
            uri += digits[c & 15];
        }
    }
    return uri;
}

void AddMaterials(const Scene& scene, tinygltf::Model& model)
{
    std::map<std::string, int> textures;  // bitmap name -> texture
    for (size_t s = 0; s < scene.textureSets.size(); ++s) {
        const auto& set = scene.textureSets[s];
        tinygltf::Material material;
        material.name = "texture set " + std::to_string(s);
        material.pbrMetallicRoughness.metallicFactor = 0.0;  // the source's materials are not metals
        material.pbrMetallicRoughness.roughnessFactor = 1.0;
        if (!set.empty() && !set[0].fileName.empty()) {
            const std::string& file = set[0].fileName;
            material.name += ": " + ToUtf8(file);
            auto found = textures.find(file);
            if (found == textures.end()) {
                tinygltf::Image image;
                image.name = ToUtf8(file);
                image.uri = FileUri(file);
                model.images.push_back(image);
                tinygltf::Texture texture;
                texture.source = static_cast<int>(model.images.size() - 1);
                texture.sampler = 0;
                model.textures.push_back(texture);
                found = textures.emplace(file, static_cast<int>(model.textures.size() - 1)).first;
            }
            material.pbrMetallicRoughness.baseColorTexture.index = found->second;
        }
        const bool opacity =
            std::any_of(set.begin(), set.end(), [](const TextureEntry& entry) { return entry.flags & kTextureOpacity; });
        material.alphaMode = opacity ? "BLEND" : "OPAQUE";
        model.materials.push_back(material);
    }
    if (!model.textures.empty()) {
        tinygltf::Sampler sampler;
        sampler.wrapS = TINYGLTF_TEXTURE_WRAP_REPEAT;
        sampler.wrapT = TINYGLTF_TEXTURE_WRAP_REPEAT;
        model.samplers.push_back(sampler);
    }
}

struct VertexRange {
    uint32_t firstTriangle, triangleCount, firstVertex, vertexCount, textureSet;
};

std::vector<VertexRange> Ranges(const Mesh& mesh)
{
    std::vector<VertexRange> ranges;
    for (const Batch batch : mesh.batches)
        ranges.push_back({batch.firstTriangle, batch.triangleCount, batch.firstVertex, batch.vertexCount, batch.textureSet});
    // Render data loaded from a vertex file has no batches: its corners index the whole list.
    if (mesh.batches.empty() && !mesh.triangles.empty())
        ranges.push_back({0, static_cast<uint32_t>(mesh.triangles.size()), 0, mesh.header.vertexCount,
                          mesh.triangles[0].textureSet});
    return ranges;
}

// Frames stored after the first become morph targets when they move positions or normals.
bool HasMorphTargets(const Mesh& mesh)
{
    return mesh.frames.size() > 1 && (mesh.header.flags & (kComponentPosition | kComponentNormal)) != 0;
}

bool AddMesh(const Node& node, BufferBuilder& buffers, tinygltf::Model& model, std::string* error)
{
    const Mesh& mesh = node.mesh;
    for (size_t f = 0; f < mesh.frames.size(); ++f) {
        for (size_t v = 0; v < mesh.vertices.size(); ++v) {
            if (!Finite(Xyz(mesh.FrameVertex(f, v).position))) {
                *error = "node '" + node.name + "': vertex " + std::to_string(v) + " of stored frame " +
                         std::to_string(f) + " has a position that is not a finite number";
                return false;
            }
        }
    }
    const RecordView<Vertex>& base = mesh.vertices;
    const bool morph = HasMorphTargets(mesh);
    tinygltf::Mesh gltfMesh;
    gltfMesh.name = ToUtf8(node.name);
    for (const VertexRange& range : Ranges(mesh)) {
        std::vector<float> positions, normals, texcoords;
        for (uint32_t v = range.firstVertex; v < range.firstVertex + range.vertexCount; ++v) {
            const Vertex vertex = base[v];
            positions.insert(positions.end(), {vertex.position.x, vertex.position.y, vertex.position.z});
            const auto normal = UnitNormal(Xyz(vertex.normal));
            normals.insert(normals.end(), normal.begin(), normal.end());
            texcoords.push_back(std::isfinite(vertex.u) ? vertex.u : 0.0f);
            texcoords.push_back(std::isfinite(vertex.v) ? vertex.v : 0.0f);
        }
        std::vector<uint32_t> indices;
        for (uint32_t t = range.firstTriangle; t < range.firstTriangle + range.triangleCount; ++t) {
            const auto corners = mesh.triangles[t].corners;
            indices.insert(indices.end(), {corners[0], corners[2], corners[1]});
        }
        tinygltf::Primitive primitive;
        primitive.mode = TINYGLTF_MODE_TRIANGLES;
        primitive.material = static_cast<int>(range.textureSet);
        primitive.attributes["POSITION"] = buffers.Floats(positions, TINYGLTF_TYPE_VEC3, 3, kArrayBuffer, true);
        primitive.attributes["NORMAL"] = buffers.Floats(normals, TINYGLTF_TYPE_VEC3, 3, kArrayBuffer, false);
        primitive.attributes["TEXCOORD_0"] = buffers.Floats(texcoords, TINYGLTF_TYPE_VEC2, 2, kArrayBuffer, false);
        primitive.indices = buffers.Indices(indices);
        if (morph) {
            for (size_t f = 1; f < mesh.frames.size(); ++f) {
                std::vector<float> positionDeltas, normalDeltas;
                for (uint32_t v = range.firstVertex; v < range.firstVertex + range.vertexCount; ++v) {
                    const auto frameVertex = mesh.FrameVertex(f, v);
                    const auto from = UnitNormal(Xyz(base[v].normal));
                    const auto to = UnitNormal(Xyz(frameVertex.normal));
                    for (int c = 0; c < 3; ++c) {
                        positionDeltas.push_back(Xyz(frameVertex.position)[c] - Xyz(base[v].position)[c]);
                        normalDeltas.push_back(to[c] - from[c]);
                    }
                }
                std::map<std::string, int> target;
                target["POSITION"] = buffers.Floats(positionDeltas, TINYGLTF_TYPE_VEC3, 3, kArrayBuffer, true);
                if (mesh.header.flags & kComponentNormal)
                    target["NORMAL"] = buffers.Floats(normalDeltas, TINYGLTF_TYPE_VEC3, 3, kArrayBuffer, false);
                primitive.targets.push_back(target);
            }
        }
        gltfMesh.primitives.push_back(primitive);
    }
    if (gltfMesh.primitives.empty())
        return true;  // a mesh without triangles has nothing to show
    if (morph)
        gltfMesh.weights.assign(mesh.frames.size() - 1, 0.0);
    model.meshes.push_back(gltfMesh);
    return true;
}

int AddSampler(tinygltf::Animation& animation, int input, int output, const std::string& path, int node)
{
    tinygltf::AnimationSampler sampler;
    sampler.input = input;
    sampler.output = output;
    sampler.interpolation = "LINEAR";
    animation.samplers.push_back(sampler);
    tinygltf::AnimationChannel channel;
    channel.sampler = static_cast<int>(animation.samplers.size() - 1);
    channel.target_node = node;
    channel.target_path = path;
    animation.channels.push_back(channel);
    return channel.sampler;
}

std::vector<float> Seconds(const std::vector<uint32_t>& milliseconds)
{
    std::vector<float> seconds;
    for (uint32_t time : milliseconds)
        seconds.push_back(static_cast<float>(time / 1000.0));
    return seconds;
}

// Seconds must rise strictly in glTF, even where milliseconds close together round alike.
void KeepRising(std::vector<uint32_t>& times, std::vector<float>& seconds, std::vector<size_t>* kept)
{
    std::vector<uint32_t> outTimes;
    std::vector<float> outSeconds;
    for (size_t i = 0; i < times.size(); ++i) {
        if (!outSeconds.empty() && !(seconds[i] > outSeconds.back()))
            continue;
        outTimes.push_back(times[i]);
        outSeconds.push_back(seconds[i]);
        if (kept)
            kept->push_back(i);
    }
    times = std::move(outTimes);
    seconds = std::move(outSeconds);
}

bool AddTransformAnimation(const Node& node, int index, const ExportOptions& options, size_t maxSamples,
                           BufferBuilder& buffers, tinygltf::Animation& animation, std::string* error)
{
    std::vector<uint32_t> times = SampleTimes(node.animation, options.sampleStepMilliseconds, maxSamples);
    std::vector<float> seconds = Seconds(times);
    KeepRising(times, seconds, nullptr);
    if (times.empty())
        return true;
    const TransformSamples samples = SampleTransform(node.info.matrix.m, node.animation, times);
    std::vector<float> translations, rotations, scales;
    for (const Trs& trs : samples.values) {
        if (!Finite(trs.translation) || !Finite(trs.rotation) || !Finite(trs.scale)) {
            *error = "node '" + node.name + "': its keys give a transform that is not finite";
            return false;
        }
        translations.insert(translations.end(), trs.translation.begin(), trs.translation.end());
        rotations.insert(rotations.end(), trs.rotation.begin(), trs.rotation.end());
        scales.insert(scales.end(), trs.scale.begin(), trs.scale.end());
    }
    const int input = buffers.Floats(seconds, TINYGLTF_TYPE_SCALAR, 1, 0, true);
    AddSampler(animation, input, buffers.Floats(translations, TINYGLTF_TYPE_VEC3, 3, 0, false), "translation", index);
    AddSampler(animation, input, buffers.Floats(rotations, TINYGLTF_TYPE_VEC4, 4, 0, false), "rotation", index);
    AddSampler(animation, input, buffers.Floats(scales, TINYGLTF_TYPE_VEC3, 3, 0, false), "scale", index);
    return true;
}

void AddWeightsAnimation(const Node& node, int index, BufferBuilder& buffers, tinygltf::Animation& animation)
{
    const Mesh& mesh = node.mesh;
    std::vector<uint32_t> times;
    std::vector<size_t> frames;  // stored frame of each time
    for (size_t f = 0; f < mesh.frames.size(); ++f) {
        if (mesh.frames[f].time >= 0) {
            times.push_back(static_cast<uint32_t>(mesh.frames[f].time));
            frames.push_back(f);
        }
    }
    std::vector<float> seconds = Seconds(times);
    std::vector<size_t> kept;
    KeepRising(times, seconds, &kept);
    if (times.empty())
        return;
    const size_t targets = mesh.frames.size() - 1;
    std::vector<float> weights;
    for (size_t k : kept) {
        const size_t frame = frames[k];
        for (size_t t = 0; t < targets; ++t)
            weights.push_back(frame == t + 1 ? 1.0f : 0.0f);
    }
    const int input = buffers.Floats(seconds, TINYGLTF_TYPE_SCALAR, 1, 0, true);
    AddSampler(animation, input, buffers.Floats(weights, TINYGLTF_TYPE_SCALAR, 1, 0, false), "weights", index);
}

}  // namespace

bool BuildGltf(const Scene& scene, const ExportOptions& options, tinygltf::Model* model, std::string* error)
{
    std::string reason;
    if (!error)
        error = &reason;
    *model = tinygltf::Model{};
    model->asset.version = "2.0";
    model->asset.generator = "vern3d";
    model->defaultScene = 0;
    AddMaterials(scene, *model);
    BufferBuilder buffers(*model);
    tinygltf::Animation animation;
    animation.name = "vern3d";

    size_t animated = 0;
    for (const Node& node : scene.nodes) {
        animated += node.hasAnimation && HasMovingKeys(node.animation);
        if (node.hasMesh && HasMorphTargets(node.mesh) && node.mesh.frames.size() - 1 > options.maxMorphTargets) {
            *error = "node '" + node.name + "' has " + std::to_string(node.mesh.frames.size()) +
                     " stored frames; the export makes at most " + std::to_string(options.maxMorphTargets) +
                     " morph targets";
            return false;
        }
    }
    const size_t samplesPerNode = std::max<size_t>(
        std::min(options.maxSamplesPerScene / std::max<size_t>(animated, 1), options.maxSamplesPerNode), 2);

    model->nodes.resize(scene.nodes.size());
    for (size_t i = 0; i < scene.nodes.size(); ++i) {
        const Node& node = scene.nodes[i];
        tinygltf::Node& out = model->nodes[i];
        const int index = static_cast<int>(i);
        out.name = ToUtf8(node.name);
        out.children.assign(node.children.begin(), node.children.end());
        if (i == 0) {
            out.matrix.assign(std::begin(kZUpToYUp), std::end(kZUpToYUp));
        } else if (!Finite(node.info.matrix.m)) {
            *error = "node '" + node.name + "': its matrix is not finite";
            return false;
        } else if (node.hasAnimation && HasMovingKeys(node.animation)) {
            // Animated nodes carry translation, rotation and scale, never a matrix.
            const Trs trs = Decompose(node.info.matrix.m);
            out.translation.assign(trs.translation.begin(), trs.translation.end());
            out.rotation.assign(trs.rotation.begin(), trs.rotation.end());
            out.scale.assign(trs.scale.begin(), trs.scale.end());
            if (!AddTransformAnimation(node, index, options, samplesPerNode, buffers, animation, error))
                return false;
        } else {
            // Row-major for row vectors reads as column-major for column vectors: the same floats.
            out.matrix.assign(node.info.matrix.m.begin(), node.info.matrix.m.end());
        }
        if (node.hasMesh) {
            const size_t meshes = model->meshes.size();
            if (!AddMesh(node, buffers, *model, error))
                return false;
            if (model->meshes.size() > meshes) {
                out.mesh = static_cast<int>(meshes);
                if (!model->meshes.back().weights.empty())
                    AddWeightsAnimation(node, index, buffers, animation);
            }
        }
    }
    tinygltf::Scene gltfScene;
    gltfScene.name = ToUtf8(scene.nodes.empty() ? std::string() : scene.nodes[0].name);
    gltfScene.nodes.push_back(0);
    model->scenes.push_back(gltfScene);
    if (!animation.channels.empty())
        model->animations.push_back(animation);
    if (model->buffers[0].data.empty())
        model->buffers.clear();
    return true;
}

bool ExportGltf(const Scene& scene, const std::string& path, const ExportOptions& options, std::string* error)
{
    std::string reason;
    if (!error)
        error = &reason;
    const auto dot = path.find_last_of('.');
    const std::string extension = dot == std::string::npos ? "" : path.substr(dot);
    const bool binary = extension == ".glb";
    if (!binary && extension != ".gltf") {
        *error = "the output name must end in .glb or .gltf: " + path;
        return false;
    }
    tinygltf::Model model;
    if (!BuildGltf(scene, options, &model, error))
        return false;
    tinygltf::TinyGLTF writer;
    writer.SetImageWriter(nullptr, nullptr);  // images stay external files named by their URIs
    std::ostringstream text;
    if (!writer.WriteGltfSceneToStream(&model, text, true, binary)) {
        *error = "glTF writing failed";
        return false;
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    const std::string bytes = text.str();
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        *error = "cannot write " + path;
        return false;
    }
    return true;
}

}  // namespace vern3d
