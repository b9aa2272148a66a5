#!/bin/bash
# usage: arm-cost.sh [--functions COUNT] VARIANT[=FOLDER]...
# Counts the instructions that the service executes on ARM over the static archives of build/libs-VARIANT
# or FOLDER, in an emulator: from its start to its hello, and of a steady reading of three samples. With
# --functions it tells too which share each library has in these readings, and the COUNT busiest functions.
# The same archives, compiler and C library give the same counts again, readings to some 20 instructions
# (the simulated camera looks at a clock), the start to some 1,000 (two threads run). They tell nothing of
# the time that an instruction takes.
#   VARIANT  hard, soft, or another that scripts/device-libs.sh has made; with FOLDER, hard-NAME and
#            soft-NAME are others of these
# Ends with 0, 1 when something cannot be counted, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly SENDTO=290 # ARM's number of the system call
readonly READINGS=4 # that are counted, behind a first
readonly SAMPLES=(plain overexposed no-code-wall) # read at attempt 1, at attempt 8, not at all

# count OUT WORDS PROGRAM...: runs it in the emulator, counted, with more words for the plugin.
count()
{
    local out=$1 words=$2
    shift 2
    rm -f "$out"
    scripts/private-world.sh --write "$work" --see "$over" -- "${run[@]}" \
        -plugin "$plugin,out=$out$words" "$@" > "$work/log" 2>&1 < /dev/null ||
        { cat "$work/log" >&2 && fail "cannot be counted: $*"; }
    [[ -s $out ]] || { cat "$work/log" >&2 && fail "nothing was counted of $*"; }
}

# total FILE
total()
{
    sed -n 's/^total //p' "$1"
}

# measure VARIANT FOLDER: builds over the archives, and prints a line of the table; the shares go to
# $work/shares.
measure()
{
    local sample n more=$((1 + READINGS))
    build_over "$1" "$2" one_reading qrcode
    count "$work/start" ",until=$SENDTO" "$over/qrcode_src/qrcode"
    printf '%-16s %16d' "$1" "$(total "$work/start")"
    echo "$1:" >> "$work/shares"
    for sample in "${SAMPLES[@]}"; do
        for n in 1 $more; do
            count "$work/$n" "" "$over/bench/one_reading" frame "$work/samples_$sample.png.jpg" "$n"
        done
        printf ' %16d' "$((($(total "$work/$more") - $(total "$work/1")) / READINGS))"
        if [[ -n $functions ]]; then
            {
                echo " $sample"
                bench/link_map.py shares "$over/bench/one_reading.map" "$over/bench/one_reading" \
                    "$functions" "$work/1" "$work/$more"
            } >> "$work/shares"
        fi
    done
    echo
}

help_if_asked "$@"
functions=
variants=()
while (($# > 0)); do
    case $1 in
    --functions)
        whole_number "${2-}" --functions
        functions=$2
        shift
        ;;
    -*) fail -2 "unknown option $1; see $script --help" ;;
    *)
        [[ ${1%%[=-]*} != @(native|sanitized|covered) ]] || fail -2 "${1%%=*} is not for ARM"
        variants+=("$1")
        ;;
    esac
    shift
done
((${#variants[@]} > 0)) || fail -2 "which variant? see $script --help"
folders=()
for variant in "${variants[@]}"; do
    folders+=("$(over_folder "$variant")")
done
cd "$project"
scripts/setup.sh test device
scripts/build.sh release scanned_pictures count_instructions
plugin=$project/build/release/bench/libcount_instructions.so

work=$(mktemp -d)
trap 'rm -rf "$work"; give_build_back' EXIT
: > "$work/shares"
for sample in "${SAMPLES[@]}"; do
    build/release/bench/scanned_pictures frames "$work" "samples/$sample.png"
done
printf '%-16s %16s %16s %16s %16s\n' instructions "start to hello" "attempt 1" "attempt 8" nothing
for i in "${!variants[@]}"; do
    measure "${variants[i]%%=*}" "${folders[i]}"
done
[[ -z $functions ]] || cat "$work/shares"
