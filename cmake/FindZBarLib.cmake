# zbar, as the target ZBar::zbar.
include(FindPackageHandleStandardArgs)

find_path(ZBarLib_INCLUDE_DIR zbar.h)
find_library(ZBarLib_LIBRARY zbar)
find_package_handle_standard_args(ZBarLib REQUIRED_VARS ZBarLib_INCLUDE_DIR ZBarLib_LIBRARY)

if(ZBarLib_FOUND AND NOT TARGET ZBar::zbar)
  add_library(ZBar::zbar UNKNOWN IMPORTED)
  set_target_properties(ZBar::zbar PROPERTIES
    IMPORTED_LOCATION "${ZBarLib_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${ZBarLib_INCLUDE_DIR}")
endif()
mark_as_advanced(ZBarLib_INCLUDE_DIR ZBarLib_LIBRARY)
