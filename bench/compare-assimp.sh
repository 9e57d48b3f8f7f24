#!/usr/bin/env bash
# Times the converter and assimp's import (`assimp info`, Debian's assimp-utils) on the same
# generated grid files in one run, taking turns, and prints the medians and their ratios, with the
# converter's peak resident memory against the file's size and the machine's load before and after.
#   cmake --preset bench && cmake --build --preset bench
#   bench/compare-assimp.sh [runs] [converter switches...]      e.g. bench/compare-assimp.sh 5 -threads 1
# BUILD names another build folder (default build/bench); FACES the grid sizes.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD:-$root/build/bench}
runs=${1:-5}
shift || true
switches=("$@")
read -r -a faces <<< "${FACES:-100000 500000 1000000}"
converter=$build/Tools/MakeVern3D/MakeVern3D
for tool in "$converter" "$build/bench/MakeGrid" assimp; do
  command -v "$tool" >/dev/null || { echo "missing: $tool (build the bench preset; install assimp-utils)" >&2; exit 2; }
done

# Seconds that a command takes, its output dropped.
seconds() {
  local start end
  start=$(date +%s%N)
  "$@" >/dev/null 2>&1 || { echo "failed: $*" >&2; exit 1; }
  end=$(date +%s%N)
  echo $(( (end - start) / 1000 ))e-6 | awk '{ printf "%.3f\n", $1 }'
}
median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

echo "load average before: $(cut -d' ' -f1-3 /proc/loadavg); $runs runs each; converter switches: ${switches[*]:-none}"
printf '%10s %8s %10s %10s %8s %10s %10s\n' faces MB ours_s assimp_s ratio peak_MiB peak/file
for count in "${faces[@]}"; do
  grid=$("$build/bench/MakeGrid" "$count")
  # The converter reads relative names only: run both from the file's folder.
  cd "$(dirname "$grid")"
  name=$(basename "$grid")
  cat "$name" >/dev/null  # both read from the page cache
  ours=() theirs=()
  for ((run = 0; run < runs; ++run)); do
    ours+=("$(seconds "$converter" "$name" -o makevern3d-compare -batch "${switches[@]}")")
    theirs+=("$(seconds assimp info "$name")")
  done
  oursMedian=$(printf '%s\n' "${ours[@]}" | median)
  theirsMedian=$(printf '%s\n' "${theirs[@]}" | median)
  bytes=$(stat -c %s "$name")
  peak=-
  if [ -x /usr/bin/time ]; then
    peak=$(/usr/bin/time -f %M "$converter" "$name" -o makevern3d-compare -batch "${switches[@]}" 2>&1 >/dev/null | tail -1)
  fi
  rm -f makevern3d-compare.vern3D
  awk -v f="$count" -v b="$bytes" -v o="$oursMedian" -v t="$theirsMedian" -v p="$peak" 'BEGIN {
    peak = p == "-" ? "-" : sprintf("%.0f", p / 1024); share = p == "-" ? "-" : sprintf("%.2f", p * 1024 / b)
    printf "%10d %8.0f %10.3f %10.3f %8.3f %10s %10s\n", f, b / 1e6, o, t, o / t, peak, share }'
done
echo "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
