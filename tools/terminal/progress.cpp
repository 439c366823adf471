#include "terminal/progress.hpp"

#include "terminal/messages.hpp"

#include <cstdio>

namespace polarize_tool {

std::string progress_line(
    std::size_t done, std::size_t total, std::uint64_t pixels, double seconds) {
    constexpr std::size_t bar_width = 24;
    std::size_t const filled = total == 0 ? bar_width : done * bar_width / total;
    double const rate = seconds > 0.0 ? static_cast<double>(pixels) / seconds / 1e6 : 0.0;
    double const left =
        done == 0 ? 0.0 : seconds / static_cast<double>(done) * static_cast<double>(total - done);
    char numbers[120];
    std::snprintf(
        numbers, sizeof numbers, "] %zu/%zu frames, %.0f Mpixel/s, %.0f s left", done, total, rate,
        left);
    std::string bar(bar_width, '.');
    bar.replace(0, filled, filled, '#');
    return std::string("[").append(bar).append(numbers);
}

Progress::Progress(std::size_t total, bool wanted)
    : is_shown_{wanted && total > 1 && error_output_is_terminal()}, total_{total} {}

Progress::~Progress() {
    if (is_shown_) {
        show_status("");
    }
}

void Progress::add(std::uint64_t pixels) {
    constexpr std::chrono::milliseconds interval(100); // quicker than that only flickers
    std::lock_guard const lock(mutex_);
    ++frames_;
    pixels_ += pixels;
    // The last frame counts in any case: who watches is to see that all are accounted for.
    if (is_shown_ && (frames_ == total_ || Clock::now() - last_shown_ >= interval)) {
        last_shown_ = Clock::now();
        show_status(progress_line(frames_, total_, pixels_, seconds()));
    }
}

double Progress::seconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

} // namespace polarize_tool
