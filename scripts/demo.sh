#!/bin/bash
# usage: demo.sh [--app COMMAND] [--own-ports] [PICTURE or FOLDER]
# The whole terminal on a desk: builds the service with a simulated camera, shows it pictures, and
# prints what it reports to the main application as it comes, then a summary.
#   demo.sh          the samples
#   demo.sh PICTURE  one picture of your own
#   demo.sh FOLDER   a folder of pictures; on a terminal over and over until Ctrl-C, so that
#                    pictures can be put in and watched
# A text file NAME.txt beside NAME.png holds the text that is expected of it.
#   --app COMMAND    runs a main application of your own in the panel's place, with sh -c in this
#                    folder, and shows the pictures over and over. Prints a line for each line of
#                    the command's, each picture, and each datagram either way, and a note where a
#                    datagram does not do what its sender may hope. Ends with the command or on
#                    Ctrl-C; logs and screen stay in a folder below build/. For the command all
#                    files are read-only but those in its own /tmp, where of this machine's /tmp
#                    only the folders of the files named in the command are seen; its standard
#                    input is empty.
#   --own-ports      without a private world: on this machine's UDP ports 10000 and 10010 and its
#                    /Database/doorlog. With --app, datagrams are shown only to root.
# Ends with 0; 1 when a sample is missed or wrong, or something breaks; 2 on wrong usage or when
# there is no picture to show; 125 when there can be no private world; 130 when interrupted before
# each was shown once. With --app: the command's own status (128 and the number of the signal that
# ended it), 0 after Ctrl-C, 1 when the service breaks.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly LOG_FOLDER=/Database/doorlog # the service's, fixed

help_if_asked "$@"
app=
own_ports=false
scene=
while (($# > 0)); do
    case $1 in
    -h | --help) help_if_asked "$1" ;;
    --app)
        [[ -n ${2-} && $2 != -* ]] || fail -2 "--app wants a command"
        app=$2
        shift
        ;;
    --own-ports) own_ports=true ;;
    -*) fail -2 "unknown option $1; see $script --help" ;;
    *)
        [[ -z $scene ]] || fail -2 "unexpected argument $1; see $script --help"
        [[ -e $1 ]] || fail -2 "no such picture or folder: $1"
        scene=$1
        ;;
    esac
    shift
done
scene=${scene:-$project/samples}
[[ -f $scene || -d $scene ]] || fail -2 "neither a picture nor a folder: $scene"
[[ -r $scene ]] || fail -2 "not readable: $scene"
[[ -e /proc/self/fd/1 ]] || fail "the output cannot be written"

build=$project/build/release
scene=$(realpath -s -- "$scene")
runner=("$build/tools/demo_runner" --service "$build/qrcode_src/qrcode" --scene "$scene")
if [[ $(realpath -- "$scene") == "$project/samples" ]]; then
    runner+=(--once --strict)
fi

"$project/scripts/setup.sh" build
"$project/scripts/build.sh" release qrcode demo_runner

world=(--follow "$scene")
name=${scene##*/}
expected=${scene%/*}/${name%.*}.txt
if [[ -f $scene && -e $expected ]]; then
    world+=(--see "$expected")
fi

# What the command's words name is seen with the folder that it lies in.
see_words()
{
    local word words path folder
    # With quotation marks as a shell reads them, and between its other signs.
    mapfile -t words < <(xargs -n 1 printf '%s\n' <<< "$app" 2> /dev/null || true
        tr -s " ;&|()<>'\"" '\n' <<< "$app")
    for word in "$PWD" "${words[@]}"; do
        path=${word#*=} # of --option=PATH too
        [[ -z $path || -e $path ]] || path=$(type -P -- "$path") || continue
        [[ -n $path ]] || continue
        path=$(realpath -s -- "$path")
        folder=$path
        [[ -d $path ]] || folder=${path%/*}
        case $folder in
        "" | /tmp | /Database | /dev/shm | /sys) folder=$path ;; # the world's own
        esac
        case $folder in
        /dev/shm/?*) world+=(--see "$folder") ;;
        / | /tmp | /Database | /dev | /dev/* | /proc | /proc/* | /sys) ;;
        *) world+=(--see "$folder") ;;
        esac
    done
}

log=$LOG_FOLDER
if [[ -n $app ]]; then
    record=$project/build/app-log/$(date +%Y%m%d-%H%M%S)-$$
    mkdir -p "$record"
    give_build_back
    runner+=(--app "$app")
    if $own_ports; then
        runner+=(--record "$record/screen.txt")
        echo "The lines below stay in ${record#"$project/"}." >&2
    else
        log=$record
        see_words
        world+=(--open --log "$record")
        runner+=(--record "$LOG_FOLDER/screen.txt")
        echo "Logs and screen: ${record#"$project/"}. From a second terminal:" \
            "scripts/enter-world.sh $$" >&2
    fi
fi
if $own_ports; then
    echo "On this machine's own UDP ports 10000 and 10010." >&2
    if [[ ! -d $log ]]; then
        echo "There is no $log: the service drops its log entries." >&2
    elif [[ ! -w $log || (-e $log/qrcodelog.txt && ! -w $log/qrcodelog.txt) ]]; then
        echo "$log cannot be written to: the service drops its log entries." >&2
    else
        echo "The service's log: $log/qrcodelog.txt" >&2
    fi
fi

# Ctrl-C is the runner's: it stops the service and prints the summary.
trap '' INT
if $own_ports; then
    exec "${runner[@]}"
fi
exec "$project/scripts/private-world.sh" "${world[@]}" -- "${runner[@]}"
