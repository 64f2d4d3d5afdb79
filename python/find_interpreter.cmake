# Finds the Python interpreter the package is built, installed and tested
# with, and records what the PYTHON part lacks. Included from the top-level
# CMakeLists.txt, in its scope.
#
# The interpreter must import numpy, create virtual environments with pip
# (venv and ensurepip) and build a wheel offline (setuptools and wheel).
# Debian's own /usr/bin/python3 comes first: an interpreter that merely
# comes first in PATH (pyenv, conda) usually sees none of Debian's packages.

set(KSI_PYTHON_INTERPRETER "" CACHE FILEPATH
  "Python interpreter for the Python package (empty: /usr/bin/python3, else the first python3 in PATH with all it needs)")

set(_ksi_python_modules numpy venv ensurepip setuptools wheel)
set(_ksi_python_packages python3-numpy python3-venv python3-venv python3-setuptools python3-wheel)

# Sets missing_var to the Debian packages of the modules `interpreter` lacks.
function(_ksi_python_missing_packages interpreter missing_var)
  set(missing "")
  foreach(module package IN ZIP_LISTS _ksi_python_modules _ksi_python_packages)
    execute_process(COMMAND ${interpreter} -c "import ${module}"
      RESULT_VARIABLE result OUTPUT_QUIET ERROR_QUIET)
    if(NOT result EQUAL 0 AND NOT package IN_LIST missing)
      list(APPEND missing ${package})
    endif()
  endforeach()
  set(${missing_var} "${missing}" PARENT_SCOPE)
endfunction()

if(KSI_PYTHON_INTERPRETER)
  set(_ksi_python_candidates ${KSI_PYTHON_INTERPRETER})
else()
  find_program(KSI_PYTHON3_IN_PATH NAMES python3)
  mark_as_advanced(KSI_PYTHON3_IN_PATH)
  set(_ksi_python_candidates /usr/bin/python3 ${KSI_PYTHON3_IN_PATH})
  list(REMOVE_DUPLICATES _ksi_python_candidates)
endif()

set(KSI_PYTHON_FOUND FALSE)
set(_ksi_python_problems "")
foreach(_ksi_python_candidate IN LISTS _ksi_python_candidates)
  if(NOT EXISTS ${_ksi_python_candidate})
    list(APPEND _ksi_python_problems "there is no ${_ksi_python_candidate}")
    continue()
  endif()
  _ksi_python_missing_packages(${_ksi_python_candidate} _ksi_candidate_missing)
  if(NOT _ksi_candidate_missing)
    set(KSI_PYTHON_FOUND TRUE)
    set(KSI_PYTHON ${_ksi_python_candidate})
    break()
  endif()
  string(REPLACE ";" " " _ksi_candidate_missing "${_ksi_candidate_missing}")
  list(APPEND _ksi_python_problems "${_ksi_python_candidate} lacks ${_ksi_candidate_missing}")
endforeach()
if(NOT _ksi_python_problems)
  set(_ksi_python_problems "no python3 found")
endif()
list(JOIN _ksi_python_problems ", " _ksi_python_problem)
ksi_part_requires(PYTHON KSI_PYTHON_FOUND
  "Python 3 with numpy, venv, setuptools and wheel (${_ksi_python_problem}; apt-get install python3-numpy python3-venv python3-setuptools python3-wheel)")
if(KSI_PYTHON_ENABLED)
  message(STATUS "Python package: interpreter ${KSI_PYTHON}")
endif()
