#!/usr/bin/env bash
# Checks that libVexelPlayer.so exports exactly the 43 functions of its version script (the dlopen
# host resolves each of them by its name in the public header), that it carries RUNPATH
# $ORIGIN:$ORIGIN/vexel (not the older RPATH): its sibling modules beside it in the build tree, in
# the vexel/ folder beside it when installed, and that its SONAME is libVexelPlayer.so.<major>.
# Usage: check_exports.sh path/to/libVexelPlayer.so path/to/exports.map
set -euo pipefail

lib=${1:?usage: check_exports.sh libVexelPlayer.so exports.map}
map=${2:?usage: check_exports.sh libVexelPlayer.so exports.map}

failed=0
fail() { echo "FAIL: $*"; failed=1; }

bash "$(dirname "$0")/check_module_exports.sh" "$lib" "$map" || failed=1
[ "$(grep -c '^ *[A-Za-z_][A-Za-z0-9_]*;' "$map")" -eq 43 ] || fail "$map does not name 43 functions"
dynamic=$(readelf -d "$lib")
grep -q '(RUNPATH).*\[\$ORIGIN:\$ORIGIN/vexel\]' <<<"$dynamic" || fail "RUNPATH is not \$ORIGIN:\$ORIGIN/vexel"
grep -q '(SONAME).*\[libVexelPlayer\.so\.[0-9]*\]' <<<"$dynamic" || fail "SONAME is not libVexelPlayer.so.<major>"
if grep -q '(RPATH)' <<<"$dynamic"; then fail "has an RPATH entry"; fi

if [ "$failed" -ne 0 ]; then exit 1; fi
echo "ok: 43 exports, RUNPATH \$ORIGIN:\$ORIGIN/vexel"
