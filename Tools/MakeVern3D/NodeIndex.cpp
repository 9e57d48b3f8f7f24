#include "NodeIndex.h"

#include <algorithm>

void NodeIndex::Add(BaseNode* node)
{
    byName[node->name].push_back(node);
}

void NodeIndex::Rename(BaseNode* node, const std::string& newName)
{
    if (node->name == newName)
        return;
    auto entry = byName.find(node->name);
    if (entry != byName.end()) {
        auto& nodes = entry->second;
        nodes.erase(std::remove(nodes.begin(), nodes.end(), node), nodes.end());
        if (nodes.empty())
            byName.erase(entry);
    }
    byName[newName].push_back(node);
}

BaseNode* NodeIndex::Find(const std::string& name) const
{
    const auto entry = byName.find(name);
    if (entry == byName.end() || entry->second.empty())
        return nullptr;
    BaseNode* first = entry->second.front();
    for (BaseNode* candidate : entry->second)
        if (PrecedesInPreOrder(candidate, first))
            first = candidate;
    return first;
}

namespace {

size_t Depth(const BaseNode* node)
{
    size_t depth = 0;
    for (; node->Parent(); node = node->Parent())
        ++depth;
    return depth;
}

}  // namespace

bool PrecedesInPreOrder(const BaseNode* a, const BaseNode* b)
{
    if (a == b)
        return false;
    size_t depthA = Depth(a);
    size_t depthB = Depth(b);
    const BaseNode* upA = a;
    const BaseNode* upB = b;
    while (depthA > depthB) {
        upA = upA->Parent();
        --depthA;
    }
    while (depthB > depthA) {
        upB = upB->Parent();
        --depthB;
    }
    if (upA == upB)
        return upA == a;  // one is the other's ancestor: the ancestor comes first
    while (upA->Parent() != upB->Parent()) {
        upA = upA->Parent();
        upB = upB->Parent();
    }
    return upA->LinkSequence() < upB->LinkSequence();
}
