#!/bin/bash
# Makes the pictures in this folder anew from samples/, the same byte for byte each time: one sample's
# whole sheet, and cut-outs of others (the attempts to show stand behind the sample's name).
set -euo pipefail

(($# == 0)) || {
    echo "usage: $(basename "$0")" >&2
    exit 2
}
sheets=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
root=$(dirname "$(dirname "$sheets")")

while read -r sample attempts; do
    "$root/scripts/inspect.sh" "$root/samples/$sample.png" --sheet "$sheets/$sample.png" \
        ${attempts:+--attempts "$attempts"} < /dev/null > /dev/null || {
        echo "$(basename "$0"): $sample.png is not read, or its sheet cannot be made" >&2
        exit 1
    }
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
