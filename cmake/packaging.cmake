# What `cmake --install` puts under a prefix, and the Debian package made of
# the same files by `cpack -G DEB`:
#   lib/libkestrion_ksi_polarization_processor.so.0 (+ .so.<version>, .so link)
#   include/kestrion_ksi_polarization_processor.h, .hpp
#   lib/cmake/kestrion_ksi_polarization_processor/ (package, targets, version)
#   lib/pkgconfig/kestrion_ksi_polarization_processor.pc
#   share/doc/kestrion_ksi_polarization_processor/README.md
# Parts that ship files (the extension beside the library in the same libdir,
# the command-line tool in bindir) install them from their own directories
# with COMPONENT runtime; the package takes every installed file.
include(CMakePackageConfigHelpers)

set(KSI_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kestrion_ksi_polarization_processor)
set(KSI_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS kestrion_ksi_polarization_processor
  EXPORT kestrion_ksi_polarization_processor_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(FILES
  ${PROJECT_SOURCE_DIR}/include/kestrion_ksi_polarization_processor.h
  ${PROJECT_SOURCE_DIR}/include/kestrion_ksi_polarization_processor.hpp
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)

install(EXPORT kestrion_ksi_polarization_processor_targets
  NAMESPACE kestrion::
  FILE kestrion_ksi_polarization_processor-targets.cmake
  DESTINATION ${KSI_CMAKE_PACKAGE_DIR}
  COMPONENT development)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/kestrion_ksi_polarization_processor-config.cmake.in
  ${PROJECT_BINARY_DIR}/kestrion_ksi_polarization_processor-config.cmake
  INSTALL_DESTINATION ${KSI_CMAKE_PACKAGE_DIR})
# One SONAME per major version, so every release with the same major version
# serves a request for an older one.
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/kestrion_ksi_polarization_processor-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/kestrion_ksi_polarization_processor-config.cmake
  ${PROJECT_BINARY_DIR}/kestrion_ksi_polarization_processor-config-version.cmake
  DESTINATION ${KSI_CMAKE_PACKAGE_DIR} COMPONENT development)

# The pkg-config file finds the prefix from its own place, so the same file
# serves `cmake --install --prefix` anywhere, the Debian package, and a tree
# unpacked elsewhere.
file(RELATIVE_PATH KSI_PREFIX_FROM_PKGCONFIG_DIR
  ${CMAKE_INSTALL_PREFIX}/${KSI_PKGCONFIG_DIR} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" KSI_PREFIX_FROM_PKGCONFIG_DIR "${KSI_PREFIX_FROM_PKGCONFIG_DIR}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/kestrion_ksi_polarization_processor.pc.in
  ${PROJECT_BINARY_DIR}/kestrion_ksi_polarization_processor.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kestrion_ksi_polarization_processor.pc
  DESTINATION ${KSI_PKGCONFIG_DIR} COMPONENT development)

# One package with every component: the library is small, and its users
# want the headers and the CMake and pkg-config files with it.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestrion-ksi-polarization-processor)
set(CPACK_PACKAGE_VENDOR Kestrion)
set(CPACK_PACKAGE_CONTACT "Kestrion")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Polarization images (S0, S1, S2, azimuth, DoLP) from raw polarization-mosaic camera frames")
set(CPACK_PACKAGE_DESCRIPTION
  "A C++ shared library with a C interface that turns raw 16-bit frames of cameras with a 0/45/90/135 degree polarizer mosaic into normalized Stokes parameters, S0, S1, S2, azimuth and degree of linear polarization images.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# Depends from the ELF files themselves (dpkg-shlibdeps), and a shlibs file
# with the ldconfig trigger for the library's SONAME.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
include(CPack)
