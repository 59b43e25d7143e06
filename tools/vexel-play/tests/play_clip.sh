#!/usr/bin/env bash
# vexel-play end to end: plays a small clip through the library and checks what it leaves behind.
# Usage: play_clip.sh path/to/vexel-play clip scratch-folder
set -euo pipefail

play=${1:?usage: play_clip.sh vexel-play clip folder}
clip=${2:?usage: play_clip.sh vexel-play clip folder}
folder=${3:?usage: play_clip.sh vexel-play clip folder}
rm -rf "$folder"

summary=$("$play" --quiet --size 160x90 --path "0=0,0,90;2=360,0,90" --out "$folder" "$clip")
echo "$summary"
grep -q '^ending            end of range' <<<"$summary"
grep -q '^frames presented  20 ' <<<"$summary"
# The decoder tests' clips carry no spherical metadata: the layout falls back to equirect.
grep -q '^layout            equirect (no spherical metadata' <<<"$summary"
for file in view.mp4 contact-sheet.png; do
    [ -s "$folder/$file" ] || { echo "FAIL: $folder/$file missing or empty"; exit 1; }
done
# The contact sheet is a PNG; the recording is itself playable.
[ "$(head -c 8 "$folder/contact-sheet.png" | od -An -tx1 | tr -d ' \n')" = 89504e470d0a1a0a ]
"$play" --quiet --size 64x36 --out "$folder/again" "$folder/view.mp4" | grep -q '^ending            end of range'

# A file that is not a video is refused with a message and exit code 1.
if "$play" --quiet --out "$folder/bad" "$0" 2>/dev/null; then
    echo "FAIL: a shell script played as a video"
    exit 1
fi
echo "ok"
