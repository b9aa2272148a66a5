# How everything that a stranger's picture passes through is compiled to be fuzzed: the libraries, the
# service and the fuzz targets. Each project of these includes this at its project(), by
# CMAKE_PROJECT_INCLUDE, and is built as Release, with clang.
#   SANITIZED_COVERAGE  count the lines that are reached, for llvm-cov, in place of looking for faults
#   ONE_FILE_SOURCES    folder whose path is cut from file names
set(QRCODE_OVER_ARCHIVES TRUE)
option(SANITIZED_COVERAGE "Count lines" OFF)
set(ONE_FILE_SOURCES "" CACHE PATH "Cut from file names")

set(_flags "-gline-tables-only -fno-omit-frame-pointer -fsanitize=fuzzer-no-link")
if(SANITIZED_COVERAGE)
  string(APPEND _flags " -fprofile-instr-generate -fcoverage-mapping")
else()
  # "function" is left out: OpenCV calls by pointers to functions of slightly other parameters all over.
  string(APPEND _flags ",address,undefined -fno-sanitize=function -fno-sanitize-recover=all"
    " -D_GLIBCXX_ASSERTIONS")
endif()
if(ONE_FILE_SOURCES)
  string(APPEND _flags " \"-ffile-prefix-map=${ONE_FILE_SOURCES}=.\"") # quoted for a path with a blank
endif()
# The files that a reading spends its time in get their level from cmake/opencv-files.cmake. The rest of OpenCV stays
# at -O0: at -O1 one of them takes six minutes. Each module of OpenCV's is a project too; the outermost counts.
if(CMAKE_PROJECT_NAME STREQUAL "OpenCV")
  string(PREPEND _flags "-O0 ")
else()
  string(PREPEND _flags "-O2 ")
endif()
if(CMAKE_PROJECT_NAME STREQUAL "zbar" OR CMAKE_PROJECT_NAME STREQUAL "OpenCV")
  # Tracing comparisons in these finds no new pictures and takes two thirds of the time.
  string(APPEND _flags " -fno-sanitize-coverage=trace-cmp")
endif()
foreach(_language C CXX)
  set(CMAKE_${_language}_FLAGS_RELEASE "${_flags}")
endforeach()
