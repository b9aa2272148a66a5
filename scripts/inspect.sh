#!/bin/bash
# usage: inspect.sh PICTURE|FOLDER... [OPTION...]
# Puts pictures through the service's own reading and shows what happened: builds qrcode-inspect when
# needed and calls it with the arguments. Its options and statuses are told by inspect.sh --help once it
# is built, how to read its sheets by docs/reading-a-sheet.md.
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
