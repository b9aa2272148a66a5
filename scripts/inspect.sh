#!/bin/bash
# Puts pictures through the service's own reading and shows what happened: builds qrcode-inspect when
# needed and calls it with the arguments given. What it does is told by scripts/inspect.sh --help, how
# to read its sheets by docs/reading-a-sheet.md.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
tool=$(dirname "$here")/build/release/tools/qrcode-inspect

"$here/setup.sh" build
if [[ ! -x $tool ]]; then
    echo "Building in build/release; the first time takes a minute or so ..." >&2
fi
"$here/build.sh" release qrcode-inspect
exec "$tool" "$@"
