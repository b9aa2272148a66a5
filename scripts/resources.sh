#!/bin/bash
# usage: resources.sh [--beside VARIANT[=FOLDER]]
# Measures what the service takes of the machine: peak memory beside a program that links the same
# libraries and does nothing, CPU time of an idle minute, time from its start to its hello. Takes three
# minutes; keep the machine quiet.
#   --beside VARIANT  instead: the service with Debian's shared libraries beside the one over the static
#                     archives of build/libs-VARIANT or FOLDER (native), in turn: files loaded, memory,
#                     start to hello, CPU time and page faults of readings. Takes two minutes.
# Ends with 0, 1 when something cannot be measured, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

help_if_asked "$@"
variant=
if [[ ${1-} == --beside ]]; then
    (($# >= 2)) || fail -2 "--beside wants a variant"
    variant=$2
    shift 2
fi
arguments 0 0 "$@"
refuse_fuzz_libs "$variant"
[[ -z $variant ]] || folder=$(over_folder "$variant")
variant=${variant%%=*}
cd "$project"
scripts/setup.sh build
build=$project/build/release
if [[ -z $variant ]]; then
    scripts/build.sh release qrcode resources baseline
    scripts/private-world.sh -- "$build/bench/resources" use "$build/qrcode_src/qrcode" \
        "$build/bench/baseline" samples
    exit
fi

scripts/build.sh release qrcode resources one_reading scanned_pictures
build_over "$variant" "$folder" qrcode one_reading
work=$(mktemp -d)
trap 'rm -rf "$work"; give_build_back' EXIT
"$build/bench/scanned_pictures" frames "$work" samples/{plain,overexposed,no-code-wall}.png
# As they are shipped: the files' bytes are without what a debugger needs.
strip -o "$work/debian" "$build/qrcode_src/qrcode"
strip -o "$work/$variant" "$over/qrcode_src/qrcode"
echo "first: Debian's shared libraries; second: $variant"
scripts/private-world.sh --see "$work" -- "$build/bench/resources" beside samples "$work" \
    "$work/debian" "$build/bench/one_reading" "$work/$variant" "$over/bench/one_reading"
