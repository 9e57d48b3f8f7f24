// A scene as one file describes it: the node tree, the materials (texture sets, property records
// and the table that numbers them) and what the later stages must know of the file itself.
// Reading (Ase/AseParser) builds it; selection and name directives (here), the checks and the
// writing (Output/SceneFile.h) are functions of a scene, the settings and the file's Reporter,
// which the driver calls in that order.
#pragma once

#include "Scene/BaseNode.h"
#include "Scene/SceneRecords.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class Reporter;

// A bound of ours on list entries. The entries that counts and numbers create in the file's
// meshes and frames (not those read: every real entry has a line of its own), and the output's
// render vertices (those of each mesh and those rebuilt for each of its frames), may together not
// exceed the file's size in bytes plus kSlack: only a hostile file reaches it.
struct ListBudget {
    static constexpr uint64_t kSlack = 1 << 20;

    uint64_t bound = kSlack;
    uint64_t used = 0;

    uint64_t Free() const { return used < bound ? bound - used : 0; }
    // Counts `count` more entries; false when they pass the bound.
    bool Take(uint64_t count)
    {
        used += count;
        return used <= bound;
    }
    // The bound as the messages show it.
    uint32_t Shown() const { return static_cast<uint32_t>(std::min<uint64_t>(bound, 0xFFFFFFFFu)); }
};

struct Scene {
    std::unique_ptr<BaseNode> root;
    std::vector<std::unique_ptr<TextureSet>> textureSets;
    std::vector<std::unique_ptr<MaterialProperties>> materialProperties;
    std::vector<MaterialTableEntry> materialTable;
    ListBudget lists;
    // Where reading stopped: the later stages' reports that concern no line of their own stand
    // there, as they always have.
    int32_t endLine = 1;
    // The files the conversion opened besides its input (the operations file, vertex files), as
    // named, in the order opened: the dependency file's list.
    std::vector<std::string> filesRead;
};

// -obj: keeps exactly the named top-level objects and their subtrees (BaseNode::SelectObjects).
void SelectObjects(Scene& scene, const std::vector<std::string>& names);
// The "convert(...)" commands in node names (BaseNode::ApplyNameDirectives); reports at endLine.
void ApplyNameDirectives(Scene& scene, Reporter& reporter);
// Local transforms and key matrices of every node (BaseNode::Prepare), before writing.
void PrepareScene(Scene& scene);
