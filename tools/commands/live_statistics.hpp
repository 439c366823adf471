/// @file
/// How a run of `live` goes: frames, their rate, how old they are when their planes are done, and
/// what did not arrive.
#pragma once

#include "veldrane_mrv/polarization/live_source.hpp"

#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

/// Of the last 4096 frames, so that memory does not grow with a run.
class Latencies {
public:
    void add(double milliseconds);
    bool is_empty() const { return last_.empty(); }
    /// The least that `share` of the frames, above 0 and up to 1, did not exceed.
    double quantile(double share) const;

private:
    std::vector<double> last_;
    std::size_t next_ = 0;
};

/// "lost 30, incomplete 2 (1 missing packets, 1 time-out), dropped 4"
std::string told_losses(polarization::Live_counts const& counts);

/// After which the reader is told that no frame has come.
constexpr std::chrono::seconds longest_silence(5);
/// What to look for then.
std::string told_silence(polarization::Live_source const& source);

/// For any number of threads.
class Live_statistics {
public:
    /// @param frames_in_flight between their arrival and their end, at most
    /// @param is_wanted whether a line is shown, if standard error is a terminal
    Live_statistics(std::size_t frames_in_flight, bool is_wanted);
    /// Takes the line away.
    ~Live_statistics();
    Live_statistics(Live_statistics const&) = delete;
    Live_statistics& operator=(Live_statistics const&) = delete;

    /// Whose counts are shown from now on, until `end`.
    void watch(polarization::Live_source const& source);
    void end();

    void note_arrival(std::size_t number, polarization::Steady_time arrival);
    void note_done(std::size_t number);
    /// Shows the line if a second has passed. Warns once, terminal or not, if the source has given
    /// no frame for five seconds.
    void refresh(polarization::Steady_time now = std::chrono::steady_clock::now());

    std::size_t done() const;
    /// Since the first frame arrived; 0 before.
    double seconds() const;
    /// Such as "300 frames in 10.000 s, 30.0 frames/s, latency 4.1 ms, 99 % within 7.9 ms": of the
    /// whole run, but the latency of the last 4096 frames. The rate is that of their arrival.
    std::string summary() const;

private:
    std::string latency() const;
    void warn_of_silence(polarization::Steady_time now);

    bool is_shown_;
    mutable std::mutex mutex_; // guards what follows
    polarization::Live_source const* source_ = nullptr;
    std::vector<polarization::Steady_time> arrivals_; // of those in flight, by number
    Latencies latencies_;
    std::size_t done_ = 0;
    std::size_t shown_done_ = 0;
    std::size_t arrived_ = 0;
    std::optional<polarization::Steady_time> waiting_since_; // for the first frame
    bool has_warned_ = false;
    std::optional<polarization::Steady_time> first_arrival_;
    polarization::Steady_time last_arrival_;
    polarization::Steady_time last_done_;
    polarization::Steady_time last_shown_;
};

} // namespace polarize_tool
