#!/bin/bash
# usage: test-desk.sh [--keep-pictures FOLDER]
#        test-desk.sh --times N
#        test-desk.sh --hour MINUTES
# Installs what is missing, builds, and tests the terminal in a browser: Chromium without a window, with a fake
# camera that plays a film made from the samples. Takes some 80 s.
#   --keep-pictures FOLDER  keep screenshots of the page there: desk-light.png, desk-dark.png, desk-narrow.png
#   --times N        measure instead: from a code before the camera to its text on the page, for N codes, and the
#                    same without a browser; 3 s a code and way
#   --hour MINUTES   ... what server, service and page hold in memory and descriptors with the camera on, a line
#                    a minute, and what that grew by
# Ends with 0; 1 when a test fails or something breaks; 2 on wrong usage; 125 when there can be no private world.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly PYTHON=/usr/bin/python3 # Debian's, whose packages the driver is one of

help_if_asked "$@"
run=(desk_test.py)
while (($# > 0)); do
    case $1 in
    --keep-pictures)
        [[ -n ${2-} ]] || fail -2 "--keep-pictures wants a folder"
        mkdir -p -- "$2"
        KEEP_PICTURES=$(realpath -- "$2")
        export KEEP_PICTURES
        ;;
    --times | --hour)
        whole_number "${2-}" "$1"
        run=(desk_figures.py "${1#--}" "$2")
        ;;
    -*) fail -2 "unknown option $1; see $script --help" ;;
    *) fail -2 "unexpected argument $1; see $script --help" ;;
    esac
    shift 2
done

"$project/scripts/setup.sh" desk-test
"$project/scripts/build.sh" release qrcode desk
"$project/scripts/private-world.sh" -- true # ends here with 125 where there can be none
exec "$PYTHON" -B -W ignore::ResourceWarning "$project/tests/desk/${run[0]}" "${run[@]:1}"
