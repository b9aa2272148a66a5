#!/bin/bash
# usage: test-device.sh [hard|soft]...    (default: both)
# The terminal's program, without the terminal: installs what is missing, builds the libraries for ARM
# (scripts/device-libs.sh) and everything over them, and runs all tests on the ARM programs under
# user-mode emulation. Then it makes the one file (scripts/bundle.sh) over a platform from outside, as an
# integrator does with the vendor's: over a library, over a folder of libraries, over one that shares no
# declaration with the service, and over one that lacks an operation, which must be refused; and tests
# those very files. All of it even when a test before has failed.
#   hard  calls with hard float
#   soft  calls with soft float (softfp)
# Takes some 6 minutes each on two cores, and once the time that scripts/device-libs.sh says.
# Ends with 0, 1 when a test or something else fails, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

export LC_ALL=C.UTF-8 # readelf's words are looked at
readonly LACKING=HI_MPI_SYS_UnBind # the operation that the incomplete platform lacks

failed=0
# wrong WHAT: notes a failure, and goes on.
wrong()
{
    echo "$script: $*" >&2
    failed=1
}

# tests FOLDER CTEST-OPTION...: runs tests of a build folder.
tests()
{
    ctest --test-dir "$project/build/$1" -j "$(nproc)" --output-on-failure --no-tests=error \
        "${@:2}" | cat || wrong "a test of build/$1 failed (above)"
}

# The installed program is stripped; what a debugger needs of it stays in the build folder.
installation()
{
    local image=$work/image id
    DESTDIR=$image cmake --install "build/$1" --prefix /usr --strip > /dev/null
    id=$(readelf -n "$image/usr/bin/qrcode" | sed -n 's/.*Build ID: //p')
    # Not grep -q, which ends early and lets readelf fail on its closed pipe.
    readelf -sW "build/$1/symbols/qrcode-$id" | grep QrcodeVenc_CopyStreamData > /dev/null ||
        wrong "the symbols of the installed program are not kept"
    rm -rf "$image"
}

# refused VARIANT: a platform that lacks an operation makes no file, and the operation is named.
refused()
{
    local lacking=$work/liblacking.a objcopy
    objcopy=$(sed -n 's/^CMAKE_OBJCOPY:FILEPATH=//p' "build/$1/CMakeCache.txt")
    "$objcopy" --redefine-sym "$LACKING=renamed" "build/$1/tests/libbyte_platform.a" "$lacking"
    if scripts/bundle.sh --in "test-$1" "$1" "$lacking" > "$work/refusal" 2>&1; then
        wrong "a platform without $LACKING was not refused"
    elif ! grep -q "the platform lacks $LACKING\$" "$work/refusal"; then
        cat "$work/refusal" >&2
        wrong "a platform without $LACKING was refused without its name (above)"
    fi
}

# platforms VARIANT: the one file over platforms from outside.
platforms()
{
    local platform=$project/build/$1/sim/libmedia_sim_program.a file=build/bundle-test-$1/qrcode
    scripts/build.sh --in "$1-file" -DQRCODE_TESTS=ON "-DQRCODE_TESTED_SERVICE=$project/$file" "$1" \
        panel service_test soak_runner byte_platform_test
    refused "$1"
    scripts/bundle.sh --in "test-$1" "$1" "$project/build/$1/tests/libbyte_platform.a"
    tests "$1-file" -R '^BytePlatformTest\.'

    mkdir "$work/folder"
    cp "$platform" "$work/folder/"
    scripts/bundle.sh --in "test-$1" "$1" "$work/folder"
    cp "$file" "$work/over-a-folder"
    scripts/bundle.sh --in "test-$1" "$1" "$platform"
    cmp "$file" "$work/over-a-folder" || wrong "over a folder of libraries another program is made"
    tests "$1-file" -R '^(ServiceTest|SoakRunner)\.'
}

arguments 0 2 "$@"
for variant in "$@"; do
    [[ $variant == hard || $variant == soft ]] || fail -2 "neither hard nor soft: $variant"
done
(($# > 0)) || set -- hard soft
cd "$project"
scripts/setup.sh test device
work=$(mktemp -d)
trap 'rm -rf "$work"; give_build_back' EXIT
trap 'exit 130' INT TERM HUP
for variant in "$@"; do
    scripts/device-libs.sh "$variant"
    scripts/build.sh "$variant"
    echo "$variant: all tests"
    tests "$variant"
    installation "$variant"
    echo "$variant: the one file over platforms from outside"
    platforms "$variant"
    rm -rf "${work:?}"/*
done
((failed == 0)) || fail "something failed (above)"
