#!/bin/bash
# Readings under random faults of the simulated platform: storm.sh [SEED [READINGS]], by default a
# seed of its own, which it prints, and 3000. Ends with 1 when a fault is not told exactly as often as
# it happens, something is lost, or the service does not read on afterwards.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
seed=${1:-$((RANDOM * 32768 + RANDOM))}
readings=${2:-3000}
if (($# > 2)) || [[ ! $seed =~ ^[0-9]+$ || ! $readings =~ ^[1-9][0-9]*$ ]]; then
    echo "usage: $(basename "$0") [SEED [READINGS]]" >&2
    exit 2
fi
"$project/scripts/setup.sh" test
"$project/scripts/build.sh" release
exec "$project/scripts/private-world.sh" -- "$project/build/release/tests/storm_test" "$seed" "$readings"
