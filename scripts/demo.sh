#!/bin/bash
# usage: demo.sh [PICTURE or FOLDER]
# The whole terminal on a desk: builds the service with a simulated camera, shows it pictures, and prints
# what it reports to the main application as it comes, then a summary.
#   demo.sh          the samples
#   demo.sh PICTURE  one picture of your own
#   demo.sh FOLDER   a folder of pictures; on a terminal over and over until Ctrl-C, so that pictures can
#                    be put in and watched
# A text file NAME.txt beside NAME.png holds the text that is expected of it.
# Ends with 0; 1 when a sample is missed or wrong, or something breaks; 2 on wrong usage or when there
# is no picture to show; 130 when interrupted before each was shown once.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arguments 0 1 "$@"
build=$project/build/release
scene=${1-$project/samples}
[[ -e $scene ]] || fail -2 "no such picture or folder: $scene"
[[ -f $scene || -d $scene ]] || fail -2 "neither a picture nor a folder: $scene"
[[ -r $scene ]] || fail -2 "not readable: $scene"
scene=$(realpath -s -- "$scene")
seen=(--see "$scene")
name=${scene##*/}
expected=${scene%/*}/${name%.*}.txt
if [[ -f $scene && -e $expected ]]; then
    seen+=(--see "$expected")
fi
options=()
if [[ $(realpath -- "$scene") == "$project/samples" ]]; then
    options=(--once --strict)
fi

"$project/scripts/setup.sh" build
if [[ ! -x $build/tools/demo_runner ]]; then
    echo "Building in build/release; the first time takes a minute or so ..." >&2
fi
"$project/scripts/build.sh" release qrcode demo_runner

# Ctrl-C is the runner's: it stops the service and prints the summary.
trap '' INT
exec "$project/scripts/private-world.sh" "${seen[@]}" -- "$build/tools/demo_runner" \
    --service "$build/qrcode_src/qrcode" --scene "$scene" ${options[@]+"${options[@]}"}
