// Scene edits between reading and writing: -obj selection of top-level objects, and the
// "convert(" commands ")" name directives written into object names.
#include "Scene/BaseNode.h"
#include "Scene/Scene.h"

#include <algorithm>

namespace {

constexpr size_t kPrefixLength = 8;  // "convert("

// Letters A to Z become a to z; every other byte stays.
std::string LowerCase(std::string text)
{
    for (char& character : text)
        if (character >= 'A' && character <= 'Z')
            character = static_cast<char>(character - 'A' + 'a');
    return text;
}

bool HasDirectivePrefix(const std::string& name)
{
    if (name.size() < kPrefixLength)
        return false;
    return LowerCase(name.substr(0, kPrefixLength)) == "convert(";
}

// Moves the node's children to the end of `owner`'s children, in their order.
void LiftChildren(BaseNode& node, BaseNode& owner, std::vector<std::unique_ptr<BaseNode>>& nodeChildren)
{
    for (auto& child : nodeChildren)
        owner.AddChild(std::move(child));
    nodeChildren.clear();
}

}  // namespace

void BaseNode::SelectObjects(const std::vector<std::string>& names)
{
    // Every top-level entry is examined, including children lifted from removed objects, so
    // exactly the named objects and their subtrees remain. Removed entries are left empty and
    // swept once at the end, which keeps the pass linear.
    for (size_t i = 0; i < children.size(); ++i) {
        BaseNode* child = children[i].get();
        if (std::find(names.begin(), names.end(), child->name) != names.end())
            continue;
        LiftChildren(*child, *this, child->children);
        children[i].reset();
    }
    std::erase(children, nullptr);
}

void SelectObjects(Scene& scene, const std::vector<std::string>& names)
{
    scene.root->SelectObjects(names);
}

void ApplyNameDirectives(Scene& scene, Reporter& reporter)
{
    scene.root->ApplyNameDirectives(reporter, scene.endLine);
}

void BaseNode::ApplyNameDirectives(Reporter& reporter, int32_t line)
{
    // Post-order over the subtree without recursion. Each node's children are walked in order;
    // the next entry is fixed before a child is processed, so children lifted to the end of the
    // list by a removal are walked again only when the removed child was not the last one.
    // Removed children leave an empty entry that is swept when their parent's walk ends.
    struct Frame {
        BaseNode* node;
        size_t index;  // the child being processed
        bool hasNext;  // whether an entry followed it when its processing began
    };
    std::vector<Frame> stack;

    // Runs the directive of `node` (its children are done), which sits at `index` in its parent's
    // list. Answers whether it was removed.
    auto runDirective = [&reporter, line](BaseNode* node, size_t index) {
        if (!HasDirectivePrefix(node->name))
            return false;
        std::string rest = node->name.substr(kPrefixLength);
        std::string command;
        for (;;) {
            if (!rest.empty() && rest[0] == ')') {
                node->name = rest.substr(1);
                return false;
            }
            const size_t end = rest.find_first_of(",)");
            if (end == std::string::npos)
                return false;  // unfinished command: not carried out, the name stays
            command += rest.substr(0, end);
            rest.erase(0, end);
            command = LowerCase(command);
            if (command == "delete" && node->parent) {
                BaseNode* owner = node->parent;
                LiftChildren(*node, *owner, node->children);
                owner->children[index].reset();  // after the lift, which may move the list
                return true;
            }
            if (command == "createanimfrommesh")
                node->CreateAnimFromMesh(reporter, line);
            if (rest[0] == ',') {
                rest.erase(0, 1);
                command.clear();
            }
        }
    };

    auto begin = [&](BaseNode* node) {
        stack.push_back({node, 0, false});
    };
    begin(this);
    while (!stack.empty()) {
        Frame& frame = stack.back();
        auto& list = frame.node->children;
        if (frame.index < list.size()) {
            frame.hasNext = frame.index + 1 < list.size();
            begin(list[frame.index].get());
            continue;
        }
        // All children done: sweep removed entries, then this node's own directive.
        std::erase(list, nullptr);
        BaseNode* node = frame.node;
        stack.pop_back();
        if (stack.empty()) {
            // The node the walk started from: its slot belongs to its parent (if any).
            BaseNode* const owner = node->parent;
            size_t index = 0;
            if (owner) {
                while (owner->children[index].get() != node)
                    ++index;
            }
            if (runDirective(node, index))
                std::erase(owner->children, nullptr);
            break;
        }
        Frame& owner = stack.back();
        runDirective(node, owner.index);
        if (owner.hasNext)
            ++owner.index;
        else
            owner.index = owner.node->children.size();  // the walk of this list ends here
    }
}
