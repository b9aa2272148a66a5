#!/bin/bash
# Configures and builds a preset of CMakePresets.json into build/PRESET: build.sh [PRESET [TARGET...]]
# (default: release). With targets only those are built, and a preset that is not configured yet is
# configured without the tests, which need packages that the rest does not. Says nothing unless
# something goes wrong.
set -euo pipefail

usage="usage: $(basename "$0") [PRESET [TARGET...]]"

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
case ${1-} in
-h | --help)
    echo "$usage"
    exit 0
    ;;
-*)
    echo "$usage" >&2
    exit 2
    ;;
esac
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
    echo "$(basename "$0"): building \"$preset\" failed (the lines above are in $log)" >&2
    exit 1
fi
