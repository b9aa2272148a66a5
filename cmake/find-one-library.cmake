# find_one_library(NAME HEADER LIBRARY): a find module's body for a library of one header and one
# file, as the target NAME::LIBRARY. A macro: the result is the find module's.
include(FindPackageHandleStandardArgs)

macro(find_one_library name header library)
  find_path(${name}_INCLUDE_DIR ${header})
  find_library(${name}_LIBRARY ${library})
  find_package_handle_standard_args(${name} REQUIRED_VARS ${name}_INCLUDE_DIR ${name}_LIBRARY)
  if(${name}_FOUND AND NOT TARGET ${name}::${library})
    add_library(${name}::${library} UNKNOWN IMPORTED)
    set_target_properties(${name}::${library} PROPERTIES
      IMPORTED_LOCATION "${${name}_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${${name}_INCLUDE_DIR}")
  endif()
  mark_as_advanced(${name}_INCLUDE_DIR ${name}_LIBRARY)
endmacro()
