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
# output) or CMake. Prints nothing when the log does not tell.
progress_in()
{
    tail -c 20000 "$1" | tr '\r' '\n' | sed -n \
        -e 's/^\[\([0-9]*\)\/\([0-9]*\)\] .*/\1 of \2 steps/p' \
        -e 's/^dlstatus:[^:]*:\([0-9]*\)[^:]*:.*/downloading, \1 %/p' \
        -e 's/^pmstatus:[^:]*:\([0-9]*\)[^:]*:.*/installing, \1 %/p' \
        -e 's/^-- Build files .*/compiling/p' -e 's/^-- .*/configuring/p' |
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

# over_folder VARIANT[=FOLDER]: prints the folder of a variant's static archives: FOLDER, or
# build/libs-VARIANT, which is made where scripts/device-libs.sh can make it from the name alone. The
# variant counts up to a "-": hard-fast=FOLDER is another folder for hard. Ends with 2 when there are none.
over_folder()
{
    local variant=${1%%=*} folder=$project/build/libs-$1
    [[ $variant =~ ^[A-Za-z0-9_][A-Za-z0-9_.-]*$ ]] || fail -2 "not a name for a variant: $variant"
    [[ $1 != *=* ]] || folder=${1#*=}
    case $1 in
    hard | soft | native | sanitized | covered)
        "$project/scripts/device-libs.sh" "$1" >&2 || exit # set -e is off in $( )
        ;;
    esac
    [[ -f $folder/lib/libopencv_core.a ]] || fail -2 "no archives of $variant in $folder"
    realpath -- "$folder"
}

# refuse_fuzz_libs VARIANT[=FOLDER]: ends with 2 for libraries that are made to be fuzzed.
refuse_fuzz_libs()
{
    [[ ${1%%[=-]*} != @(sanitized|covered) ]] || fail -2 "the libraries of ${1%%=*} are for scripts/fuzz.sh alone"
}

# over_words VARIANT FOLDER: sets preset, and definitions, the other words that build.sh takes for what is
# built over the archives in FOLDER.
over_words()
{
    definitions=()
    preset=${1%%-*}
    case $preset in
    hard | soft | native) ;;
    sanitized) preset=fuzz ;;
    covered) preset=fuzz-coverage ;;
    *)
        preset=hard
        mapfile -t definitions < "$2/variables"
        ;;
    esac
    definitions+=("-DDEVICE_STAGING=$2" "-DCMAKE_PREFIX_PATH=$2")
}

# build_over VARIANT FOLDER TARGET...: builds targets over the archives in FOLDER, into
# build/over-VARIANT. Sets over, that folder, and run, the words that its programs are run by.
build_over()
{
    local variant=$1 folder=$2 preset definitions
    over_words "$1" "$2"
    shift 2
    # What CMake found in another folder before it would keep.
    grep -qsF "_core_LIBRARY:FILEPATH=$folder/" "$project/build/over-$variant/CMakeCache.txt" ||
        rm -rf "$project/build/over-$variant"
    "$project/scripts/build.sh" --in "over-$variant" "${definitions[@]}" -DQRCODE_TESTS=OFF "$preset" "$@"
    # shellcheck disable=SC2034
    run=() over=$project/build/over-$variant
    grep -qF "_core_LIBRARY:FILEPATH=$folder/" "$over/CMakeCache.txt" ||
        fail "$over was built over other archives than those in $folder"
    # shellcheck disable=SC2034
    [[ $preset == @(native|fuzz|fuzz-coverage) ]] ||
        run=(qemu-arm -L "$(sed -n 's/^DEVICE_LIBC_ROOT:[A-Z]*=//p' "$over/CMakeCache.txt")")
}

# apt_configuration FOLDER deb|deb-src [ARCHITECTURE]: leaves in FOLDER what apt needs to fetch packages of
# this machine's release beside the machine's own lists: for APT_CONFIG=FOLDER/apt.conf. ARCHITECTURE is
# that of the packages, where it is another.
apt_configuration()
{
    local release
    # shellcheck source=/dev/null
    release=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
    mkdir -p "$1"/{lists,cache/archives}/partial
    # Debian's own alone: others have keys of their own, and backports other versions.
    apt-get indextargets --format "\$(ORIGIN) \$(REPO_URI) \$(CODENAME) \$(COMPONENT)" 'Created-By: Packages' |
        awk -v kind="$2" -v release="$release" '
            $1 == "Debian" && $4 == "main" && $3 ~ "^" release "(-updates|-security)?$" {
                print kind, $2, $3, $4 }' |
        sort -u -k 3 > "$1/sources.list" # of two with one version apt takes the first
    [[ -s $1/sources.list ]] ||
        fail "apt knows no source of \"$release main\"; run apt-get update first (see apt-get indextargets)"
    cat > "$1/apt.conf" << EOF
Dir::State::lists "$1/lists";
Dir::Etc::sourcelist "$1/sources.list";
Dir::Etc::sourceparts "-";
Dir::Cache "$1/cache";
APT::Sandbox::User "$(id -un)";
APT::Update::Error-Mode "any";
${3:+APT::Architecture "$3";
APT::Architectures "$3";}
EOF
}

# one_at_a_time NAME: waits until no other call that makes build/NAME runs, until this script ends.
one_at_a_time()
{
    exec 8> "$project/build/.$1.lock"
    flock -n 8 && return
    echo "$script: waiting for another call that makes build/$1" >&2
    flock 8
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
