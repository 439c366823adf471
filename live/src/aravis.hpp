/// @file
/// Aravis with owners for what it hands out, and exceptions for its errors.
#pragma once

#include <arv.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace veldrane_mrv::polarization::aravis {

struct Releaser {
    void operator()(gpointer object) const { g_object_unref(object); }
};

template <class T>
using Owned = std::unique_ptr<T, Releaser>;

/// What Aravis says of a failure, for those who turn it into a line for users.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Collects the error of one call: `arv_camera_get_region(camera, ..., error.slot())`.
class Error {
public:
    Error() = default;
    ~Error() { g_clear_error(&error_); }
    Error(Error const&) = delete;
    Error& operator=(Error const&) = delete;

    GError** slot() {
        g_clear_error(&error_);
        return &error_;
    }
    bool is_set() const { return error_ != nullptr; }
    /// @throws Failure if the last call left an error
    void check() const {
        if (is_set()) {
            throw Failure(error_->message);
        }
    }

private:
    GError* error_ = nullptr;
};

/// What a function of Aravis gives that takes `arguments` and last an error.
/// @throws Failure
template <class Function, class... Arguments>
auto call(Function function, Arguments... arguments) {
    Error error;
    if constexpr (std::is_void_v<decltype(function(arguments..., error.slot()))>) {
        function(arguments..., error.slot());
        error.check();
    } else {
        auto const result = function(arguments..., error.slot());
        error.check();
        return result;
    }
}

inline std::string text(char const* words) {
    return words == nullptr ? std::string() : std::string(words);
}

} // namespace veldrane_mrv::polarization::aravis
