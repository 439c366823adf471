#include "variants/instantiate_kernels.hpp"
#include "variants/vector_data_indices_avx2.hpp"

static_assert(variants::instantiate_kernels<Phase_1_indices>());
