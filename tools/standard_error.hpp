/// @file
/// Keeps libraries from writing on standard error.
#ifndef VELDRANE_TOOLS_STANDARD_ERROR_HPP
#define VELDRANE_TOOLS_STANDARD_ERROR_HPP

#include <fcntl.h>
#include <unistd.h>

namespace polarize_tool {

/// Sends standard error nowhere as long as it lives. For one thread.
class Silenced_standard_error {
public:
    Silenced_standard_error() : kept_(dup(STDERR_FILENO)) {
        int const nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere >= 0) {
            dup2(nowhere, STDERR_FILENO);
            close(nowhere);
        }
    }
    ~Silenced_standard_error() {
        if (kept_ >= 0) {
            dup2(kept_, STDERR_FILENO);
            close(kept_);
        }
    }
    Silenced_standard_error(Silenced_standard_error const&) = delete;
    Silenced_standard_error& operator=(Silenced_standard_error const&) = delete;

private:
    int kept_;
};

} // namespace polarize_tool

#endif
