#!/bin/bash
# usage: private-world.sh [--see PATH]... [--follow PATH]... [--write FOLDER]... [--log FOLDER]
#                         [--over FOLDER PATH]... [--open] -- COMMAND [ARGUMENT...]
# Runs a command in a world of its own, made with bubblewrap: its own loopback network, its own
# processes (they end with the command), an empty /tmp and an empty, writable /Database/doorlog of 16
# MiB. Everything else of this machine is there at its own path, read-only, but not /sys. Ends when
# its parent ends.
#
# So several services can run side by side on their fixed ports, and leave nothing behind.
#   --see PATH      keep PATH visible, read-only, when it lies below /tmp, /Database, /dev or /sys
#   --follow PATH   the same, and also when PATH is deleted and made again meanwhile
#   --write FOLDER  let the command write there
#   --log FOLDER    FOLDER is /Database/doorlog in there, and keeps what is written
#   --over FOLDER PATH  FOLDER, read-only, in the place of the folder PATH
#   --open          let the command watch the loopback's packets, and scripts/enter-world.sh in; in
#                   there the command takes itself for root
# Ends with the command's status, 2 on wrong usage, or 125 when there can be no such world.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly DATABASE_BYTES=$((16 << 20)) # of /Database, a small flash as on the terminal
readonly EXIT_NO_WORLD=125 # not a status that the commands in here end with

# no_world CAUSE REMEDY...
no_world()
{
    echo "$script: no private world here: $1" >&2
    shift
    printf '  remedy: %s\n' "$@" "do without it: scripts/demo.sh --own-ports" >&2
    exit $EXIT_NO_WORLD
}

# Whether a file of /proc/sys holds this value.
setting_is()
{
    [[ -r /proc/sys/$1 && $(< "/proc/sys/$1") == "$2" ]]
}

# Ends with the cause that holds here, as far as it can be told, after bwrap has failed with `error`.
why_no_world()
{
    local error=${1:-bwrap failed}
    error=${error%%, likely because*}
    local run_as_root="run it as root"
    [[ -e /proc/self/status ]] ||
        no_world "/proc is not mounted ($error)" "mount -t proc proc /proc"
    if ((EUID != 0)); then
        setting_is kernel/unprivileged_userns_clone 0 &&
            no_world "the kernel keeps user namespaces for root ($error)" \
                "sysctl -w kernel.unprivileged_userns_clone=1" "$run_as_root"
        setting_is user/max_user_namespaces 0 &&
            no_world "the kernel allows no user namespaces ($error)" \
                "sysctl -w user.max_user_namespaces=10000" "$run_as_root"
        setting_is kernel/apparmor_restrict_unprivileged_userns 1 &&
            no_world "AppArmor restricts user namespaces ($error)" \
                "sysctl -w kernel.apparmor_restrict_unprivileged_userns=0" "$run_as_root"
    fi
    setting_is user/max_net_namespaces 0 &&
        no_world "the kernel allows no network namespaces ($error)" \
            "sysctl -w user.max_net_namespaces=10000"
    # A folder that is entered with chroot is usually no mount point, which bwrap's own root has to be.
    if [[ $error == *"/ slave"* || $error == *pivot_root* ]] || in_chroot; then
        no_world "this is a chroot ($error)" \
            "enter it as root, as a mount point: mount --bind DIR DIR, then chroot DIR" \
            "or with systemd-nspawn -D DIR"
    fi
    local cause="the container does not allow it"
    if [[ ! -e /.dockerenv && ! -e /run/.containerenv && -z ${container-} ]]; then
        ((EUID == 0)) ||
            no_world "user namespaces are not allowed, as in a chroot or a container ($error)" "$run_as_root"
        cause="root may not make one, as in a container"
    fi
    no_world "$cause ($error)" "start the container with --privileged" \
        "or with --cap-add SYS_ADMIN --cap-add NET_ADMIN --security-opt seccomp=unconfined
    --security-opt apparmor=unconfined --security-opt systempaths=unconfined (podman: unmask=ALL)"
}

# A chroot's folder is seldom a mount point. Where it is one, only root can tell it from init's root.
in_chroot()
{
    ! grep -q '^[^ ]* [^ ]* [^ ]* [^ ]* / ' /proc/self/mountinfo ||
        [[ -e /proc/1/root/. && ! / -ef /proc/1/root/. ]]
}

help_if_asked "$@"
seen=("$project")
followed=()
written=()
over=()
log=
open=()
while (($# > 0)) && [[ $1 != -- ]]; do
    case $1 in
    --see)
        (($# >= 2)) || fail -2 "--see wants a path"
        [[ -e $2 ]] || fail -2 "--see: no such file or folder: $2"
        seen+=("$(realpath -s -- "$2")" "$(realpath -- "$2")")
        shift 2
        ;;
    --write)
        (($# >= 2)) || fail -2 "--write wants a folder"
        [[ -d $2 ]] || fail -2 "--write: no such folder: $2"
        written+=("$(realpath -- "$2")")
        shift 2
        ;;
    --follow)
        (($# >= 2)) || fail -2 "--follow wants a path"
        [[ -e $2 ]] || fail -2 "--follow: no such file or folder: $2"
        followed+=("$(realpath -s -- "$2")")
        [[ ! -L $2 ]] || followed+=("$(realpath -- "$2")")
        shift 2
        ;;
    --log)
        (($# >= 2)) || fail -2 "--log wants a folder"
        [[ -d $2 ]] || fail -2 "--log: no such folder: $2"
        log=$(realpath -- "$2")
        shift 2
        ;;
    --over)
        (($# >= 3)) || fail -2 "--over wants a folder and the path that it is to be at"
        [[ -d $2 ]] || fail -2 "--over: no such folder: $2"
        [[ $3 == /* && -d $3 ]] || fail -2 "--over: no folder, or no whole path: $3"
        over+=(--ro-bind "$(realpath -- "$2")" "$(realpath -- "$3")")
        shift 3
        ;;
    --open)
        # Another user than root: in a second user namespace, as bwrap makes it for any other user
        # id, the network would not be the command's own.
        open=(--cap-add CAP_NET_RAW)
        ((EUID == 0)) || open+=(--unshare-user --uid 0 --gid 0)
        shift
        ;;
    *)
        fail -2 "unexpected \"$1\"; see $script --help"
        ;;
    esac
done
(($# >= 2)) || fail -2 "no command; see $script --help"
shift
command -v bwrap > /dev/null ||
    no_world "bwrap is missing" "install Debian's package bubblewrap"

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
    /tmp | /Database | /dev | /proc | /proc/*) fail -2 "--see: $path is the world's own" ;;
    esac
done
# True when PATH lies in what is seen anyway.
is_seen()
{
    local folder
    for folder in "${seen[@]}"; do
        [[ $1/ != "$folder"/* ]] || return 0
    done
    return 1
}
for path in ${followed[@]+"${followed[@]}"}; do
    ! is_seen "$path" || continue
    case $path in
    /tmp/* | /Database/* | /dev/* | /sys/*) # found anew by its name in the folder that holds it
        world+=(--ro-bind "${path%/*}" "/outside${path%/*}" --symlink "/outside$path" "$path")
        ;;
    /tmp | /Database | /dev | /proc | /proc/*) fail -2 "--follow: $path is the world's own" ;;
    esac
done
world+=(${over[@]+"${over[@]}"} --remount-ro /)
for path in ${written[@]+"${written[@]}"}; do
    world+=(--bind "$path" "$path")
done
if [[ -n $log ]]; then
    world+=(--bind "$log" /Database/doorlog)
fi
world+=(${open[@]+"${open[@]}"})

# Tried first: what bwrap says about the world must not be taken for what the command says.
here=$(pwd -P 2> /dev/null || echo /)
for folder in "$here" /; do # a working directory that is not seen in there gives way to /
    if error=$(bwrap "${world[@]}" --chdir "$folder" -- /bin/true 2>&1); then
        exec bwrap "${world[@]}" --chdir "$folder" -- "$@"
    fi
done
why_no_world "$error"
