#!/bin/bash
# usage: make-sheets.sh
# Makes the pictures in this folder anew from samples/, the same byte for byte each time: one sample's
# whole sheet, and cut-outs of others (the attempts to show stand behind the sample's name).
# Ends with 0, 1 when a sheet cannot be made, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

arguments 0 0 "$@"
sheets=$project/docs/sheets

while read -r sample attempts; do
    "$project/scripts/inspect.sh" "$project/samples/$sample.png" --sheet "$sheets/$sample.png" \
        ${attempts:+--attempts "$attempts"} < /dev/null > /dev/null ||
        fail "$sample.png is not read, or its sheet cannot be made"
done << END
uneven-light
glare 1,8
far-away 1,4
blurred 3,5
curved 1,4
inverted 1,2
faint 1,4
badge 1
END
