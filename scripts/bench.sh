#!/bin/bash
# usage: bench.sh [FOLDER...]
# Measures what the service costs and prints it as tables: readings beside the calls of their libraries
# by themselves, where their time goes, the messages; then other readers of codes on the same pictures,
# the samples and those of the folders given (pictures with their text NAME.txt beside NAME.png). Takes
# three minutes and more; keep the machine quiet. What was measured stays in build/bench/results.
# Ends with 0, 1 when something cannot be measured, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arguments 0 999 "$@"
for folder in "$@"; do
    [[ -d $folder && -r $folder ]] || fail -2 "no such folder: $folder"
done
"$project/scripts/setup.sh" bench
"$project/scripts/build.sh" bench service_cost peers
bench=$project/build/bench/bench
results=$project/build/bench/results
mkdir -p "$results"

echo "Measuring readings and messages (two minutes) ..." >&2
"$project/scripts/private-world.sh" -- "$bench/service_cost" "$project/samples" |
    tee "$results/cost.txt.new"
mv "$results/cost.txt.new" "$results/cost.txt"

echo "Reading pictures with each reader ..." >&2
printf '\nreaders on the samples\n'
"$bench/peers" --rows "$results/peers-samples.tsv" "$project/samples" | tee "$results/peers-samples.txt"
if (($# > 0)); then
    printf '\nreaders on the pictures of the folders\n'
    "$bench/peers" --rows "$results/peers-folders.tsv" "$@" | tee "$results/peers-folders.txt"
fi
