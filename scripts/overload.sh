#!/bin/bash
# usage: overload.sh
# Sends the service commands faster and faster until it loses some, then as fast as it goes; prints the
# highest rate without a loss. Ends with 0, 1 when the newest state does not hold
# afterwards, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arguments 0 0 "$@"
"$project/scripts/setup.sh" test
"$project/scripts/build.sh" release
exec "$project/scripts/private-world.sh" -- "$project/build/release/tests/soak_runner" overload
