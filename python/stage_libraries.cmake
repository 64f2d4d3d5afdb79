# Copies the built library into the staged package, under its plain file name
# and with symbolic links resolved (a versioned library is a chain of links),
# and the companion extension beside it when the build has one. Leftovers of
# earlier pip runs are removed, so that no stale file reaches a wheel.
#   cmake -D library=<built library> -D package=<staged package> -P stage_libraries.cmake

get_filename_component(library_dir ${library} DIRECTORY)
set(target_dir ${package}/ksi_polarization)

execute_process(COMMAND ${CMAKE_COMMAND} -E copy_if_different
    ${library} ${target_dir}/libkestrion_ksi_polarization_processor.so
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cannot copy ${library} into ${target_dir}")
endif()

set(extension libkestrion_ksi_polarization_processor_vector_avx2.so)
if(EXISTS ${library_dir}/${extension})
  execute_process(COMMAND ${CMAKE_COMMAND} -E copy_if_different
      ${library_dir}/${extension} ${target_dir}/${extension}
    RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "cannot copy ${library_dir}/${extension} into ${target_dir}")
  endif()
else()
  file(REMOVE ${target_dir}/${extension})
endif()

file(GLOB pip_leftovers ${package}/*.egg-info)
file(REMOVE_RECURSE ${package}/build ${pip_leftovers})
