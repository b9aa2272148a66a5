#!/bin/bash
# usage: storm.sh [SEED [READINGS]]
# Readings under random faults of the simulated platform, by default 3000 with a seed of its own, which
# it prints. Ends with 0, 1 when something is lost or the service does not read on afterwards,
# 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arguments 0 2 "$@"
seed=${1:-$((RANDOM * 32768 + RANDOM))}
readings=${2:-3000}
[[ $seed =~ ^[0-9]{1,10}$ ]] || fail -2 "SEED: not a number: $seed"
whole_number "$readings" READINGS
"$project/scripts/setup.sh" test
"$project/scripts/build.sh" release
# GoogleTest does not see that its output cannot be written.
"$project/scripts/private-world.sh" -- "$project/build/release/tests/storm_test" "$seed" "$readings" | cat
