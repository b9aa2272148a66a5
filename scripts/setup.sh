#!/bin/bash
# usage: setup.sh [GROUP...]
# Installs what is missing of the Debian packages that the named groups need, and calls no package
# manager when nothing is. Every group holds the first, "check" the first two.
#   build  to build and run the service, the simulated terminal and the demo (the default)
#   test   ... and the tests
#   check  ... and everything that checks the code
#   device to build for the device, and to emulate it
#   bench  to measure what the service costs
# Ends with 0, or 1 when something cannot be installed.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly BUILD_PACKAGES=(g++ cmake ninja-build libopencv-core-dev libopencv-imgproc-dev
    libopencv-imgcodecs-dev libzbar-dev libcli11-dev nlohmann-json3-dev bubblewrap
    libfreetype-dev fonts-dejavu-core fonts-wqy-microhei) # the last three: letters on sheets
readonly TEST_PACKAGES=(libgtest-dev libgmock-dev)
readonly CHECK_PACKAGES=(clang clang-tidy clang-format cppcheck libclang-rt-14-dev llvm-14 shellcheck
    valgrind)
readonly DEVICE_PACKAGES=(g++-arm-linux-gnueabihf qemu-user mmdebstrap)
readonly BENCH_PACKAGES=(libzxing-dev libopencv-objdetect-dev libopencv-contrib-dev
    gnuplot-nox)

# Prints those of the packages that are not installed.
missing_of()
{
    local installed
    installed=$(dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2> /dev/null || true)
    local package
    for package in "$@"; do
        grep -qxF "installed $package" <<< "$installed" || echo "$package"
    done
}

# Runs a command as root; what it prints is shown only when it fails.
quietly_as_root()
{
    local output
    if ((EUID == 0)); then
        output=$("$@" 2>&1) || fail "failed: $*"$'\n'"$output"
    else
        output=$(sudo -- "$@" 2>&1) || fail "failed: sudo $*"$'\n'"$output"
    fi
}

help_if_asked "$@"
packages=("${BUILD_PACKAGES[@]}")
for group in "$@"; do
    case $group in
    build) ;;
    test) packages+=("${TEST_PACKAGES[@]}") ;;
    check) packages+=("${TEST_PACKAGES[@]}" "${CHECK_PACKAGES[@]}") ;;
    device) packages+=("${DEVICE_PACKAGES[@]}") ;;
    bench) packages+=("${BENCH_PACKAGES[@]}") ;;
    *) fail -2 "unknown group \"$group\"; there are: build, test, check, device, bench" ;;
    esac
done

command -v dpkg-query > /dev/null ||
    fail "this is no Debian; install the likes of these by hand: ${packages[*]}"
mapfile -t missing < <(missing_of "${packages[@]}")
if ((${#missing[@]} == 0)); then
    exit 0
fi
((EUID == 0)) || command -v sudo > /dev/null ||
    fail "not root and no sudo; as root: apt-get install --no-install-recommends ${missing[*]}"

echo "Installing ${missing[*]} ..." >&2
quietly_as_root apt-get -qq update
quietly_as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get -qq -y --no-install-recommends install "${missing[@]}"
