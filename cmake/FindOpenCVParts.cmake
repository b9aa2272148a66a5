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
mark_as_advanced(${_parts_vars})
