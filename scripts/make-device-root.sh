#!/bin/bash
# usage: make-device-root.sh [FOLDER]    (default: build/device-root)
# Makes a folder with what the device's program is built against and emulated with: Debian's armhf
# libraries and headers, extracted from packages, nothing of them run. Prints the folder's path.
# A folder that was made already by this script, from the same list, is left as it is. An interrupted
# run leaves nothing half-made. Takes about 750 MB. Ends with 0, 1 when there can be no root, 2 on
# wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly ARCH=armhf
readonly MULTIARCH=arm-linux-gnueabihf
# What the build group of setup.sh names, for the device, and the tests' library.
readonly PACKAGES=(libc6-dev libstdc++-12-dev libopencv-core-dev libopencv-imgproc-dev
    libopencv-imgcodecs-dev libzbar-dev libcli11-dev libqrencode-dev nlohmann-json3-dev libgtest-dev
    libfreetype-dev fonts-dejavu-core fonts-wqy-microhei)

arguments 0 1 "$@"
root=$(realpath -m -- "${1:-$project/build/device-root}")
made=$root/made-from # the list of packages: written last, so it tells a whole root

if [[ -f $made && $(< "$made") == "${PACKAGES[*]}" ]]; then
    echo "$root"
    exit 0
fi
[[ ! -e $root || -f $made ]] || fail "$root is there, but this script did not make it; move it away"
command -v mmdebstrap > /dev/null || fail "mmdebstrap is missing (Debian's package mmdebstrap)"

# The release and mirror that this machine itself uses.
# shellcheck source=/dev/null
release=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
mirror=$(apt-get indextargets --format "\$(CODENAME) \$(COMPONENT) \$(REPO_URI)" \
    'Created-By: Packages' | awk -v release="$release" '$1 == release && $2 == "main" && !n++ { print $3 }')
[[ -n $mirror ]] || fail "apt knows no source of \"$release main\" (see apt-get indextargets)"

[[ $root != "$project/build/"* ]] || own_build_root
mkdir -p "$(dirname "$root")"
work=$(mktemp -d "$root.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM HUP
echo "Making the $ARCH root in $root (a minute or so, 750 MB) ..." >&2
packages=$(
    IFS=,
    echo "${PACKAGES[*]}"
)
# Chrootless, for an ordinary user can do that too: nothing of the packages is run.
if ! with_progress "$work/log" "Making the root" mmdebstrap --mode=chrootless --variant=extract \
    --architectures=$ARCH --include="$packages" --components=main "$release" "$work/root" "$mirror"; then
    grep -m 5 -E '^(E|W|Err)\b' "$work/log" >&2 || cat "$work/log" >&2
    fail "no $ARCH root (the lines above): is the network there, and every package known?" \
        "It would have held: ${PACKAGES[*]}"
fi

# BLAS and LAPACK stand in folders of their own, found on a running system through alternatives that
# only an installation sets up: put links where linker and emulator look.
lib=$work/root/usr/lib/$MULTIARCH
for name in blas lapack; do
    ln -sf "$name/lib$name.so.3" "$lib/lib$name.so.3"
    [[ -e $lib/lib$name.so.3 ]] || fail "lib$name.so.3 is not where it was expected in the root"
done
# Absolute links would lead out of the root.
find "$work/root" -xdev -type l -lname '/*' -print0 |
    while IFS= read -r -d '' link; do
        ln -sfnr "$work/root$(readlink "$link")" "$link"
    done
rm -rf "$work/root/dev" # the emulator takes what is here before what the machine has
chmod 755 "$work/root"
echo "${PACKAGES[*]}" > "$work/root/made-from"
[[ ! -e $root ]] || mv "$root" "$work/old"
mv "$work/root" "$root"
[[ $root != "$project/build/"* ]] || give_build_back
echo "$root"
