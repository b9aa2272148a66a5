# The terminal's processor: ARM Cortex-A7 with NEON and hard float, under Linux. Defaults to Debian's
# cross compiler. A vendor's toolchain brings its own; each of these can be given with -D:
#   DEVICE_COMPILER_PREFIX  what the compilers' names begin with, with its folder where that is not on
#                           the PATH: /opt/toolchain/bin/arm-linux-
#   DEVICE_FLOAT_ABI        hard, softfp or soft
#   DEVICE_CPU_FLAGS        processor and floating-point unit
#   DEVICE_ROOT             folder that holds usr/include and usr/lib of the target, C library in it;
#                           empty to leave the toolchain its own
#   DEVICE_STAGING          folders (separated by ";") with OpenCV and zbar, where those are not in
#                           the root
# A build folder keeps what it was first configured with: use another one for other values.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(DEVICE_COMPILER_PREFIX "arm-linux-gnueabihf-" CACHE STRING "What the compilers' names begin with")
set(DEVICE_FLOAT_ABI "hard" CACHE STRING "Float ABI: hard, softfp or soft")
set(DEVICE_CPU_FLAGS "-mcpu=cortex-a7 -mfpu=neon-vfpv4" CACHE STRING "Processor flags")
set(DEVICE_ROOT "" CACHE PATH "Root of the target, where the toolchain has none")
set(DEVICE_STAGING "" CACHE STRING "Folders with OpenCV and zbar, outside the root")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
  DEVICE_COMPILER_PREFIX DEVICE_FLOAT_ABI DEVICE_CPU_FLAGS DEVICE_ROOT DEVICE_STAGING)

set(_device_values "${DEVICE_COMPILER_PREFIX} ${DEVICE_FLOAT_ABI} ${DEVICE_CPU_FLAGS} ${DEVICE_ROOT}")
if(DEFINED CACHE{DEVICE_CONFIGURED} AND NOT DEVICE_CONFIGURED STREQUAL _device_values)
  foreach(value COMPILER_PREFIX FLOAT_ABI CPU_FLAGS ROOT STAGING)
    unset(DEVICE_${value} CACHE) # or the folder would keep the refused ones
  endforeach()
  message(FATAL_ERROR "This build folder was configured for \"${DEVICE_CONFIGURED}\", not for "
    "\"${_device_values}\": use another one (-B FOLDER)")
endif()
set(DEVICE_CONFIGURED "${_device_values}" CACHE INTERNAL "What the folder was configured for")

set(CMAKE_C_COMPILER "${DEVICE_COMPILER_PREFIX}gcc")
set(CMAKE_CXX_COMPILER "${DEVICE_COMPILER_PREFIX}g++")
foreach(_language C CXX ASM)
  set(CMAKE_${_language}_FLAGS_INIT "${DEVICE_CPU_FLAGS} -mfloat-abi=${DEVICE_FLOAT_ABI}")
endforeach()
if(DEVICE_FLOAT_ABI STREQUAL "hard")
  set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
else()
  set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabi)
endif()

if(DEVICE_ROOT)
  get_filename_component(_device_root "${DEVICE_ROOT}" ABSOLUTE)
  if(NOT IS_DIRECTORY "${_device_root}/usr/include")
    message(FATAL_ERROR "DEVICE_ROOT ${_device_root} is no root of the target: "
      "it wants usr/include and usr/lib in it")
  endif()
  set(CMAKE_SYSROOT "${_device_root}")
else()
  execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=libc.so.6
    OUTPUT_VARIABLE _device_libc OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(IS_ABSOLUTE "${_device_libc}")
    get_filename_component(_device_root "${_device_libc}" REALPATH)
    string(REGEX REPLACE "(/usr)?/lib/([^/]+/)?[^/]+$" "" _device_root "${_device_root}")
  else() # the bare name: another C library, or none
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-sysroot
      OUTPUT_VARIABLE _device_root OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  endif()
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L "${_device_root}")
set(DEVICE_LIBC_ROOT "${_device_root}" CACHE INTERNAL "What an emulator is told as the root")
set(CMAKE_FIND_ROOT_PATH ${DEVICE_STAGING} ${_device_root})
# What the staged libraries themselves need is looked for beside them.
foreach(_folder IN LISTS DEVICE_STAGING)
  if(NOT IS_DIRECTORY "${_folder}")
    message(FATAL_ERROR "DEVICE_STAGING: no folder ${_folder}; scripts/device-libs.sh VARIANT makes "
      "build/libs-VARIANT")
  endif()
  foreach(_lib usr/lib/${CMAKE_LIBRARY_ARCHITECTURE} lib/${CMAKE_LIBRARY_ARCHITECTURE} usr/lib lib)
    string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " \"-Wl,-rpath-link,${_folder}/${_lib}\"")
  endforeach()
endforeach()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
