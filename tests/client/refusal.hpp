/// @file
/// What a call is refused with.
#pragma once

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <string>

namespace client_test {

/// The message, or "nothing".
template <class Call>
std::string refusal_of(Call const& call) {
    try {
        call();
    } catch (veldrane_mrv::polarization::Argument_error const& error) {
        return error.what();
    }
    return "nothing";
}

} // namespace client_test
