# Where Debian expects things. Components: `runtime` (library, program), `development`
# (headers, the layer for applications as an archive, CMake package, pkg-config files) and, where it is
# built, `gstreamer` (the plug-in). The
# library's file name carries no version: programs load it by exactly this name.
if(NOT DEFINED CMAKE_INSTALL_LIBDIR
   AND EXISTS /etc/debian_version
   AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE})
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/veldrane_mrv_polarization)

# None where help2man is missing. With Ninja neither `cmake --install` nor `cpack` builds anything,
# and a build of the program alone leaves no pages, or those of an older program.
get_property(manual_pages GLOBAL PROPERTY veldrane_manual_pages)
foreach(page IN LISTS manual_pages)
  install(
    CODE "if(NOT EXISTS \"${page}\" OR NOT \"${page}\" IS_NEWER_THAN \"$<TARGET_FILE:veldrane-polarize>\")
  message(FATAL_ERROR \"The manual page ${page} is missing or older than the program; build all of it \"
                    \"first: cmake --build ${PROJECT_BINARY_DIR}\")
endif()"
    COMPONENT runtime)
endforeach()

install(
  TARGETS polarization_processor_vector_avx2
  EXPORT veldrane_mrv_polarization
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
  INCLUDES
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET veldrane-polarize)
  install(TARGETS veldrane-polarize RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
  # What the built program needs (see tools/CMakeLists.txt) would lead nowhere.
  install(
    CODE "file(RPATH_REMOVE FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/veldrane-polarize\")"
    COMPONENT runtime)
  install(
    FILES ${PROJECT_SOURCE_DIR}/tools/veldrane-polarize.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME veldrane-polarize
    COMPONENT runtime)
  if(manual_pages)
    install(
      FILES ${manual_pages}
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
      COMPONENT runtime)
  endif()
endif()
if(TARGET gstveldranepolarization)
  set(gstreamer_dir ${CMAKE_INSTALL_LIBDIR}/gstreamer-1.0)
  install(TARGETS gstveldranepolarization LIBRARY DESTINATION ${gstreamer_dir} COMPONENT gstreamer)
  # As above, for gstreamer/CMakeLists.txt.
  install(
    CODE "file(RPATH_REMOVE FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${gstreamer_dir}/libgstveldranepolarization.so\")"
    COMPONENT gstreamer)
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

# Archives for applications, with an export of their own: whoever wants the processor alone need not
# have what a layer depends on.
# usage: install_layer(NAME FOLDER...), of the libraries polarization_FOLDER
function(install_layer name)
  if(NOT TARGET polarization_${name})
    return()
  endif()
  list(TRANSFORM ARGN PREPEND polarization_ OUTPUT_VARIABLE libraries)
  list(TRANSFORM ARGN REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/\\1/include/" OUTPUT_VARIABLE headers)
  set(export veldrane_mrv_polarization_${name})
  install(TARGETS ${libraries} EXPORT ${export} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
                                                        COMPONENT development)
  install(
    DIRECTORY ${headers}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development
    FILES_MATCHING
    PATTERN "*.hpp")
  install(
    EXPORT ${export}
    NAMESPACE veldrane_mrv::
    FILE veldrane_mrv_polarization-${name}-targets.cmake
    DESTINATION ${package_dir}
    COMPONENT development)
endfunction()
install_layer(client client pictures simulation)
install_layer(recordings recordings)
install_layer(live live)

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/veldrane_mrv_polarization-config.cmake.in
  ${PROJECT_BINARY_DIR}/veldrane_mrv_polarization-config.cmake INSTALL_DESTINATION ${package_dir}
  NO_SET_AND_CHECK_MACRO)
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
set(pkgconfig_names veldrane_mrv_polarization)
if(TARGET polarization_client)
  list(APPEND pkgconfig_names veldrane_mrv_polarization_client)
endif()
if(TARGET polarization_recordings)
  list(APPEND pkgconfig_names veldrane_mrv_polarization_recordings)
endif()
if(TARGET polarization_live)
  list(APPEND pkgconfig_names veldrane_mrv_polarization_live)
endif()
foreach(name IN LISTS pkgconfig_names)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(
    FILES ${PROJECT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
endforeach()
