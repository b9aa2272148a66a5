#!/bin/bash
# usage: footprint.sh [hard|soft]    (default: hard)
# Prints what the terminal's program takes: the stripped file and its sections, the service's own share of
# them, what is from which library, the stack that each thread needs, and the shared libraries that it
# names. The file holds a platform of the tests in place of the vendor's, of some 4 KB; for the stacks it
# is the simulated one. Ends with 0, 1 when the file or the service's own share is above its limits, 2 on
# wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly FILE_MAX=2000000            # bytes
readonly OWN_TEXT_MAX=$((32 * 1024)) # bytes
readonly OWN_DATA_MAX=$((8 * 1024))  # bytes, data and bss

arguments 0 1 "$@"
variant=${1:-hard}
case $variant in
hard) tools=arm-linux-gnueabihf ;;
soft) tools=arm-linux-gnueabi ;;
*) fail -2 "neither hard nor soft: $variant" ;;
esac
cd "$project"
scripts/setup.sh test device
scripts/device-libs.sh "$variant"
scripts/build.sh -DQRCODE_TESTS=ON "$variant" qrcode bmp_samples byte_platform
scripts/build.sh release resources
build=$project/build/$variant
scripts/bundle.sh --in "test-$variant" "$variant" "$build/tests/libbyte_platform.a" > /dev/null
file=$project/build/bundle-test-$variant/qrcode
link=$project/build/link-test-$variant/qrcode_src

size=$(stat -c %s "$file")
printf '%-28s %9d, %d as xz\n\n' "the file, bytes" "$size" "$(xz -9 -c "$file" | wc -c)"
printf '%-28s %9s %9s %9s\n' "bytes" text data bss
$tools-size "$file" | awk 'NR == 2 { printf "%-28s %9d %9d %9d\n", "in it", $1, $2, $3 }'
mapfile -t archives < <(find "$link" -maxdepth 1 -name 'libqrcode_*.a')
read -r text data bss < <($tools-size "${archives[@]}" "$link"/CMakeFiles/qrcode.dir/core/main.cpp.o |
    awk 'NR > 1 { text += $1; data += $2; bss += $3 } END { print text, data, bss }')
printf '%-28s %9d %9d %9d\n\n' "the service's own objects" "$text" "$data" "$bss"
bench/link_map.py bytes "$link/qrcode.map"

echo
scripts/private-world.sh --see "$build" -- build/release/bench/resources stack "$build/samples-bmp/worn.bmp" \
    qemu-arm -L "/usr/$tools" -s @ "$build/qrcode_src/qrcode"
echo
echo "shared libraries: $($tools-readelf -d "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | paste -sd' ')"

((text <= OWN_TEXT_MAX && data + bss <= OWN_DATA_MAX)) ||
    fail "the service's own share is above $OWN_TEXT_MAX bytes of text or $OWN_DATA_MAX of data"
((size <= FILE_MAX)) || fail "the file is above $FILE_MAX bytes"
