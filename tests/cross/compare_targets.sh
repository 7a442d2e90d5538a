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

# export_both NAME STREAMS OPTIONS...: STREAMS is "v a" or "a".
export_both() {
    name=$1
    streams=$2
    shift 2
    "$nativehost" export --out "$work/$name.native.avi" "$@" > "$work/$name.native.log" 2>&1 ||
        { echo "FAIL $name: native export failed"; cat "$work/$name.native.log"; return 1; }
    "$runner" "$winhost" export --out "$work/$name.windows.avi" "$@" > "$work/$name.windows.log" 2>&1 ||
        { echo "FAIL $name: Windows export failed"; cat "$work/$name.windows.log"; return 1; }
    for target in native windows; do
        "$nativehost" inspect "$work/$name.$target.avi" > "$work/$name.$target.inspect" ||
            { echo "FAIL $name: the $target file is not consistent"; tail -5 "$work/$name.$target.inspect"; return 1; }
    done
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

[ "$failures" -eq 0 ] || { echo "$failures comparison(s) failed"; exit 1; }
