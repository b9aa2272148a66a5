#!/bin/bash
# usage: soak.sh [READINGS [COMMANDS]]
# Runs the service for a long time: by default 100000 readings of an unthrottled simulated camera and
# 1000000 command datagrams at the same time, then 100 restarts of the main application and of the
# service. Prints what its memory did. Ends with 0, 2 on wrong usage, or 1 when a descriptor, a thread, a
# command, a log entry or the state was lost, or memory grew otherwise than by the pack arrays that
# snapshots keep.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly RESTARTS=100

arguments 0 2 "$@"
whole_number "${1:-1}" READINGS
whole_number "${2:-1}" COMMANDS
"$project/scripts/setup.sh" test
"$project/scripts/build.sh" release
soak=("$project/scripts/private-world.sh" -- "$project/build/release/tests/soak_runner")
"${soak[@]}" soak "${1:-100000}" "${2:-1000000}"
"${soak[@]}" restarts "$RESTARTS"
