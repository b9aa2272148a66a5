#!/bin/bash
# usage: own-share.sh PICTURE...
# Counts the instructions of one reading of each picture with callgrind, and the share of them that is
# the service's own code rather than its libraries'. The simulated platform's instructions are left out.
# Ends with 0, 1 when something cannot be counted, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arguments 1 999 "$@"
for picture in "$@"; do
    [[ -f $picture && -r $picture ]] || fail -2 "no such picture: $picture"
done
"$project/scripts/setup.sh" check
"$project/scripts/build.sh" release one_reading

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf '%-40s %6s %14s %12s %8s\n' picture bytes instructions own share
for picture in "$@"; do
    # Collect inside a reading, not inside the platform's operations.
    if ! valgrind --tool=callgrind --callgrind-out-file="$work/counts" \
        --toggle-collect='Qrcode_CaptureAndDecode*' --toggle-collect='HI_MPI_*' \
        "$project/build/release/bench/one_reading" "$picture" > "$work/result" 2> "$work/log"; then
        cat "$work/log" >&2
        exit 1
    fi
    read -r bytes _ < "$work/result"
    callgrind_annotate --threshold=100 "$work/counts" |
        awk -v picture="$(basename "$picture")" -v bytes="$bytes" '
            { count = $1; gsub(",", "", count) }
            /PROGRAM TOTALS/ { total = count }
            /\/bench\/one_reading\]/ { own += count }
            END {
                if (total == 0) exit 1
                printf "%-40s %6s %14d %12d %7.3f%%\n", picture, bytes, total, own, 100 * own / total
            }'
done
