/// @file
/// Text that a user or a file gave, in a form that a terminal shows and does not obey.
#pragma once

#include <string>
#include <string_view>

namespace polarize_tool {

/// The text with every byte that is no UTF-8 and every control character below 0x20 as \x1b (those
/// of common layouts as \n, \r and \t), and every other one (0x7f to 0x9f, ends of lines, changes
/// of the direction) as \u202e. All else stays, so text that is visible already comes out the same,
/// and so does JSON that is UTF-8.
std::string visible(std::string_view text);

/// The same, but bytes that are no UTF-8 are all that is replaced.
std::string utf8(std::string_view text);

bool is_utf8(std::string_view text);

} // namespace polarize_tool
