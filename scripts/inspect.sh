#!/bin/bash
# usage: inspect.sh PICTURE|FOLDER... [OPTION...]
# Puts pictures through the service's own reading and shows what happened: builds qrcode-inspect when
# needed and calls it with the arguments. docs/reading-a-sheet.md tells how to read its sheets.
#   --snapshot       the files are snapshots of the terminal's encoder, byte for byte, not pictures for
#                    the simulated camera
#   --json           one JSON object a picture; the table goes to standard error
#   --truth          compare each text with the file NAME.txt beside NAME.png; none beside it: no code
#   --sheet FILE     draw every picture that the scanner is handed into this PNG; one picture only
#   --attempts N,... only these attempts on the sheet, 1 to 8
#   --charsets LIST  read as a terminal whose C library has just these character sets beside UTF-8: some of
#                    sjis,latin1,big5, or none, as a bundle has unless told otherwise; all (default): as
#                    on this machine
#   --version        print the version
# Ends with 0 when the service reports the text of each picture's code as it is; 1 when it reports
# another or none of some, or (with --truth) not the expected one, or something breaks; 2 on wrong usage.
#
#   --cards          check cards before they are printed: the places are files of texts, one a line (-:
#                    standard input), each drawn as a QR code, or pictures of cards, their text in
#                    NAME.txt beside NAME.png. Each card is read in some hundred views.
#   --level L|M|Q|H  error correction of the codes that are drawn (default: M)
#   --margin N       light modules around them (default: 4)
#   --straight       only straight views, one of each size
#   --worst FOLDER   keep the worst view of each card that is not read right everywhere
# With --cards, ends with 0 when every card was read right somewhere and none was ever reported wrong.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

help_if_asked "$@"
# Known options are those of the comment above: a wrong one is named before anything is built.
mapfile -t known < <(sed -n '2,/^[^#]/s/^#   *\(--[a-z-]*\).*/\1/p' "$0")
for argument in "$@"; do
    [[ $argument != -- ]] || break
    [[ $argument != -?* || " ${known[*]} " == *" ${argument%%=*} "* ]] ||
        fail -2 "unknown option $argument; see $script --help"
done
(($# > 0)) || fail -2 "no picture and no folder; see $script --help"

"$project/scripts/setup.sh" build
"$project/scripts/build.sh" release qrcode-inspect
exec "$project/build/release/tools/qrcode-inspect" "$@"
