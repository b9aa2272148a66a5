# As arm-linux.cmake, the same processor with the soft-float calling convention, as many vendors'
# toolchains have it; by default with Debian's compiler for that.
set(DEVICE_COMPILER_PREFIX "arm-linux-gnueabi-" CACHE STRING "What the compilers' names begin with")
set(DEVICE_FLOAT_ABI "softfp" CACHE STRING "Float ABI: hard, softfp or soft")
# That compiler takes no Thumb code by itself, which is shorter.
set(DEVICE_CPU_FLAGS "-mcpu=cortex-a7 -mfpu=neon-vfpv4 -mthumb" CACHE STRING "Processor flags")
include("${CMAKE_CURRENT_LIST_DIR}/arm-linux.cmake")
