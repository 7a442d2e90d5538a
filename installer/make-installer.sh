#!/bin/sh
# Builds QVNExport-<version>-setup.exe from a built QVNExport.prm with makensis; prints the installer's path.
#   installer/make-installer.sh MODULE VERSION OUTDIR
set -eu
[ $# -eq 3 ] || { echo "usage: $0 MODULE VERSION OUTDIR" >&2; exit 2; }
module=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
out=$(mkdir -p "$3" && cd "$3" && pwd)/QVNExport-$2-setup.exe
makensis -V2 -NOCD -DVERSION="$2" -DMODULE="$module" -DOUTFILE="$out" "$(dirname "$0")/QVNExport.nsi" >&2
echo "$out"
