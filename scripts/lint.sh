#!/bin/bash
# usage: lint.sh [FILE.cpp...]
# clang-tidy over all C++ sources (or the given ones; not tests/byte_platform*, which are built for 32
# bits only), cppcheck over all but tests and fuzz targets
# (it does not know their macros), and a look for Hungarian names outside the service. Builds preset
# werror-clang and, once, the libraries with sanitizers (some minutes), and configures fuzz and bench, for
# their compile commands. Ends with 0, 1 on a finding, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arguments 0 999 "$@"
"$project/scripts/setup.sh" check bench fuzz
"$project/scripts/build.sh" werror-clang
cd "$project"
scripts/device-libs.sh sanitized
for preset in fuzz bench; do
    scripts/build.sh --configure $preset
done

# Names such as nCount or szText, except members of the service's records.
hungarian='(?<![\w.>])(g_|n|b|sz|p|a)[A-Z][a-z]\w*'
if git ls-files sim tools bench fuzz samples tests | grep -E '\.(cpp|h)$' | xargs sed -E \
    's@//.*@@; s/"([^"\\]|\\.)*"//g' | grep -oP "$hungarian" | grep -vE '^(nSnap(Width|Height)|g_(ClientSock|PeerAddr|SelectIntrCount))$' | sort -u; then
    fail "the names above are Hungarian; only the service's are"
fi

cppcheck --quiet --std=c++17 --language=c++ --enable=warning,performance,portability \
    --inline-suppr --error-exitcode=1 --suppress=missingIncludeSystem \
    -Iinclude -Iqrcode_src/core -Iqrcode_src/msg -Iqrcode_src/capture -Iqrcode_src/recog \
    -Isim/shared -Isim/media -Isim/panel -Isim/terminal -Itools/demo -Itools/inspect -Itools/desk \
    qrcode_src sim tools samples bench

tidy()
{
    local commands=$1
    shift
    (($# == 0)) || printf '%s\0' "$@" | xargs -0 -P "$(nproc)" -n 1 clang-tidy --quiet -p "build/$commands" \
        2> >(grep -vE '^[0-9]+ warnings? |^Suppressed|^Use -header' >&2)
}
files=("$@")
((${#files[@]} > 0)) || mapfile -t files < <(git ls-files '*.cpp' | grep -v '^tests/byte_platform')
for file in "${files[@]}"; do
    case $file in
    bench/*) bench+=("$file") ;;
    fuzz/*) fuzz+=("$file") ;;
    *) others+=("$file") ;;
    esac
done
tidy werror-clang ${others[@]+"${others[@]}"}
tidy bench ${bench[@]+"${bench[@]}"}
tidy fuzz ${fuzz[@]+"${fuzz[@]}"}
