#!/bin/bash
# Measures what the service costs and prints one table: readings beside the bare calls of their
# libraries, their steps, the messages; then other readers of codes on the same pictures, the
# samples and those of the folders given: bench.sh [FOLDER...] (pictures with their text NAME.txt
# beside NAME.png). Takes three minutes and more; keep the machine quiet. What was measured stays in
# build/bench/results.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
case ${1-} in
-*)
    sed -n '2,/^set /{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
    [[ $1 == -h || $1 == --help ]] && exit 0
    exit 2
    ;;
esac
for folder in "$@"; do
    [[ -d $folder && -r $folder ]] || {
        echo "$(basename "$0"): no such folder: $folder" >&2
        exit 2
    }
done
"$project/scripts/setup.sh" bench
"$project/scripts/build.sh" bench service_cost peers
bench=$project/build/bench/bench
results=$project/build/bench/results
mkdir -p "$results"

echo "Measuring readings, steps and messages (two minutes) ..." >&2
"$project/scripts/private-world.sh" -- "$bench/service_cost" "$project/samples" \
    --benchmark_format=json > "$results/cost.json.new" 2> "$results/cost.log" || {
    cat "$results/cost.log" >&2
    exit 1
}
mv "$results/cost.json.new" "$results/cost.json"
if jq -e '[.benchmarks[] | select(.error_occurred)] | length > 0' "$results/cost.json" > /dev/null; then
    jq -r '.benchmarks[] | select(.error_occurred) | "bench.sh: \(.name): \(.error_message)"' \
        "$results/cost.json" >&2
    exit 1
fi
echo "Reading pictures with each reader ..." >&2
"$bench/peers" --rows "$results/peers-samples.tsv" "$project/samples" > "$results/peers-samples.txt"
if (($# > 0)); then
    "$bench/peers" --rows "$results/peers-folders.tsv" "$@" > "$results/peers-folders.txt"
fi

{
    printf '%-34s %9s %9s %11s %7s  %s\n' "one reading" "median ms" "95 % ms" "bare calls" ratio quartiles
    jq -r '.benchmarks[] | select(.name | startswith("pair/")) |
        [(.name | split("/")[1]), .reading, .reading_p95, .floor, .ratio, .ratio_q1, .ratio_q3] | @tsv' \
        "$results/cost.json" |
        awk -F'\t' '{ printf "%-34s %9.2f %9.2f %11.2f %7.3f  %.3f .. %.3f\n", $1, $2, $3, $4, $5, $6, $7 }'
    echo
    printf '%-34s %9s\n' "by itself" "mean us"
    jq -r '.benchmarks[] | select(.name | startswith("pair/") | not) |
        [(.name | sub("/manual_time$"; "")), .real_time] | @tsv' "$results/cost.json" |
        awk -F'\t' '{ printf "%-34s %9.1f\n", $1, $2 }'
    echo
    echo "readers on the samples"
    cat "$results/peers-samples.txt"
    if (($# > 0)); then
        echo
        echo "readers on the pictures of the folders"
        cat "$results/peers-folders.txt"
    fi
} | tee "$results/table.txt"
