#!/bin/bash
# The whole terminal on a desk: builds the service with a simulated camera, shows it pictures, and
# prints what it reports to the panel as it comes, then a summary.
#   scripts/demo.sh          the samples
#   scripts/demo.sh PICTURE  one picture of your own
#   scripts/demo.sh FOLDER   a folder of pictures; on a terminal over and over until Ctrl-C, so that
#                            pictures can be put in and watched
# A text file NAME.txt beside NAME.png holds the text that is expected of it.
# Ends with 0; 1 when a sample is missed or wrong, or something breaks; 2 on wrong usage or when there
# is no picture to show; 130 when interrupted before each was shown once.
set -euo pipefail

fail()
{
    local status=$1
    shift
    echo "demo: $*" >&2
    exit "$status"
}

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
root=$(dirname "$here")
build=$root/build/release

(($# <= 1)) || fail 2 "one picture or folder at most; see $0 --help"
case ${1-} in
-h | --help)
    sed -n '2,/^set /{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
    exit 0
    ;;
-*) fail 2 "unknown option $1; see $0 --help" ;;
esac
scene=${1-$root/samples}
[[ -e $scene ]] || fail 2 "no such picture or folder: $scene"
[[ -f $scene || -d $scene ]] || fail 2 "neither a picture nor a folder: $scene"
[[ -r $scene ]] || fail 2 "not readable: $scene"
scene=$(realpath -s -- "$scene")
seen=(--see "$scene")
name=${scene##*/}
expected=${scene%/*}/${name%.*}.txt
if [[ -f $scene && -e $expected ]]; then
    seen+=(--see "$expected")
fi
options=()
if [[ $(realpath -- "$scene") == "$root/samples" ]]; then
    options=(--once --strict)
fi

"$here/setup.sh" build
if [[ ! -x $build/tools/demo_runner ]]; then
    echo "Building in build/release; the first time takes a minute or so ..." >&2
fi
"$here/build.sh" release qrcode panel demo_runner

# Ctrl-C is the runner's: it stops the others and prints the summary.
trap '' INT
exec "$here/private-world.sh" "${seen[@]}" -- "$build/tools/demo_runner" \
    --service "$build/qrcode_src/qrcode" --panel "$build/sim/panel/panel" --scene "$scene" \
    ${options[@]+"${options[@]}"}
