#!/bin/bash
# Prints what the device's program takes: sections of the stripped binary, the service's own share of
# them, the stack that each thread needs, and the shared libraries that it names. The binary holds the
# simulated platform in place of the vendor's. Ends with 1 when the service's own share is above its
# limits. Builds the device's program first when scripts/test-device.sh has not.
set -euo pipefail

readonly OWN_TEXT_MAX=$((32 * 1024)) # bytes
readonly OWN_DATA_MAX=$((8 * 1024))  # bytes, data and bss
readonly STEP=16                     # KiB, to which stacks are measured
readonly PLENTY=8192                 # KiB

(($# == 0)) || {
    echo "usage: $(basename "$0")" >&2
    exit 2
}
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
cd "$project"
scripts/setup.sh build device test
root=$(scripts/make-device-root.sh)
scripts/build.sh device
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

# Whether a code is read and reported with stacks of so many KiB: the main thread's, and the default
# of the threads it starts.
works_with()
{
    # shellcheck disable=SC2016
    scripts/private-world.sh --see "$build" -- bash -c '
        qemu-arm -L "$2" "$1/sim/panel/panel" --count 1 --seconds 20 > /dev/null 2>&1 &
        panel=$!
        until grep -q ":2710 " /proc/net/udp; do kill -0 $panel || exit 1; sleep 0.02; done
        (ulimit -s "$4" && QRCODE_SIM_SCENE=$5 exec qemu-arm -L "$2" -s $(($3 * 1024)) \
            "$1/qrcode_src/qrcode" > /dev/null 2>&1) &
        wait -n # the panel at its count, or the service at a crash
        kill -0 $panel 2> /dev/null && exit 1
        wait $panel' measure "$build" "$root" "$1" "$2" "$project/samples/worn.png" 2> /dev/null
}

# The smallest stack, in KiB, with which $1 (main or thread) works.
smallest()
{
    local low=0 high=$PLENTY middle
    while ((high - low > STEP)); do
        middle=$(((low + high) / 2 / STEP * STEP))
        if [[ $1 == main ]] && works_with "$middle" $PLENTY ||
            [[ $1 == thread ]] && works_with $PLENTY "$middle"; then
            high=$middle
        else
            low=$middle
        fi
    done
    echo "$high"
}

works_with $PLENTY $PLENTY || {
    echo "footprint.sh: the emulated service reports nothing even with $PLENTY KiB of stack" >&2
    exit 1
}
echo
printf '%-42s %9d KiB\n' "stack that the main thread needs" "$(smallest main)"
printf '%-42s %9d KiB\n' "stack that the listening thread needs" "$(smallest thread)"
echo
echo "shared libraries: $($tools-readelf -d "$work/qrcode" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | paste -sd' ')"

((text <= OWN_TEXT_MAX && data + bss <= OWN_DATA_MAX)) || {
    echo "footprint.sh: the service's own share is above $OWN_TEXT_MAX bytes of text or" \
        "$OWN_DATA_MAX of data" >&2
    exit 1
}
