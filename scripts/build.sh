#!/bin/bash
# usage: build.sh [PRESET [TARGET...]]
# Configures and builds a preset of CMakePresets.json (default: release) into build/PRESET. With targets
# only those are built, and a preset that is not configured yet is configured without the tests, which
# need packages that the rest does not. Says nothing unless something goes wrong.
# Ends with 0, or 1 when the build fails.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arguments 0 99 "$@"
preset=${1:-release}
cd "$project"
mkdir -p build
log=build/$preset.log

configure=(cmake --preset "$preset")
build=(cmake --build --preset "$preset" -j "$(nproc)")
if (($# > 1)); then
    build+=(--target "${@:2}")
    if [[ -f build/$preset/build.ninja ]]; then
        configure=(true) # as it is; the build does it again where it must
    else
        configure+=(-DQRCODE_TESTS=OFF)
    fi
fi
if ! { "${configure[@]}" && "${build[@]}"; } > "$log" 2>&1; then
    cat "$log" >&2
    fail "building \"$preset\" failed (the lines above are in $log)"
fi
