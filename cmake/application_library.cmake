# A library for applications, polarization_NAME: an archive whose headers stand in include/ beside its
# sources. Warnings and numeric flags end in it.
function(add_application_library name)
  set(library polarization_${name})
  add_library(${library} STATIC ${ARGN})
  add_library(veldrane_mrv::${library} ALIAS ${library})
  set_target_properties(${library} PROPERTIES OUTPUT_NAME veldrane_mrv_${library}
                                              POSITION_INDEPENDENT_CODE ON)
  target_compile_features(${library} PUBLIC cxx_std_20)
  target_include_directories(
    ${library} PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
                      $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${library} PRIVATE $<BUILD_INTERFACE:developer_warnings>
                                           $<BUILD_INTERFACE:exact_arithmetic>)
endfunction()
