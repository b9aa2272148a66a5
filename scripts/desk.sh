#!/bin/bash
# usage: desk.sh [--port N] [PICTURE or FOLDER]
# The terminal in a browser: builds the service, starts it with a simulated camera and the main application's side in
# a private world, and serves one page on http://127.0.0.1:8080, for browsers of this machine. There the camera sees
# this computer's camera, a picture of yours, or one of the strip: those of the folder, or the samples.
#   --port N  another port, from 1024 on
# Ctrl-C ends all of it and leaves nothing.
# Ends with 0 after Ctrl-C; 1 when the port is taken or something breaks; 2 on wrong usage; 125 when there can be no
# private world.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

help_if_asked "$@"
port=8080
scene=
while (($# > 0)); do
    case $1 in
    --port)
        whole_number "${2-}" --port
        port=$2
        shift
        ;;
    -*) fail -2 "unknown option $1; see $script --help" ;;
    *)
        [[ -z $scene ]] || fail -2 "unexpected argument $1; see $script --help"
        [[ -f $1 || -d $1 ]] || fail -2 "no such picture or folder: $1"
        [[ -r $1 ]] || fail -2 "not readable: $1"
        scene=$1
        ;;
    esac
    shift
done
((port >= 1024 && port <= 65535)) || fail -2 "--port: not from 1024 to 65535: $port"
scene=$(realpath -s -- "${scene:-$project/samples}")

"$project/scripts/setup.sh" desk
"$project/scripts/build.sh" release qrcode desk

build=$project/build/release
# Ctrl-C is the program's: it ends what it has started.
trap '' INT
exec "$build/tools/desk" --port "$port" -- "$project/scripts/private-world.sh" --follow "$scene" -- \
    "$build/tools/desk" --port "$port" --service "$build/qrcode_src/qrcode" --scene "$scene" --page "$project/tools/desk/page"
