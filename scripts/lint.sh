#!/bin/bash
# clang-tidy and cppcheck over all of the code; builds preset werror-clang for its compile commands.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
"$project/scripts/setup.sh" check
"$project/scripts/build.sh" werror-clang
cd "$project"

cppcheck --quiet --std=c++17 --language=c++ --enable=warning,performance,portability \
    --inline-suppr --error-exitcode=1 --suppress=missingIncludeSystem \
    -Iinclude -Iqrcode_src/core -Iqrcode_src/msg -Iqrcode_src/capture -Iqrcode_src/recog \
    -Isim/media -Isim/panel -Itools qrcode_src sim tools samples bench

# Fuzz targets and benchmarks have builds of their own.
git ls-files '*.cpp' | grep -vE '^(tests|fuzz|bench)/' | xargs -P "$(nproc)" -n 1 clang-tidy --quiet \
    -p build/werror-clang 2> >(grep -vE '^[0-9]+ warnings? generated|^Suppressed|^Use -header' >&2)
