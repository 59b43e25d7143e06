#!/usr/bin/env bash
# Installs the build tree into a fresh prefix, builds the C example against it through pkg-config
# and through find_package(Vexel), and runs both (and the installed vexel-snapshot) on a clip. Usage: install_example.sh build-dir examples-dir clip work-dir [cflags]
set -euo pipefail

build=${1:?usage: install_example.sh build examples clip work [cflags]}
examples=$2 clip=$3 work=$4 cflags=${5:-}
source "$(dirname "$0")/check_ppm.sh"

rm -rf "$work"
mkdir -p "$work"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/install.log"

# The installed layout (links, SONAME, the modules' folder, header, tools) is the package's: the
# deb_package test lists it.
library=$(find "$prefix" -name 'libVexelPlayer.so.*.*.*' -print -quit)
[ -n "$library" ] || { echo "FAIL: libVexelPlayer.so.X.Y.Z not installed"; exit 1; }
libdir=$(dirname "$library")
failed=0

# Each host plays the clip and must have shown more than a second of it in its two seconds.
run_snapshot() {
    local name=$1
    shift
    "$@" "$clip" "$work/$name.ppm" >"$work/$name.out" || { echo "FAIL: $name exited with $?"; cat "$work/$name.out"; return 1; }
    awk '/^panorama/ { for (i = 1; i <= NF; ++i) if ($i == "at" && $(i + 1) >= 1.0) ok = 1 } END { exit !ok }' \
        "$work/$name.out" || { echo "FAIL: $name presented less than a second:"; cat "$work/$name.out"; return 1; }
    check_ppm "$work/$name.ppm" 640 360
    echo "ok: $name: $(cat "$work/$name.out")"
}

# The sanitizers' dlopen interceptor makes dlopen ignore the library's RUNPATH; in the sanitizer
# trees (cflags given) the installed module folder is named on LD_LIBRARY_PATH instead.
modules=""
[ -z "$cflags" ] || modules=$libdir/vexel
export LD_LIBRARY_PATH=$modules

# pkg-config, and a one-line compiler call.
export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046,SC2086
cc $cflags "$examples/snapshot.c" $(pkg-config --cflags --libs vexel) -o "$work/snapshot-pkgconfig"
LD_LIBRARY_PATH=$libdir${modules:+:$modules} run_snapshot snapshot-pkgconfig "$work/snapshot-pkgconfig" || failed=1

# find_package(Vexel): the imported target brings the include folder and the library.
cmake -S "$examples" -B "$work/examples" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_C_FLAGS="$cflags" -DCMAKE_CXX_FLAGS="$cflags" >"$work/examples-configure.log"
cmake --build "$work/examples" >"$work/examples-build.log" || { cat "$work/examples-build.log"; exit 1; }
run_snapshot snapshot-cmake "$work/examples/snapshot" || failed=1

# The installed host finds the installed library through its own RUNPATH.
run_snapshot vexel-snapshot "$prefix/bin/vexel-snapshot" || failed=1

exit "$failed"
