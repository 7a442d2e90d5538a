#!/bin/sh
# A minimal static libavcodec for qvnhost.exe, cross-compiled with MinGW-w64 from Debian's ffmpeg source
# package (fetched by ./qvn setup): the DV and Motion JPEG encoders, libswscale for their input, libavutil,
# no assembly, nothing detected from the build machine. Built once; later calls find it and return.
#   cmake/libavcodec-mingw.sh SOURCE_PACKAGE_DIR OUT_DIR
set -eu
src=$(cd "$1" && pwd)
mkdir -p "$2"
out=$(cd "$2" && pwd)
[ -f "$out/install/lib/libavcodec.a" ] && exit 0
dsc=$(ls "$src"/ffmpeg_*.dsc 2>/dev/null | head -1)
[ -n "$dsc" ] || { echo "libavcodec-mingw: no ffmpeg source package in $src (./qvn setup fetches it)" >&2; exit 1; }
echo "libavcodec-mingw: building a minimal libavcodec from $(basename "$dsc") (once, a few minutes)" >&2
rm -rf "$out/src" "$out/install"
dpkg-source --no-check -x "$dsc" "$out/src" >"$out/unpack.log" 2>&1 ||
    { tail -20 "$out/unpack.log" >&2; exit 1; }
cd "$out/src"
if ! ./configure --prefix="$out/install" --enable-cross-compile --target-os=mingw32 --arch=x86_64 \
    --cross-prefix=x86_64-w64-mingw32- --cc=x86_64-w64-mingw32-gcc-posix --pkg-config=false \
    --disable-everything --disable-asm --disable-autodetect --disable-programs --disable-doc --disable-debug \
    --disable-avdevice --disable-avformat --disable-avfilter --disable-swresample --disable-postproc \
    --disable-network --enable-encoder=dvvideo,mjpeg --enable-swscale --enable-static --disable-shared \
    >"$out/configure.log" 2>&1; then
    tail -20 "$out/configure.log" >&2
    exit 1
fi
make -j"${QVN_JOBS:-$(nproc)}" >"$out/make.log" 2>&1 || { tail -30 "$out/make.log" >&2; exit 1; }
make install >"$out/install.log" 2>&1 || { tail -20 "$out/install.log" >&2; exit 1; }
rm -rf "$out/src" # the objects are in the libraries; 100 MB of tree is not needed again
