#pragma once

#include <stdexcept>

/// Arguments that cannot be served: the program exits with 2, and not with the 1 of a failure.
class Usage_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
