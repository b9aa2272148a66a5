# Ends; what was found is forgotten, or it would be found again when the right one is there.
function(refuse_archives)
  foreach(variable core_LIBRARY imgproc_LIBRARY imgcodecs_LIBRARY jpeg_LIBRARY INCLUDE_DIR)
    unset(OpenCVParts_${variable} CACHE)
  endforeach()
  unset(ZBarLib_LIBRARY CACHE)
  unset(ZBarLib_INCLUDE_DIR CACHE)
  message(FATAL_ERROR ${ARGN})
endfunction()

# What may go into the terminal's one file: archives, and with the float ABI that it has. The machine's own
# libraries would be found otherwise, and a wrong float ABI be told once for every object, when linking.
foreach(_library ${OpenCVParts_core_LIBRARY} ${OpenCVParts_imgproc_LIBRARY}
    ${OpenCVParts_imgcodecs_LIBRARY} ${OpenCVParts_jpeg_LIBRARY} ${ZBarLib_LIBRARY})
  if(NOT _library MATCHES "\\.a$")
    refuse_archives("${_library} is no archive; scripts/device-libs.sh VARIANT makes those")
  endif()
  if(DEVICE_FLOAT_ABI)
    execute_process(COMMAND "${CMAKE_READELF}" -A "${_library}" OUTPUT_VARIABLE _attributes ERROR_QUIET)
    set(_is soft)
    set(_wanted soft) # softfp calls in the same way
    if(_attributes MATCHES "Tag_ABI_VFP_args: VFP registers")
      set(_is hard)
    endif()
    if(DEVICE_FLOAT_ABI STREQUAL "hard")
      set(_wanted hard)
    endif()
    if(NOT _is STREQUAL _wanted)
      refuse_archives("${_library} is for ${_is} float calls, DEVICE_FLOAT_ABI is "
        "${DEVICE_FLOAT_ABI}: all libraries must have the same float ABI")
    endif()
  endif()
endforeach()
