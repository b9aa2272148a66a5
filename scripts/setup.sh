#!/bin/bash
# usage: setup.sh [GROUP...]
# Installs what is missing of the Debian packages that the named groups need, and calls no package
# manager when nothing is. Says how many packages that makes, their size, and how far it is. Every group
# holds the first, "check" the first two.
#   build  to build and run the service, the simulated terminal and the demo (the default)
#   test   ... and the tests
#   check  ... and everything that checks the code
#   desk   to show the terminal in a browser
#   desk-test  ... and to test that
#   libs   to make the terminal's file, over a platform from outside; without "build"
#   device ... over the simulated one, and to emulate it
#   fuzz   ... to fuzz it, and the libraries
#   supervise  to run and watch the service under systemd and BusyBox
#   bench  to measure what the service costs
# Ends with 0, 1 when something cannot be installed, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly BUILD_PACKAGES=(g++ cmake ninja-build libopencv-core-dev libopencv-imgproc-dev
    libopencv-imgcodecs-dev libzbar-dev libcli11-dev libqrencode-dev nlohmann-json3-dev bubblewrap
    libfreetype-dev fonts-dejavu-core fonts-wqy-microhei) # the last three: letters on sheets
readonly TEST_PACKAGES=(libgtest-dev libgmock-dev netpbm python3) # netpbm: samples as BMP
readonly CHECK_PACKAGES=(clang clang-tidy clang-format cppcheck libclang-rt-14-dev shellcheck valgrind)
readonly LIBS_PACKAGES=(g++ cmake ninja-build dpkg-dev xz-utils bzip2 patch nasm
    g++-arm-linux-gnueabihf g++-arm-linux-gnueabi)
readonly DEVICE_PACKAGES=("${LIBS_PACKAGES[@]}" qemu-user googletest netpbm)
readonly FUZZ_PACKAGES=("${LIBS_PACKAGES[@]}" clang libclang-rt-14-dev llvm-14 libzint-dev zlib1g-dev python3)
readonly DESK_PACKAGES=(libmicrohttpd-dev)
readonly DESK_TEST_PACKAGES=("${DESK_PACKAGES[@]}" chromium chromium-driver python3-selenium python3-pil)
readonly BENCH_PACKAGES=(libzxing-dev libopencv-objdetect-dev libopencv-contrib-dev
    gnuplot-nox)
readonly SUPERVISE_PACKAGES=(systemd busybox-static strace iproute2 util-linux procps)
readonly INSTALL=(--no-install-recommends install)
# What apt says when it cannot reach a server.
readonly NO_NETWORK='Could not resolve|Temporary failure resolving|Could not connect|connection timed out|Unable to connect|Network is unreachable'

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

# apt TITLE ARGUMENT...: runs apt-get as root, with its progress shown; its words are in $log.
apt()
{
    local title=$1 command=(env DEBIAN_FRONTEND=noninteractive LC_ALL=C apt-get)
    shift
    ((EUID == 0)) || command=(sudo -- "${command[@]}")
    with_progress "$log" "$title" "${command[@]}" -o APT::Status-Fd=1 "$@"
}

# Ends after apt failed: with its errors, and what it was about.
give_up()
{
    grep -m 5 -E '^(E|W):' "$log" >&2 || cat "$log" >&2 # one a package, else
    if grep -qE "$NO_NETWORK" "$work"/*; then
        set -- "no network, or no way to the package servers: $1"
    fi
    fail "$1 (the lines above); would have been installed: ${missing[*]}"
}

help_if_asked "$@"
packages=()
[[ $* == libs ]] || packages+=("${BUILD_PACKAGES[@]}")
for group in "$@"; do
    case $group in
    build) ;;
    test) packages+=("${TEST_PACKAGES[@]}") ;;
    check) packages+=("${TEST_PACKAGES[@]}" "${DESK_PACKAGES[@]}" "${CHECK_PACKAGES[@]}") ;;
    libs) packages+=("${LIBS_PACKAGES[@]}") ;;
    device) packages+=("${DEVICE_PACKAGES[@]}") ;;
    fuzz) packages+=("${FUZZ_PACKAGES[@]}") ;;
    supervise) packages+=("${TEST_PACKAGES[@]}" "${SUPERVISE_PACKAGES[@]}") ;;
    desk) packages+=("${DESK_PACKAGES[@]}") ;;
    desk-test) packages+=("${DESK_TEST_PACKAGES[@]}") ;;
    bench) packages+=("${BENCH_PACKAGES[@]}") ;;
    -*) fail -2 "unknown option $group; see $script --help" ;;
    *) fail -2 "unknown group \"$group\"; there are: build, test, check, libs, device, desk, desk-test, fuzz, supervise, bench" ;;
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

((EUID == 0)) || sudo -n true 2> /dev/null || sudo -v || fail "sudo is refused: run it as root"

work=$(mktemp -d)
log=$work/log
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM HUP
# apt ends with 0 even when no list can be fetched. Old lists may do, so it is told, and no more.
apt "Fetching the package lists" update || give_up "the package lists cannot be fetched"
cp "$log" "$work/update"
if grep -qE "$NO_NETWORK" "$log"; then
    echo "$script: the package lists cannot be fetched; trying with those that are there" >&2
fi
apt "Looking at the packages" "${INSTALL[@]}" --simulate "${missing[@]}" ||
    give_up "the package lists are empty, or lack some of these packages"
# "No" to its question ends with 1, and that is meant: only its figures are wanted.
apt "Looking at the packages" "${INSTALL[@]}" --assume-no "${missing[@]}" || true
count=$(sed -n 's/.* \([0-9]*\) newly installed.*/\1/p' "$log")
size=$(sed -n 's/^Need to get \(.*\) of archives.*/\1/p' "$log")
disk=$(sed -n 's/^After this operation, \(.*\) of additional disk space.*/\1/p' "$log")
echo "Installing ${missing[*]}: with what they need ${count:-?} packages, ${size:-?} to download," \
    "${disk:-?} on the disk" >&2
apt "Installing" -y "${INSTALL[@]}" "${missing[@]}" || give_up "not all could be installed"
