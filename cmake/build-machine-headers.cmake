# CLI11 and nlohmann-json for another target, from the build machine's headers: by links to their two
# folders alone. The folder that holds them there holds the build machine's C library too, which a
# cross compiler must not see.
set(_links "${CMAKE_BINARY_DIR}/build-machine-headers")
file(MAKE_DIRECTORY "${_links}")
foreach(_part CLI11::CLI11=CLI nlohmann_json::nlohmann_json=nlohmann)
  string(REPLACE "=" ";" _part ${_part})
  list(GET _part 0 _target)
  list(GET _part 1 _folder)
  get_target_property(_include ${_target} INTERFACE_INCLUDE_DIRECTORIES)
  file(CREATE_LINK "${_include}/${_folder}" "${_links}/${_folder}" SYMBOLIC)
  set_target_properties(${_target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${_links}")
endforeach()
