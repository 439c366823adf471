// In place of view_run.cpp, where Boost is missing.
#include "commands/view_run.hpp"

#include <stdexcept>

namespace polarize_tool {

bool is_built_with_view() {
    return false;
}

void run_view(View_line&) {
    throw std::runtime_error(
        "view is left out of this build; install libboost-dev and build the program anew");
}

} // namespace polarize_tool
