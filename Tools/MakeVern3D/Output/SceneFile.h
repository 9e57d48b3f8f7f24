// Writing a scene: the checks that come before anything is written, and the vern3D file itself
// (the node tree, then the texture table).
#pragma once

#include "AbstractData/Status.h"

#include <string>

class EarlyBuilds;
class Reporter;
struct ConvertSettings;
struct Scene;

// Refuses, before anything is written, what the mesh output could not use (a material reference
// beyond the table, a corner beyond its mesh), and reads the vertex files that replace render
// meshes under -ivertex. Reports at the scene's endLine; false on the first error.
bool CheckMeshes(Scene& scene, const ConvertSettings& settings, Reporter& reporter);

// Writes the prepared scene to `outputName`, under a temporary name until it is complete. A write
// that fails is reported (error 4105, at the scene's endLine) unless it was refused (kWriteRefused:
// reported already); either way no output is left. An error reported while writing (a mesh without
// material) still gives the whole file, except under -batch, where it leaves no new output.
// Mesh outputs built while the file was read are taken over where they may be (`early`, may be
// null; see Output/EarlyBuilds.h).
HRESULT WriteScene(Scene& scene, const ConvertSettings& settings, const std::string& outputName, Reporter& reporter,
                   EarlyBuilds* early = nullptr);
