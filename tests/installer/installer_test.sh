#!/bin/sh
# The installer under Wine, in one fresh prefix for the whole run:
#   1. Plug-InsDir names a folder that holds another vendor's plug-in: a silent install puts the module there
#      byte for byte, registers the class (another process creates it by ProgID), writes the uninstall entry,
#      and the module reports its identity from there; the quiet uninstall string removes the module, the
#      uninstaller and every key, and leaves the other plug-in and the folder.
#   2. No Plug-InsDir: the usual folder is made and used; uninstalling removes the folders it made.
#   3. Plug-InsDir under a file: the installer refuses with a message and exit status 2, and nothing changes.
# installer_test.sh SOURCE_DIR VERSION MODULE QVNHOST PROGID_CHECK WORK_DIR
set -eu
src=$1 version=$2 module=$3 qvnhost=$4 progid_check=$5 work=$6
if ! command -v makensis >/dev/null 2>&1; then
    echo "makensis is missing (Debian package nsis; ./qvn setup installs it): installer test skipped"
    exit 77
fi
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
check() { # check DESCRIPTION COMMAND...
    what=$1; shift
    if "$@" >/dev/null 2>&1; then echo "ok: $what"; else fail "$what"; fi
}

rm -rf "$work"
mkdir -p "$work"
setup=$("$src/installer/make-installer.sh" "$module" "$version" "$work")
[ -f "$setup" ] || { echo "FAIL: no installer built"; exit 1; }

export QVN_WINEPREFIX="$work/prefix"
wine_run() { "$src/cmake/wine-run.sh" "$@"; }
# Waits for every process in the prefix (the uninstaller goes on in a copy of itself after its first exits).
settle() { WINEPREFIX="$QVN_WINEPREFIX" wineserver -w; }
C="$QVN_WINEPREFIX/drive_c"
premiere='HKLM\SOFTWARE\Adobe\Premiere Pro\CurrentVersion'
uninstall='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\QVNExport'
clsid='HKCR\CLSID\{3C5D9E27-8A41-4F6B-B0D3-6E2A91C4F705}'
reg_value() { wine_run reg query "$1" /v "$2" 2>/dev/null | tr -d '\r' | sed -n "s/^ *$2 *REG_[A-Z_]* *//p"; }
no_key() { ! wine_run reg query "$1" >/dev/null 2>&1; }
not_created() { ! wine_run "$progid_check" >/dev/null 2>&1; }
nothing_registered() { # what an uninstall or a refusal leaves: no class, no ProgID, no entry
    check "$1: no class key" no_key "$clsid"
    check "$1: no ProgID keys" no_key 'HKCR\AVIWriter.QVNAVIWriter'
    check "$1: no versioned ProgID key" no_key 'HKCR\AVIWriter.QVNAVIWriter.1'
    check "$1: no uninstall entry" no_key "$uninstall"
    check "$1: the class cannot be created" not_created
}
# Every file and folder of the prefix outside Windows' own and the users' (temporary files).
snapshot() { (cd "$C" && find . -path ./windows -prune -o -path ./users -prune -o -print | sort); }

wine_run reg add "$premiere" /v Plug-InsDir /d 'C:\Premiere Plug-ins\MediaCore' /f >/dev/null
settle

echo "== 1. the folder Premiere Pro names"
folder="$C/Premiere Plug-ins/MediaCore"
mkdir -p "$folder"
echo other > "$folder/Other.prm"
if wine_run "$setup" /S; then echo "ok: silent install exits 0"; else fail "silent install exits $?"; fi
settle
check "the module is the build's, byte for byte" cmp "$module" "$folder/QVNExport.prm"
created=$(wine_run "$progid_check" | tr -d '\r' || true)
echo "progid_check: $created"
check "another process creates the class by ProgID, served from the installed file" \
    test "$created" = 'created from C:\Premiere Plug-ins\MediaCore\QVNExport.prm'
identity=$(wine_run "$qvnhost" info --module 'C:\Premiere Plug-ins\MediaCore\QVNExport.prm' | tr -d '\r' || true)
check "qvnhost info reports the installed module's identity" grep -q 'Quorvane AVI File' <<EOF
$identity
EOF
check "uninstall entry: version" test "$(reg_value "$uninstall" DisplayVersion)" = "$version"
check "uninstall entry: publisher" test "$(reg_value "$uninstall" Publisher)" = Quorvane
check "uninstall entry: name" test -n "$(reg_value "$uninstall" DisplayName)"
size=$(reg_value "$uninstall" EstimatedSize)
check "uninstall entry: size in KiB ($size)" test "$((size))" -eq "$(($(stat -c %s "$module") / 1024))"
quiet=$(reg_value "$uninstall" QuietUninstallString)
check "uninstall entry: quiet uninstall string" \
    test "$quiet" = '"C:\Premiere Plug-ins\MediaCore\QVNExport-uninstall.exe" /S'
check "uninstall entry: uninstall string" \
    test "$(reg_value "$uninstall" UninstallString)" = '"C:\Premiere Plug-ins\MediaCore\QVNExport-uninstall.exe"'
check "the uninstaller is beside the module" test -f "$folder/QVNExport-uninstall.exe"
# The quiet uninstall string, as the system's list of programs runs it.
wine_run 'C:\Premiere Plug-ins\MediaCore\QVNExport-uninstall.exe' /S || fail "silent uninstall exits $?"
settle
check "uninstall removes the module" test ! -e "$folder/QVNExport.prm"
check "uninstall removes itself" test ! -e "$folder/QVNExport-uninstall.exe"
check "uninstall leaves the other plug-in" cmp -s "$folder/Other.prm" - <<EOF
other
EOF
nothing_registered "after uninstall"

echo "== 2. no Plug-InsDir: the usual folder"
wine_run reg delete "$premiere" /v Plug-InsDir /f >/dev/null
settle
before=$(snapshot)
if wine_run "$setup" /S; then echo "ok: silent install exits 0"; else fail "silent install exits $?"; fi
settle
check "the module is in the usual folder" cmp "$module" "$C/Program Files/Adobe/Common/Plug-ins/CS5/MediaCore/QVNExport.prm"
check "the class is registered" wine_run "$progid_check"
wine_run 'C:\Program Files\Adobe\Common\Plug-ins\CS5\MediaCore\QVNExport-uninstall.exe' /S || fail "silent uninstall exits $?"
settle
check "uninstall removes every file and folder it made" test "$(snapshot)" = "$before"
nothing_registered "after uninstall"

echo "== 3. a folder that cannot be made"
echo blocker > "$C/Blocked"
wine_run reg add "$premiere" /v Plug-InsDir /d 'C:\Blocked\MediaCore' /f >/dev/null
settle
before=$(snapshot)
status=0
wine_run "$setup" /S 2>"$work/refusal.txt" || status=$?
settle
echo "refusal: $(tr -d '\r' <"$work/refusal.txt" | grep 'QVNExport setup' || true)"
check "the installer exits 2" test "$status" -eq 2
check "it says which folder it could not make" grep -q 'Cannot create the plug-in folder C:\\Blocked\\MediaCore' "$work/refusal.txt"
check "no file or folder changed" test "$(snapshot)" = "$before"
nothing_registered "after the refusal"

WINEPREFIX="$QVN_WINEPREFIX" wineserver -k 2>/dev/null || true
if [ "$failures" -ne 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "all installer checks passed"
