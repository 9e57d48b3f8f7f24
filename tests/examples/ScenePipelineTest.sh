#!/usr/bin/env bash
# examples/scene-pipeline built with Ninja against a fresh install prefix, step by step: what each
# build converts after each change, a failing scene, and two conversions at once under -j2. Then
# the same project with the repository added in place of the installed package, as far as
# configuring and the commands it would run.
#   ScenePipelineTest.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
src=$work/src bin=$work/build
fail() { echo "FAILED: $*"; [ -f "$work/log" ] && cat "$work/log"; exit 1; }
# A build that hangs ends with its conversions, also when this script is killed first.
bounded() { timeout -k 5 120 "$@"; }

cmake --install "$build" --prefix "$work/prefix" >/dev/null
cp -r "$source/examples/scene-pipeline" "$src"
# Two grids that take a while, so that -j2 has two conversions that could overlap.
for name in gridA gridB; do
  awk -v faces=30000 -f "$source/tests/examples/grid-scene.awk" >"$src/scenes/$name.ase"
done
cmake -S "$src" -B "$bin" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null

# build WHAT SCENE...: a build that converts exactly the scenes named.
build() {
  local what=$1
  shift
  bounded cmake --build "$bin" -j2 >"$work/log" 2>&1 || fail "$what: the build failed"
  local converted expected
  converted=$(sed -n 's/^\[[0-9/]*\] Converting scene //p' "$work/log" | sort | xargs)
  expected=$(printf '%s\n' "$@" | sort | xargs)
  [ "$converted" = "$expected" ] || fail "$what: converted '$converted', expected '$expected'"
}

build "first build" scenes/ThreeCubes.ase scenes/gridA.ase scenes/gridB.ase animated/Flag.ase
for output in ThreeCubes gridA gridB Flag; do
  "$work/prefix/bin/vern3d" check "$bin/assets/$output.vern3D" >/dev/null || fail "assets/$output.vern3D"
done
# .ninja_log: start and end (ms) of each step; the grids' last conversions ran at the same time.
# On a loaded machine one may end before the other starts: up to three tries.
overlap() {
  read -r a0 a1 b0 b1 < <(awk '$4 == "assets/gridA.vern3D" { a0 = $1; a1 = $2 } $4 == "assets/gridB.vern3D" { b0 = $1; b1 = $2 }
                               END { print a0, a1, b0, b1 }' "$bin/.ninja_log")
  [ -n "${b1:-}" ] && [ "$((a0 > b0 ? a0 : b0))" -lt "$((a1 < b1 ? a1 : b1))" ]
}
for try in 1 2 3; do
  overlap && break
  [ "$try" -lt 3 ] || fail "-j2: the grids were converted one after the other ($a0-$a1, ${b0:-}-${b1:-} ms)"
  touch "$src/scenes/gridA.ase" "$src/scenes/gridB.ase"
  build "the grids again" scenes/gridA.ase scenes/gridB.ase
done

build "a second build"
touch "$src/scenes/ThreeCubes.ase"
build "a touched scene" scenes/ThreeCubes.ase
touch "$src/animated/moves.txt"
build "a touched operations file" animated/Flag.ase

cp "$src/scenes/ThreeCubes.ase" "$work/ThreeCubes.ase"
printf '*GEOMOBJECT {\n*NODE_NAME "broken"\n*MESH {\n*MESH_NUMVERTEX -5\n}\n}\n' >>"$src/scenes/ThreeCubes.ase"
! bounded cmake --build "$bin" -j2 >"$work/log" 2>&1 || fail "an invalid scene: the build succeeded"
line=$(grep -c '' "$src/scenes/ThreeCubes.ase")
grep -qF "scenes/ThreeCubes.ase($((line - 2))) error: Vertex or face number or count -5 is out of range" "$work/log" ||
  fail "an invalid scene: no message"
[ -z "$(find "$bin/assets" -name 'ThreeCubes.vern3D*' ! -name '*.d')" ] || fail "an invalid scene left an output"
cp "$work/ThreeCubes.ase" "$src/scenes/ThreeCubes.ase"
build "the scene fixed" scenes/ThreeCubes.ase
build "a build after the fix"

# The repository itself instead of the installed package: the same function and target names.
rm -rf "$bin"
cmake -S "$src" -B "$bin" -G Ninja -DVERN3D_SOURCE_DIR="$source" >"$work/log" 2>&1 || fail "add_subdirectory: configuring"
ninja -C "$bin" -t commands scenes animated-scenes >"$work/log" 2>&1 || fail "add_subdirectory: the commands"
[ "$(grep -c "$bin/vern3d/Tools/MakeVern3D/MakeVern3D -batch" "$work/log")" -eq 4 ] &&
  grep -q -- '-o vern3d/Tools/MakeVern3D/MakeVern3D ' "$work/log" ||
  fail "add_subdirectory: the scenes are not converted by the converter built here"
echo "scene pipeline: every step converted what changed, and only that"
