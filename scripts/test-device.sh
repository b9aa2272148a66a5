#!/bin/bash
# usage: test-device.sh
# The device's program, without the device: installs what is missing, makes the armhf root, builds for
# ARM, and runs all tests on the ARM programs under user-mode emulation; then links the service against
# the simulated platform as an outside library, as an integrator does with the vendor's, and runs that,
# even when a test before has failed.
# Ends with 0, 1 when a test or something else fails, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arguments 0 0 "$@"
cd "$project"
scripts/setup.sh test device
scripts/make-device-root.sh > /dev/null
scripts/build.sh device
status=0
# The platform from outside is tried even when a test has failed: its result stands by itself.
ctest --preset device -j "$(nproc)" | cat || status=$?

echo "The service over the platform from outside:"
platform=$project/build/device/sim/libmedia_sim_program.a
scripts/build.sh --in device-outside -DQRCODE_TESTS=ON "-DQRCODE_PLATFORM=$platform" \
    device qrcode panel service_test
# ... and with nothing of the simulated terminal built, from a folder of libraries.
own_build device-folder
mkdir -p build/device-folder/vendor
cp "$platform" build/device-folder/vendor/
scripts/build.sh --in device-folder -DQRCODE_SIMULATION=OFF \
    "-DQRCODE_PLATFORM=$project/build/device-folder/vendor" device
# The image holds a stripped program; what a debugger needs of it stays in the build folder.
image=$(mktemp -d)
trap 'rm -rf "$image"; give_build_back' EXIT
DESTDIR=$image cmake --install build/device-folder --prefix /usr --strip
id=$(readelf -n "$image/usr/bin/qrcode" | sed -n 's/.*Build ID: //p')
# Not grep -q, which ends early and lets readelf fail on its closed pipe.
readelf -sW "build/device-folder/symbols/qrcode-$id" | grep QrcodeVenc_CopyStreamData > /dev/null ||
    status=1
cmp build/device-outside/qrcode_src/qrcode build/device-folder/qrcode_src/qrcode || status=1
ctest --test-dir build/device-outside --output-on-failure --no-tests=error \
    -R 'ServiceTest\.(PanelHears|Platform)' | cat || status=$?
((status == 0)) || fail "a test failed (above)"
