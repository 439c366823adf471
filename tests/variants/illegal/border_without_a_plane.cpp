#include "border/last_column_definition.hpp"
#include "border/last_row_and_column_definition.hpp"

#include <type_traits>

#ifdef LEGAL
using Want_s0 = std::true_type;
#else
using Want_s0 = std::false_type;
#endif
using no = std::false_type;

auto* const last_column = &generate_last_column<no, no, Want_s0, no, no, no, no, no>;
auto* const last_rows = &generate_last_row_and_column<no, no, Want_s0, no, no, no, no, no, no>;
