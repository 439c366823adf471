/// @file
/// The words of the command line before the parser sees them. The parser splits, skips and joins
/// some of them, and what it says of wrong ones is its own; both end here.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace polarize_tool {

/// `words`, those behind the program's name, in the one form that the parser takes as it stands:
/// every option by its long name, its value a word of its own, `--` and groups of short options
/// resolved. Whatever is left for the parser to refuse is the value of an option.
/// @throws Usage_error for words that are no option, lack a value, are empty or do not go together
std::vector<std::string> checked_words(
    CLI::App const& program, std::vector<std::string> const& words);

} // namespace polarize_tool
