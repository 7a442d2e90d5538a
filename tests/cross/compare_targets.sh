#!/bin/sh
# The same export through the Windows module (qvnhost.exe under Wine) and through the native module must
# hold the same pictures and the same samples: decoded frame by frame and compared by checksum.
# Chunk interleaving may differ between runs; the content may not. On Windows the uncompressed codes go
# through the DirectShow graph, whose audio source puts 5.1 into the file's channel order (L, R, C, LFE,
# Ls, Rs), where the native direct path keeps the host's (L, R, Ls, Rs, C, LFE): the native 5.1 samples
# are reordered before they are compared.
#   compare_targets.sh WINE_RUNNER WINDOWS_QVNHOST NATIVE_QVNHOST WORK_DIR
set -eu
runner=$1 winhost=$2 nativehost=$3 work=$4
mkdir -p "$work"
failures=0

# export_pair NAME OPTIONS...: the export through each target, both files consistent.
export_pair() {
    name=$1
    shift
    "$nativehost" export --out "$work/$name.native.avi" "$@" > "$work/$name.native.log" 2>&1 ||
        { echo "FAIL $name: native export failed"; cat "$work/$name.native.log"; return 1; }
    "$runner" "$winhost" export --out "$work/$name.windows.avi" "$@" > "$work/$name.windows.log" 2>&1 ||
        { echo "FAIL $name: Windows export failed"; cat "$work/$name.windows.log"; return 1; }
    for target in native windows; do
        "$nativehost" inspect "$work/$name.$target.avi" > "$work/$name.$target.inspect" ||
            { echo "FAIL $name: the $target file is not consistent"; tail -5 "$work/$name.$target.inspect"; return 1; }
    done
}

# export_close NAME OPTIONS...: DVCPRO, which each target's host compresses with its own libavcodec (the
# system's, with assembly; qvnhost.exe's, without): the pictures differ by rounding only, so the decoded
# frames must stay above 60 dB PSNR (a wrong frame, field or colour matrix gives under 30); the samples are
# the same bytes.
export_close() {
    name=$1
    shift
    export_pair "$name" "$@" || return 1
    psnr=$(ffmpeg -v info -i "$work/$name.native.avi" -i "$work/$name.windows.avi" -lavfi "[0:v][1:v]psnr" -f null - 2>&1 |
        sed -n 's/.*PSNR.* average:\([0-9.inf]*\).*/\1/p' | tail -1)
    awk -v p="$psnr" 'BEGIN { exit !(p == "inf" || (p != "" && p + 0 >= 60)) }' ||
        { echo "FAIL $name: the pictures differ (PSNR ${psnr:-none})"; return 1; }
    for target in native windows; do
        ffmpeg -v error -y -i "$work/$name.$target.avi" -map 0:a -c:a copy -f md5 "$work/$name.$target.a.md5"
    done
    cmp -s "$work/$name.native.a.md5" "$work/$name.windows.a.md5" || { echo "FAIL $name: the samples differ"; return 1; }
    echo "ok   $name: pictures at $psnr dB PSNR, identical samples"
    rm -f "$work/$name".*
}

# export_lossy NAME REFERENCE FLOOR OPTIONS...: Motion JPEG and DV, which only the Windows module writes
# (through the encoder filters of its graph). The native module exports the same frames uncompressed with
# the REFERENCE code; both are turned into RGB through their own colour matrices (UYVY BT.601 and HDYC
# BT.709 in video range; Motion JPEG BT.601 full range; DV BT.601 video range) and every frame must stay
# above FLOOR dB PSNR (33.8 to 37.9 here; a wrong matrix gives 27, a wrong range 29, a frame out of place
# 18, a flipped picture 7). The audio holds the native samples.
export_lossy() {
    name=$1 reference=$2 floor=$3
    shift 3
    "$runner" "$winhost" export --out "$work/$name.windows.avi" "$@" > "$work/$name.windows.log" 2>&1 ||
        { echo "FAIL $name: Windows export failed"; cat "$work/$name.windows.log"; return 1; }
    "$nativehost" export --out "$work/$name.native.avi" "$@" --codec "$reference" > "$work/$name.native.log" 2>&1 ||
        { echo "FAIL $name: native export failed"; cat "$work/$name.native.log"; return 1; }
    "$nativehost" inspect "$work/$name.windows.avi" > "$work/$name.windows.inspect" ||
        { echo "FAIL $name: the Windows file is not consistent"; tail -5 "$work/$name.windows.inspect"; return 1; }
    ffmpeg -v error -xerror -i "$work/$name.windows.avi" -map 0:v -f null - ||
        { echo "FAIL $name: a frame does not decode"; return 1; }
    counts=""
    for target in native windows; do
        counts="$counts $(ffprobe -v error -select_streams v -count_packets -show_entries stream=nb_read_packets \
            -of csv=p=0 "$work/$name.$target.avi")"
    done
    set -- $counts
    frames=$1
    [ "$1" = "$2" ] || { echo "FAIL $name: $2 frames where the native export has $1"; return 1; }
    case $reference in HDYC) matrix=bt709 ;; *) matrix=bt601 ;; esac
    case $name in mjpg*) range=pc ;; *) range=tv ;; esac
    ffmpeg -v error -i "$work/$name.native.avi" -i "$work/$name.windows.avi" -lavfi \
        "[0:v]scale=in_color_matrix=$matrix:in_range=tv,format=rgb24[a];[1:v]scale=in_color_matrix=bt601:in_range=$range,format=rgb24[b];[a][b]psnr=stats_file=$work/$name.psnr" \
        -f null - || { echo "FAIL $name: the pictures cannot be compared"; return 1; }
    worst=$(sed -n 's/.*psnr_avg:\([0-9.inf]*\).*/\1/p' "$work/$name.psnr" | sort -g | head -1)
    awk -v p="$worst" -v f="$floor" 'BEGIN { exit !(p == "inf" || (p != "" && p + 0 >= f)) }' ||
        { echo "FAIL $name: a frame at ${worst:-no} dB PSNR, under $floor"; return 1; }
    channels=$(ffprobe -v error -select_streams a -show_entries stream=channels -of csv=p=0 "$work/$name.native.avi")
    if [ -n "$channels" ]; then
        for target in native windows; do
            set -- -map 0:a -c:a pcm_f64le
            [ "$channels" = 6 ] && [ "$target" = native ] && set -- "$@" -af "pan=5.1|c0=c0|c1=c1|c2=c4|c3=c5|c4=c2|c5=c3"
            ffmpeg -v error -y -i "$work/$name.$target.avi" "$@" -f md5 "$work/$name.$target.a.md5"
        done
        cmp -s "$work/$name.native.a.md5" "$work/$name.windows.a.md5" || { echo "FAIL $name: the samples differ"; return 1; }
    fi
    echo "ok   $name: $frames frames, the worst at $worst dB PSNR (floor $floor), native samples"
    rm -f "$work/$name".*
}

# export_both NAME STREAMS OPTIONS...: STREAMS is "v a" or "a".
export_both() {
    name=$1
    streams=$2
    shift 2
    export_pair "$name" "$@" || return 1
    channels=$(ffprobe -v error -select_streams a -show_entries stream=channels -of csv=p=0 "$work/$name.native.avi")
    for stream in $streams; do
        for target in native windows; do
            # Video: one checksum per decoded frame. Audio: one checksum over every sample (decoded as
            # 64-bit floats where channels move, which is exact for every sample type): how a reader cuts
            # chunks into packets depends on the interleaving, which may differ.
            if [ "$stream" = v ]; then
                set -- -map 0:v -f framemd5
            elif [ "$channels" = 6 ] && [ "$target" = native ]; then
                set -- -map 0:a -af "pan=5.1|c0=c0|c1=c1|c2=c4|c3=c5|c4=c2|c5=c3" -c:a pcm_f64le -f md5
            elif [ "$channels" = 6 ]; then
                set -- -map 0:a -c:a pcm_f64le -f md5
            else
                # The bytes themselves: the graph labels 32-bit float as float where the direct path calls
                # it 32-bit PCM, so decoded samples would differ while the file holds the same ones.
                set -- -map 0:a -c:a copy -f md5
            fi
            ffmpeg -v error -y -i "$work/$name.$target.avi" "$@" "$work/$name.$target.$stream.md5" ||
                { echo "FAIL $name: ffmpeg could not decode the $stream stream of the $target file"; return 1; }
            sed -i '/^#/d' "$work/$name.$target.$stream.md5"
            [ -s "$work/$name.$target.$stream.md5" ] || { echo "FAIL $name: no $stream packets in the $target file"; return 1; }
        done
        if ! cmp -s "$work/$name.native.$stream.md5" "$work/$name.windows.$stream.md5"; then
            echo "FAIL $name: the $stream streams differ"
            diff "$work/$name.native.$stream.md5" "$work/$name.windows.$stream.md5" | head -5
            return 1
        fi
    done
    echo "ok   $name: identical content ($(grep -c . "$work/$name.native.v.md5" 2>/dev/null || echo 0) frames)"
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
