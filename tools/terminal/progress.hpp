/// @file
/// How far a run over many frames has come, for somebody who watches.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

namespace polarize_tool {

/// "[#####.....]  5/10 frames, 432 Mpixel/s, 12 s left" for `seconds` since the start.
std::string progress_line(
    std::size_t done, std::size_t total, std::uint64_t pixels, double seconds);

/// A bar on standard error if it is a terminal and `wanted`. For any number of threads.
class Progress {
public:
    Progress(std::size_t total, bool wanted);
    /// Takes the bar away.
    ~Progress();
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    /// One frame more is over and done with; 0 pixels if it failed.
    void add(std::uint64_t pixels);

    double seconds() const;

private:
    using Clock = std::chrono::steady_clock;

    bool is_shown_;
    std::size_t total_;
    std::mutex mutex_; // guards what follows, except for start_
    std::size_t frames_ = 0;
    std::uint64_t pixels_ = 0;
    Clock::time_point start_ = Clock::now();
    Clock::time_point last_shown_ = start_;
};

} // namespace polarize_tool
