/// @file
/// Keeps libraries from writing on standard error.
#pragma once

namespace polarize_tool {

/// Standard error goes nowhere as long as any object of this class lives, in whichever thread. The
/// program's own lines have another way, see messages.hpp.
class Silenced_standard_error {
public:
    Silenced_standard_error();
    ~Silenced_standard_error();
    Silenced_standard_error(Silenced_standard_error const&) = delete;
    Silenced_standard_error& operator=(Silenced_standard_error const&) = delete;
};

} // namespace polarize_tool
