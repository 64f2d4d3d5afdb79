# Creates a new virtual environment that sees the system's site packages
# (numpy, pytest) and installs the staged Python package into it with pip,
# offline.
#   cmake -D python=<interpreter> -D venv=<directory> -D package=<staged package> -P install_into_fresh_venv.cmake

file(REMOVE_RECURSE ${venv})
execute_process(COMMAND ${python} -m venv --system-site-packages ${venv} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${python} -m venv --system-site-packages ${venv} failed")
endif()
execute_process(
  COMMAND ${venv}/bin/python -m pip install --no-build-isolation --no-index --no-cache-dir
    --disable-pip-version-check ${package}
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "pip could not install ${package} into ${venv}")
endif()
