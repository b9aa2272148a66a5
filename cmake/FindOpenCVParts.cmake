# The three OpenCV modules that the service links, as targets of their own: OpenCV::core,
# OpenCV::imgproc, OpenCV::imgcodecs. Their -dev packages suffice; OpenCV's own CMake files, which
# come with all its modules, are not needed.
include(FindPackageHandleStandardArgs)

find_path(OpenCVParts_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
set(_parts_vars OpenCVParts_INCLUDE_DIR)
foreach(part core imgproc imgcodecs)
  find_library(OpenCVParts_${part}_LIBRARY opencv_${part})
  list(APPEND _parts_vars OpenCVParts_${part}_LIBRARY)
endforeach()
# An archive does not tell what it needs itself.
set(_archives OFF)
if(OpenCVParts_core_LIBRARY MATCHES "\\.a$")
  set(_archives ON)
  get_filename_component(_beside "${OpenCVParts_core_LIBRARY}" DIRECTORY)
  find_library(OpenCVParts_jpeg_LIBRARY jpeg HINTS "${_beside}")
  list(APPEND _parts_vars OpenCVParts_jpeg_LIBRARY)
endif()
find_package_handle_standard_args(OpenCVParts REQUIRED_VARS ${_parts_vars})

if(OpenCVParts_FOUND)
  foreach(part core imgproc imgcodecs)
    if(NOT TARGET OpenCV::${part})
      add_library(OpenCV::${part} UNKNOWN IMPORTED)
      set_target_properties(OpenCV::${part} PROPERTIES
        IMPORTED_LOCATION "${OpenCVParts_${part}_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${OpenCVParts_INCLUDE_DIR}")
    endif()
  endforeach()
  set_property(TARGET OpenCV::imgproc APPEND PROPERTY INTERFACE_LINK_LIBRARIES OpenCV::core)
  set_property(TARGET OpenCV::imgcodecs APPEND PROPERTY INTERFACE_LINK_LIBRARIES OpenCV::imgproc)
endif()
if(OpenCVParts_FOUND AND _archives)
  find_package(Threads REQUIRED)
  set_property(TARGET OpenCV::core APPEND PROPERTY INTERFACE_LINK_LIBRARIES
    Threads::Threads ${CMAKE_DL_LIBS})
  set_property(TARGET OpenCV::imgcodecs APPEND PROPERTY INTERFACE_LINK_LIBRARIES
    ${OpenCVParts_jpeg_LIBRARY})
endif()
mark_as_advanced(${_parts_vars})
