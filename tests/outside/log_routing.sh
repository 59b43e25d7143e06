#!/usr/bin/env bash
# VEXEL_LOG as a host's user meets it, through the example host vexel-snapshot: the library's fixed
# line goes to standard output, to standard error or nowhere; FFmpeg's messages about a cut-off clip
# follow it, errors only unless more is asked for; and nothing of the audio stack reaches the
# terminal on a machine without sound hardware.
# Usage: log_routing.sh vexel-snapshot libVexelPlayer.so clips-dir work-dir
set -uo pipefail

snapshot=${1:?usage: log_routing.sh vexel-snapshot libVexelPlayer.so clips work}
library=$2 clips=$3 work=$4
rm -rf "$work"
mkdir -p "$work/alone"

failed=0
fail() { echo "FAIL: $*"; failed=1; }

# run NAME VEXEL_LOG CLIP [LD_LIBRARY_PATH]: the host's output in $work/NAME.out and .err. Without
# a path of its own the host keeps the test's (which names the module folder in the sanitizer
# trees, where dlopen ignores the library's RUNPATH).
run() {
    env VEXEL_LOG="$2" LD_LIBRARY_PATH="${4:-${LD_LIBRARY_PATH:-}}" "$snapshot" "$3" "$work/$1.ppm" >"$work/$1.out" 2>"$work/$1.err"
}
count() { grep -c -F -- "$1" "$2"; }

# A copy of the library alone in a folder cannot find its decoder module.
cp "$(readlink -f "$library")" "$work/alone/$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')"
line="can not find DecodeHost.dll for intel decode! "
run alone-default "" "$clips/equirect.mp4" "$work/alone"
run alone-stderr stderr "$clips/equirect.mp4" "$work/alone"
run alone-off off "$clips/equirect.mp4" "$work/alone"
[ "$(grep -c -x -F -- "$line" "$work/alone-default.out")" -eq 1 ] || fail "by default the fixed line is not on standard output"
[ "$(count "$line" "$work/alone-default.err")" -eq 0 ] || fail "by default the fixed line is on standard error"
[ "$(count "$line" "$work/alone-stderr.out")" -eq 0 ] || fail "VEXEL_LOG=stderr left the fixed line on standard output"
[ "$(grep -c -x -F -- "$line" "$work/alone-stderr.err")" -eq 1 ] || fail "VEXEL_LOG=stderr did not put the fixed line on standard error"
[ "$(cat "$work/alone-off.out" "$work/alone-off.err" | count "$line" -)" -eq 0 ] || fail "VEXEL_LOG=off printed the fixed line"

# FFmpeg's messages start with "[name @ 0x...]"; the cut-off clip makes its demuxer report an error.
run cut-default "" "$clips/cut.mp4"
run cut-stderr stderr "$clips/cut.mp4"
run cut-off off "$clips/cut.mp4"
run cut-debug stderr,debug "$clips/cut.mp4"
ffmpeg_lines() { grep -c '^\[[^]]* @ 0x[0-9a-f]*\]' "$1"; }
errors=$(ffmpeg_lines "$work/cut-default.out")
[ "$errors" -gt 0 ] || fail "no FFmpeg error about the cut-off clip on standard output"
[ "$(ffmpeg_lines "$work/cut-default.err")" -eq 0 ] || fail "FFmpeg's messages reached standard error by default"
[ "$(ffmpeg_lines "$work/cut-stderr.out")" -eq 0 ] || fail "VEXEL_LOG=stderr left FFmpeg's messages on standard output"
[ "$(ffmpeg_lines "$work/cut-stderr.err")" -eq "$errors" ] || fail "VEXEL_LOG=stderr did not move FFmpeg's errors"
[ "$(cat "$work/cut-off.out" "$work/cut-off.err" | grep -c '@ 0x')" -eq 0 ] || fail "VEXEL_LOG=off printed FFmpeg's messages"
[ "$(ffmpeg_lines "$work/cut-debug.err")" -gt "$errors" ] || fail "VEXEL_LOG=debug shows no more of FFmpeg than errors"

# A clip with sound. Without a sound card or server here the fallback is silent, and named once at
# info level.
run sound-default "" "$clips/equirect.mp4"
run sound-info stderr,info "$clips/equirect.mp4"
notice="no audio output device"
if grep -q 'ALSA\|pulse\|jack' "$work"/sound-*.out "$work"/sound-*.err; then fail "the audio stack printed"; fi
[ "$(count "$notice" "$work/sound-default.out")" -eq 0 ] || fail "the audio fallback was named below info level"
if ! compgen -G '/dev/snd/pcmC*' >/dev/null && [ -z "${PULSE_SERVER:-}${SDL_AUDIODRIVER:-}" ] &&
   ! compgen -G "${XDG_RUNTIME_DIR:-/nonexistent}/p*" >/dev/null; then
    [ "$(count "$notice" "$work/sound-info.err")" -eq 1 ] || fail "the audio fallback was not named once at info level"
fi

[ "$failed" -eq 0 ] || { tail -n 5 "$work"/*.out "$work"/*.err; exit 1; }
echo "ok: fixed line routed, $errors FFmpeg error lines by default, no audio stack output"
