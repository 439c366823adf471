#include "variants/vector_data_indices_avx2.hpp"

#ifdef LEGAL
using List = Phase_0_indices;
#else
using List = Vector_data_indices_avx2<
    0, 1, 2, 3, 4, 5, 6, 7, 1, 9, 2, 3, 5, 11, 10, 7, 2, 3, 6, 7, 8, 3, 10, 7, 1, 0, 5, 4, 1, 9, 5>;
#endif

unsigned first_operand = List::s0_operand(0, 0);
