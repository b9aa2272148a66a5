#!/bin/bash
# Installs what is missing, builds, and runs all tests. Arguments go to ctest, e.g. -R Cascade.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
"$project/scripts/setup.sh" test
"$project/scripts/build.sh" release
cd "$project"
exec ctest --preset release -j "$(nproc)" "$@"
