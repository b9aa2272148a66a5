#!/bin/bash
# usage: footprint.sh
# Prints what the device's program takes: sections of the stripped binary, the service's own share of
# them, the stack that each thread needs, and the shared libraries that it names. The binary holds the
# simulated platform in place of the vendor's. Ends with 0, 1 when the service's own share is above
# its limits, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly OWN_TEXT_MAX=$((32 * 1024)) # bytes
readonly OWN_DATA_MAX=$((8 * 1024))  # bytes, data and bss

arguments 0 0 "$@"
cd "$project"
scripts/setup.sh build device
root=$(scripts/make-device-root.sh)
scripts/build.sh device qrcode
scripts/build.sh release resources
build=$project/build/device
tools=arm-linux-gnueabihf

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
$tools-strip -o "$work/qrcode" "$build/qrcode_src/qrcode"
printf '%-42s %9s %9s %9s\n' "bytes" text data bss
$tools-size "$work/qrcode" | awk 'NR == 2 { printf "%-42s %9d %9d %9d\n", "stripped binary, simulated platform in it", $1, $2, $3 }'
mapfile -t archives < <(find "$build/qrcode_src" -maxdepth 1 -name 'libqrcode_*.a')
read -r text data bss < <($tools-size "${archives[@]}" \
    "$build"/qrcode_src/CMakeFiles/qrcode.dir/core/main.cpp.o |
    awk 'NR > 1 { text += $1; data += $2; bss += $3 } END { print text, data, bss }')
printf '%-42s %9d %9d %9d\n' "the service's own objects" "$text" "$data" "$bss"

echo
scripts/private-world.sh --see "$build" -- build/release/bench/resources stack samples/worn.png \
    qemu-arm -L "$root" -s @ "$build/qrcode_src/qrcode"
echo
echo "shared libraries: $($tools-readelf -d "$work/qrcode" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | paste -sd' ')"

((text <= OWN_TEXT_MAX && data + bss <= OWN_DATA_MAX)) ||
    fail "the service's own share is above $OWN_TEXT_MAX bytes of text or $OWN_DATA_MAX of data"
