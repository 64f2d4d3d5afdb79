# Installs the build into PREFIX and runs the installed tool's `info` with no
# library path set: it must load the library installed beside it, not the
# one in the build tree.
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}
  RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cmake --install failed: ${result}")
endif()
set(ENV{LD_LIBRARY_PATH} "")
execute_process(COMMAND ${PREFIX}/${BINDIR}/ksi-polarization info
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the installed ksi-polarization info failed (${result}): ${errors}")
endif()
string(FIND "${output}" "${PREFIX}/${LIBDIR}/libkestrion_ksi_polarization_processor.so\n" found)
if(found EQUAL -1)
  message(FATAL_ERROR "the installed tool did not load the installed library:\n${output}")
endif()
file(REMOVE_RECURSE ${PREFIX})
message(STATUS "installed tool uses ${PREFIX}/${LIBDIR}")
