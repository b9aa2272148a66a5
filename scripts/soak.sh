#!/bin/bash
# Runs the service for a long time: soak.sh [READINGS [COMMANDS]], by default 100000 readings of an
# unthrottled simulated camera and 1000000 command datagrams at the same time. Prints what its memory
# did; ends with 1 when a descriptor, a thread, a command, a log entry or the state was lost, or memory
# grew otherwise than by the pack arrays that snapshots keep.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
number='^[1-9][0-9]*$'
if (($# > 2)) || [[ ! ${1:-1} =~ $number || ! ${2:-1} =~ $number ]]; then
    echo "usage: $(basename "$0") [READINGS [COMMANDS]]" >&2
    exit 2
fi
"$project/scripts/setup.sh" test
"$project/scripts/build.sh" release
exec "$project/scripts/private-world.sh" -- "$project/build/release/tests/soak_runner" soak "${1:-100000}" "${2:-1000000}"
