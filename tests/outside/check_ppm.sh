# check_ppm FILE WIDTH HEIGHT: a binary PPM of that size whose picture is not one flat colour.
check_ppm() {
    local file=$1 width=$2 height=$3
    local header="P6"$'\n'"$width $height"$'\n'"255"
    [ "$(head -c ${#header} "$file")" = "$header" ] || { echo "FAIL: $file has no ${width}x$height PPM header"; return 1; }
    local expected=$(( ${#header} + 1 + width * height * 3 ))
    [ "$(stat -c %s "$file")" -eq "$expected" ] || { echo "FAIL: $file is not $expected bytes"; return 1; }
    local colours
    colours=$(tail -c $((width * height * 3)) "$file" | od -An -v -tx1 -w3 | sort -u | wc -l)
    [ "$colours" -gt 16 ] || { echo "FAIL: $file holds only $colours colours"; return 1; }
}
