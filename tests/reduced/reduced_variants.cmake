# Makes the library of a reduced build: the kernels of chosen_variants.hpp, and in the place of every
# other one a leaf that computes nothing and returns -1. Headers found here first do it, the sources
# stay as they are. Instrumented, all 2016 kernels take a compiler many minutes a file.
foreach(stage IN ITEMS module kernel quartet border)
  target_include_directories(${stage}_objects BEFORE PRIVATE ${CMAKE_CURRENT_LIST_DIR}/override
                                                             ${CMAKE_CURRENT_LIST_DIR}/..)
endforeach()
