# Checks that the extension needs no shared object beyond the C++ standard
# library, the C library and the loader: it must load wherever the library
# itself loads.
#
#   cmake -DLIBRARY=<path to .so> [-DREADELF=<readelf>] -P check_linked_libraries.cmake

if(NOT LIBRARY)
  message(FATAL_ERROR "LIBRARY is not set")
endif()
if(NOT READELF)
  set(READELF readelf)
endif()
execute_process(
  COMMAND ${READELF} -d ${LIBRARY}
  OUTPUT_VARIABLE listing
  ERROR_VARIABLE errors
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${READELF} failed on ${LIBRARY}: ${errors}")
endif()

# The sanitizer runtimes are there only in the instrumented builds.
set(allowed "^(libstdc\\+\\+|libm|libgcc_s|libc|ld-linux-x86-64|libasan|libubsan|libclang_rt\\.asan-x86_64)\\.so")
string(REGEX MATCHALL "Shared library: \\[[^]]+\\]" needed "${listing}")
set(offending "")
foreach(entry IN LISTS needed)
  string(REGEX REPLACE "Shared library: \\[([^]]+)\\]" "\\1" name "${entry}")
  if(NOT name MATCHES "${allowed}")
    list(APPEND offending "${name}")
  endif()
endforeach()
if(offending)
  message(FATAL_ERROR "${LIBRARY} needs libraries beyond the standard ones: ${offending}")
endif()
message(STATUS "${LIBRARY} needs only: ${needed}")
