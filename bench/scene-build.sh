#!/usr/bin/env bash
# Times examples/scene-pipeline with eight 100,000-face grids (39 MB each) instead of its scenes:
# a clean build with -j1 and with -j2, each REPEAT times, taking turns, and a no-op rebuild.
#   bench/scene-build.sh PREFIX [REPEAT]     PREFIX: where `cmake --install` put the converter
set -euo pipefail
prefix=$(realpath "$1") repeat=${2:-3}
here=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cp -r "$here/examples/scene-pipeline" "$work/src"
rm "$work/src/scenes/"*.ase
awk -v faces=100000 -f "$here/tests/examples/grid-scene.awk" >"$work/src/scenes/grid1.ase"
for i in 2 3 4 5 6 7 8; do cp "$work/src/scenes/grid1.ase" "$work/src/scenes/grid$i.ase"; done
cmake -S "$work/src" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/build" >/dev/null  # the page cache holds the scenes from here on

seconds() {
  local start end
  start=$(date +%s%N)
  "$@" >/dev/null
  end=$(date +%s%N)
  printf "%d.%03d" $(((end - start) / 1000000000)) $(((end - start) / 1000000 % 1000))
}
for run in $(seq "$repeat"); do
  for jobs in 1 2; do
    ninja -C "$work/build" -t clean scenes >/dev/null
    echo "load $(cut -d' ' -f1 /proc/loadavg)  -j$jobs  $(seconds ninja -C "$work/build" -j"$jobs" scenes) s"
  done
done
echo "no-op rebuild: $(seconds ninja -C "$work/build" scenes) s, $(ninja -C "$work/build" scenes | tail -1)"
