#include "commands/live_statistics.hpp"

#include "terminal/messages.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace polarize_tool {
namespace {

constexpr std::size_t most_latencies = 4096;

double seconds_between(polarization::Steady_time begin, polarization::Steady_time end) {
    return std::chrono::duration<double>(end - begin).count();
}

double rate_of(std::size_t frames, double seconds) {
    return seconds > 0 ? static_cast<double>(frames) / seconds : 0.0;
}

} // namespace

void Latencies::add(double milliseconds) {
    if (last_.size() < most_latencies) {
        last_.push_back(milliseconds);
        return;
    }
    last_[next_] = milliseconds;
    next_ = (next_ + 1) % most_latencies;
}

double Latencies::quantile(double share) const {
    std::vector<double> sorted = last_;
    double const rank = std::ceil(share * static_cast<double>(sorted.size()));
    auto const place = sorted.begin() + static_cast<std::ptrdiff_t>(std::max(rank, 1.0)) - 1;
    std::nth_element(sorted.begin(), place, sorted.end());
    return *place;
}

std::string told_losses(polarization::Live_counts const& counts) {
    std::string causes;
    for (polarization::Incomplete_cause const cause : polarization::all_incomplete_causes) {
        if (counts.of(cause) > 0) {
            causes.append(causes.empty() ? " (" : ", ")
                .append(std::to_string(counts.of(cause)))
                .append(" ")
                .append(name_of(cause));
        }
    }
    return "lost " + std::to_string(counts.lost) + ", incomplete " +
           std::to_string(counts.all_incomplete()) + causes + (causes.empty() ? "" : ")") +
           ", dropped " + std::to_string(counts.dropped) +
           (counts.reconnections > 0 ? ", reconnected " + std::to_string(counts.reconnections)
                                     : std::string());
}

std::string told_silence(polarization::Live_source const& source) {
    return source.name() + ": no frame has come for " + std::to_string(longest_silence.count()) +
           " s (" + told_losses(source.counts()) +
           "); look whether it waits for a trigger and whether a firewall lets its packets in, or "
           "try --no-packet-socket";
}

Live_statistics::Live_statistics(std::size_t frames_in_flight, bool is_wanted)
    : is_shown_{is_wanted && error_output_is_terminal()},
      arrivals_(std::max<std::size_t>(1, frames_in_flight)) {}

Live_statistics::~Live_statistics() {
    end();
}

void Live_statistics::watch(polarization::Live_source const& source) {
    std::lock_guard const lock(mutex_);
    source_ = &source;
    last_shown_ = std::chrono::steady_clock::now();
}

void Live_statistics::end() {
    std::lock_guard const lock(mutex_);
    if (is_shown_ && source_ != nullptr) {
        show_status("");
    }
    source_ = nullptr;
}

void Live_statistics::note_arrival(std::size_t number, polarization::Steady_time arrival) {
    std::lock_guard const lock(mutex_);
    arrivals_[number % arrivals_.size()] = arrival;
    if (!first_arrival_) {
        first_arrival_ = arrival;
    }
    last_arrival_ = arrival;
    ++arrived_;
}

void Live_statistics::note_done(std::size_t number) {
    {
        std::lock_guard const lock(mutex_);
        ++done_;
        last_done_ = std::chrono::steady_clock::now();
        latencies_.add(1e3 * seconds_between(arrivals_[number % arrivals_.size()], last_done_));
    }
    refresh();
}

void Live_statistics::warn_of_silence(polarization::Steady_time now) {
    if (first_arrival_ || has_warned_ || source_ == nullptr) {
        return;
    }
    waiting_since_ = waiting_since_.value_or(now);
    if (now - *waiting_since_ >= longest_silence) {
        has_warned_ = true;
        warn(told_silence(*source_));
    }
}

void Live_statistics::refresh(polarization::Steady_time now) {
    std::lock_guard const lock(mutex_);
    warn_of_silence(now);
    if (!is_shown_) {
        return;
    }
    double const seconds = seconds_between(last_shown_, now);
    if (source_ == nullptr || seconds < 1.0) {
        return;
    }
    char rate[40];
    std::snprintf(
        rate, sizeof rate, " frames, %.1f frames/s", rate_of(done_ - shown_done_, seconds));
    shown_done_ = done_;
    last_shown_ = now;
    show_status(std::to_string(done_) + rate + latency() + ", " + told_losses(source_->counts()));
}

std::size_t Live_statistics::done() const {
    std::lock_guard const lock(mutex_);
    return done_;
}

double Live_statistics::seconds() const {
    std::lock_guard const lock(mutex_);
    return first_arrival_ ? seconds_between(*first_arrival_, std::chrono::steady_clock::now()) : 0;
}

std::string Live_statistics::latency() const {
    if (latencies_.is_empty()) {
        return {};
    }
    char text[80];
    std::snprintf(
        text, sizeof text, ", latency %.1f ms, 99 %% within %.1f ms", latencies_.quantile(0.5),
        latencies_.quantile(0.99));
    return text;
}

std::string Live_statistics::summary() const {
    std::lock_guard const lock(mutex_);
    std::string line = std::to_string(done_) + (done_ == 1 ? " frame" : " frames");
    if (done_ > 0) {
        double const seconds = seconds_between(*first_arrival_, last_done_);
        char text[80];
        std::snprintf(text, sizeof text, " in %.3f s", seconds);
        line += text;
    }
    double const between =
        done_ > 0 && arrived_ > 1 ? seconds_between(*first_arrival_, last_arrival_) : 0;
    if (between > 0) {
        char text[40];
        std::snprintf(text, sizeof text, ", %.1f frames/s", rate_of(arrived_ - 1, between));
        line += text;
    }
    return line + latency();
}

} // namespace polarize_tool
