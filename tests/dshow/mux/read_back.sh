#!/bin/sh
# Reads back every file the multiplexer test left in $1 with tools nobody here wrote: for each NAME.expect,
# ffprobe checks NAME.avi's streams and counts its video frames and audio samples exactly, ffmpeg decodes
# every stream without an error and the decoded bytes equal NAME.video.raw / NAME.audio.raw (what the test
# pushed; a repeated frame shows as a jump in the video times, video_pts). With a native qvnhost as $2, its inspector checks the indexes too.
set -u
dir=$1
qvnhost=${2:-}
passed=0
failed=0
fail() { echo "FAIL $name: $*"; ok=0; }
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
        got=$(ffprobe -v error -select_streams v:0 -show_entries stream=codec_name,width,height,r_frame_rate \
              -of csv=p=0 "$avi")
        [ "$got" = "rawvideo,$width,$height,$video_rate" ] ||
            fail "video '$got', expected 'rawvideo,$width,$height,$video_rate'"
        # A repeated frame is an index entry pointing at the previous chunk: ffmpeg reads the chunk once and
        # lets its time stand, so each distinct frame comes once, at the time of its first index entry, and
        # the frame count is the last packet's time + 1.
        pts=$(ffprobe -v error -select_streams v:0 -show_entries packet=pts -of csv=p=0 "$avi" | tr '\n' ' ')
        [ "$pts" = "$video_pts " ] || fail "video times '$pts', expected '$video_pts '"
        last=${pts% }
        last=${last##* }
        [ "$((last + 1))" = "$video_frames" ] || fail "video ends at frame $((last + 1)), expected $video_frames"
        if ! ffmpeg -nostdin -v error -xerror -i "$avi" -map 0:v:0 -fps_mode passthrough -f rawvideo -pix_fmt uyvy422 \
             "$base.video.decoded" -y 2>"$base.video.err" || [ -s "$base.video.err" ]; then
            fail "video decode: $(head -c 300 "$base.video.err")"
        elif ! cmp -s "$base.video.decoded" "$base.video.raw"; then
            fail "decoded video differs from what was pushed"
        fi
        rm -f "$base.video.decoded" "$base.video.err"
    fi
    if [ "$audio_samples" -gt 0 ]; then
        got=$(ffprobe -v error -select_streams a:0 -show_entries stream=codec_name,channels,sample_rate \
              -of csv=p=0 "$avi")
        [ "$got" = "pcm_${audio_format},$sample_rate,$channels" ] ||
            fail "audio '$got', expected 'pcm_${audio_format},$sample_rate,$channels'"
        if ! ffmpeg -nostdin -v error -xerror -i "$avi" -map 0:a:0 -f "$audio_format" -c:a "pcm_$audio_format" \
             "$base.audio.decoded" -y 2>"$base.audio.err" || [ -s "$base.audio.err" ]; then
            fail "audio decode: $(head -c 300 "$base.audio.err")"
        else
            bytes=$(wc -c <"$base.audio.decoded")
            samples=$((bytes * 8 / (channels * $(echo "$audio_format" | tr -dc 0-9))))
            [ "$samples" = "$audio_samples" ] || fail "$samples audio samples decoded, expected $audio_samples"
            cmp -s "$base.audio.decoded" "$base.audio.raw" || fail "decoded audio differs from what was pushed"
        fi
        rm -f "$base.audio.decoded" "$base.audio.err"
    fi
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
