#!/bin/bash
# usage: seen-calls.sh [--check UNIT] [hard|soft|native]
# Prints the system calls that the service was seen to make, one a line: what the filter of
# docs/device/qrcode.service is made from. Without a word it is the service with Debian's libraries that
# strace watches, with native the one over the static archives; hard and soft are watched by the emulator,
# for calls have other names on ARM. The simulated platform's own calls are left out where nothing else makes
# them; those of the chip vendor's libraries are not seen.
# Seen are: the start, each sample read (in the emulator the first eight), commands, the log at its cap and
# without its folder, each operation of the platform refused, no picture, standard input closed, a picture that
# ends the process. Not the end of the listening thread, which is meant to end the process.
#   --check UNIT  prints only those that the unit's filter lacks, and ends with 1 when there is one
# Ends with 0, 1 when something cannot be seen, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# The simulated platform's own: its clock for frames.
readonly SIMULATED='timerfd_create|timerfd_settime(64)?'

help_if_asked "$@"
unit=
if [[ ${1-} == --check ]]; then
    (($# >= 2)) || fail -2 "--check wants a unit"
    [[ -f $2 ]] || fail -2 "no such file: $2"
    unit=$(realpath -- "$2")
    shift 2
fi
arguments 0 1 "$@"
case ${1-} in
'' | hard | soft | native) ;;
*) fail -2 "none of hard, soft, native: $1" ;;
esac
cd "$project"
scripts/setup.sh supervise ${1:+device}
scripts/build.sh release qrcode panel bmp_samples scanned_pictures >&2
program=$project/build/release/qrcode_src/qrcode
run=()
if [[ -n ${1-} ]]; then
    folder=$(over_folder "$1")
    build_over "$1" "$folder" qrcode >&2
    program=$over/qrcode_src/qrcode
fi
work=$(mktemp -d)
trap 'rm -rf "$work"; give_build_back' EXIT
trap 'exit 130' INT TERM HUP
build/release/bench/scanned_pictures frames "$work" samples/plain.png > /dev/null
scripts/private-world.sh --write "$work" -- "$project/scripts/inside/watch-calls" "$work" \
    "$project/build/release/sim/panel/panel" "$project" "$program" ${run[@]+"${run[@]}"} >&2 ||
    fail "not all was seen to happen (above)"

# strace: "PID NAME(", its resumed lines aside; the emulator the same, and a private call of ARM's by its
# number.
cat "$work"/trace.* | sed -nE 's/^[0-9]+ +([a-z_0-9]+)\(.*/\1/p; s/^[0-9]+ +Unknown syscall 983045.*/set_tls/p;
    s/^[0-9]+ +Unknown syscall 983042.*/cacheflush/p; s/^[0-9]+ +Unknown syscall 398.*/rseq/p
    s/^[0-9]+ +Unknown syscall ([0-9]+).*/unknown_\1/p' |
    { grep -vxE "$SIMULATED" || true; } | sort -u > "$work/calls"
[[ -s $work/calls ]] || fail "nothing was seen"
if [[ -z $unit ]]; then
    cat "$work/calls"
    exit
fi
# What a filter's line names, a group by what is in it.
form='s/^SystemCallFilter=//p'
[[ -n ${1-} ]] || form='s/^#*SystemCallFilter=//p' # Debian's libraries want what is in a comment, too
sed -n "$form" "$unit" | tr ' ' '\n' | while read -r word; do
    case $word in
    @*) systemd-analyze syscall-filter "$word" | sed -n 's/^ *\([a-z_0-9]*\)$/\1/p' ;;
    *) echo "$word" ;;
    esac
done | sort -u > "$work/filter"
lacking=$(comm -23 "$work/calls" "$work/filter")
[[ -z $lacking ]] || { echo "$lacking" && fail "seen, and not in the filter of $unit (above)"; }
echo "$(wc -l < "$work/calls") calls seen, all of them in the filter"
