# Parts of the project beyond the library and its extension (tests,
# benchmarks, the command-line tool, the Python package, ...) are optional.
# Each has a cache variable KSI_BUILD_<NAME>:
#   AUTO  built when its dependencies are found, else left out with one
#         status line that says what is missing and how to install it;
#   ON    required: a missing dependency stops the configuration;
#   OFF   not built.
#
#   ksi_optional_part(CLI "the command-line tool ksi-polarization")
#   if(KSI_CLI_WANTED)
#     find_package(CLI11 CONFIG QUIET)
#     ksi_part_requires(CLI CLI11_FOUND "CLI11 (apt-get install libcli11-dev)")
#   endif()
#   if(KSI_CLI_ENABLED)
#     add_subdirectory(cli)
#   endif()

function(ksi_optional_part name description)
  set(KSI_BUILD_${name} AUTO CACHE STRING "Build ${description}: AUTO, ON or OFF")
  set_property(CACHE KSI_BUILD_${name} PROPERTY STRINGS AUTO ON OFF)
  string(TOUPPER "${KSI_BUILD_${name}}" choice)
  if(choice MATCHES "^(ON|TRUE|YES|Y|1)$")
    set(choice ON)
  elseif(choice MATCHES "^(OFF|FALSE|NO|N|0)$")
    set(choice OFF)
  elseif(NOT choice STREQUAL "AUTO")
    message(FATAL_ERROR "KSI_BUILD_${name} is '${KSI_BUILD_${name}}': use AUTO, ON or OFF")
  endif()
  set_property(GLOBAL PROPERTY KSI_PART_${name}_CHOICE "${choice}")
  set_property(GLOBAL PROPERTY KSI_PART_${name}_DESCRIPTION "${description}")
  if(choice STREQUAL "OFF")
    message(STATUS "Not building ${description} (KSI_BUILD_${name}=OFF)")
    set(KSI_${name}_WANTED OFF PARENT_SCOPE)
    set(KSI_${name}_ENABLED OFF PARENT_SCOPE)
  else()
    set(KSI_${name}_WANTED ON PARENT_SCOPE)
    set(KSI_${name}_ENABLED ON PARENT_SCOPE)
  endif()
endfunction()

# Records one dependency of a wanted part: `found` names a variable that is
# true when the dependency is there; `missing` says what it is and how to
# install it.
function(ksi_part_requires name found missing)
  if(NOT KSI_${name}_ENABLED OR ${found})
    return()
  endif()
  get_property(choice GLOBAL PROPERTY KSI_PART_${name}_CHOICE)
  get_property(description GLOBAL PROPERTY KSI_PART_${name}_DESCRIPTION)
  if(choice STREQUAL "ON")
    message(FATAL_ERROR "KSI_BUILD_${name}=ON, but ${description} needs ${missing}")
  endif()
  message(STATUS "Not building ${description}: missing ${missing}")
  set(KSI_${name}_ENABLED OFF PARENT_SCOPE)
endfunction()
