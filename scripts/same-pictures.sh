#!/bin/bash
# usage: same-pictures.sh [--over VARIANT=FOLDER]... [FOLDER...]
# Takes a reading of each of the samples, and of the pictures in the folders and those below them, with
# Debian's shared libraries and with the static archives native, hard and soft (build/libs-VARIANT, or
# FOLDER of --over), those for ARM in an emulator, and compares what every call of OpenCV makes, what zbar
# is handed, and the texts. All read the same JPEG frames, which the simulated camera makes once. Says for
# each variant how many pictures differ from Debian's, in which call first and by how much, and the texts
# that differ. Two minutes for the samples.
# Ends with 0, 1 when a text differs or a reading cannot be taken, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

help_if_asked "$@"
declare -A folder_of
folders=()
while (($# > 0)); do
    case $1 in
    --over)
        (($# >= 2)) || fail -2 "--over wants VARIANT=FOLDER"
        [[ $2 =~ ^(native|hard|soft)= ]] || fail -2 "--over wants native=, hard= or soft=FOLDER, not $2"
        folder_of[${2%%=*}]=$(over_folder "$2")
        shift
        ;;
    -*) fail -2 "unknown option $1; see $script --help" ;;
    *)
        [[ -d $1 && -r $1 ]] || fail -2 "no such folder: $1"
        folders+=("$(realpath -- "$1")")
        ;;
    esac
    shift
done
for variant in native hard soft; do
    [[ -n ${folder_of[$variant]-} ]] || folder_of[$variant]=$(over_folder "$variant")
done
cd "$project"
scripts/setup.sh test device
scripts/build.sh release scanned_pictures
reader=$project/build/release/bench/scanned_pictures

work=$(mktemp -d)
trap 'rm -rf "$work"; give_build_back' EXIT
mkdir "$work/frames"
mapfile -d '' scenes < <(find "$project/samples" -maxdepth 0 -print0
    ((${#folders[@]} == 0)) || find "${folders[@]}" -type d -print0)
"$reader" frames "$work/frames" "${scenes[@]}"
frames=("$work/frames"/*)
"$reader" read "${frames[@]}" > "$work/debian"

# difference KIND CALL FRAME: prints the kind, how many bytes of that call's picture differ and the
# greatest difference, or "size".
difference()
{
    # One of them may not make the call: then it is the size that differs.
    "$reader" call "$2" "$3" > "$work/one" 2> /dev/null || true
    "${run[@]}" "$over/bench/scanned_pictures" call "$2" "$3" > "$work/other" 2> /dev/null || true
    if (($(stat -c %s "$work/one") != $(stat -c %s "$work/other"))); then
        printf '%s\t0\tsize\n' "$1"
        return
    fi
    { cmp -l "$work/one" "$work/other" || true; } | awk -v kind="$1" '
        function value(octal) { return int(octal / 100) * 64 + int(octal / 10) % 10 * 8 + octal % 10 }
        { d = value($2) - value($3); if (d < 0) d = -d; if (d > most) most = d }
        END { print kind "\t" NR "\t" most + 0 }'
}

status=0
for variant in native hard soft; do
    build_over "$variant" "${folder_of[$variant]}" scanned_pictures
    "${run[@]}" "$over/bench/scanned_pictures" read "${frames[@]}" > "$work/$variant" ||
        fail "$variant: a reading cannot be taken"
    # Of each frame the first call that differs: kind, call, frame. A call that only one makes differs.
    # shellcheck disable=SC2016
    awk -F '\t' '
        FNR == NR { of[$1, $2] = $0; next }
        $2 != 0 && of[$1, $2] != $0 && !seen[$1]++ { print $3 "\t" $2 "\t" $1 }' \
        "$work/debian" "$work/$variant" > "$work/first"
    : > "$work/differences"
    while IFS=$'\t' read -r kind call frame; do
        difference "$kind" "$call" "$work/frames/$frame" >> "$work/differences"
    done < "$work/first"
    grep -P '\t0\ttext\t' "$work/debian" > "$work/texts"
    grep -P '\t0\ttext\t' "$work/$variant" | diff "$work/texts" - > "$work/other-texts" || status=1
    awk -F '\t' -v variant="$variant" -v texts="$(grep -c '^>' "$work/other-texts" || true)" '
        FNR == NR { of[$1, $2] = $0; next }
        $2 == 0 { ++frames; next }
        { ++calls; if ($3 == "scan") ++scans }
        of[$1, $2] != $0 { ++other; if ($3 == "scan") ++otherScans; differs[$1] = 1 }
        { delete of[$1, $2] }
        END {
            for (call in of) { # only Debian has made it
                split(call, part, SUBSEP)
                if (part[2] != 0) { ++other; differs[part[1]] = 1 }
            }
            for (frame in differs) ++pictures
            printf "%s: of %d pictures %d differ; of %d calls %d; of %d handed to zbar %d; texts %d\n",
                variant, frames, pictures, calls, other, scans, otherScans, texts
        }' "$work/debian" "$work/$variant"
    awk -F '\t' '
        { ++n[$1]; if ($2 > bytes[$1]) bytes[$1] = $2; if ($3 == "size" || $3 > most[$1]) most[$1] = $3 }
        END { for (kind in n) printf "  first in %s: %d pictures, at most %d bytes differ, by at most %s\n",
            kind, n[kind], bytes[kind], most[kind] }' "$work/differences"
    sed -n 's/^[<>]/  &/p' "$work/other-texts"
done
exit "$status"
