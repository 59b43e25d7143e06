#!/usr/bin/env bash
# Makes the small clips the decoder tests play, with the project's sample generator.
# Usage: make_clips.sh path/to/vexel-make-sample output-folder
set -euo pipefail

make_sample=${1:?usage: make_clips.sh vexel-make-sample folder}
folder=${2:?usage: make_clips.sh vexel-make-sample folder}
mkdir -p "$folder"
cd "$folder"

small=(--size 128x64 --fps 10 --keyframes 10 --quality 16)
"$make_sample" "${small[@]}" --seconds 2 equirect.mp4
"$make_sample" "${small[@]}" --seconds 1 --no-audio silent.mp4
"$make_sample" --seconds 1 --audio-only sound.m4a
"$make_sample" "${small[@]}" --seconds 2 --truncate 0.6 --no-audio cut.mp4
# Containers that seek differently: by decoding time (MPEG-TS), by cues (Matroska).
"$make_sample" "${small[@]}" --seconds 2 --no-audio transport.ts
"$make_sample" "${small[@]}" --seconds 2 --no-audio matroska.mkv
# Time stamps that begin at 1.5 s: VP9 and Opus in Matroska, H.264 and AAC in MPEG-TS.
"$make_sample" "${small[@]}" --seconds 4 --start 1.5 --vp9 late.mkv
"$make_sample" "${small[@]}" --seconds 4 --start 1.5 late.ts

# Damaged: a run of garbage over the middle of the picture data of a good clip.
cp equirect.mp4 damaged.mp4
size=$(stat -c %s damaged.mp4)
head -c 600 /dev/zero | tr '\0' '\377' | dd of=damaged.mp4 bs=1 seek=$((size / 2)) conv=notrunc status=none

printf 'This is a text file, not a video.\n' > not-media.mp4
echo "clips ready in $folder"
