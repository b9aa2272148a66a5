# OpenCV's files are compiled for size, but those that a reading spends its time in for speed; counted on ARM,
# -O3 brings something in three of these and costs 100 KB in the others. Included at OpenCV's project(), by
# CMAKE_PROJECT_OpenCV_INCLUDE; what is named here counts in whichever module it is.
set(ONE_FILE_O3 color_rgb imgwarp utils)
set(ONE_FILE_O2 copy filter grfmt_jpeg morph smooth thresh)

function(one_file_speed)
  foreach(level O2 O3)
    list(JOIN ONE_FILE_${level} "|" names)
    foreach(module core imgproc imgcodecs)
      get_target_property(sources opencv_${module} SOURCES)
      # With a processor's name between for code that is chosen at the start: filter.avx2.cpp.
      list(FILTER sources INCLUDE REGEX "/(${names})(\\.[a-z0-9_]+)?\\.cpp$")
      if(sources)
        set_source_files_properties(${sources} TARGET_DIRECTORY opencv_${module}
          PROPERTIES COMPILE_OPTIONS -${level})
      endif()
    endforeach()
  endforeach()
endfunction()
cmake_language(DEFER CALL one_file_speed) # when the modules are there

# Without it OpenCV takes itself for a debug build, and says on standard output what backends it has.
add_compile_definitions(NDEBUG)
