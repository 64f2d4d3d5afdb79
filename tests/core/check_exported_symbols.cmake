# Checks that the shared object defines exactly the seven exported
# kl_polarization_processor_ functions in its dynamic symbol table, and
# nothing else; or exactly the functions that EXPECTED lists (the AVX2
# extension's three).
#
#   cmake -DLIBRARY=<path to .so> [-DNM=<nm>] [-DEXPECTED=<a;b;...>] -P check_exported_symbols.cmake

if(NOT LIBRARY)
  message(FATAL_ERROR "LIBRARY is not set")
endif()
if(NOT NM)
  set(NM nm)
endif()

execute_process(
  COMMAND ${NM} -D --defined-only ${LIBRARY}
  OUTPUT_VARIABLE listing
  ERROR_VARIABLE errors
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIBRARY}: ${errors}")
endif()

set(expected
  kl_polarization_processor_create_polarization_processor
  kl_polarization_processor_destroy_polarization_processor
  kl_polarization_processor_get_custom_calibration_coefficients
  kl_polarization_processor_module_initialize
  kl_polarization_processor_module_terminate
  kl_polarization_processor_set_custom_calibration_coefficients
  kl_polarization_processor_transform)
if(EXPECTED)
  set(expected ${EXPECTED})
endif()

set(found "")
set(function_types "")
string(REPLACE "\n" ";" lines "${listing}")
foreach(line IN LISTS lines)
  string(STRIP "${line}" line)
  if(line STREQUAL "")
    continue()
  endif()
  # "<address> <type> <name>[@version]"
  if(NOT line MATCHES "^[0-9a-fA-F]+ ([A-Za-z]) ([^ @]+)")
    message(FATAL_ERROR "unexpected nm line: '${line}'")
  endif()
  set(type "${CMAKE_MATCH_1}")
  set(name "${CMAKE_MATCH_2}")
  # An anonymous version node from the linker script shows as an absolute
  # symbol named after no function; it is not code or data.
  if(type STREQUAL "A")
    continue()
  endif()
  list(APPEND found "${name}")
  if(NOT type STREQUAL "T")
    message(SEND_ERROR "${name} is exported with type ${type}, expected a function (T)")
  endif()
endforeach()

list(SORT found)
list(SORT expected)
if(NOT found STREQUAL expected)
  string(REPLACE ";" "\n  " found_text "${found}")
  string(REPLACE ";" "\n  " expected_text "${expected}")
  message(FATAL_ERROR "exported symbols differ.\nfound:\n  ${found_text}\nexpected:\n  ${expected_text}")
endif()
list(LENGTH expected count)
message(STATUS "exactly the ${count} expected functions are exported")
