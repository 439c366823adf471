#include "quartet/single_quartet_definition.hpp"

#include <type_traits>

#ifdef LEGAL
using Want_s0 = std::true_type;
#else
using Want_s0 = std::false_type;
#endif
using no = std::false_type;

auto* const generator = &generate_polarization_output_data_for_single_quartet<
    no, no, Want_s0, no, no, no, no, true, true>;
