#include "commands/ending.hpp"

#include "commands/commands.hpp"
#include "output/staged_files.hpp"
#include "terminal/messages.hpp"

#include <csignal>
#include <exception>
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

} // namespace polarize_tool
