#!/usr/bin/env bash
# The Windows module under Wine: the same export through the DirectShow graph and through the AVI encoder
# (QVN_ENCODER=avi), interleaved runs in one Wine session, frames per second as qvnhost reports them, medians
# and their ratio. Optional codecs that only the graph writes (MJPG, dvsd) are measured after.
#
#   bench/export/graph_vs_direct.sh [WINDOWS_BUILD_DIR]
#
# Environment: RUNS (5), FRAMES (150), SIZE (1920x1080), CODEC (v210), EXTRA ("MJPG:1920x1080 dvsd:720x480"),
# QVN_BENCH_DIR (parent of the temporary folder, default /tmp). Outputs are deleted as soon as measured.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=${1:-$root/build/windows}
runs=${RUNS:-5}
frames=${FRAMES:-150}
size=${SIZE:-1920x1080}
codec=${CODEC:-v210}
extra=${EXTRA:-"MJPG:1920x1080 dvsd:720x480"}
runner=$root/cmake/wine-run.sh
host=$build/bin/qvnhost.exe
[[ -x $host ]] || { echo "no $host: build the Windows tree first (./qvn build windows)" >&2; exit 2; }

work=$(mktemp -d "${QVN_BENCH_DIR:-/tmp}/qvn-graph-bench.XXXXXX")
trap 'rm -rf "$work"; "$root/cmake/wine-server.sh" stop "$build"' EXIT
"$root/cmake/wine-server.sh" start "$build" # one warm server for every run

median() { sort -g | awk '{v[NR]=$1} END {if (NR == 0) print "-"; else if (NR % 2) print v[(NR+1)/2]; else print (v[NR/2]+v[NR/2+1])/2}'; }

# fps CODEC SIZE [env...]: one export, its frames per second.
fps() {
    local c=$1 s=$2
    shift 2
    env "$@" "$runner" "$host" export --codec "$c" --size "$s" --rate 29.97 --frames "$frames" --audio stereo \
        --out "Z:${work//\//\\}\\out.avi" 2>/dev/null | sed -n 's/.*(\([0-9.]*\) frames\/s).*/\1/p'
    rm -f "$work/out.avi"
}

: >"$work/graph" && : >"$work/direct"
for ((i = 0; i < runs; i++)); do
    fps "$codec" "$size" QVN_ENCODER=graph >>"$work/graph"
    fps "$codec" "$size" QVN_ENCODER=avi >>"$work/direct"
done
g=$(median <"$work/graph")
d=$(median <"$work/direct")
printf '%s %s %s frames, %s runs: graph %s fps, direct %s fps, graph/direct %s\n' "$codec" "$size" "$frames" "$runs" \
    "$g" "$d" "$(awk -v g="$g" -v d="$d" 'BEGIN {printf "%.2f", g / d}')"
for item in $extra; do
    : >"$work/extra"
    for ((i = 0; i < runs; i++)); do
        fps "${item%%:*}" "${item#*:}" >>"$work/extra"
    done
    printf '%s %s: %s fps (median of %s)\n' "${item%%:*}" "${item#*:}" "$(median <"$work/extra")" "$runs"
done
