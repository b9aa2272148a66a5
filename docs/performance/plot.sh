#!/bin/bash
# usage: plot.sh
# Draws the plots of docs/performance.md from what scripts/bench.sh and scripts/latency.sh have
# measured. Writes steps.png and latency.png beside itself.
# Ends with 0, 1 when nothing is measured yet or a plot cannot be drawn, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

arguments 0 0 "$@"
plots=$project/docs/performance
results=$project/build/bench/results
for measured in cost.txt:bench latency.tsv:latency; do
    [[ -s $results/${measured%:*} ]] || fail "nothing measured yet: run scripts/${measured#*:}.sh"
done
"$project/scripts/setup.sh" bench

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The table of a reading's time turned round: a line of titles, then one for each reading, in ms.
awk '/^us in a reading/ { table = 1; line[0] = "-"; line[1] = "attempt 1"; line[2] = "attempt 8"
        line[3] = "nothing"; next }
    table && !NF { exit }
    table {
        name = substr($0, 1, 24)
        sub(/ +$/, "", name)
        line[0] = line[0] "\t" name
        split(substr($0, 25), part, "|")
        for (i = 1; i <= 3; ++i) {
            line[i] = line[i] "\t" word[split(part[i], word, " ")] / 1000
        }
    }
    END { for (i = 0; i <= 3; ++i) print line[i] }' "$results/cost.txt" > "$work/steps"

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
array colours[8] = ["#1f77b4", "#17becf", "#aec7e8", "#2ca02c", \
    "#ffbb78", "#ff7f0e", "#7f7f7f", "#d62728"]
set xrange [-0.7:2.7]
set title "found at attempt 1, at attempt 8, nothing found"
plot for [i=1:8] "$work/steps" using i+1:xtic(1) title columnheader(i+1) lc rgb colours[i]
set title "attempt 1, larger"
set key outside right center reverse Left invert
set xrange [-0.7:0.7]
plot for [i=1:8] "$work/steps" every ::0::0 using i+1:xtic(1) \
    title columnheader(i+1) lc rgb colours[i]
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
mv "$work/steps.png" "$work/latency.png" "$plots/"
