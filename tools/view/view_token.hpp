/// @file
/// The secret that tells whoever started the view from everybody else who can reach its port.
#pragma once

#include <string>
#include <string_view>

namespace polarize_tool {

/// 32 bytes of the system's random numbers as 64 hexadecimal digits.
/// @throws std::system_error if the system gives none
std::string new_token();

/// Whether a request's token is the right one, in a time that depends on the length of `given`
/// alone, so that no digit can be found by measuring.
/// @param expected not empty
bool is_token(std::string_view given, std::string_view expected);

} // namespace polarize_tool
