#include "Scene/BaseNode.h"

#include "Scene/Scene.h"

#include <algorithm>

namespace {
uint64_t nextLinkSequence = 1;
}

// ---------------------------------------------------------------- BaseNode

BaseNode::BaseNode(std::string name) : name(std::move(name)) {}

BaseNode::~BaseNode()
{
    // Take the subtree apart level by level, so that destroying a long chain never recurses.
    std::vector<std::unique_ptr<BaseNode>> pending = std::move(children);
    while (!pending.empty()) {
        std::unique_ptr<BaseNode> node = std::move(pending.back());
        pending.pop_back();
        for (auto& child : node->children)
            pending.push_back(std::move(child));
        node->children.clear();
    }
}

void BaseNode::GetInfo(NodeInfo& info)
{
    info.flags |= vern3d::kNodeFilled;
    if (hasBounds) {
        info.flags |= vern3d::kNodeBounds;
        info.bounds = bounds;
    }
}

void BaseNode::AddChild(std::unique_ptr<BaseNode> child)
{
    child->parent = this;
    child->linkSequence = nextLinkSequence++;
    children.push_back(std::move(child));
}

BaseNode* BaseNode::FindNode(const std::string& wanted)
{
    std::vector<BaseNode*> pending{this};
    while (!pending.empty()) {
        BaseNode* node = pending.back();
        pending.pop_back();
        if (node->name == wanted)
            return node;
        for (auto child = node->children.rbegin(); child != node->children.rend(); ++child)
            pending.push_back(child->get());
    }
    return nullptr;
}

void BaseNode::Remove()
{
    BaseNode* const owner = parent;
    for (auto& child : children)
        owner->AddChild(std::move(child));
    children.clear();
    auto self = std::find_if(owner->children.begin(), owner->children.end(),
                             [this](const std::unique_ptr<BaseNode>& entry) { return entry.get() == this; });
    // Erasing the owning entry destroys this node; nothing may touch it afterwards.
    owner->children.erase(self);
}

uint32_t BaseNode::GetLastKeyTime()
{
    uint32_t latest = 0;
    std::vector<BaseNode*> pending;
    for (auto& child : children)
        pending.push_back(child.get());
    latest = std::max(latest, OwnLastKeyTime());
    while (!pending.empty()) {
        BaseNode* node = pending.back();
        pending.pop_back();
        latest = std::max(latest, node->OwnLastKeyTime());
        for (auto& child : node->children)
            pending.push_back(child.get());
    }
    return latest;
}

Matrix BaseNode::GetTransform(uint32_t time)
{
    return parent ? parent->GetTransform(time) : Matrix::Identity();
}

void BaseNode::PrepareNode(OpenPath&) {}

void BaseNode::Prepare()
{
    struct Frame {
        BaseNode* node;
        size_t next;
    };
    OpenPath path;
    std::vector<BaseNode*> ancestors;
    for (BaseNode* node = parent; node; node = node->parent)
        ancestors.push_back(node);
    for (auto node = ancestors.rbegin(); node != ancestors.rend(); ++node)
        path.Push(*node);

    std::vector<Frame> stack{{this, 0}};
    path.Push(this);
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next < frame.node->children.size()) {
            BaseNode* child = frame.node->children[frame.next++].get();
            stack.push_back({child, 0});
            path.Push(child);
            continue;
        }
        frame.node->PrepareNode(path);
        stack.pop_back();
        path.Pop();
    }
}

void PrepareScene(Scene& scene)
{
    scene.root->Prepare();
}

// ---------------------------------------------------------------- OpenPath

void OpenPath::Push(BaseNode* node)
{
    nodes.push_back(node);
    if (node->hasBounds)
        bounded.push_back(nodes.size() - 1);
}

void OpenPath::Pop()
{
    if (!bounded.empty() && bounded.back() == nodes.size() - 1)
        bounded.pop_back();
    nodes.pop_back();
}

void OpenPath::NoteBounds(size_t index)
{
    const auto place = std::lower_bound(bounded.begin(), bounded.end(), index);
    if (place == bounded.end() || *place != index)
        bounded.insert(place, index);
}

void OpenPath::MergeAncestors(size_t count)
{
    // Top-down, as the chain of requests unwinds from the root: each bounded node grows its
    // parent. A parent that gets its first bounds here was asked before its child merged, so it
    // merges nothing in this pass; it is only noted for later requests.
    for (size_t position = 0; position < bounded.size() && bounded[position] < count; ++position) {
        const size_t index = bounded[position];
        if (index == 0 || !nodes[index]->IsTransformNode())
            continue;
        if (MergeIntoParent(static_cast<TransformNode&>(*nodes[index]))) {
            bounded.insert(bounded.begin() + static_cast<std::ptrdiff_t>(position), index - 1);
            ++position;
        }
    }
}

Matrix LocalMatrix(const TransformNode& node)
{
    const BaseNode* parent = node.Parent();
    if (parent && parent->IsTransformNode())
        return Multiply(node.world, Inverse(static_cast<const TransformNode*>(parent)->world));
    return node.world;
}

namespace {

Sphere ToParentSpace(const Sphere& sphere, const Matrix& local)
{
    const Vector3 row2{local(2, 0), local(2, 1), local(2, 2)};
    return {TransformPoint(sphere.centre, local), sphere.radius * Length(row2)};
}

}  // namespace

bool MergeIntoParent(TransformNode& node)
{
    return MergeIntoParent(node, ToParentSpace(node.bounds, LocalMatrix(node)));
}

bool MergeIntoParent(TransformNode& node, const Sphere& seen)
{
    BaseNode* parent = node.Parent();
    if (!parent->hasBounds) {
        parent->hasBounds = true;
        parent->bounds = seen;
        return true;
    }
    MergeSphere(parent->bounds, seen);
    return false;
}

// ---------------------------------------------------------------- TransformNode

void TransformNode::FillInfo(NodeInfo& info)
{
    BaseNode::GetInfo(info);
    info.flags |= vern3d::kNodeFilled | vern3d::kNodeMatrix;
    info.matrix = LocalMatrix(*this);
    if (!hasBounds)
        return;
    info.flags |= vern3d::kNodeMatrix | vern3d::kNodeParentBoundsA | vern3d::kNodeBounds | vern3d::kNodeParentBoundsB;
    info.bounds = bounds;
    info.parentBounds = ToParentSpace(bounds, info.matrix);
    if (parent)
        MergeIntoParent(*this, info.parentBounds);
}

void TransformNode::GetInfo(NodeInfo& info)
{
    OpenPath path;
    std::vector<BaseNode*> chain;
    for (BaseNode* node = this; node; node = node->Parent())
        chain.push_back(node);
    for (auto node = chain.rbegin(); node != chain.rend(); ++node)
        path.Push(*node);
    path.MergeAncestors(path.Size() - 1);
    FillInfo(info);
}

Matrix TransformNode::GetTransform(uint32_t time)
{
    // Top-down over the ancestors, evaluating each track once: world = local * parent world.
    // Chains are short (kept on the stack), except in generated files.
    constexpr size_t kShort = 32;
    TransformNode* shortChain[kShort];
    std::vector<TransformNode*> longChain;
    size_t depth = 0;
    for (BaseNode* node = this; node && node->IsTransformNode(); node = node->Parent())
        ++depth;
    if (depth > kShort)
        longChain.resize(depth);
    TransformNode** chain = depth > kShort ? longChain.data() : shortChain;
    BaseNode* node = this;
    for (size_t k = 0; k < depth; ++k, node = node->Parent())
        chain[k] = static_cast<TransformNode*>(node);
    Matrix world = Matrix::Identity();
    for (size_t k = depth; k > 0; --k) {
        chain[k - 1]->track.Evaluate(time);
        world = Multiply(chain[k - 1]->track.matrix, world);
    }
    return world;
}

uint32_t TransformNode::OwnLastKeyTime() const
{
    uint32_t latest = 0;
    if (!track.positionKeys.empty())
        latest = std::max(latest, static_cast<uint32_t>(track.positionKeys.back().time));
    if (!track.rotationKeys.empty())
        latest = std::max(latest, static_cast<uint32_t>(track.rotationKeys.back().time));
    return latest;
}

// ---------------------------------------------------------------- MeshNode

uint32_t MeshNode::OwnLastKeyTime() const
{
    uint32_t latest = TransformNode::OwnLastKeyTime();
    if (!frames.empty())
        latest = std::max(latest, static_cast<uint32_t>(frames.back()->time));
    return latest;
}
