#!/usr/bin/env bash
# End-to-end export throughput: qvnhost driving QVNExport.prm (v210, stereo audio) against ffmpeg writing
# v210 AVI from the same raw BGRA frames, 1920x1080 and 3840x2160 at 29.97, interleaved runs, medians.
#
#   bench/export/run_export_bench.sh [BUILD_DIR]
#
# BUILD_DIR: a native release tree (default: build/rel of this checkout, configured and built when
# qvnhost is missing). Environment: QVN_BENCH_DIR (parent of the temporary folder, default /tmp), RUNS (5),
# FRAMES_1080 (150), FRAMES_2160 (60), SIZES ("1920x1080 3840x2160"), SOURCE_BENCH (1: also run
# export_source_bench for the host's per-frame source cost). Every output and raw input is deleted as soon
# as it has been measured, and the temporary folder at exit; at most one raw input and one output exist at
# a time (1080p: 1.2 GB + 0.8 GB; 2160p: 2.0 GB + 1.3 GB).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=${1:-${QVN_BUILD_DIR:-$root/build/rel}}
runs=${RUNS:-5}
frames_1080=${FRAMES_1080:-150}
frames_2160=${FRAMES_2160:-60}
sizes=${SIZES:-"1920x1080 3840x2160"}
source_bench=${SOURCE_BENCH:-1}

qvnhost=$build/bin/qvnhost
if [[ ! -x $qvnhost ]]; then
    echo "building $build" >&2
    [[ -f $build/build.ninja ]] || cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >&2
    ninja -j2 -C "$build" qvnhost QVNExport >&2
fi
if [[ $source_bench == 1 && ! -x $build/bench/export/export_source_bench ]]; then
    ninja -j2 -C "$build" export_source_bench >&2 || source_bench=0
fi
command -v ffmpeg >/dev/null || { echo "ffmpeg not found" >&2; exit 2; }

work=$(mktemp -d "${QVN_BENCH_DIR:-/tmp}/qvn-export-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
results=$work/results.txt
: >"$results"

now() { date +%s.%N; }
median() { sort -g | awk '{v[NR]=$1} END {if (NR == 0) print "-"; else if (NR % 2) print v[(NR+1)/2]; else print (v[NR/2]+v[NR/2+1])/2}'; }
frames_in() {
    ffprobe -v error -select_streams v:0 -show_entries stream=nb_frames -of default=nw=1:nk=1 "$1" 2>/dev/null ||
        echo "?"
}

echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//')"
echo "$(ffmpeg -version | head -1 | cut -d' ' -f1-3); qvnhost: $qvnhost"
echo "folder: $work ($(df -h "$work" | awk 'NR==2 {print $4}') free)"
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"

# 
# One timed run of a command writing $frames frames. Records SIZE CONFIG FPS CPU_MS: frames/s on the wall
# clock of the whole process (start-up and module loading included, as for ffmpeg) and CPU milliseconds
# (user + system, all threads) per frame, which a loaded machine disturbs far less. Prints the pair.
timed() {
    local size=$1 config=$2 frames=$3 log=$4
    shift 4
    if ! /usr/bin/time -f "%e %U %S" -o "$work/time.txt" "$@" >"$log" 2>&1; then
        echo "failed: $*" >&2
        tail -5 "$log" >&2
        exit 1
    fi
    local fps_cpu
    fps_cpu=$(awk -v n="$frames" '{printf "%.2f %.2f\n", n / $1, ($2 + $3) * 1000 / n}' "$work/time.txt")
    echo "$size $config $fps_cpu" >>"$results"
    echo "$fps_cpu"
}

# Keeps freed memory in the process (one arena, no trimming, no mmap for large blocks): the same export
# without the per-frame page faults of 33 MB frames. A diagnostic row, not a configuration a user runs.
kept_malloc="glibc.malloc.arena_max=1:glibc.malloc.mmap_threshold=4294967295:glibc.malloc.trim_threshold=4294967295"

for size in $sizes; do
    w=${size%x*}
    h=${size#*x}
    frames=$frames_1080
    ((h > 1080)) && frames=$frames_2160
    raw=$work/frames_${size}.raw
    out=$work/out.avi
    echo
    echo "== $size, $frames frames: writing raw BGRA input"
    ffmpeg -v error -y -f lavfi -i "smptehdbars=s=${size}:r=30000/1001" -frames:v "$frames" -pix_fmt bgra \
        -f rawvideo "$raw"
    echo "raw input $(du -h "$raw" | cut -f1); disk free $(df -h "$work" | awk 'NR==2 {print $4}')"
    qvn_common=(export --codec v210 --size "$size" --rate 29.97 --audio stereo --out "$out")
    for ((r = 1; r <= runs; ++r)); do
        echo "-- run $r (load $(cut -d' ' -f1 /proc/loadavg))"
        # ffmpeg, the reference: buffered writes, so its file may still be in the page cache at exit; the
        # flush is timed apart (fsync row) and always done before the next configuration starts.
        read -r fps cpu < <(timed "$size" ffmpeg "$frames" "$work/ffmpeg.log" ffmpeg -v error -y -f rawvideo \
            -pix_fmt bgra -s "$size" -r 30000/1001 -i "$raw" -c:v v210 "$out")
        t0=$(now)
        sync "$out"
        t1=$(now)
        fsync_fps=$(awk -v n="$frames" -v f="$fps" -v a="$t0" -v b="$t1" 'BEGIN {printf "%.2f\n", n / (n / f + b - a)}')
        echo "$size ffmpeg+fsync $fsync_fps -" >>"$results"
        [[ $r == 1 ]] && echo "   ffmpeg file: $(frames_in "$out") frames"
        echo "   ffmpeg               $fps frames/s, $cpu CPU ms/frame (with fsync $fsync_fps frames/s)"
        [[ -n $fps ]] || exit 1
        rm -f "$out"

        # qvnhost reading the same raw file.
        read -r fps cpu < <(timed "$size" qvnhost-raw "$frames" "$work/qvn.log" "$qvnhost" "${qvn_common[@]}" \
            --source "raw:$raw")
        [[ $r == 1 ]] && echo "   qvnhost raw file: $(frames_in "$out") frames"
        echo "   qvnhost raw:FILE     $fps frames/s, $cpu CPU ms/frame ($(grep -o '[0-9.]* frames/s' "$work/qvn.log" || true) inside the export call)"
        [[ -n $fps ]] || exit 1
        rm -f "$out"

        # qvnhost rendering its bars pattern.
        read -r fps cpu < <(timed "$size" qvnhost-bars "$frames" "$work/qvn.log" "$qvnhost" "${qvn_common[@]}" \
            --source bars --frames "$frames")
        [[ $r == 1 ]] && echo "   qvnhost bars file: $(frames_in "$out") frames"
        echo "   qvnhost bars         $fps frames/s, $cpu CPU ms/frame ($(grep -o '[0-9.]* frames/s' "$work/qvn.log" || true) inside the export call)"
        [[ -n $fps ]] || exit 1
        rm -f "$out"

        # The same with freed memory kept in the process.
        read -r fps cpu < <(timed "$size" qvnhost-bars-kept "$frames" "$work/qvn.log" \
            env GLIBC_TUNABLES=$kept_malloc "$qvnhost" "${qvn_common[@]}" --source bars --frames "$frames")
        echo "   qvnhost bars, kept   $fps frames/s, $cpu CPU ms/frame"
        [[ -n $fps ]] || exit 1
        rm -f "$out"
    done
    rm -f "$raw"
done

echo
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"
echo
echo "Median of $runs interleaved runs: frames/s on the wall clock of the whole process, its ratio to ffmpeg's"
echo "median, and CPU milliseconds (user + system, all threads) per frame:"
printf '| %-9s | %-42s | %8s | %8s | %10s |\n' size configuration frames/s "x ffmpeg" "CPU ms/fr"
printf '|%s|%s|%s|%s|%s|\n' ----------- -------------------------------------------- ---------- ---------- ------------
for size in $sizes; do
    base=$(awk -v s="$size" '$1 == s && $2 == "ffmpeg" {print $3}' "$results" | median)
    for config in ffmpeg ffmpeg+fsync qvnhost-raw qvnhost-bars qvnhost-bars-kept; do
        m=$(awk -v s="$size" -v c="$config" '$1 == s && $2 == c {print $3}' "$results" | median)
        cpu=$(awk -v s="$size" -v c="$config" '$1 == s && $2 == c && $4 != "-" {print $4}' "$results" | median)
        case $config in
        ffmpeg) label="ffmpeg raw -> v210 AVI (no audio)" ;;
        ffmpeg+fsync) label="ffmpeg, then fsync of its file" ;;
        qvnhost-raw) label="qvnhost --source raw:FILE (same input)" ;;
        qvnhost-bars) label="qvnhost --source bars" ;;
        qvnhost-bars-kept) label="qvnhost --source bars, malloc keeps memory" ;;
        esac
        printf '| %-9s | %-42s | %8s | %7.2fx | %10s |\n' "$size" "$label" "$m" \
            "$(awk -v a="$m" -v b="$base" 'BEGIN {print a / b}')" "${cpu:--}"
    done
done

if [[ $source_bench == 1 ]]; then
    echo
    echo "Host source cost per frame (export_source_bench, one thread: new zeroed host frame + source render +"
    echo "disposal; fresh:1 = every frame on newly faulted pages, as at 3840x2160 in an export), medians:"
    QVN_BENCH_DIR=$work "$build/bench/export/export_source_bench" --benchmark_repetitions=$((runs < 3 ? 3 : runs)) \
        --benchmark_report_aggregates_only=true --benchmark_min_time=0.5 2>/dev/null |
        awk '/_median / {sub("/real_time_median", "", $1); printf "  %-34s %7.2f ms/frame\n", $1, $2}'
fi
