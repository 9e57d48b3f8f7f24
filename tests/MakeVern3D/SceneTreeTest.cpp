#include "Output/SceneFile.h"
#include "Scene/NodeIndex.h"
#include "support/AseTestParse.h"
#include "support/RandomScenes.h"
#include "vern/Vern3DDecoder.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace {

using Names = std::vector<std::string>;

Names ChildNames(const BaseNode& node) { return asetest::ChildNames(&node); }

using asetest::AddNode;

// FindNode takes the first in pre-order; Remove lifts the children to the end.
TEST(SceneTree, FindNodeAndRemove)
{
    BaseNode root("root");
    TransformNode& a = AddNode(root, "a");
    TransformNode& deep = AddNode(a, "twin");
    AddNode(root, "twin");
    EXPECT_EQ(root.FindNode("twin"), &deep);
    EXPECT_EQ(root.FindNode("root"), &root);
    EXPECT_EQ(root.FindNode("Twin"), nullptr);
    AddNode(a, "a2");
    a.Remove();
    EXPECT_EQ(ChildNames(root), (Names{"twin", "twin", "a2"}));
    for (const auto& child : root.Children())
        EXPECT_EQ(child->Parent(), &root);
}

struct Counted : TransformNode {
    explicit Counted(int* alive) : alive(alive) { ++*alive; }
    ~Counted() override { --*alive; }
    int* alive;
};

TEST(SceneTree, DestroyingTheRootDestroysEveryNodeOnce)
{
    int alive = 0;
    {
        BaseNode root("root");
        BaseNode* level = &root;
        for (int i = 0; i < 200000; ++i) {  // a chain deep enough to break any recursion
            auto node = std::make_unique<Counted>(&alive);
            BaseNode* next = node.get();
            level->AddChild(std::move(node));
            if (i % 2 == 0)
                level->AddChild(std::make_unique<Counted>(&alive));
            level = next;
        }
        EXPECT_EQ(alive, 300000);
        EXPECT_EQ(root.GetLastKeyTime(), 0u);
        root.Prepare();
    }
    EXPECT_EQ(alive, 0);
}

// Applies the directives to a root with one child of `name` that has one child "kid", then "last".
Names AfterDirectives(const std::string& name)
{
    BaseNode root("root");
    AddNode(AddNode(root, name), "kid");
    AddNode(root, "last");
    Reporter reporter;
    root.ApplyNameDirectives(reporter, 1);
    EXPECT_FALSE(reporter.HasError()) << name;
    return ChildNames(root);
}

TEST(NameDirectives, Table)
{
    const std::pair<const char*, Names> cases[] = {
        {"convert()Box", {"Box", "last"}}, {"CONVERT(DELETE)Box", {"last", "kid"}}, {"convert()", {"", "last"}},
        {"convert(delete,createanimfrommesh)Box", {"last", "kid"}},
        {"convert(createanimfrommesh,delete)Box", {"last", "kid"}},  // a helper: no animation to make
        {"convert( delete)Box", {"Box", "last"}}, {"convert(unknown,other)Box", {"Box", "last"}},
        {"convert(delete", {"convert(delete", "last"}}, {"convert(", {"convert(", "last"}}, {"Convert", {"Convert", "last"}},
        {"convert()convert(delete)", {"convert(delete)", "last"}},
    };
    for (const auto& [name, topLevel] : cases)
        EXPECT_EQ(AfterDirectives(name), topLevel) << name;
}

TEST(NameDirectives, LiftedChildrenAreWalkedAgainUnlessTheRemovedChildWasLast)
{
    // Removing a middle child lifts its children behind the walk's position: their (already
    // rewritten) names are read once more, so a second prefix is consumed too.
    const auto after = [](bool middle) {
        BaseNode root("root");
        AddNode(AddNode(root, "convert(delete)m"), "convert()convert()k");
        if (middle)
            AddNode(root, "z");
        Reporter reporter;
        root.ApplyNameDirectives(reporter, 1);
        return ChildNames(root);
    };
    EXPECT_EQ(after(true), (Names{"z", "k"}));
    EXPECT_EQ(after(false), (Names{"convert()k"}));
}

TEST(SelectObjects, KeepsExactlyTheNamedObjects)
{
    BaseNode root("root");
    AddNode(AddNode(root, "a"), "a-sub");
    AddNode(AddNode(root, "b"), "wanted-child");
    AddNode(root, "convert()Box");
    AddNode(root, "c");
    root.SelectObjects({"a", "wanted-child", "Box", "c"});
    EXPECT_EQ(ChildNames(root), (Names{"a", "c", "wanted-child"}));
    EXPECT_EQ(ChildNames(*root.Children()[0]), (Names{"a-sub"}));
}

// The record of a node as a literal chain of requests computes it: each node asks its parent,
// which asks its own parent, and every asked node that has bounds grows its parent's.
struct Reference {
    Matrix world = Matrix::Identity();
    bool isRoot = false;
    bool mesh = false;
    Sphere meshSphere;
    bool hasBounds = false;
    Sphere bounds;
    Reference* parent = nullptr;
    std::vector<std::unique_ptr<Reference>> children;
};

// A node that gets its bounds when its writing begins if its mirror is a mesh; else a plain transform node.
struct BoundedNode : TransformNode {
    using TransformNode::TransformNode;
    HRESULT BeginWrite(NodeWriteContext& context, bool* write) override
    {
        if (mirror->mesh)
            hasBounds = true, bounds = mirror->meshSphere;
        return TransformNode::BeginWrite(context, write);
    }
    const Reference* mirror = nullptr;
};

NodeInfo ReferenceInfo(Reference& node)
{
    NodeInfo info;
    info.size = 104;
    info.flags |= 1;
    if (node.hasBounds)
        info.flags |= 8, info.bounds = node.bounds;
    if (node.isRoot)
        return info;
    info.flags |= 2;
    const NodeInfo parentInfo = ReferenceInfo(*node.parent);
    info.matrix = (parentInfo.flags & 2) ? Multiply(node.world, Inverse(node.parent->world)) : node.world;
    if (!node.hasBounds)
        return info;
    info.flags |= 2 | 4 | 8 | 16;
    info.bounds = node.bounds;
    const Vector3 row2{info.matrix(2, 0), info.matrix(2, 1), info.matrix(2, 2)};
    info.parentBounds = {TransformPoint(node.bounds.centre, info.matrix), node.bounds.radius * Length(row2)};
    if (node.parent->hasBounds)
        MergeSphere(node.parent->bounds, info.parentBounds);
    else
        node.parent->hasBounds = true, node.parent->bounds = info.parentBounds;
    return info;
}

// Writes the subtree of `node`: children first, each record in its place in pre-order.
void ReferenceWrite(Reference& node, std::vector<NodeInfo>& written)
{
    if (node.mesh)
        node.hasBounds = true, node.bounds = node.meshSphere;
    const size_t slot = written.size();
    written.emplace_back();
    for (auto& child : node.children)
        ReferenceWrite(*child, written);
    written[slot] = ReferenceInfo(node);
}

void ExpectSameInfo(const NodeInfo& actual, const NodeInfo& expected, const std::string& where)
{
    EXPECT_EQ(std::tuple(actual.flags, std::memcmp(&actual.matrix, &expected.matrix, 64), std::memcmp(&actual.bounds, &expected.bounds, 16),
                         std::memcmp(&actual.parentBounds, &expected.parentBounds, 16)),
              std::tuple(expected.flags, 0, 0, 0)) << where;
}

TEST(NodeInfo, WritingMatchesTheLiteralChainOfRequests)
{
    randomscenes::Random random(20261122);
    testfiles::ScratchDirectory directory;
    for (int round = 0; round < 150; ++round) {
        Scene written;
        written.root = std::make_unique<BaseNode>("root");
        Reference reference;
        reference.isRoot = true;
        std::vector<std::pair<BaseNode*, Reference*>> nodes{{written.root.get(), &reference}};
        for (int i = random.Int(1, 30); i > 0; --i) {
            auto [parent, referenceParent] = nodes[static_cast<size_t>(random.Int(0, static_cast<int>(nodes.size()) - 1))];
            auto mirror = std::make_unique<Reference>();
            mirror->mesh = random.Chance(0.5);
            mirror->meshSphere = {{random.Hundredths(-1000, 1000), random.Hundredths(-1000, 1000), random.Hundredths(-1000, 1000)},
                                  random.Hundredths(10, 500)};
            const float scale = 0.5f + static_cast<float>(random.Int(0, 3));
            Matrix& world = mirror->world;
            world(0, 0) = world(2, 2) = scale;
            world(1, 1) = 1.0f / scale;
            for (const auto [row, column, range] : {std::array{0, 1, 100}, {1, 0, 50}, {3, 0, 1000}, {3, 1, 1000}, {3, 2, 1000}})
                world(row, column) = random.Hundredths(-range, range);
            mirror->parent = referenceParent;
            auto node = std::make_unique<BoundedNode>("n" + std::to_string(nodes.size()));
            node->world = world;
            node->mirror = mirror.get();
            nodes.emplace_back(node.get(), mirror.get());
            parent->AddChild(std::move(node));
            referenceParent->children.push_back(std::move(mirror));
        }
        std::vector<NodeInfo> expected;
        ReferenceWrite(reference, expected);

        const std::string path = directory.Path() + "/tree.vern3D";
        Reporter reporter;
        ASSERT_EQ(WriteScene(written, {}, path, reporter), S_OK);
        vern3d::Scene scene;
        std::string error;
        ASSERT_TRUE(vern3d::DecodeFile(path, &scene, &error)) << error;
        ASSERT_EQ(scene.nodes.size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i)
            ExpectSameInfo(scene.nodes[i].info, expected[i], "round " + std::to_string(round) + " node " + std::to_string(i));
        // A node's own request outside writing, now that the meshes have bounds, asks the same chain.
        for (auto [node, mirror] : nodes) {
            NodeInfo actual;
            node->GetInfo(actual);
            ExpectSameInfo(actual, ReferenceInfo(*mirror), "round " + std::to_string(round) + " request of " + node->name);
        }
    }
}

TEST(NodeIndex, FindsWhatTheDepthFirstSearchFinds)
{
    randomscenes::Random random(7);
    const auto randomName = [&] { return "name" + std::to_string(random.Int(0, 7)); };
    for (int round = 0; round < 200; ++round) {
        BaseNode root("root");
        NodeIndex index;
        index.Add(&root);
        std::vector<BaseNode*> nodes{&root};
        for (int i = 0; i < 60; ++i) {
            BaseNode* raw = &AddNode(*nodes[static_cast<size_t>(random.Int(0, i))], randomName());
            index.Add(raw);
            nodes.push_back(raw);
            if (random.Chance(0.2)) {  // renamed after linking
                BaseNode* renamed = nodes[static_cast<size_t>(random.Int(1, i + 1))];
                const std::string newName = randomName();
                index.Rename(renamed, newName);
                renamed->name = newName;
            }
            for (int probe = 0; probe < 9; ++probe) {
                const std::string name = probe == 8 ? "root" : "name" + std::to_string(probe);
                ASSERT_EQ(index.Find(name), root.FindNode(name)) << round << " " << name;
            }
        }
    }
}

TEST(SceneTree, LongChainsConvertInLinearTime)
{
    // 100,000 helpers, each the parent of the next: reading, directives, preparation and
    // writing must neither recurse nor walk the chain per node.
    std::string text = "*HELPEROBJECT {\n*NODE_NAME \"n0\"\n*HELPER_CLASS \"Dummy\"\n}\n";
    for (int i = 1; i < 100000; ++i)
        text += "*HELPEROBJECT {\n*NODE_NAME \"convert()n" + std::to_string(i) + "\"\n*NODE_PARENT \"" +
                (i == 1 ? "n0" : "convert()n" + std::to_string(i - 1)) + "\"\n*NODE_TM {\n*TM_ROW3 " + std::to_string(i) + " 0 0\n}\n}\n";
    const auto parsed = asetest::ParseAse(text, {}, false);
    ASSERT_FALSE(parsed.Failed()) << parsed.ErrorText();
    vern3d::Scene scene;
    std::string error;
    ASSERT_TRUE(vern3d::DecodeFile(parsed.output, &scene, &error)) << error;
    ASSERT_EQ(scene.nodes.size(), 100001u);
    EXPECT_EQ(scene.nodes[100000].name, "n99999");
    EXPECT_EQ(scene.nodes[100000].info.matrix(3, 0), 1.0f);  // one step along x from its parent
}

}  // namespace
