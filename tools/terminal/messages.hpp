/// @file
/// What the program says: results on standard output, everything else on standard error. Names of
/// files hold what their givers like; nothing of it reaches a terminal but as `visible` text.
#pragma once

#include <string>
#include <string_view>

namespace polarize_tool {

/// One line on standard error, behind the program's name. From any thread.
void complain(std::string const& line);
void warn(std::string const& line);

/// The same for what is as it should be, where standard output holds numbers.
void remark(std::string const& line);

/// The same for a program that ends now: says nothing rather than wait for a reader or a thread.
void complain_at_once(std::string const& line);

/// The same for one that has no memory left to compose a line: `text` goes out as it is.
void complain_without_memory(std::string_view text);

/// One line on standard output.
/// @throws Output_exhausted if it cannot be written, also when nobody reads it any more
void say(std::string const& line);

/// The same for a text of lines. A name in it can forge one, so it goes in as `visible` text.
void say_lines(std::string const& text);

/// True if somebody watches standard error.
bool error_output_is_terminal();

/// Shows a line that the next one replaces, below all lines said so far. Empty removes it. Only for
/// a terminal.
void show_status(std::string const& line);

} // namespace polarize_tool
