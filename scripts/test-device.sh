#!/bin/bash
# usage: test-device.sh
# The device's program, without the device: installs what is missing, makes the armhf root, builds for
# ARM, and runs all tests on the ARM programs under user-mode emulation; then links the service against
# the simulated platform as an outside library, as an integrator does with the vendor's, and runs that.
# Ends with 0, or another status when a test or something else fails.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arguments 0 0 "$@"
cd "$project"
scripts/setup.sh test device
scripts/make-device-root.sh > /dev/null
scripts/build.sh device
ctest --preset device -j "$(nproc)"

echo "The service over the platform from outside:"
outside=build/device-outside
log=$outside.log
if ! { cmake --preset device -B $outside "-DQRCODE_PLATFORM=$project/build/device/sim/libmedia_sim_program.a" &&
    cmake --build $outside -j "$(nproc)" --target qrcode panel service_test; } > $log 2>&1; then
    cat $log >&2
    exit 1
fi
grep "Media platform" $log
# ... and with nothing of the simulated terminal built, from a folder of libraries.
folder=build/device-folder
mkdir -p $folder/vendor
cp build/device/sim/libmedia_sim_program.a $folder/vendor/
if ! { cmake --preset device -B $folder -DQRCODE_SIMULATION=OFF "-DQRCODE_PLATFORM=$folder/vendor" &&
    cmake --build $folder -j "$(nproc)"; } > $folder.log 2>&1; then
    cat $folder.log >&2
    exit 1
fi
cmp build/device-outside/qrcode_src/qrcode $folder/qrcode_src/qrcode
ctest --test-dir $outside --output-on-failure --no-tests=error -R 'ServiceTest\.(PanelHears|Platform)'
