#include "kernel/walk_variants.hpp"
#include "variants/vector_data_indices_avx2.hpp"

static_assert(kernel::instantiate_walks<Phase_0_indices>());
