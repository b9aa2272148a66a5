# How the terminal's one file is compiled and linked, and each library in it. Every project that has a
# part in it includes this at its project(), by CMAKE_PROJECT_INCLUDE, and is built as Release.
#   ONE_FILE_OPTIMIZE  this part's optimisation, -O2 by default
#   ONE_FILE_SOURCES   folder whose path is cut from file names in the program
set(QRCODE_ONE_FILE TRUE)
set(QRCODE_OVER_ARCHIVES TRUE)
set(ONE_FILE_OPTIMIZE "-O2" CACHE STRING "Optimisation")
set(ONE_FILE_SOURCES "" CACHE PATH "Cut from file names")

# -g1 goes to the debugger's file, not to the terminal. Sections are collected when linking.
set(_flags "${ONE_FILE_OPTIMIZE} -g1 -ffunction-sections -fdata-sections -fPIE")
string(APPEND _flags " -fstack-protector-strong -D_FORTIFY_SOURCE=2")
if(ONE_FILE_SOURCES)
  string(APPEND _flags " \"-ffile-prefix-map=${ONE_FILE_SOURCES}=.\"") # quoted for a path with a blank
endif()
foreach(_language C CXX)
  set(CMAKE_${_language}_FLAGS_RELEASE "${_flags}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_RELEASE
  "-pie -static-libstdc++ -static-libgcc -Wl,--gc-sections,--as-needed,-z,relro,-z,now,-z,noexecstack")
