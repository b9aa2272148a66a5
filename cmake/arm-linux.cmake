# The terminal's processor: ARM Cortex-A7 with NEON and hard float, under Linux. Defaults to Debian's
# cross compiler and the root that scripts/make-device-root.sh makes. A vendor's toolchain brings its
# own; each of these can be given with -D:
#   DEVICE_COMPILER_PREFIX  what the compilers' names begin with, with its folder where that is not on
#                           the PATH: /opt/toolchain/bin/arm-linux-
#   DEVICE_FLOAT_ABI        hard, softfp or soft
#   DEVICE_CPU_FLAGS        processor and floating-point unit
#   DEVICE_ROOT             folder that holds usr/include and usr/lib of the target, with OpenCV and
#                           zbar in it; empty to leave the toolchain its own
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(DEVICE_COMPILER_PREFIX "arm-linux-gnueabihf-" CACHE STRING "What the compilers' names begin with")
set(DEVICE_FLOAT_ABI "hard" CACHE STRING "Float ABI: hard, softfp or soft")
set(DEVICE_CPU_FLAGS "-mcpu=cortex-a7 -mfpu=neon-vfpv4" CACHE STRING "Processor flags")
set(DEVICE_ROOT "${CMAKE_CURRENT_LIST_DIR}/../build/device-root" CACHE PATH "Root of the target")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
  DEVICE_COMPILER_PREFIX DEVICE_FLOAT_ABI DEVICE_CPU_FLAGS DEVICE_ROOT)

set(CMAKE_CXX_COMPILER "${DEVICE_COMPILER_PREFIX}g++")
set(CMAKE_CXX_FLAGS_INIT "${DEVICE_CPU_FLAGS} -mfloat-abi=${DEVICE_FLOAT_ABI}")
if(DEVICE_FLOAT_ABI STREQUAL "hard")
  set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
else()
  set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabi)
endif()

if(DEVICE_ROOT)
  get_filename_component(_device_root "${DEVICE_ROOT}" ABSOLUTE)
  if(NOT IS_DIRECTORY "${_device_root}/usr/include")
    message(FATAL_ERROR "DEVICE_ROOT ${_device_root} is no root of the target: "
      "run scripts/make-device-root.sh, or name your own with -DDEVICE_ROOT=FOLDER")
  endif()
  set(CMAKE_SYSROOT "${_device_root}")
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L "${_device_root}")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
