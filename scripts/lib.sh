# What all scripts share; each sources it first. Sets `script`, its name in messages, and `project`, the
# root of this checkout.
# shellcheck shell=bash
set -euo pipefail

script=$(basename "$0")
# shellcheck disable=SC2034
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

readonly PROGRESS_FIRST_S=2  # what is done sooner shows no progress
readonly PROGRESS_EVERY_S=20 # between its lines, where there is no terminal

# fail [-STATUS] MESSAGE...: says it on standard error and ends with the status, 1 by default.
fail()
{
    local status=1
    if [[ $1 =~ ^-[0-9]+$ ]]; then
        status=${1#-}
        shift
    fi
    echo "$script: $*" >&2
    exit "$status"
}

# help_if_asked "$@": prints the comment at the script's head and ends with 0, when one of the
# arguments before a -- asks for help.
help_if_asked()
{
    local argument
    for argument in "$@"; do
        case $argument in
        --) return ;;
        -h | --help)
            sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
            exit 0
            ;;
        esac
    done
}

# arguments MIN MAX "$@": for a script without options. Answers --help; ends with 2 on an option, or
# on too few or too many arguments.
arguments()
{
    local min=$1 max=$2
    shift 2
    help_if_asked "$@"
    local argument
    for argument in "$@"; do
        [[ $argument != -* ]] || fail -2 "unknown option $argument; see $script --help"
    done
    (($# >= min)) || fail -2 "too few arguments; see $script --help"
    (($# <= max)) || fail -2 "unexpected argument ${*:max + 1:1}; see $script --help"
}

# whole_number VALUE WHAT: ends with 2 unless the value is a number from 1 on.
whole_number()
{
    [[ $1 =~ ^[1-9][0-9]{0,8}$ ]] || fail -2 "$2: not a number from 1 on: $1"
}

# Prints how far the program is that writes this log: ninja, apt (with its status lines on standard
# output), mmdebstrap or CMake. Prints nothing when the log does not tell.
progress_in()
{
    tail -c 20000 "$1" | tr '\r' '\n' | sed -n \
        -e 's/^\[\([0-9]*\)\/\([0-9]*\)\] .*/\1 of \2 steps/p' \
        -e 's/^dlstatus:[^:]*:\([0-9]*\)[^:]*:.*/downloading, \1 %/p' \
        -e 's/^pmstatus:[^:]*:\([0-9]*\)[^:]*:.*/installing, \1 %/p' \
        -e 's/^I: \(.*\)/\1/p' -e 's/^-- Build files .*/compiling/p' -e 's/^-- .*/configuring/p' |
        tail -n 1
}

# Shows how far the log's writer is, until standard input ends.
watch_progress()
{
    local log=$1 title=$2 start=$SECONDS next=$PROGRESS_FIRST_S text status=0
    local pause=$PROGRESS_EVERY_S form='%s\n' end=
    # NO_COLOR and a dumb terminal want no escape codes.
    if [[ -t 2 && ${TERM:-dumb} != dumb && -z ${NO_COLOR-} ]]; then
        pause=1 form='\r\033[K%s' end='\r\033[K'
    fi
    while read -rt 0.5 || status=$? && ((status > 128)); do # 1 is the end, more is the time's
        ((SECONDS - start >= next)) || continue
        next=$((SECONDS - start + pause))
        text=$(progress_in "$log")
        # shellcheck disable=SC2059
        printf "$form" "$title: ${text:+$text, }$((SECONDS - start)) s" >&2
    done
    # shellcheck disable=SC2059
    printf "$end" >&2
}

# with_progress LOG TITLE COMMAND...: runs the command; all that it prints goes to the log. Shows on
# standard error how far it is: a changing line on a terminal, else a line now and then.
with_progress()
{
    local log=$1 title=$2 status=0 watcher
    shift 2
    : > "$log"
    # Told to end by a pipe, not by a signal, which might meet this script's own traps in there.
    exec 9> >(watch_progress "$log" "$title")
    watcher=$!
    "$@" > "$log" 2>&1 < /dev/null 9>&- || status=$?
    exec 9>&-
    wait "$watcher" || true
    return "$status"
}

# Makes sure that build/ is this checkout's own folder, which this user can write to.
own_build_root()
{
    local build=$project/build message
    if [[ -L $build ]]; then # a copied link leads into the original's folder
        fail "$build is a symbolic link, maybe to another checkout's folder; remove it: rm $(printf %q "$build")"
    elif [[ -e $build && ! -d $build ]]; then
        fail "$build is in the way, it is no folder; move it away"
    elif [[ ! -e $build ]]; then
        message=$(mkdir -- "$build" 2>&1) || fail "cannot make $build: ${message##*: }"
        give_build_back
    elif [[ ! -w $build || ! -x $build ]]; then
        not_writable "$build"
    fi
}

# own_build NAME: the same, and of build/NAME. One that was configured in another place, or is no
# longer whole, is removed but for what cannot be made anew: its results/, measurements, and symbols/,
# the unstripped twins of programs that were installed.
own_build()
{
    own_build_root
    local folder=$project/build/$1 log=$project/build/$1.log cache home where foreign
    if [[ -L $folder ]]; then
        fail "$folder is a symbolic link, maybe to another checkout's folder; remove it: rm $(printf %q "$folder")"
    fi
    [[ ! -e $log || -w $log ]] || not_writable "$log"
    [[ -d $folder ]] || return 0
    # Whoever built as root in here has left files that only root can replace.
    # What no build replaces may stay root's.
    foreign=$(find "$folder" \( -path "$folder/symbols" -o -path "$folder/results" \
        -o -path "$folder/Testing" -o -name install_manifest.txt \) -prune \
        -o \( -type d -o -type f ! -user "$EUID" \) ! -writable -print -quit 2> /dev/null || true)
    [[ -z $foreign ]] || not_writable "$foreign"

    cache=$folder/CMakeCache.txt
    if [[ -f $cache ]]; then
        home=$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' "$cache")
        where=$(sed -n 's/^CMAKE_CACHEFILE_DIR:INTERNAL=//p' "$cache")
        # An interrupted first configuration may have written neither.
        [[ -n $home$where ]] || return 0
        [[ ! $home -ef $project || ! $where -ef $folder ]] || return 0
        echo "$script: build/$1 was configured in ${home:-$where}, not here; making it anew" >&2
    elif [[ -e $folder/build.ninja || -e $folder/CMakeFiles ]]; then
        echo "$script: build/$1 is not whole; making it anew" >&2
    else
        return 0
    fi
    # Renamed first: whatever interrupts this, nothing of the old folder is taken for the new one.
    local old=$project/build/.old.$$
    mv -- "$folder" "$old"
    local kept
    for kept in results symbols; do
        if [[ -d $old/$kept ]]; then
            mkdir -p -- "$folder"
            mv -- "$old/$kept" "$folder/"
        fi
    done
    rm -rf -- "$old"
}

not_writable()
{
    if ((EUID == 0)) || [[ -O $1 ]]; then
        fail "$1 cannot be written: is the file system read-only, or chmod u+w wanted?"
    fi
    local build=$project/build
    fail "$1 belongs to another user ($(stat -c %U -- "$1"));" \
        "take it over: sudo chown -R $(id -un) $(printf %q "$build")"
}

# What root makes in another user's checkout goes to that user, who could not build there any more
# otherwise. Where it cannot, own_build tells the user. Runs when a script ends; one with a trap of its
# own calls it there.
give_build_back()
{
    if ((EUID == 0)) && [[ ! -O $project ]]; then
        chown -hR --from=root --reference="$project" "$project/build" 2> /dev/null || true
    fi
}
trap give_build_back EXIT
