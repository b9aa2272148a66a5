# Run by the installation: keeps a copy of the unstripped `program` as `symbols`/qrcode-BUILD_ID.
set(ENV{LC_ALL} C.UTF-8) # readelf's words are looked at
execute_process(COMMAND "${readelf}" -n "${program}" OUTPUT_VARIABLE notes ERROR_VARIABLE error)
if(notes MATCHES "Build ID: ([0-9a-f]+)")
  file(MAKE_DIRECTORY "${symbols}")
  file(COPY_FILE "${program}" "${symbols}/qrcode-${CMAKE_MATCH_1}" ONLY_IF_DIFFERENT)
  message(STATUS "Symbols: ${symbols}/qrcode-${CMAKE_MATCH_1}")
else()
  message(WARNING "No symbols kept: \"${readelf}\" finds no build id in ${program}: ${error}")
endif()
