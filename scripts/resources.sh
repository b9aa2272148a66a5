#!/bin/bash
# usage: resources.sh
# Measures what the service takes of the machine: peak memory beside a program that links the same
# libraries and does nothing, CPU time of an idle minute, time from its start to its hello. Takes three
# minutes; keep the machine quiet. Ends with 0, 1 when something cannot be measured, 2 on wrong
# usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arguments 0 0 "$@"
cd "$project"
scripts/setup.sh build
scripts/build.sh release qrcode resources baseline
build=$project/build/release
scripts/private-world.sh -- "$build/bench/resources" use "$build/qrcode_src/qrcode" \
    "$build/bench/baseline" samples
