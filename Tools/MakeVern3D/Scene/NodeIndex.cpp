#include "Scene/NodeIndex.h"

#include <algorithm>

void NodeIndex::Add(BaseNode* node)
{
    Named& named = byName[node->name];
    named.all.push_back(node);
    if (!named.first || PrecedesInPreOrder(node, named.first))
        named.first = node;
}

void NodeIndex::Rename(BaseNode* node, const std::string& newName)
{
    if (node->name == newName)
        return;
    auto entry = byName.find(node->name);
    if (entry != byName.end()) {
        Named& named = entry->second;
        named.all.erase(std::remove(named.all.begin(), named.all.end(), node), named.all.end());
        if (named.all.empty()) {
            byName.erase(entry);
        } else if (named.first == node) {
            named.first = named.all.front();
            for (BaseNode* candidate : named.all)
                if (PrecedesInPreOrder(candidate, named.first))
                    named.first = candidate;
        }
    }
    Named& renamed = byName[newName];
    renamed.all.push_back(node);
    if (!renamed.first || PrecedesInPreOrder(node, renamed.first))
        renamed.first = node;
}

BaseNode* NodeIndex::Find(const std::string& name) const
{
    const auto entry = byName.find(name);
    return entry == byName.end() ? nullptr : entry->second.first;
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
