// Mesh outputs built while the file is still being read, on helper threads (with more than one
// thread), so that reading and building overlap.
//
// When a geometry object has been read, ObjectRead (on the reading thread) takes copies of what
// its build needs: its mesh, its world transform as its ancestors give it without keys, its
// material and the kinds of the texture sets. A stand-in node is built from them apart from the
// scene. Only a small object without frames or keys along its chain is built early; the others,
// and those the queue has no room for, are built when the writing is planned, as always.
//
// When the writing is planned, TakeOver hands an early build to its node only when everything the
// build used is what the node has by then (the mesh, the world transform at the mesh's time, the
// material, the texture sets known then, which later material lists only add to) and the build
// reported nothing (its reports would stand at lines known only once the file has been read): the
// output is then the one the node's own build gives.
#pragma once

#include "AbstractData/Parallel.h"
#include "Output/NodeWriter.h"

#include <deque>
#include <memory>
#include <utility>
#include <vector>

struct ConvertSettings;
struct Scene;

class EarlyBuilds {
public:
    explicit EarlyBuilds(const ConvertSettings& settings);
    ~EarlyBuilds();

    // A geometry object has been read into `scene` (on the reading thread).
    void ObjectRead(MeshNode& node, const Scene& scene);
    // Reading has ended: the builds still waiting are made (this thread takes part).
    void Finish();
    // Fills `build` (planned for build.node, whose spaces are taken) with the node's early build
    // when it may be taken over; false otherwise.
    bool TakeOver(MeshBuild& build);

private:
    struct Early;
    const ConvertSettings& settings;
    std::deque<Early> builds;
    std::vector<std::pair<const MeshNode*, Early*>> byNode;  // sorted by Finish
    std::shared_ptr<const std::vector<uint8_t>> setKinds;    // the kinds as the last object saw them
    TaskQueue queue;
};
