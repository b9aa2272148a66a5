#!/bin/bash
# usage: test.sh [-R REGEX] [-E REGEX] [-V]
# Installs what is missing, builds, and runs all tests; -R only those whose name matches, -E not those,
# -V with all that they print.
# Ends with 0, 2 on wrong usage, or another status when a test or something else fails.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

help_if_asked "$@"
selection=("$@")
while (($# > 0)); do
    case $1 in
    -R | -E)
        (($# >= 2)) || fail -2 "$1 wants a regular expression"
        shift 2
        ;;
    -V) shift ;;
    *) fail -2 "unknown option $1; see $script --help" ;;
    esac
done
"$project/scripts/setup.sh" test
"$project/scripts/build.sh" release
cd "$project"
# ctest itself does not see that its output cannot be written.
ctest --preset release -j "$(nproc)" "${selection[@]}" | cat
