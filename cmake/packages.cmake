# Debian packages, runtime and development, and one for GStreamer where it is built: `cpack` in a release build.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR Veldrane)
set(CPACK_PACKAGE_CONTACT "Veldrane MRV polarization maintainers <maintainers@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libveldrane-mrv-polarization)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "Turns frames of sensors with a 2x2 mosaic of linear polarisers into planes of intensity, linear
Stokes quantities, angle and degree of linear polarisation: shared library and program.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/packages/triggers)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
file(WRITE ${PROJECT_BINARY_DIR}/packages/triggers "activate-noawait ldconfig\n")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libveldrane-mrv-polarization-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "Headers, CMake package and pkg-config files of the shared library, and the layer for
applications, the one that reads recordings and the one for cameras as archives.")
set(package_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libveldrane-mrv-polarization (= ${package_version})")
# For the layers that read recordings and cameras alone. Debian's libaravis-dev lacks libusb-1.0-0-dev,
# which its own pkg-config file asks for.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "libpng-dev, libtiff-dev")
if(aravis_for_live)
  string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS ", libaravis-dev, libusb-1.0-0-dev, pkg-config")
endif()

set(package_components RUNTIME DEVELOPMENT)
if(TARGET gstveldranepolarization)
  list(APPEND CPACK_COMPONENTS_ALL gstreamer)
  list(APPEND package_components GSTREAMER)
  set(CPACK_DEBIAN_GSTREAMER_PACKAGE_NAME gstreamer1.0-veldrane-polarization)
  set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_GSTREAMER_DESCRIPTION
      "GStreamer plug-in for polarisation image sensors: its element turns raw frames into planes of
intensity, linear Stokes quantities, angle and degree of linear polarisation, or into pictures.")
  set(CPACK_DEBIAN_GSTREAMER_PACKAGE_DEPENDS
      "libveldrane-mrv-polarization (= ${package_version})")
  set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SHLIBDEPS ON)
  # The library of the other package, which none on this machine need have.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
endif()

# What Debian wants beside the files of any package: copyright and changelog, in these packages
# only.
string(TIMESTAMP package_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component IN LISTS package_components)
  string(TOLOWER ${component} component_name)
  set(package ${CPACK_DEBIAN_${component}_PACKAGE_NAME})
  set(changelog ${PROJECT_BINARY_DIR}/packages/${package}/changelog.Debian)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/packages/changelog.in ${changelog} @ONLY)
  execute_process(COMMAND gzip -9nkf ${changelog} COMMAND_ERROR_IS_FATAL ANY)
  install(
    FILES ${CMAKE_CURRENT_LIST_DIR}/packages/copyright ${changelog}.gz
    DESTINATION share/doc/${package}
    COMPONENT ${component_name} EXCLUDE_FROM_ALL)
endforeach()
include(CPack)
