#include "memory.hpp"

#include "commands.hpp"
#include "messages.hpp"
#include "staged_files.hpp"

#include <cerrno>
#include <csignal>
#include <new>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace polarize_tool {
namespace {

[[noreturn]] void end_cleanly() {
    // Composed in advance: there may be no memory for a string.
    constexpr std::string_view line =
        "veldrane-polarize: broken off, most likely for want of memory or threads; give fewer "
        "--jobs, a smaller --region or a smaller frame\n";
    remove_staged_files();
    complain_without_memory(line);
    _exit(an_input_failed);
}

// Libraries for images of other kinds, which come with OpenCV, call abort() without memory.
void end_cleanly_on_abort(int) {
    end_cleanly();
}

} // namespace

void end_cleanly_on_terminate() {
    std::set_terminate(end_cleanly);
    std::signal(SIGABRT, end_cleanly_on_abort);
}

bool is_lack_of_memory(std::exception const& error) {
    auto const* const of_opencv = dynamic_cast<cv::Exception const*>(&error);
    return dynamic_cast<std::bad_alloc const*>(&error) != nullptr ||
           dynamic_cast<std::length_error const*>(&error) != nullptr ||
           (of_opencv != nullptr && of_opencv->code == cv::Error::StsNoMem);
}

Memory_watch::Memory_watch() {
    errno = 0;
}

void Memory_watch::throw_if_refused() const {
    if (errno == ENOMEM) {
        throw std::bad_alloc();
    }
}

} // namespace polarize_tool
