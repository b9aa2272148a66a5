#!/bin/bash
# Measures what a person at the door feels: the time from a code coming into view, after seconds of
# an empty scene, to its result's arrival at the panel, and from 0x903 to the first 0x904 with the
# code in view; the simulated camera gives 25 frames a second. latency.sh [APPEARANCES [ENABLES]]
# (100 and 30: seven minutes; keep the machine quiet). Each figure stays in
# build/bench/results/latency.tsv.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
appearances=${1-100}
enables=${2-30}
if [[ $# -gt 2 || ! $appearances$enables =~ ^[0-9]+$ ]]; then
    sed -n '2,/^set /{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
    [[ ${1-} == -h || ${1-} == --help ]] && exit 0
    exit 2
fi
"$project/scripts/setup.sh" build
"$project/scripts/build.sh" release qrcode latency
build=$project/build/release
results=$project/build/bench/results
mkdir -p "$results"

# Ends with the world it runs in, whatever happens here.
"$project/scripts/private-world.sh" -- "$build/bench/latency" \
    --service "$build/qrcode_src/qrcode" --samples "$project/samples" \
    --appearances "$appearances" --enables "$enables" > "$results/latency.tsv.new"
mv "$results/latency.tsv.new" "$results/latency.tsv"

# Median, 95th percentile and highest of the figures of one kind.
row()
{
    awk -F'\t' -v kind="$1" '$1 == kind && $3 != "missed" { print $3 }' "$results/latency.tsv" |
        sort -n | awk -v title="$2" \
        -v missed="$(awk -F'\t' -v kind="$1" '$1 == kind && $3 == "missed"' "$results/latency.tsv" | wc -l)" '
            { value[NR] = $1 }
            END {
                if (NR + missed == 0) exit
                printf "%-58s %7d %7d", title, NR + missed, missed
                if (NR > 0) printf " %9.1f %9.1f %9.1f", value[int((NR - 1) * 0.5 + 1.5)],
                    value[int((NR - 1) * 0.95 + 1.5)], value[NR]
                print ""
            }'
}

printf '%-58s %7s %7s %9s %9s %9s\n' ms number missed median "95 %" highest
row view "code comes into view -> its result"
row enable "0x903, code in view -> its result"
row empty "one reading of the empty scene"
row found "one reading of a sample"
row camera "the simulated camera's own work for a new picture"
