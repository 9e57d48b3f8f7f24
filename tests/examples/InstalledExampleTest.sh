#!/usr/bin/env bash
# The installed package from a fresh prefix: cmake --install, then examples/ built out of tree
# with find_package(Vern3D) and with pkg-config, both run on a converted corpus scene.
#   InstalledExampleTest.sh BUILD_DIR SOURCE_DIR SCENE CXX [EXTRA_FLAGS]
set -euo pipefail
build=$1 source=$2 scene=$3 cxx=$4 flags=${5:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
for file in bin/MakeVern3D bin/vern3d include/vern/Vern3DDecoder.h lib/cmake/Vern3D/Vern3DConfig.cmake; do
  [ -e "$prefix/$file" ] || { echo "not installed: $file"; exit 1; }
done
libdir=$(dirname "$(find "$prefix" -name libvern3d.a)")

# A scene with keys, converted by the installed converter.
cp "$scene" "$work/scene.ase"
(cd "$work" && "$prefix/bin/MakeVern3D" -compat -batch scene.ase >/dev/null </dev/null)

cmake -S "$source/examples" -B "$work/cmake" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$prefix" \
      -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >/dev/null
cmake --build "$work/cmake" >/dev/null
# pkg-config sees only the fresh prefix.
pc_flags=$(PKG_CONFIG_LIBDIR="$libdir/pkgconfig" pkg-config --cflags --libs vern3d)
# shellcheck disable=SC2086
"$cxx" -std=c++20 $flags "$source/examples/PrintScene.cpp" $pc_flags -o "$work/print-scene-pc"

"$work/cmake/print-scene" "$work/scene.vern3D" 0 >"$work/at0.txt"
"$work/cmake/print-scene" "$work/scene.vern3D" 700 >"$work/cmake.txt"
"$work/print-scene-pc" "$work/scene.vern3D" 700 >"$work/pc.txt"
cat "$work/cmake.txt"

cmp "$work/cmake.txt" "$work/pc.txt" || { echo "the two builds print different things"; exit 1; }
# Every node of the file is in the tree, and each node with keys moves between 0 and 700 ms.
names=$("$prefix/bin/vern3d" dump "$work/scene.vern3D" --limit 1 | sed -n "s/^node [0-9]* '\(.*\)', depth.*/\1/p")
[ -n "$names" ] || { echo "vern3d dump lists no node"; exit 1; }
while IFS= read -r name; do
  grep -qxF -- "$(printf '%s' "$name")" <(sed 's/^ *//' "$work/cmake.txt") || { echo "node '$name' missing"; exit 1; }
done <<<"$names"
animated=$("$prefix/bin/vern3d" info "$work/scene.vern3D" | sed -n 's/^  keys *\([0-9]*\) nodes with keys/\1/p')
[ "$animated" -gt 0 ] || { echo "the scene has no keys"; exit 1; }
[ "$(grep -c '^    world' "$work/cmake.txt")" -eq "$animated" ] || { echo "not every animated node printed"; exit 1; }
! cmp -s <(grep '^    ' "$work/at0.txt") <(grep '^    ' "$work/cmake.txt") || { echo "the transforms do not change with time"; exit 1; }
echo "installed package: CMake and pkg-config builds agree"
