#!/usr/bin/env bash
# Checks that libVexelPlayer.so exports exactly the 43 functions of the public interface, that it
# carries RUNPATH $ORIGIN:$ORIGIN/vexel (not the older RPATH): its sibling modules beside it in the
# build tree, in the vexel/ folder beside it when installed, and that its SONAME is
# libVexelPlayer.so.<major>. Usage: check_exports.sh path/to/libVexelPlayer.so
set -euo pipefail

lib=${1:?usage: check_exports.sh libVexelPlayer.so}

expected="AddPan AddZoom Close Create Destroy EndPan EndZoom GetCurrentPlayTime GetCurrentPreSample
GetCurrentViewSample GetFrameRate GetHeight GetRange GetTimeFreeze GetWidth InlayBuffer_CreateSample
InlayBuffer_ExtractView InlayBuffer_GetBuffer InlayBuffer_GetFov InlayBuffer_GetHeight
InlayBuffer_GetPan InlayBuffer_GetSeek InlayBuffer_GetTilt InlayBuffer_GetTime InlayBuffer_GetView
InlayBuffer_GetWidth InlayBuffer_ReadBuffer InlayBuffer_Release InlayBuffer_SetView Mute Open Pause
Play Seek SetPanStep SetTimeFreeze SetView SetViewDim SetVolume StartPan StartZoom Stop TimeFreeze"

failed=0
fail() { echo "FAIL: $*"; failed=1; }

expected_sorted=$(tr -s ' \n' '\n\n' <<<"$expected" | sed '/^$/d' | LC_ALL=C sort)
[ "$(wc -l <<<"$expected_sorted")" -eq 43 ] || fail "the expected list does not hold 43 names"

# Version-node symbols (type A) are not functions and are left out.
symbols=$(nm -D --defined-only "$lib" | awk '$2 != "A" { print $2, $3 }')
not_text=$(awk '$1 != "T"' <<<"$symbols")
[ -z "$not_text" ] || fail "exported symbols that are not functions:"$'\n'"$not_text"
actual_sorted=$(awk '{ print $2 }' <<<"$symbols" | LC_ALL=C sort)

if [ "$actual_sorted" != "$expected_sorted" ]; then
    fail "exported names differ from the interface (< missing, > extra):"
    diff <(echo "$expected_sorted") <(echo "$actual_sorted") || true
fi

dynamic=$(readelf -d "$lib")
grep -q '(RUNPATH).*\[\$ORIGIN:\$ORIGIN/vexel\]' <<<"$dynamic" || fail "RUNPATH is not \$ORIGIN:\$ORIGIN/vexel"
grep -q '(SONAME).*\[libVexelPlayer\.so\.[0-9]*\]' <<<"$dynamic" || fail "SONAME is not libVexelPlayer.so.<major>"
if grep -q '(RPATH)' <<<"$dynamic"; then fail "has an RPATH entry"; fi

if [ "$failed" -ne 0 ]; then exit 1; fi
echo "ok: 43 exports, RUNPATH \$ORIGIN:\$ORIGIN/vexel"
