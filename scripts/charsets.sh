#!/bin/bash
# usage: charsets.sh [OPTION...]
# Prints what the service reads with each choice of the C library's character-set modules: draws some
# 2,800 QR codes of real words in several character sets, reads them with the service's own scan, and
# counts, kind by kind: texts right / another text / no text. docs/device.md tells what to make of it.
#   --by list     the reader leaves out what is not chosen (the default)
#   --by folder   each choice's modules alone lie where this PC's C library looks, in a private world
#   --by path     GCONV_PATH names a folder of scripts/charset-modules.sh, as on the terminal
#   --variant VARIANT  with --by path: of "hard" or "soft" the modules, and the reader over its archives
#   --every N     only every Nth text, for a slow machine; N is best odd, as short and long texts alternate
# Ends with 0, 1 when something fails, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly SETS=(none latin1 sjis big5 "sjis,latin1" "latin1,big5" "sjis,big5" "sjis,latin1,big5")

# count SET: prints the counts with this choice of sets.
count()
{
    local run=("$reader")
    case $by in
    list) run+=(--charsets "$1") ;;
    folder) run=("$project/scripts/private-world.sh" --over "$work/$1" "$place" -- "${run[@]}") ;;
    path) run=(env GCONV_PATH="$work/$1" ${emulator[@]+"${emulator[@]}"} "${run[@]}") ;;
    esac
    "${run[@]}" < "$work/codes" > "$work/$1.counts"
}

# Prints the table of all counts, in Markdown.
print_table()
{
    local set
    printf '| Texts | number |'
    printf ' %s |' "${SETS[@]}"
    printf '\n|---|---|'
    for set in "${SETS[@]}"; do printf -- '---|'; done
    echo
    for set in "${SETS[@]}"; do
        sed 's/^/'"$set"'\t/' "$work/$set.counts"
    done | awk -F '\t' '
        !($2 in cells) { kinds[++count] = $2; number[$2] = $3 + $4 + $5 }
        { cells[$2] = cells[$2] " " $3 " / " $4 " / " $5 " |" }
        END { for (i = 1; i <= count; i++) printf "| %s | %d |%s\n", kinds[i], number[kinds[i]], cells[kinds[i]] }'
}

help_if_asked "$@"
by=list variant=native every=1
while (($# > 0)); do
    case $1 in
    --by | --variant | --every) (($# >= 2)) || fail -2 "$1 wants a value" ;;&
    --by)
        [[ $2 == @(list|folder|path) ]] || fail -2 "--by: list, folder or path, not $2"
        by=$2
        shift
        ;;
    --variant)
        [[ $2 == @(native|hard|soft) ]] || fail -2 "--variant: native, hard or soft, not $2"
        variant=$2
        shift
        ;;
    --every)
        whole_number "$2" --every
        every=$2
        shift
        ;;
    -*) fail -2 "unknown option $1; see $script --help" ;;
    *) fail -2 "unexpected argument $1; see $script --help" ;;
    esac
    shift
done
[[ $variant == native || $by == path ]] || fail -2 "--variant $variant wants --by path"

"$project/scripts/setup.sh" build
"$project/scripts/build.sh" release charset_codes charset_readings
tools=$project/build/release/tools
reader=$tools/charset_readings
place=/usr/lib/$(gcc -print-multiarch)/gconv
run=()
if [[ $variant != native ]]; then
    "$project/scripts/setup.sh" test device
    folder=$(over_folder "$variant")
    build_over "$variant" "$folder" charset_readings
    reader=$over/tools/charset_readings
fi
emulator=(${run[@]+"${run[@]}"})

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM HUP
"$tools/charset_codes" "$project/tools/charsets/words.txt" |
    awk -v every="$every" '(NR - 1) % every == 0' > "$work/codes"
for set in "${SETS[@]}"; do
    [[ $by == list ]] || "$project/scripts/charset-modules.sh" "$variant" "$set" "$work/$set"
    count "$set" || fail "no counts with $set"
done
print_table
