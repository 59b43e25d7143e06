#!/usr/bin/env bash
# Checks that a sibling module exports exactly the functions its version script names, so a name
# missing from the sources (or stray library internals) shows up.
# Usage: check_module_exports.sh path/to/libModule.so path/to/exports.map
set -euo pipefail

lib=${1:?usage: check_module_exports.sh libModule.so exports.map}
map=${2:?usage: check_module_exports.sh libModule.so exports.map}

expected=$(sed -n '/global:/,/local:/p' "$map" | grep -o '^ *[A-Za-z_][A-Za-z0-9_]*;' | tr -d ' ;' | LC_ALL=C sort)
[ -n "$expected" ] || { echo "FAIL: no global names in $map"; exit 1; }
symbols=$(nm -D --defined-only "$lib" | awk '$2 != "A" { print $2, $3 }')
not_text=$(awk '$1 != "T"' <<<"$symbols")
actual=$(awk '{ print $2 }' <<<"$symbols" | LC_ALL=C sort)

if [ -n "$not_text" ] || [ "$actual" != "$expected" ]; then
    echo "FAIL: $(basename "$lib") exports differ from $map (< missing, > extra):"
    diff <(echo "$expected") <(echo "$actual") || true
    [ -z "$not_text" ] || echo "not functions: $not_text"
    exit 1
fi
echo "ok: $(basename "$lib") exports $(wc -l <<<"$expected") functions"
