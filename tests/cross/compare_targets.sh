#!/bin/sh
# The same export through the Windows module (qvnhost.exe under Wine, the DirectShow graph) and through the
# native module must hold the same pictures and samples, compared decoded (interleaving may differ). The
# graph writes 5.1 as L, R, C, LFE, Ls, Rs, the native path as L, R, Ls, Rs, C, LFE: the native is reordered.
#   compare_targets.sh WINE_RUNNER WINDOWS_QVNHOST NATIVE_QVNHOST WORK_DIR
set -eu
runner=$1 winhost=$2 nativehost=$3 work=$4
mkdir -p "$work"
failures=0
fail() { echo "FAIL $name: $*"; }
at_least() { awk -v p="$1" -v f="$2" 'BEGIN { exit !(p == "inf" || (p != "" && p + 0 >= f)) }'; }
channels() { ffprobe -v error -select_streams a -show_entries stream=channels -of csv=p=0 "$work/$name.native.avi"; }

# export_on TARGET OPTIONS...: the export NAME through one target, its file consistent.
export_on() {
    target=$1
    shift
    if [ "$target" = native ]; then set -- "$nativehost" export "$@"; else set -- "$runner" "$winhost" export "$@"; fi
    "$@" --out "$work/$name.$target.avi" >"$work/$name.$target.log" 2>&1 ||
        { fail "$target export failed"; cat "$work/$name.$target.log"; return 1; }
    "$nativehost" inspect "$work/$name.$target.avi" >"$work/$name.$target.inspect" ||
        { fail "the $target file is not consistent"; tail -5 "$work/$name.$target.inspect"; return 1; }
}

# same_samples CODEC: one checksum over every sample of each file, decoded as CODEC ("copy": the bytes).
same_samples() {
    for target in native windows; do
        pan=
        [ "$1" != copy ] && [ "$(channels)" = 6 ] && [ $target = native ] && pan="-af pan=5.1|c0=c0|c1=c1|c2=c4|c3=c5|c4=c2|c5=c3"
        ffmpeg -v error -y -i "$work/$name.$target.avi" -map 0:a $pan -c:a "$1" -f md5 "$work/$name.$target.a.md5" ||
            { fail "ffmpeg could not decode the $target samples"; return 1; }
    done
    cmp -s "$work/$name.native.a.md5" "$work/$name.windows.a.md5" || { fail "the samples differ"; return 1; }
}

# export_both NAME STREAMS OPTIONS...: STREAMS is "v a" or "a". Video: one checksum per decoded frame.
# Audio: 64-bit floats where channels move (exact for every type); else the bytes (the graph labels 32-bit
# float as float, the direct path as 32-bit PCM).
export_both() {
    name=$1 streams=$2
    shift 2
    { export_on native "$@" && export_on windows "$@"; } || return 1
    if [ "$streams" != a ]; then
        for target in native windows; do
            md5=$work/$name.$target.v.md5
            ffmpeg -v error -y -i "$work/$name.$target.avi" -map 0:v -f framemd5 "$md5" && sed -i '/^#/d' "$md5" &&
                [ -s "$md5" ] || { fail "no video decoded from the $target file"; return 1; }
        done
        cmp -s "$work/$name.native.v.md5" "$work/$name.windows.v.md5" || {
            fail "the video streams differ"
            diff "$work/$name.native.v.md5" "$work/$name.windows.v.md5" | head -5
            return 1
        }
    fi
    if [ "$(channels)" = 6 ]; then same_samples pcm_f64le; else same_samples copy; fi || return 1
    echo "ok   $name: identical content ($(grep -c . "$work/$name.native.v.md5" 2>/dev/null || echo 0) frames)"
    rm -f "$work/$name".*
}

# export_close NAME OPTIONS...: DVCPRO, compressed by each host's own libavcodec: the pictures differ by
# rounding only, above 60 dB PSNR (a wrong frame, field or matrix gives under 30); the samples are the same.
export_close() {
    name=$1
    shift
    { export_on native "$@" && export_on windows "$@"; } || return 1
    psnr=$(ffmpeg -v info -i "$work/$name.native.avi" -i "$work/$name.windows.avi" -lavfi "[0:v][1:v]psnr" -f null - 2>&1 |
        sed -n 's/.*PSNR.* average:\([0-9.inf]*\).*/\1/p' | tail -1)
    at_least "$psnr" 60 || { fail "the pictures differ (PSNR ${psnr:-none})"; return 1; }
    same_samples copy || return 1
    echo "ok   $name: pictures at $psnr dB PSNR, identical samples"
    rm -f "$work/$name".*
}

# export_lossy NAME REFERENCE FLOOR OPTIONS...: Motion JPEG and DV (Windows only) against the native
# uncompressed REFERENCE export, both in RGB through their own matrices and ranges: every frame above FLOOR
# dB PSNR (33.8 to 37.9 here; a wrong matrix gives 27, a wrong range 29, a frame out of place 18). The audio
# holds the native samples.
export_lossy() {
    name=$1 reference=$2 floor=$3
    shift 3
    { export_on windows "$@" && export_on native "$@" --codec "$reference"; } || return 1
    ffmpeg -v error -xerror -i "$work/$name.windows.avi" -map 0:v -f null - || { fail "a frame does not decode"; return 1; }
    counts=""
    for target in native windows; do
        counts="$counts $(ffprobe -v error -select_streams v -count_packets -show_entries stream=nb_read_packets \
            -of csv=p=0 "$work/$name.$target.avi")"
    done
    set -- $counts
    frames=$1
    [ "$1" = "$2" ] || { fail "$2 frames where the native export has $1"; return 1; }
    case $reference in HDYC) matrix=bt709 ;; *) matrix=bt601 ;; esac
    case $name in mjpg*) range=pc ;; *) range=tv ;; esac
    ffmpeg -v error -i "$work/$name.native.avi" -i "$work/$name.windows.avi" -lavfi \
        "[0:v]scale=in_color_matrix=$matrix:in_range=tv,format=rgb24[a];[1:v]scale=in_color_matrix=bt601:in_range=$range,format=rgb24[b];[a][b]psnr=stats_file=$work/$name.psnr" \
        -f null - || { fail "the pictures cannot be compared"; return 1; }
    worst=$(sed -n 's/.*psnr_avg:\([0-9.inf]*\).*/\1/p' "$work/$name.psnr" | sort -g | head -1)
    at_least "$worst" "$floor" || { fail "a frame at ${worst:-no} dB PSNR, under $floor"; return 1; }
    [ -z "$(channels)" ] || same_samples pcm_f64le || return 1
    echo "ok   $name: $frames frames, the worst at $worst dB PSNR (floor $floor), native samples"
    rm -f "$work/$name".*
}

export_both v210_stereo24 "v a" --codec v210 --size 640x360 --rate 29.97 --frames 40 --audio stereo --sample-type 24 --threads 8 || failures=$((failures + 1))
export_both r210_16u "v a" --codec r210 --size 320x180 --rate 25 --frames 20 --host-format 16u --audio mono --sample-type 32 || failures=$((failures + 1))
export_both uyvy_51 "v a" --codec UYVY --size 720x486 --rate 29.97 --frames 35 --audio 5.1 --sample-type 16 --row-padding 64 || failures=$((failures + 1))
export_both hdyc_mono8 "v a" --codec HDYC --size 1280x720 --rate 59.94 --frames 12 --audio mono --sample-type 8 --unaligned || failures=$((failures + 1))
export_both audio_only "a" --codec v210 --no-video --seconds 2 --audio stereo --sample-type float || failures=$((failures + 1))

if [ "${QVN_WINDOWS_DVCPRO:-0}" = 1 ]; then
    export_close dvcpro50_ntsc --codec dvn5 --frames 12 --audio stereo --sample-type 16 || failures=$((failures + 1))
    export_close dvcprohd_720p --codec dvn7 --frames 12 --audio 5.1 --sample-type 24 || failures=$((failures + 1))
fi
if [ "${QVN_WINDOWS_COMPRESSORS:-0}" = 1 ]; then
    export_lossy mjpg_1080 HDYC 33 --codec MJPG --size 1920x1080 --rate 29.97 --frames 20 --audio stereo || failures=$((failures + 1))
    export_lossy mjpg_sd51 UYVY 33 --codec MJPG --size 720x480 --rate 25 --frames 20 --audio 5.1 --sample-type 24 || failures=$((failures + 1))
    export_lossy dvsd_ntsc UYVY 31 --codec dvsd --size 720x480 --rate 29.97 --frames 20 --aspect NTSC --audio none || failures=$((failures + 1))
    export_lossy dvsd_palwide UYVY 31 --codec dvsd --size 720x576 --rate 25 --frames 20 --aspect "PAL wide" --audio 5.1 || failures=$((failures + 1))
fi

[ "$failures" -eq 0 ] || { echo "$failures comparison(s) failed"; exit 1; }
