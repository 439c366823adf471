#pragma once

#include "comparison/machine.hpp"
#include "support/loaded_library.hpp"

#include <memory>
#include <string>
#include <vector>

using Libraries = std::vector<std::pair<std::string, std::shared_ptr<Loaded_library>>>;

/// @param under_test path of the build that ratios refer to, called "library"
/// @param others     NAME=PATH
/// @param taken      names that stand for something else in the results
/// @throws Usage_error
Libraries load_libraries(
    std::string const& under_test, std::vector<std::string> const& others,
    std::vector<std::string> taken);

/// What a reader has to know about the builds beside the figures, a sentence each.
std::vector<std::string> notes_on(Libraries const& libraries, std::string const& sources);
