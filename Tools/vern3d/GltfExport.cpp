#include "GltfExport.h"

#include "AbstractData/streams/ReplacementFile.h"
#include "TextEncoding.h"
#include "TransformSampling.h"

#include <tiny_gltf.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>

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

// Whether translation, rotation and scale give the matrix back: each element of its upper 3×3
// within `tolerance` times its longest row, and nothing in its last column but (0, 0, 0, 1).
bool NearlyTrs(const std::array<float, 16>& m, const Trs& trs, double tolerance)
{
    if (m[3] != 0.0f || m[7] != 0.0f || m[11] != 0.0f || m[15] != 1.0f)
        return false;
    const double x = trs.rotation[0], y = trs.rotation[1], z = trs.rotation[2], w = trs.rotation[3];
    const double r[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                            {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                            {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
    double longest = 0.0, deviation = 0.0;
    for (int row = 0; row < 3; ++row) {
        longest = std::max(longest, std::hypot(double{m[4 * row]}, double{m[4 * row + 1]}, double{m[4 * row + 2]}));
        // Row `row` of ours is the image of axis `row`: column `row` of R, times its scale.
        for (int i = 0; i < 3; ++i)
            deviation = std::max(deviation, std::abs(r[i][row] * trs.scale[row] - m[4 * row + i]));
    }
    return deviation <= tolerance * longest;
}

// Whether the Khronos validator takes a matrix as decomposable into translation, rotation and
// scale. It rebuilds the matrix from its own decomposition in single precision and compares the
// largest column sum of absolute values with the original's, within 5e-5; this follows it step
// by step (every stored value rounded to float, as its arrays do), with a margin.
bool ValidGltfMatrix(const std::array<float, 16>& m)
{
    if (m[3] != 0.0f || m[7] != 0.0f || m[11] != 0.0f || m[15] != 1.0f)
        return false;
    auto f = [](double value) { return static_cast<double>(static_cast<float>(value)); };
    const double a = m[0], b = m[1], c = m[2], d = m[4], e = m[5], g = m[6], h = m[8], i = m[9], j = m[10];
    const double determinant = a * (e * j - g * i) - b * (d * j - g * h) + c * (d * i - e * h);
    if (determinant == 0.0 || !std::isfinite(determinant))
        return false;
    double scale[3];
    for (int column = 0; column < 3; ++column)
        scale[column] = std::sqrt(f(m[4 * column]) * m[4 * column] + f(m[4 * column + 1]) * m[4 * column + 1] +
                                  f(m[4 * column + 2]) * m[4 * column + 2]);
    if (determinant < 0)
        scale[0] = -scale[0];
    double r[9];  // the columns divided by their lengths
    for (int column = 0; column < 3; ++column)
        for (int k = 0; k < 3; ++k)
            r[3 * column + k] = f(m[4 * column + k] * (1 / scale[column]));
    double q[4];
    const double trace = r[0] + r[4] + r[8];
    if (trace > 0) {
        double root = std::sqrt(trace + 1);
        q[3] = f(root * 0.5);
        root = 0.5 / root;
        q[0] = f((r[5] - r[7]) * root), q[1] = f((r[6] - r[2]) * root), q[2] = f((r[1] - r[3]) * root);
    } else {
        const int n = r[0] < r[4] ? (r[4] < r[8] ? 2 : 1) : (r[0] < r[8] ? 2 : 0);
        const int n1 = (n + 1) % 3, n2 = (n + 2) % 3;
        double root = std::sqrt(r[4 * n] - r[4 * n1] - r[4 * n2] + 1);
        q[n] = f(root * 0.5);
        root = 0.5 / root;
        q[3] = f((r[3 * n1 + n2] - r[3 * n2 + n1]) * root);
        q[n1] = f((r[3 * n + n1] + r[3 * n1 + n]) * root);
        q[n2] = f((r[3 * n + n2] + r[3 * n2 + n]) * root);
    }
    const double x2 = q[0] + q[0], y2 = q[1] + q[1], z2 = q[2] + q[2];
    const double xx = q[0] * x2, xy = q[0] * y2, xz = q[0] * z2, yy = q[1] * y2, yz = q[1] * z2, zz = q[2] * z2;
    const double wx = q[3] * x2, wy = q[3] * y2, wz = q[3] * z2;
    const double rebuilt[3][3] = {{1 - (yy + zz), xy + wz, xz - wy}, {xy - wz, 1 - (xx + zz), yz + wx},
                                  {xz + wy, yz - wx, 1 - (xx + yy)}};  // columns
    double rebuiltNorm = 0.0, norm = 0.0;
    for (int column = 0; column < 3; ++column) {
        double rebuiltSum = 0.0, sum = 0.0;
        for (int k = 0; k < 3; ++k) {
            rebuiltSum += std::abs(f(f(rebuilt[column][k]) * f(scale[column])));
            sum += std::abs(double{m[4 * column + k]});
        }
        rebuiltNorm = std::max(rebuiltNorm, rebuiltSum);
        norm = std::max(norm, sum);
    }
    const double translation = std::abs(double{m[12]}) + std::abs(double{m[13]}) + std::abs(double{m[14]}) + 1;
    rebuiltNorm = std::max(rebuiltNorm, translation);
    norm = std::max(norm, translation);
    return std::abs(rebuiltNorm - norm) < 2.5e-5;  // the validator's bound is 5e-5
}

std::string FormatTolerance(double tolerance)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", tolerance);
    return text;
}

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

// The values a mesh's animation takes as morph targets and a weights track (see ExportOptions).
uint64_t MorphValues(const Mesh& mesh)
{
    const uint64_t targets = mesh.frames.size() - 1;
    const bool normals = (mesh.header.flags & kComponentNormal) != 0;
    uint64_t perTarget = 0;
    for (const VertexRange& range : Ranges(mesh))
        perTarget += uint64_t{range.vertexCount} * (normals ? 6 : 3) + (normals ? 2 : 1) * kValuesPerAccessor;
    // Keys: at most one per stored frame, each with a weight per target; the mesh's own weights.
    return targets * perTarget + (targets + 1) * (targets + 1) + 2 * kValuesPerAccessor;
}

// Which meshes keep their animation: those within the scene's budget, in file order.
std::vector<bool> AnimatedMeshes(const Scene& scene, const ExportOptions& options, std::vector<std::string>* notes)
{
    const uint64_t budget = options.morphValuesPerByte * scene.fileSize + options.morphValuesBase;
    uint64_t used = 0;
    std::vector<bool> kept(scene.nodes.size(), false);
    for (size_t i = 0; i < scene.nodes.size(); ++i) {
        const Node& node = scene.nodes[i];
        if (!node.hasMesh || !HasMorphTargets(node.mesh))
            continue;
        const size_t frames = node.mesh.frames.size();
        const std::string left = "node '" + node.name + "': its animation of " + std::to_string(frames) +
                                 " stored frames is left out: ";
        const uint64_t values = MorphValues(node.mesh);
        if (frames - 1 > options.maxMorphTargets) {
            notes->push_back(left + "the export makes at most " + std::to_string(options.maxMorphTargets) +
                             " morph targets per mesh");
        } else if (values > budget - used) {
            notes->push_back(left + "its morph targets and weights would take " + std::to_string(values) +
                             " values, and those of the scene at most " + std::to_string(budget) + " (" +
                             std::to_string(options.morphValuesPerByte) + " per byte of its " +
                             std::to_string(scene.fileSize) + " bytes + " + std::to_string(options.morphValuesBase) +
                             "), of which " + std::to_string(used) + " are taken");
        } else {
            used += values;
            kept[i] = true;
        }
    }
    return kept;
}

bool AddMesh(const Node& node, bool animate, BufferBuilder& buffers, tinygltf::Model& model, std::string* error)
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
    const bool morph = animate && HasMorphTargets(mesh);
    const bool movingNormals = (mesh.header.flags & kComponentNormal) != 0;
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
                    for (int c = 0; c < 3; ++c)
                        positionDeltas.push_back(Xyz(frameVertex.position)[c] - Xyz(base[v].position)[c]);
                    if (!movingNormals)
                        continue;
                    const auto from = UnitNormal(Xyz(base[v].normal));
                    const auto to = UnitNormal(Xyz(frameVertex.normal));
                    for (int c = 0; c < 3; ++c)
                        normalDeltas.push_back(to[c] - from[c]);
                }
                std::map<std::string, int> target;
                target["POSITION"] = buffers.Floats(positionDeltas, TINYGLTF_TYPE_VEC3, 3, kArrayBuffer, true);
                if (movingNormals)
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

bool BuildGltf(const Scene& scene, const ExportOptions& options, tinygltf::Model* model, std::string* error,
               std::vector<std::string>* notes)
{
    std::string reason;
    if (!error)
        error = &reason;
    std::vector<std::string> ignored;
    if (!notes)
        notes = &ignored;
    *model = tinygltf::Model{};
    model->asset.version = "2.0";
    model->asset.generator = "vern3d";
    model->defaultScene = 0;
    AddMaterials(scene, *model);
    BufferBuilder buffers(*model);
    tinygltf::Animation animation;
    animation.name = "vern3d";

    size_t animated = 0;
    for (const Node& node : scene.nodes)
        animated += node.hasAnimation && HasMovingKeys(node.animation);
    const std::vector<bool> morphs = AnimatedMeshes(scene, options, notes);
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
        } else {
            // Animated nodes carry translation, rotation and scale, never a matrix; so does every
            // node whose matrix is one of those within the tolerance. A matrix that is not (a
            // shear) stays a matrix when glTF takes it, else it is straightened, with a note.
            const bool animated = node.hasAnimation && HasMovingKeys(node.animation);
            const Trs trs = Decompose(node.info.matrix.m);
            const bool nearTrs = NearlyTrs(node.info.matrix.m, trs, options.trsTolerance);
            if (!animated && !nearTrs && ValidGltfMatrix(node.info.matrix.m)) {
                // Row-major for row vectors reads as column-major for column vectors: the same floats.
                out.matrix.assign(node.info.matrix.m.begin(), node.info.matrix.m.end());
            } else {
                out.translation.assign(trs.translation.begin(), trs.translation.end());
                out.rotation.assign(trs.rotation.begin(), trs.rotation.end());
                out.scale.assign(trs.scale.begin(), trs.scale.end());
                if (!nearTrs)
                    notes->push_back("node '" + node.name + "': its matrix has no translation, rotation and scale " +
                                     "within " + FormatTolerance(options.trsTolerance) +
                                     "; it is written straightened" + (animated ? ", as its animation is" : ""));
            }
            if (animated && !AddTransformAnimation(node, index, options, samplesPerNode, buffers, animation, error))
                return false;
        }
        if (node.hasMesh) {
            const size_t meshes = model->meshes.size();
            if (!AddMesh(node, morphs[i], buffers, *model, error))
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

bool ExportGltf(const Scene& scene, const std::string& path, const ExportOptions& options, std::string* error,
                std::vector<std::string>* notes)
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
    if (!BuildGltf(scene, options, &model, error, notes))
        return false;
    // Written straight into the file (no copy of it in memory), under a temporary name.
    ReplacementFile replacement;
    const bool replace = ReplacementFile::Replaceable(path);
    if (replace && replacement.Create(path) != 0) {
        *error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    std::ofstream file(replace ? replacement.TemporaryPath() : path, std::ios::binary | std::ios::trunc);
    tinygltf::TinyGLTF writer;
    writer.SetImageWriter(nullptr, nullptr);  // images stay external files named by their URIs
    const bool written = file && writer.WriteGltfSceneToStream(&model, file, true, binary);
    file.close();
    if (!written || !file || (replace && replacement.Commit() != 0)) {
        *error = "cannot write " + path;
        return false;  // the temporary file goes with `replacement`
    }
    return true;
}

}  // namespace vern3d
