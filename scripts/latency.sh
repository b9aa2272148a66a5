#!/bin/bash
# usage: latency.sh [APPEARANCES [ENABLES]]
# Measures what a person at the door feels: the time from a code coming into view, after seconds of an
# empty scene, to its result's arrival at the main application, and from 0x903 to the first 0x904 with
# the code in view; the simulated camera gives 25 frames a second. 100 and 30 take seven minutes; keep
# the machine quiet. Each figure stays in build/bench/results/latency.tsv.
# Ends with 0, 1 when something cannot be measured, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arguments 0 2 "$@"
appearances=${1-100}
enables=${2-30}
whole_number "$appearances" APPEARANCES
whole_number "$enables" ENABLES
"$project/scripts/setup.sh" build
"$project/scripts/build.sh" release qrcode latency
build=$project/build/release
results=$project/build/bench/results
mkdir -p "$results"

# Ends with the world it runs in, whatever happens here.
"$project/scripts/private-world.sh" --write "$results" -- "$build/bench/latency" \
    --service "$build/qrcode_src/qrcode" --samples "$project/samples" \
    --rows "$results/latency.tsv" --appearances "$appearances" --enables "$enables"
