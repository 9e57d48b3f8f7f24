#!/usr/bin/env bash
# The 10,000-box scene on one and two threads, replacing the output and into a new file, and two
# independent one-thread conversions at once (the most two threads can give on the machine): the
# configurations take turns, ROUNDS times, five repetitions each; prints the fastest and the
# median of all repetitions and the ratios of both.
#   cmake --preset bench && cmake --build --preset bench
#   bench/two-threads.sh [rounds]        (default 6)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bench=${BUILD:-$root/build/bench}/bench/MeshBench
rounds=${1:-6}
[[ -x $bench ]] || { echo "missing: $bench (build the bench preset)" >&2; exit 2; }
configs=(ConvertObjects/10000/1/ ConvertObjects/10000/2/ ConvertObjectsFresh/10000/1/ ConvertObjectsFresh/10000/2/
         IndependentConversions/1/ IndependentConversions/2/)
declare -A times
echo "load average before: $(cut -d' ' -f1-3 /proc/loadavg); $rounds rounds"
for ((round = 0; round < rounds; ++round)); do
  for config in "${configs[@]}"; do
    times[$config]+=" $("$bench" --benchmark_filter="^${config}" --benchmark_repetitions=5 2>/dev/null |
                        awk '$1 ~ /real_time$/ { print $2 }' | tr '\n' ' ')"
  done
done
# fastest and median of a list of milliseconds
stats() { tr ' ' '\n' | grep . | sort -g | awk '{ v[NR] = $1 } END { printf "%s %s", v[1], v[int((NR + 1) / 2)] }'; }
printf '%-32s %9s %9s\n' configuration fastest median
declare -A fastest median
for config in "${configs[@]}"; do
  read -r fastest[$config] median[$config] <<< "$(echo "${times[$config]}" | stats)"
  printf '%-32s %9s %9s\n' "$config" "${fastest[$config]}" "${median[$config]}"
done
ratio() { awk -v a="$1" -v b="$2" -v k="$3" 'BEGIN { printf "%.2f", k * a / b }'; }
for scene in ConvertObjects ConvertObjectsFresh; do
  echo "$scene, one thread against two: $(ratio "${fastest[$scene/10000/1/]}" "${fastest[$scene/10000/2/]}" 1) x" \
       "(medians $(ratio "${median[$scene/10000/1/]}" "${median[$scene/10000/2/]}" 1) x)"
done
echo "two independent conversions, work done in the same time: $(ratio "${fastest[IndependentConversions/1/]}" \
     "${fastest[IndependentConversions/2/]}" 2) x (medians $(ratio "${median[IndependentConversions/1/]}" \
     "${median[IndependentConversions/2/]}" 2) x)"
echo "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
