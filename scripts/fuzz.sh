#!/bin/bash
# usage: fuzz.sh SECONDS [TARGET...]    fuzzes each target for so long, one after the other
#        fuzz.sh --without PATCH SECONDS [TARGET]  shows that the fuzzing finds what a patch of zbar mends
#        fuzz.sh --coverage [TARGET...]  lines of the service and of the libraries that all seeds and all
#                                       inputs kept so far reach
# Fuzzes the service's entries of foreign bytes and numbers, and the libraries behind them, all built with
# sanitizers (scripts/device-libs.sh sanitized). TARGET is
#   dispatch  datagrams, to the dispatcher
#   capture   a platform's results, to the snapshot channel
#   decode    a JPEG's bytes, to the decoder, mirror and grey
#   scan      grey pictures, to the scanner
#   reading   a JPEG's bytes, to a whole reading
# by default all of them. First every committed seed and every input found or failed earlier is replayed.
# Found inputs are kept in build/fuzz-inputs/corpus/TARGET, whatever breaks in
# build/fuzz-inputs/findings/TARGET. Ends with 0, 1 on a finding, 2 on wrong usage.
# --without leaves out a patch of zbar's, Debian's or ours, named by a part of its name; see
# scripts/device-libs.sh. It names the seeds that break then, and fuzzes from nothing (scan by default) until
# something breaks; with 0 SECONDS it only replays. Ends with 0 when something broke, 1 when nothing did.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly TARGETS=(dispatch capture decode scan reading)
readonly PIXELS_MAX=$((1 << 22)) # a JPEG of more ends the reading with OpenCV's exception
readonly SLOW_S=60               # of the clock: a busy machine counts
readonly MEMORY_MB=2048
# scan: a width of 2 bytes and 400 x 400 pixels
declare -rA BYTES_MAX=([dispatch]=65536 [capture]=65536 [decode]=65536 [scan]=160002 [reading]=65536)

help_if_asked "$@"
mode=fuzz
patch=
case ${1-} in
--coverage)
    mode=coverage
    shift
    ;;
--without)
    (($# >= 2)) || fail -2 "--without wants a patch's name"
    mode=without patch=$2
    shift 2
    ;;
esac
seconds=0
if [[ $mode != coverage ]]; then
    arguments 1 99 "$@"
    [[ $1 =~ ^[0-9]{1,6}$ ]] || fail -2 "SECONDS: not a number: $1"
    seconds=$1
    shift
fi
arguments 0 99 "$@"
targets=("$@")
if ((${#targets[@]} == 0)); then
    targets=("${TARGETS[@]}")
    [[ $mode != without ]] || targets=(scan)
fi
[[ $mode != without || ${#targets[@]} == 1 ]] || fail -2 "--without takes one target"
for target in "${targets[@]}"; do
    [[ " ${TARGETS[*]} " == *" $target "* ]] ||
        fail -2 "no target \"$target\"; there are: ${TARGETS[*]}"
done

cd "$project"
export OPENCV_IO_MAX_IMAGE_PIXELS=$PIXELS_MAX
# As without the sanitizer, a failed allocation returns null, which the service checks. The other options are
# for speed.
ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=256:quarantine_size_mb=16
export ASAN_OPTIONS+=:malloc_context_size=8:allocator_release_to_os_interval_ms=-1
inputs=$project/build/fuzz-inputs
"$project/scripts/setup.sh" fuzz
own_build_root
mkdir -p "$inputs"

# fuzz_program TARGET LOG TITLE SEEDS CORPUS FINDINGS SECONDS: replays what is in the folders, then looks
# for new inputs. A folder that is empty counts as none.
fuzz_program()
{
    local target=$1 log=$2 title=$3 words=(-close_fd_mask=3 -print_final_stats=1 "-max_len=${BYTES_MAX[$1]}"
        "-timeout=$SLOW_S" "-rss_limit_mb=$MEMORY_MB" -malloc_limit_mb=1000000 "-artifact_prefix=$6/")
    [[ ! -f fuzz/$target.dict ]] || words+=("-dict=$project/fuzz/$target.dict")
    # shellcheck disable=SC2016
    with_progress "$log" "$title" scripts/private-world.sh --write "$inputs" -- bash -c '
        program=$1 seeds=$2 corpus=$3 findings=$4 seconds=$5
        shift 5
        "$program" -runs=0 "$@" "$seeds" "$corpus" "$findings" &&
            { ((seconds == 0)) || "$program" "-max_total_time=$seconds" "$@" "$corpus" "$seeds"; }' \
        fuzz "$over/fuzz/fuzz_$target" "$4" "$5" "$6" "$7" "${words[@]}"
}

# first_finding TARGET LOG: sets `finding`, what the sanitizer or the fuzzer said first, in one line. Where
# neither said a thing, the target did not run, and that is no finding: ends with 1.
first_finding()
{
    finding=$(grep -m 1 -oE 'SUMMARY: .*|ERROR: libFuzzer: .*' "$2" | sed -E \
        's#SUMMARY: ##; s# \(BuildId.*##; s# /[^ ]*/(\./|sources/)# #') || {
        tail -n 40 "$2" >&2
        fail "$1: did not run (above)"
    }
}

coverage()
{
    local folder work=$inputs/coverage target objects=()
    folder=$(over_folder covered)
    build_over covered "$folder" "${targets[@]/#/fuzz_}"
    rm -rf "$work"
    mkdir -p "$work"
    for target in "${targets[@]}"; do
        mkdir -p "$inputs/corpus/$target"
        LLVM_PROFILE_FILE=$work/$target.profraw scripts/private-world.sh --write "$work" \
            --see "$project" -- "$over/fuzz/fuzz_$target" -runs=0 -close_fd_mask=3 "fuzz/seeds/$target" \
            "$inputs/corpus/$target" > "$work/$target.log" 2>&1 || {
            tail -30 "$work/$target.log" >&2
            exit 1
        }
        objects+=(-object "$over/fuzz/fuzz_$target")
    done
    llvm-profdata-14 merge -o "$work/all.profdata" "$work"/*.profraw
    llvm-cov-14 export -summary-only "${objects[@]:1}" -instr-profile="$work/all.profdata" > "$work/export"
    fuzz/coverage_table.py < "$work/export"
}

without()
{
    local folder=$project/build/libs-sanitized-without-$patch target=${targets[0]} log=$inputs/without.log
    local none=$inputs/without seed broken=0
    scripts/device-libs.sh --without "$patch" sanitized
    build_over sanitized-without "$folder" "fuzz_$target"
    rm -rf "$none"
    mkdir -p "$none"/{seed,none,corpus,findings}
    for seed in "fuzz/seeds/$target"/*; do
        rm -f "$none"/{seed,findings}/* # what broke is written there, and replayed
        cp "$seed" "$none/seed/"
        fuzz_program "$target" "$log" "Replaying seeds" "$none/seed" "$none/none" "$none/findings" 0 || {
            broken=1
            first_finding "$target" "$log"
            printf '%-40s %s\n' "${seed#fuzz/seeds/}" "$finding"
        }
    done
    rm -f "$none/findings"/*
    local start=$SECONDS
    if ((seconds > 0)) && ! fuzz_program "$target" "$log" "Fuzzing $target from nothing" "$none/none" \
        "$none/corpus" "$none/findings" "$seconds"; then
        broken=1
        first_finding "$target" "$log"
        echo "from nothing, after $((SECONDS - start)) s: $finding"
    fi
    ((broken)) || fail "nothing breaks without $patch"
}

fuzz()
{
    local folder target log corpus findings found=0
    folder=$(over_folder sanitized)
    build_over sanitized "$folder" "${targets[@]/#/fuzz_}"
    for target in "${targets[@]}"; do
        corpus=$inputs/corpus/$target
        findings=$inputs/findings/$target
        log=$inputs/$target.log
        mkdir -p "$corpus" "$findings"
        if fuzz_program "$target" "$log" "Fuzzing $target" "fuzz/seeds/$target" "$corpus" "$findings" \
            "$seconds"; then
            printf '%-10s %6s s %12s inputs tried, %5d kept\n' "$target" "$seconds" \
                "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)" \
                "$(find "$corpus" -type f | wc -l)"
        else
            first_finding "$target" "$log"
            tail -n 40 "$log" >&2
            echo "fuzz.sh: $target: a finding: $finding; see $log and $findings" >&2
            found=1
        fi
    done
    return $found
}

$mode
