#!/bin/bash
# usage: inspect.sh PICTURE|FOLDER... [OPTION...]
# Puts pictures through the service's own reading and shows what happened: builds qrcode-inspect when
# needed and calls it with the arguments. Its options and statuses are told by inspect.sh --help once it
# is built, how to read its sheets by docs/reading-a-sheet.md.
#
# inspect.sh --cards FILE|PICTURE|FOLDER... checks cards before they are printed: files of texts, one a
# line (-: standard input), each drawn as a QR code, or pictures of cards, their text in NAME.txt beside
# NAME.png. Each is read in some hundred views.
#   --level L|M|Q|H   error correction of the codes that are drawn (default: M)
#   --margin N        light modules around them (default: 4)
#   --straight        only straight views, one of each size
#   --worst FOLDER    keep the worst view of each card that is not read right everywhere
#   --json            one JSON object a card; the table goes to standard error
# Ends with 0 when every card was read right somewhere and none was ever reported wrong; 1 otherwise; 2
# on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

tool=$project/build/release/tools/qrcode-inspect
if [[ ! -x $tool ]]; then
    help_if_asked "$@"
    "$project/scripts/setup.sh" build
    echo "Building in build/release; the first time takes a minute or so ..." >&2
fi
"$project/scripts/setup.sh" build
"$project/scripts/build.sh" release qrcode-inspect
exec "$tool" "$@"
