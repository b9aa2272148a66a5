# libqrencode, as the target QREncode::qrencode.
include(FindPackageHandleStandardArgs)

find_path(QREncode_INCLUDE_DIR qrencode.h)
find_library(QREncode_LIBRARY qrencode)
find_package_handle_standard_args(QREncode REQUIRED_VARS QREncode_INCLUDE_DIR QREncode_LIBRARY)

if(QREncode_FOUND AND NOT TARGET QREncode::qrencode)
  add_library(QREncode::qrencode UNKNOWN IMPORTED)
  set_target_properties(QREncode::qrencode PROPERTIES
    IMPORTED_LOCATION "${QREncode_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${QREncode_INCLUDE_DIR}")
endif()
mark_as_advanced(QREncode_INCLUDE_DIR QREncode_LIBRARY)
