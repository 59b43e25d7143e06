#!/usr/bin/env bash
# Makes the clips the viewer's tests play, with the project's sample generator.
# Usage: make_clips.sh path/to/vexel-make-sample output-folder
set -euo pipefail

make_sample=${1:?usage: make_clips.sh vexel-make-sample folder}
folder=${2:?usage: make_clips.sh vexel-make-sample folder}
mkdir -p "$folder"
cd "$folder"

# Long enough to drag in while it plays, even on a slow machine.
"$make_sample" --size 512x256 --fps 30 --seconds 10 --quality 16 --spherical look.mp4
"$make_sample" --size 256x128 --fps 30 --seconds 1 --quality 16 --no-audio --stereo top-bottom stereo-tb.mp4
"$make_sample" --size 256x128 --fps 30 --seconds 1 --quality 16 --no-audio --stereo side-by-side stereo-sbs.mkv
"$make_sample" --size 256x128 --fps 30 --seconds 1 --quality 16 --no-audio plain.mp4
echo "clips ready in $folder"
