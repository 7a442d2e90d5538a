#!/bin/sh
# One Wine server for a whole series of Windows programs, with its service processes already running:
#   cmake/wine-server.sh start BUILD_DIR   |   cmake/wine-server.sh stop BUILD_DIR
# Programs that start and end in quick succession would otherwise start a server each, and a client that
# connects while an idle server shuts down is cut off ("recvmsg: Connection reset by peer"). The services
# (services.exe, rpcss.exe, explorer.exe, ...) are started here with their output going nowhere: they outlive
# the program that starts them and keep its standard output and error open, so a caller reading those to the
# end (CTest, a pipe) would wait until the server goes away.
set -e
action=$1
build=$(cd "$2" && pwd)
root=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX="$build/wineprefix"
case "$action" in
start)
    # A server left running by an earlier start (an interrupted run) would never end, and the wait below
    # with it.
    wineserver -k 2>/dev/null || true
    "$root/cmake/wine-run.sh" "$build/bin/qvnhost.exe" info >/dev/null 2>&1 || true # makes the prefix
    wineserver -w 2>/dev/null || true
    wineserver -p 2>/dev/null || true
    # An export through the graph starts every service the tests use (COM's rpcss, the desktop).
    "$root/cmake/wine-run.sh" "$build/bin/qvnhost.exe" export --codec UYVY --size 64x48 --frames 1 --graph \
        --out "Z:$(echo "$build/wine-server-start.avi" | tr / '\\')" </dev/null >/dev/null 2>&1 || true
    rm -f "$build/wine-server-start.avi"
    ;;
stop)
    wineserver -k 2>/dev/null || true
    ;;
*)
    echo "usage: $0 start|stop BUILD_DIR" >&2
    exit 2
    ;;
esac
