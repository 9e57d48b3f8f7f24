#!/usr/bin/env bash
# Builds MakeVern3D and converts the bundled sample scene to build/sample/ThreeCubes.vern3D.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target MakeVern3D
mkdir -p build/sample
# Input names are relative paths: a leading "/" would start an option.
build/default/Tools/MakeVern3D/MakeVern3D samples/ThreeCubes.ase -o build/sample/ThreeCubes </dev/null
ls -l build/sample/ThreeCubes.vern3D
