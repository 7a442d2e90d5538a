#!/bin/bash
# Runs a command under a file-size limit of $1 KiB, with SIGXFSZ ignored so that a write past the limit
# fails (EFBIG) instead of killing the writer. QVN_MUX_FILE_LIMIT tells the program the limit in bytes.
set -e
limit_kib=$1
shift
ulimit -f "$limit_kib"
trap '' XFSZ
export QVN_MUX_FILE_LIMIT=$((limit_kib * 1024))
exec "$@"
