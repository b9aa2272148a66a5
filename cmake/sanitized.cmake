# How everything that a stranger's picture passes through is compiled to be fuzzed: the libraries, the
# service and the fuzz targets. Each project of these includes this at its project(), by
# CMAKE_PROJECT_INCLUDE, and is built as Release, with clang.
#   SANITIZED_COVERAGE  count the lines that are reached, for llvm-cov, in place of looking for faults
#   ONE_FILE_SOURCES    folder whose path is cut from file names
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
# Of OpenCV few files are called, cmake/opencv-files.cmake names those; some of the others take six minutes at -O1.
# Each module of OpenCV's is a project too: what counts is the outermost.
if(CMAKE_PROJECT_NAME STREQUAL "OpenCV")
  string(PREPEND _flags "-O0 ")
else()
  string(PREPEND _flags "-O2 ")
endif()
if(CMAKE_PROJECT_NAME STREQUAL "zbar" OR CMAKE_PROJECT_NAME STREQUAL "OpenCV")
  # What widths and pixels are compared with leads to no new picture, and takes two thirds of the time.
  string(APPEND _flags " -fno-sanitize-coverage=trace-cmp")
endif()
foreach(_language C CXX)
  set(CMAKE_${_language}_FLAGS_RELEASE "${_flags}")
endforeach()
