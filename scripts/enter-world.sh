#!/bin/bash
# usage: enter-world.sh PID [COMMAND [ARGUMENT...]]
# Runs a command, by default a shell, in a private world that is running: with its loopback, its
# processes, its /tmp and its /Database; in this folder, where it is seen there, else in /. PID is that of scripts/private-world.sh --open (demo.sh
# --app prints it). As root it enters every such world, as another user one's own.
# Ends with the command's status; 1 when there is no such world; 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

help_if_asked "${1-}"
(($# >= 1)) || fail -2 "too few arguments; see $script --help"
[[ $1 != -* ]] || fail -2 "unknown option $1; see $script --help"
whole_number "$1" PID
pid=$1
shift

# The world's first process is its keeper's child, and what runs there is the child of that.
inside=$pid
for _ in keeper first; do
    children=
    read -r children 2> /dev/null < "/proc/$inside/task/$inside/children" || true
    inside=${children%% *}
    [[ -n $inside ]] || fail "no private world of process $pid"
done
[[ ! /proc/$inside/ns/net -ef /proc/self/ns/net ]] || fail "no private world of process $pid"
# Its root too: in a world that was made in a chroot that is not the namespace's.
into=(--net --pid --mount --root)
if ((EUID != 0)); then
    into+=(--user --preserve-credentials)
fi
here=$(pwd -P)
if [[ -d /proc/$inside/root$here ]]; then
    into+=("--wdns=$here")
fi
exec nsenter --target "$inside" "${into[@]}" -- "${@:-bash}"
