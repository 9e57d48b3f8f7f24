// Finds the node that a depth-first pre-order search from the root would find first, without
// the search: nodes are indexed by name as they are linked, and among several of one name the
// first in pre-order is picked by comparing their places in the tree.
#pragma once

#include "BaseNode.h"

#include <string>
#include <unordered_map>
#include <vector>

class NodeIndex {
public:
    void Clear() { byName.clear(); }
    // A node that has just become part of the tree (it has no children yet).
    void Add(BaseNode* node);
    // A node in the tree is about to change its name.
    void Rename(BaseNode* node, const std::string& newName);
    BaseNode* Find(const std::string& name) const;

private:
    std::unordered_map<std::string, std::vector<BaseNode*>> byName;
};

// True when `a` comes before `b` in a depth-first pre-order walk (both in the same tree, siblings
// in link order).
bool PrecedesInPreOrder(const BaseNode* a, const BaseNode* b);
