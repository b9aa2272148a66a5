#!/bin/bash
# Runs a command in a world of its own, made with bubblewrap: its own loopback network, its own
# processes (they end with the command), an empty /tmp and an empty, writable /Database/doorlog of 16
# MiB. Everything else of this machine is there at its own path, read-only, but not /sys. Ends when
# its parent ends.
#
# So several services can run side by side on their fixed ports, and leave nothing behind.
set -euo pipefail

readonly EXIT_USAGE=2
readonly DATABASE_BYTES=$((16 << 20)) # of /Database, a small flash as on the terminal
readonly EXIT_NO_WORLD=125 # not a status that the commands in here end with

usage()
{
    echo "usage: $(basename "$0") [--see PATH]... [--write FOLDER]... -- COMMAND [ARGUMENT...]"
    echo "  --see PATH      keep PATH visible, read-only, when it lies below /tmp, /Database, /dev or /sys"
    echo "  --write FOLDER  let the command write there"
    echo "Ends with the command's status, $EXIT_USAGE on wrong usage, or $EXIT_NO_WORLD when there" \
        "can be no such world."
}

fail()
{
    local status=$1
    shift
    echo "$(basename "$0"): $*" >&2
    exit "$status"
}

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
seen=("$project")
written=()
while (($# > 0)) && [[ $1 != -- ]]; do
    case $1 in
    -h | --help)
        usage
        exit 0
        ;;
    --see)
        (($# >= 2)) || fail "$EXIT_USAGE" "--see wants a path"
        [[ -e $2 ]] || fail "$EXIT_USAGE" "--see: no such file or folder: $2"
        seen+=("$(realpath -s -- "$2")" "$(realpath -- "$2")")
        shift 2
        ;;
    --write)
        (($# >= 2)) || fail "$EXIT_USAGE" "--write wants a folder"
        [[ -d $2 ]] || fail "$EXIT_USAGE" "--write: no such folder: $2"
        written+=("$(realpath -- "$2")")
        shift 2
        ;;
    *)
        usage >&2
        fail "$EXIT_USAGE" "unexpected \"$1\""
        ;;
    esac
done
(($# >= 2)) || {
    usage >&2
    fail "$EXIT_USAGE" "no command"
}
shift
command -v bwrap > /dev/null ||
    fail "$EXIT_NO_WORLD" "bwrap is missing (Debian's package bubblewrap)"

world=(--die-with-parent --unshare-net --unshare-pid --unshare-ipc --setenv TMPDIR /tmp)
for entry in /* /.[!.]*; do
    case $entry in
    /dev | /proc | /sys | /tmp | /Database) ;;
    *)
        if [[ -L $entry ]]; then
            world+=(--symlink "$(readlink -- "$entry")" "$entry")
        elif [[ -e $entry ]]; then
            world+=(--ro-bind "$entry" "$entry")
        fi
        ;;
    esac
done
world+=(--dev /dev --proc /proc --tmpfs /tmp --size "$DATABASE_BYTES" --tmpfs /Database
    --dir /Database/doorlog)
for path in "${seen[@]}"; do
    case $path in
    /tmp/* | /Database/* | /dev/* | /sys/*) world+=(--ro-bind "$path" "$path") ;;
    /tmp | /Database | /dev | /proc | /proc/*) fail "$EXIT_USAGE" "--see: $path is the world's own" ;;
    esac
done
world+=(--remount-ro /)
for path in ${written[@]+"${written[@]}"}; do
    world+=(--bind "$path" "$path")
done

# Tried first: what bwrap says about the world must not be taken for what the command says.
here=$(pwd -P 2> /dev/null || echo /)
for folder in "$here" /; do # a working directory that is not seen in there gives way to /
    if error=$(bwrap "${world[@]}" --chdir "$folder" -- /bin/true 2>&1); then
        exec bwrap "${world[@]}" --chdir "$folder" -- "$@"
    fi
done
fail "$EXIT_NO_WORLD" "no private world here (are user namespaces allowed?): $error"
