# Where Debian expects things. Two components: `runtime` (library, program) and `development` (header,
# CMake package, pkg-config file). The library's file name carries no version: programs load it by
# exactly this name.
if(NOT DEFINED CMAKE_INSTALL_LIBDIR
   AND EXISTS /etc/debian_version
   AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE})
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/veldrane_mrv_polarization)

install(
  TARGETS polarization_processor_vector_avx2
  EXPORT veldrane_mrv_polarization
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
  INCLUDES
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET veldrane-polarize)
  install(TARGETS veldrane-polarize RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
endif()
install(
  FILES ${PROJECT_SOURCE_DIR}/include/veldrane_mrv_polarization_processor_vector_avx2.hpp
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development)
install(
  EXPORT veldrane_mrv_polarization
  NAMESPACE veldrane_mrv::
  FILE veldrane_mrv_polarization-targets.cmake
  DESTINATION ${package_dir}
  COMPONENT development)

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/veldrane_mrv_polarization-config.cmake.in
  ${PROJECT_BINARY_DIR}/veldrane_mrv_polarization-config.cmake INSTALL_DESTINATION ${package_dir}
  NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/veldrane_mrv_polarization-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/veldrane_mrv_polarization-config.cmake
        ${PROJECT_BINARY_DIR}/veldrane_mrv_polarization-config-version.cmake
  DESTINATION ${package_dir}
  COMPONENT development)

# The prefix is found from the file's own place, so that an installed tree can be moved.
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/veldrane_mrv_polarization.pc.in
               ${PROJECT_BINARY_DIR}/veldrane_mrv_polarization.pc @ONLY)
install(
  FILES ${PROJECT_BINARY_DIR}/veldrane_mrv_polarization.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)
