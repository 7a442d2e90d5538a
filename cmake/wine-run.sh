#!/bin/sh
# Runs a Windows program under Wine with a private prefix beside the build tree, quiet, and with the
# Mono and Gecko installers disabled so that a first run needs no dialog and no network.
# QVN_WINEPREFIX may name the prefix; by default it is <build tree>/wineprefix, found from the program path.
set -e
if [ -z "${QVN_WINEPREFIX:-}" ]; then
    dir=$(cd "$(dirname "$1")" && pwd)
    while [ "$dir" != "/" ] && [ ! -f "$dir/CMakeCache.txt" ]; do dir=$(dirname "$dir"); done
    [ -f "$dir/CMakeCache.txt" ] || dir=$(cd "$(dirname "$1")" && pwd)
    QVN_WINEPREFIX="$dir/wineprefix"
fi
export WINEPREFIX="$QVN_WINEPREFIX"
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d${WINEDLLOVERRIDES:+;$WINEDLLOVERRIDES}"
export DISPLAY=
if [ ! -f "$WINEPREFIX/system.reg" ]; then
    mkdir -p "$WINEPREFIX"
    # One prefix initialisation at a time: parallel CTest jobs share the prefix.
    (
        flock 9
        [ -f "$WINEPREFIX/system.reg" ] || wineboot -i >/dev/null 2>&1 || true
        wineserver -w 2>/dev/null || true
    ) 9>"$WINEPREFIX.lock"
fi
exec wine "$@"
