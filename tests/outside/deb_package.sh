#!/usr/bin/env bash
# Builds the Debian package of a build tree with CPack and checks what it holds and what it
# depends on. Usage: deb_package.sh build-dir work-dir
set -euo pipefail

build=${1:?usage: deb_package.sh build-dir work-dir}
work=${2:?usage: deb_package.sh build-dir work-dir}
rm -rf "$work"
mkdir -p "$work"
cpack --config "$build/CPackConfig.cmake" -B "$work" >"$work/cpack.log" || { cat "$work/cpack.log"; exit 1; }
deb=$(find "$work" -maxdepth 1 -name 'vexel_*.deb' -print -quit)
[ -n "$deb" ] || { echo "FAIL: no vexel_*.deb made"; cat "$work/cpack.log"; exit 1; }

failed=0
fail() { echo "FAIL: $*"; failed=1; }

# Paths as dpkg-deb -c lists them (./usr/...), symbolic links with their targets.
contents=$(dpkg-deb -c "$deb" | awk '{ $1 = $2 = $3 = $4 = $5 = ""; sub(/^ +/, ""); print }')
has() { grep -Eq "^\./usr/$1\$" <<<"$contents" || fail "the package holds no /usr/$1"; }
lib='lib(/[a-z0-9_]+-linux-gnu)?'
has "include/vexelplayer.h"
has "$lib/libVexelPlayer\.so\.1\.[0-9]+\.[0-9]+"
has "$lib/libVexelPlayer\.so\.1 -> libVexelPlayer\.so\.1\.[0-9]+\.[0-9]+"
has "$lib/libVexelPlayer\.so -> libVexelPlayer\.so\.1"
for module in DecodeHost PixelConvert SphereUnwrap LensParams AudioFeedFilter; do
    has "$lib/vexel/lib$module\.so"
done
has "$lib/pkgconfig/vexel\.pc"
has "$lib/cmake/Vexel/VexelConfig\.cmake"
has "$lib/cmake/Vexel/VexelTargets\.cmake"
for tool in vexel-play vexel-make-sample vexel-snapshot; do has "bin/$tool"; done
if grep -Eq "^\./usr/$lib/lib(DecodeHost|PixelConvert|SphereUnwrap|LensParams|AudioFeedFilter)\.so" <<<"$contents"; then
    fail "a sibling module lies loose in the library folder"
fi
if grep -q '^\./\(build\|tmp\|work\|home\|root\)' <<<"$contents"; then fail "paths of the build machine in the package"; fi

# The runtime packages of everything the library, its modules and tools link.
depends=$(dpkg-deb -f "$deb" Depends)
names=$(tr ',|' '\n\n' <<<"$depends" | sed 's/^ *//; s/ .*//')
for package in libavcodec libavformat libavutil libswscale libswresample libsdl2 libyuv libc6 libstdc++; do
    grep -q "^$package[0-9.-]*\$" <<<"$names" || fail "Depends lacks $package: $depends"
done
[ "$(dpkg-deb -f "$deb" Package)" = vexel ] || fail "the package is not named vexel"

[ "$failed" -eq 0 ] || exit 1
echo "ok: $(basename "$deb"): $(wc -l <<<"$contents") entries; Depends: $depends"
