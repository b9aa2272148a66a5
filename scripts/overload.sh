#!/bin/bash
# Sends the service commands faster and faster until it loses some, then as fast as it goes; prints
# the highest rate without a loss. Ends with 1 when the newest state does not hold afterwards.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
(($# == 0)) || {
    echo "usage: $(basename "$0")" >&2
    exit 2
}
"$project/scripts/setup.sh" test
"$project/scripts/build.sh" release
exec "$project/scripts/private-world.sh" -- "$project/build/release/tests/soak_runner" overload
