# Makes the library of a reduced build: the kernels of chosen_variants.hpp, and in the place of every
# other one a leaf that computes nothing and returns -1. Instrumented, all 2016 kernels take a
# compiler many minutes a file.
foreach(stage IN ITEMS kernel quartet border)
  target_include_directories(${stage}_objects BEFORE PRIVATE ${CMAKE_CURRENT_LIST_DIR}/selection
                                                             ${CMAKE_CURRENT_LIST_DIR}/..)
endforeach()
target_sources(module_objects PRIVATE ${CMAKE_CURRENT_LIST_DIR}/left_out_leaves.cpp)
target_include_directories(module_objects PRIVATE ${CMAKE_CURRENT_LIST_DIR}/..)
