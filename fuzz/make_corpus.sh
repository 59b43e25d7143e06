#!/usr/bin/env bash
# Makes the seed corpus of the fuzz targets: small clips in several containers from the sample
# generator for the decoder, and a few hand-made byte strings for the others.
# Usage: make_corpus.sh path/to/vexel-make-sample corpus-folder
set -euo pipefail

make_sample=${1:?usage: make_corpus.sh vexel-make-sample folder}
corpus=${2:?usage: make_corpus.sh vexel-make-sample folder}
mkdir -p "$corpus"/{decode_fuzzer,projector_fuzzer,time_freeze_fuzzer,audio_plan_fuzzer}

export ASAN_OPTIONS=detect_leaks=0  # the generator is not what is tested here
tiny=(--size 64x32 --fps 10 --keyframes 5 --quality 30)
cd "$corpus/decode_fuzzer"
"$make_sample" "${tiny[@]}" --seconds 0.6 clip.mp4 >/dev/null
"$make_sample" "${tiny[@]}" --seconds 0.6 --no-audio clip.ts >/dev/null
"$make_sample" "${tiny[@]}" --seconds 0.6 clip.mkv >/dev/null
"$make_sample" --seconds 0.3 --audio-only sound.m4a >/dev/null
"$make_sample" "${tiny[@]}" --seconds 1 --truncate 0.5 --no-audio cut.mp4 >/dev/null

# Byte strings the other targets read as sizes, angles and operations.
cd "$corpus"
printf '\x00\x02\x00\x01\x40\x00\x20\x00\x00\x00\x00\x00\x00\x00\x56\x40' > projector_fuzzer/wide
printf '\x01\x01\x00\x01\x7f\x7f\x7f\x7f\xff\xff\xff\xff\xff\xff\xf0\x7f' > projector_fuzzer/extreme
printf '\x00\x03\x02\x10\x27\x00\x00\x02\xe8\x03\x00\x00\x03\x01\x02\x03\x04\x05\x06\x07\x08\x02' > time_freeze_fuzzer/set-get
printf '\x01\x01\x00\x00\x00\x00\x00\x00\xf0\x7f\x02\x40\x42\x0f\x00\x03\xff\xff\xff\xff\xff\xff\xff\x7f' > time_freeze_fuzzer/insert-inf
printf '\x00\x10\x40\x42\x0f\x00\x00\x00\x00\x00\x80\x84\x1e\x00\x00\x00\x00\x00\xc0\x00\x04\x00' > audio_plan_fuzzer/block
printf '\xff\xff\x00\x00\x00\x00\x00\x00\x00\x80\xff\xff\xff\xff\xff\xff\xff\x7f\x01\x00\x00\x80\x7f' > audio_plan_fuzzer/extreme
echo "fuzz corpus ready in $corpus"
