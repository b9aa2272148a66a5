#!/bin/bash
# Configures and builds one preset of CMakePresets.json into build/PRESET: build.sh [PRESET]. Says
# nothing unless something goes wrong.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
preset=${1:-release}
(($# <= 1)) || {
    echo "usage: $(basename "$0") [PRESET]" >&2
    exit 2
}
cd "$project"
mkdir -p build
log=build/$preset.log
if ! { cmake --preset "$preset" && cmake --build --preset "$preset" -j "$(nproc)"; } > "$log" 2>&1; then
    cat "$log" >&2
    echo "$(basename "$0"): building \"$preset\" failed (the lines above are in $log)" >&2
    exit 1
fi
