// Conversion settings taken from the command line; they live for the whole run and are read-only
// once the command line has been read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct ConvertSettings {
    uint32_t meshAnimFlags = 0;            // -map 1, -man 2, -mac 4, -mam 8, -mat 16
    std::vector<std::string> objectNames;  // -obj: the top-level objects to keep
    std::string meshOpsFile;               // -ma: mesh-animation operations file
    bool ivertex = false;                  // -ivertex
    bool overtex = false;                  // -overtex (no effect; cleared by -ivertex)
    int32_t analyse = 0;                   // -analyse: frame used as the source mesh when > 0
    // Switches of ours; each off by default, so that the classic conversion stays as it was.
    bool compat = false;  // -compat: accept what other exporters write, with a warning per departure
    bool batch = false;   // -batch: never wait for a key; a failed input makes the exit code 2
    bool uri = false;     // -uri: "file:" names (file:/abs/path, file:///abs/path) for absolute paths
    std::string vertexFolder;  // -vertexdir: the folder -ivertex reads from (empty: the current folder)
    double weldTolerance = 0.1;  // -weld: how far apart corner positions may lie and still weld
    // -threads: threads that share the work of one file (0: one per core of the machine; 1: the
    // whole conversion on the calling thread). Outputs and console text never depend on it.
    uint32_t threads = 0;
    std::string dependencyFile;  // -depfile: the Make rules of what each converted input read (empty: none)
    // Not a switch: mesh nodes keep their lists (source mesh, frames, render mesh) once written,
    // for tests that look at them. Otherwise each node's lists are freed as soon as it is written.
    bool keepMeshLists = false;
    // Not a switch: the least size of the parts that a large mesh list is read in (tests make it
    // small, so that small files are read in parts too). 0: the reader's own.
    size_t listPartBytes = 0;
};
