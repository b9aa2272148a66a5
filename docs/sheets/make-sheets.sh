#!/bin/bash
# usage: make-sheets.sh
# Makes the sheets in this folder anew, the same byte for byte each time: one sample's whole sheet, and
# cut-outs of others (the attempts to show stand behind the sample's name), and of too-far-view.png,
# which is no sample, for nothing reads it.
# Ends with 0, 1 when a sheet cannot be made, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

arguments 0 0 "$@"
sheets=$project/docs/sheets

while read -r sheet attempts; do
    picture=$project/samples/$sheet.png
    [[ -e $picture ]] || picture=$sheets/$sheet-view.png
    rm -f "$sheets/$sheet.png"
    # Ends with 1 where a text is not told exactly, which some are here to show.
    "$project/scripts/inspect.sh" "$picture" --sheet "$sheets/$sheet.png" \
        ${attempts:+--attempts "$attempts"} < /dev/null > /dev/null || (($? == 1)) ||
        fail "inspect.sh failed"
    [[ -s $sheets/$sheet.png ]] || fail "$sheet.png cannot be made"
done << END
uneven-light
glare 1,8
far-away 1,4
blurred 3,5
curved 1,4
inverted 1,2
faint 1,4
badge 1,4
ten-characters 1,4
too-far 1,2,3,4
END
