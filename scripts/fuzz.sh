#!/bin/bash
# usage: fuzz.sh SECONDS [TARGET...]    fuzzes each target for so long, one after the other
#        fuzz.sh --coverage             lines of the service that all inputs kept so far reach, by file
# Fuzzes the service's entries of foreign bytes and numbers; TARGET is dispatch, reading or capture, by
# default all of them. First every committed seed and every input found or failed earlier is replayed.
# Found inputs are kept in build/fuzz-inputs/corpus/TARGET, whatever breaks in
# build/fuzz-inputs/findings/TARGET. Ends with 0, 1 on a finding, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly TARGETS=(dispatch reading capture)
readonly PIXELS_MAX=$((1 << 22)) # a JPEG of more ends the reading with OpenCV's exception

if [[ ${1-} == --coverage ]]; then
    arguments 0 0 "${@:2}"
else
    arguments 1 99 "$@"
    [[ $1 =~ ^[0-9]{1,6}$ ]] || fail -2 "SECONDS: not a number: $1"
fi
cd "$project"
seconds=$1
targets=("${@:2}")
((${#targets[@]} > 0)) || targets=("${TARGETS[@]}")
for target in "${targets[@]}"; do
    [[ " ${TARGETS[*]} " == *" $target "* ]] ||
        fail -2 "no target \"$target\"; there are: ${TARGETS[*]}"
done

export OPENCV_IO_MAX_IMAGE_PIXELS=$PIXELS_MAX
# As without the sanitizer, memory that is not there is null, which the service looks for.
export ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=256:quarantine_size_mb=32
export LSAN_OPTIONS=suppressions=$project/fuzz/leaks.supp:print_suppressions=0
inputs=$project/build/fuzz-inputs
"$project/scripts/setup.sh" check
own_build_root
mkdir -p "$inputs"

if [[ $seconds == --coverage ]]; then
    scripts/build.sh fuzz-coverage "${TARGETS[@]/#/fuzz_}"
    work=$inputs/coverage
    rm -rf "$work"
    mkdir -p "$work"
    objects=()
    for target in "${targets[@]}"; do
        program=build/fuzz-coverage/fuzz/fuzz_$target
        mkdir -p "$inputs/corpus/$target"
        LLVM_PROFILE_FILE=$work/$target.profraw scripts/private-world.sh --write "$work" \
            --see "$project" -- "$program" -runs=0 -close_fd_mask=3 "fuzz/seeds/$target" \
            "$inputs/corpus/$target" > "$work/$target.log" 2>&1 || {
            tail -30 "$work/$target.log" >&2
            exit 1
        }
        objects+=(-object "$program")
    done
    llvm-profdata-14 merge -o "$work/all.profdata" "$work"/*.profraw
    llvm-cov-14 report "${objects[@]:1}" -instr-profile="$work/all.profdata" \
        -ignore-filename-regex='/(sim|fuzz|tests|tools)/|/usr/'
    exit 0
fi

scripts/build.sh fuzz "${targets[@]/#/fuzz_}"
found=0
for target in "${targets[@]}"; do
    corpus=$inputs/corpus/$target
    findings=$inputs/findings/$target
    log=$inputs/$target.log
    mkdir -p "$corpus" "$findings"
    # Seeds and all that was found earlier, then new inputs.
    # shellcheck disable=SC2016
    if with_progress "$log" "Fuzzing $target" scripts/private-world.sh --write "$inputs" -- bash -c '
        program=$1 corpus=$2 seeds=$3 seconds=$4 findings=$5
        shift 5
        "$program" -runs=0 "$@" "$seeds" "$corpus" "$findings" &&
            { ((seconds == 0)) || "$program" "-max_total_time=$seconds" "$@" "$corpus" "$seeds"; }' \
        fuzz "build/fuzz/fuzz/fuzz_$target" "$corpus" "fuzz/seeds/$target" "$seconds" "$findings" \
        -close_fd_mask=3 -print_final_stats=1 -max_len=65536 -timeout=60 -rss_limit_mb=2048 \
        -malloc_limit_mb=1000000 \
        "-artifact_prefix=$findings/"; then
        printf '%-10s %6s s %12s inputs tried, %5d kept\n' "$target" "$seconds" \
            "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)" \
            "$(find "$corpus" -type f | wc -l)"
    else
        tail -40 "$log" >&2
        echo "fuzz.sh: $target: a finding; see $log and $findings" >&2
        found=1
    fi
done
exit $found
