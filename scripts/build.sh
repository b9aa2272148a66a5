#!/bin/bash
# usage: build.sh [OPTION...] [PRESET [TARGET...]]
# Configures and builds a preset of CMakePresets.json (default: release) into build/PRESET. With targets
# only those are built, and a preset that is not configured yet is configured without the tests, which
# need packages that the rest does not. Shows how far it is when that takes a while, else nothing.
#   --configure    only configure
#   --in NAME      the folder is build/NAME
#   -DVARIABLE=VALUE  for CMake
# A folder that was configured in another place, in a copied or moved checkout, is made anew. What root
# builds belongs to the checkout's owner.
# Ends with 0, 1 when the build fails or build/ cannot be written, 2 on wrong usage, 130 when interrupted.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

help_if_asked "$@"
folder=
only_configure=
definitions=()
while (($# > 0)) && [[ $1 == -* ]]; do
    case $1 in
    --configure) only_configure=1 ;;
    --in)
        (($# >= 2)) || fail -2 "--in wants a name"
        folder=$2
        shift
        ;;
    -D?*=*) definitions+=("$1") ;;
    *) fail -2 "unknown option $1; see $script --help" ;;
    esac
    shift
done
arguments 0 99 "$@"
preset=${1:-release}
folder=${folder:-$preset}
[[ $folder =~ ^[A-Za-z0-9_][A-Za-z0-9_.-]*$ ]] || fail -2 "not the name of a preset or folder: $folder"
cd "$project"
grep -qsE "\"name\": *\"$preset\"" CMakePresets.json CMakeUserPresets.json ||
    fail -2 "no preset \"$preset\"; cmake --list-presets shows all"
own_build "$folder"
log=build/$folder.log
cache=build/$folder/CMakeCache.txt

configure=(cmake --preset "$preset" -B "build/$folder")
build=(cmake --build "build/$folder" -j "$(nproc)")
if (($# > 1)); then
    build+=(--target "${@:2}")
    # Configured already: as it is, or by the presets anew when those have changed since.
    tests=$(sed -n 's/^QRCODE_TESTS:BOOL=//p' "$cache" 2> /dev/null || true)
    # A target that is not there yet waits for a library that may have come since.
    known=1
    for target in "${@:2}"; do
        grep -qsE "^build $target: phony" "build/$folder/build.ninja" || known=
    done
    if [[ -n $known && build/$folder/build.ninja -nt CMakePresets.json &&
        ${#definitions[@]} -eq 0 ]]; then
        configure=(true)
    else
        configure+=("-DQRCODE_TESTS=${tests:-OFF}")
    fi
fi
[[ ${configure[0]} == true ]] || configure+=(${definitions[@]+"${definitions[@]}"})
[[ -z $only_configure ]] || build=(true)

configure_and_build()
{
    "${configure[@]}" && "${build[@]}"
}
trap 'exit 130' INT TERM HUP # else ninja's end would be told as a failed build
if ! with_progress "$log" "Building in build/$folder" configure_and_build; then
    cat "$log" >&2
    fail "building \"$preset\" failed (the lines above are in $log)"
fi
