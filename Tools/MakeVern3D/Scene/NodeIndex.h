// Finds the node that a depth-first pre-order search from the root would find first, without
// the search: nodes are indexed by name as they are linked, and among several of one name the
// first in pre-order is kept. While a file is read the tree only grows by appending children, and
// appending never changes the pre-order of the nodes already there, so the first of a name only
// has to be compared with each newcomer of that name.
#pragma once

#include "Scene/BaseNode.h"

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
    struct Named {
        BaseNode* first = nullptr;  // the first in pre-order
        std::vector<BaseNode*> all;
    };
    std::unordered_map<std::string, Named> byName;
};

// True when `a` comes before `b` in a depth-first pre-order walk (both in the same tree, siblings
// in link order).
bool PrecedesInPreOrder(const BaseNode* a, const BaseNode* b);
