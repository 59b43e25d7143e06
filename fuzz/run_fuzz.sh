#!/usr/bin/env bash
# Runs one fuzz target: first every input under the regression folder once (inputs that failed
# before must pass now), then fuzzing for the given seconds from the seed corpus. New failing
# inputs land in the findings folder; the script fails if there is any.
# Usage: run_fuzz.sh target seed-corpus regression-folder findings-folder seconds
set -euo pipefail

target=${1:?usage: run_fuzz.sh target corpus regressions findings seconds}
seeds=${2:?}
regressions=${3:?}
findings=${4:?}
seconds=${5:?}
name=$(basename "$target")

mkdir -p "$findings"
if [ -d "$regressions" ] && [ -n "$(ls -A "$regressions")" ]; then
    echo "$name: replaying $(ls "$regressions" | wc -l) regression inputs"
    "$target" -runs=0 "$regressions"/*
fi

# The grown corpus is kept beside the findings, so that later runs start from it; the seeds and
# the regressions are read, never written.
work="$findings/corpus"
mkdir -p "$work"
inputs=("$work" "$seeds")
[ -d "$regressions" ] && inputs+=("$regressions")
marker="$findings/.started"
touch "$marker"
echo "$name: fuzzing for $seconds s"
status=0
"$target" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2560 -print_final_stats=1 \
          -artifact_prefix="$findings/" "${inputs[@]}" > "$findings/log" 2>&1 || status=$?
tail -n 25 "$findings/log"
found=$(find "$findings" -maxdepth 1 -type f -newer "$marker" \( -name 'crash-*' -o -name 'leak-*' \
        -o -name 'timeout-*' -o -name 'oom-*' \) | wc -l)
if [ "$status" -ne 0 ] || [ "$found" -ne 0 ]; then
    echo "$name: $found new failing inputs in $findings (exit status $status)"
    exit 1
fi
