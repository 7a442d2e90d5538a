#!/bin/sh
# For each NAME.expect the multiplexer test left in $1: ffprobe checks NAME.avi's streams and counts, ffmpeg
# decodes every stream without a word into NAME.video.raw / NAME.audio.raw's bytes (a repeated frame shows
# as a jump in video_pts); a native qvnhost as $2 checks the indexes.
set -u
dir=$1
qvnhost=${2:-}
passed=0
failed=0
fail() { echo "FAIL $name: $*"; ok=0; }
probe() { ffprobe -v error -select_streams "$1" -show_entries "$2" -of csv=p=0 "$avi" | tr '\n' ' '; }
# decode STREAM FILE OPTIONS...: ffmpeg decodes the stream without a word, and the bytes equal FILE's.
decode() {
    what=$1 raw=$2
    shift 2
    if ! ffmpeg -nostdin -v error -xerror -i "$avi" "$@" "$base.decoded" -y 2>"$base.err" || [ -s "$base.err" ]; then
        fail "$what decode: $(head -c 300 "$base.err")"
    elif ! cmp -s "$base.decoded" "$raw"; then
        fail "decoded $what differs from what was pushed"
    fi
}
for expect in "$dir"/*.expect; do
    [ -f "$expect" ] || continue
    name= video_frames=0 video_pts= width=0 height=0 video_rate= audio_samples=0 channels=0 sample_rate=0 audio_format=
    . "$expect"
    base=${expect%.expect}
    avi=$base.avi
    ok=1
    streams=$(ffprobe -v error -show_entries stream=codec_type -of csv=p=0 "$avi" | tr '\n' ' ')
    want=
    [ "$video_frames" -gt 0 ] && want="video "
    [ "$audio_samples" -gt 0 ] && want="${want}audio "
    [ "$streams" = "$want" ] || fail "streams '$streams', expected '$want'"
    if [ "$video_frames" -gt 0 ]; then
        got=$(probe v:0 stream=codec_name,width,height,r_frame_rate)
        [ "$got" = "rawvideo,$width,$height,$video_rate " ] || fail "video '$got', expected 'rawvideo,$width,$height,$video_rate'"
        # ffmpeg reads a repeated chunk once, at its first entry's time: the count is the last time + 1.
        pts=$(probe v:0 packet=pts)
        [ "$pts" = "$video_pts " ] || fail "video times '$pts', expected '$video_pts '"
        last=${pts% }
        [ "$((${last##* } + 1))" = "$video_frames" ] || fail "video ends at frame $((${last##* } + 1)), expected $video_frames"
        decode video "$base.video.raw" -map 0:v:0 -fps_mode passthrough -f rawvideo -pix_fmt uyvy422
    fi
    if [ "$audio_samples" -gt 0 ]; then
        got=$(probe a:0 stream=codec_name,channels,sample_rate)
        [ "$got" = "pcm_${audio_format},$sample_rate,$channels " ] ||
            fail "audio '$got', expected 'pcm_${audio_format},$sample_rate,$channels'"
        decode audio "$base.audio.raw" -map 0:a:0 -f "$audio_format" -c:a "pcm_$audio_format"
        samples=$(($(wc -c 2>/dev/null <"$base.decoded" || echo 0) * 8 / (channels * $(echo "$audio_format" | tr -dc 0-9))))
        [ "$samples" = "$audio_samples" ] || fail "$samples audio samples decoded, expected $audio_samples"
    fi
    rm -f "$base.decoded" "$base.err"
    if [ -n "$qvnhost" ] && [ -x "$qvnhost" ]; then
        "$qvnhost" inspect "$avi" >"$base.inspect" 2>&1 || fail "qvnhost inspect: $(tail -n 3 "$base.inspect")"
        rm -f "$base.inspect"
    fi
    if [ $ok = 1 ]; then
        echo "ok $name"
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
    fi
done
echo "read back: $passed passed, $failed failed"
[ $passed -gt 0 ] && [ $failed = 0 ]
