#include "terminal/standard_error.hpp"

#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace polarize_tool {
namespace {

// A descriptor belongs to the whole process: the first thread redirects it, the last restores it.
std::mutex silence_mutex;
int silencers = 0;
int kept = -1;

} // namespace

Silenced_standard_error::Silenced_standard_error() {
    std::lock_guard const lock(silence_mutex);
    if (silencers++ > 0) {
        return;
    }
    kept = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    int const nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
        dup2(nowhere, STDERR_FILENO);
        close(nowhere);
    }
}

Silenced_standard_error::~Silenced_standard_error() {
    std::lock_guard const lock(silence_mutex);
    if (--silencers > 0 || kept < 0) {
        return;
    }
    dup2(kept, STDERR_FILENO);
    close(kept);
    kept = -1;
}

} // namespace polarize_tool
