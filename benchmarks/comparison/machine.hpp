#pragma once

#include <string>
#include <utility>
#include <vector>

/// What a table of figures has to name beside them, as pairs of a word and its value.
using Facts = std::vector<std::pair<std::string, std::string>>;

Facts facts_of_machine_and_build();

/// Keeps this process and its children on one processor.
/// @return the processor, or -1 if it cannot be chosen
int stay_on_one_processor();
