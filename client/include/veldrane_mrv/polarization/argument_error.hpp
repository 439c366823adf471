/// @file
/// The exception for every argument that breaks a precondition of this layer.
#pragma once

#include <stdexcept>
#include <string>

namespace veldrane_mrv::polarization {

/// Thrown before anything has been written. `what` is one sentence, "ARGUMENT is VALUE; REMEDY",
/// fit for a user's eyes.
class Argument_error : public std::invalid_argument {
public:
    /// @param argument what is wrong, as the caller knows it: "width", "plane s0"
    /// @param value    what it is: "8", "null", "3 elements"
    /// @param remedy   what would do, as a demand without a full stop: "give at least 16 columns"
    Argument_error(std::string const& argument, std::string const& value, std::string const& remedy)
        : std::invalid_argument{argument + " is " + value + "; " + remedy}, argument_{argument},
          value_{value}, remedy_{remedy} {}

    std::string const& argument() const { return argument_; }
    std::string const& value() const { return value_; }
    std::string const& remedy() const { return remedy_; }

private:
    std::string argument_;
    std::string value_;
    std::string remedy_;
};

} // namespace veldrane_mrv::polarization
