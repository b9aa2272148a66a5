#!/bin/bash
# Draws the plots of docs/performance.md from what scripts/bench.sh and scripts/latency.sh have
# measured: plot.sh. Writes steps.png and latency.png beside itself.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
project=$(cd "$here/../.." && pwd -P)
results=$project/build/bench/results
(($# == 0)) || {
    sed -n '2,/^set /{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
    [[ $1 == -h || $1 == --help ]] && exit 0
    exit 2
}
for measured in cost.json:bench latency.tsv:latency; do
    [[ -s $results/${measured%:*} ]] || {
        echo "$(basename "$0"): nothing measured yet: run scripts/${measured#*:}.sh" >&2
        exit 1
    }
done
"$project/scripts/setup.sh" bench

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# One line a reading: name, then ms of each step. The service's own is, all but some microseconds, to
# fill the mirror's tables.
jq -r '(.benchmarks[] | select(.name == "step/mirror-tables") | .real_time / 1000) as $own |
    .benchmarks[] | select(.name | startswith("pair/")) |
    [(.name | split("/")[1]), .step_snapshot, .step_decode, .step_mirror, .step_grey, .step_scan,
        .step_open, .step_prepare, $own] | @tsv' "$results/cost.json" > "$work/steps"
sed -i 's/^attempt-/attempt /; s/^empty/nothing/' "$work/steps"

# Shares up to each time.
for kind in view enable; do
    awk -F'\t' -v kind=$kind '$1 == kind && $3 != "missed" { print $3 }' "$results/latency.tsv" |
        sort -n > "$work/$kind"
done

gnuplot << PLOT
set terminal pngcairo size 1000,560 font "DejaVu Sans,11"
set encoding utf8
set datafile separator "\t"
set style line 100 lc rgb "#dddddd"

set output "$work/steps.png"
set multiplot layout 1,2 title "Where a reading's time goes (ms)"
set style data histograms
set style histogram rowstacked
set style fill solid 0.9 noborder
set boxwidth 0.6
set grid y ls 100
unset key
array aTitles[8] = ["snapshot", "decode", "mirror", "grey", "scans", "openings", "preparations", "the service's own"]
array aColours[8] = ["#7f7f7f", "#1f77b4", "#17becf", "#aec7e8", "#ff7f0e", "#ffbb78", "#2ca02c", "#d62728"]
set xrange [-0.7:2.7]
set title "found at attempt 1, at attempt 8, nothing found"
plot for [i=1:8] "$work/steps" using i+1:xtic(1) lc rgb aColours[i]
set title "attempt 1, larger"
set key outside right center reverse Left invert
set xrange [-0.7:0.7]
plot for [i=1:8] "$work/steps" every ::0::0 using i+1:xtic(1) title aTitles[i] lc rgb aColours[i]
unset multiplot

reset
set encoding utf8
stats "$work/view" nooutput
views = STATS_records
stats "$work/enable" nooutput
enables = STATS_records
set terminal pngcairo size 900,480 font "DejaVu Sans,11"
set output "$work/latency.png"
set key right bottom
set xrange [0:*]
set yrange [0:100]
set style line 100 lc rgb "#dddddd"
set grid x y ls 100
set xlabel "ms until the result is there"
set ylabel "% of the times"
set title "The wait at the door, camera at 25 frames a second"
plot "$work/view" using 1:(100.0 * (\$0 + 1) / views) with steps lw 2 lc rgb "#1f77b4" \
         title sprintf("after a code comes into view (%d)", views), \
     "$work/enable" using 1:(100.0 * (\$0 + 1) / enables) with steps lw 2 lc rgb "#ff7f0e" \
         title sprintf("after 0x903, code in view (%d)", enables)
PLOT
mv "$work/steps.png" "$work/latency.png" "$here/"
