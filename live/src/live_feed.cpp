#include "veldrane_mrv/polarization/live_feed.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

// A signal that asks for the end may interrupt another thread than the one that waits.
constexpr std::chrono::milliseconds patience(50);

// More than a camera's stream has buffers for.
constexpr std::size_t most_while_draining = 16;

} // namespace

std::string_view name_of(Incomplete_cause cause) {
    switch (cause) {
    case Incomplete_cause::missing_packets:
        return "missing packets";
    case Incomplete_cause::time_out:
        return "time-out";
    case Incomplete_cause::size_mismatch:
        return "size mismatch";
    case Incomplete_cause::other:
        break;
    }
    return "other";
}

std::uint64_t Live_counts::all_incomplete() const {
    return std::accumulate(incomplete.begin(), incomplete.end(), std::uint64_t{0});
}

std::uint64_t frames_between(std::uint64_t last, std::uint64_t now) {
    constexpr std::uint64_t largest = 65535;    // of 16 bits, of which 0 is left out
    constexpr std::uint64_t believable = 32767; // half a turn: what is further back began anew
    if (now > last) {
        return now - last - 1;
    }
    if (now == last || last > largest) {
        return 0;
    }
    std::uint64_t const steps = largest - last + now;
    return steps == 0 || steps > believable ? 0 : steps - 1;
}

Live_feed::Live_feed(std::size_t frame_bytes, std::size_t capacity, Drop_policy drop)
    : frame_bytes_{frame_bytes}, capacity_{capacity}, drop_{drop} {
    if (capacity == 0) {
        throw Argument_error("capacity of the feed", "0", "let at least 1 frame wait");
    }
    spare_.reserve(capacity);
}

void Live_feed::note_number(std::uint64_t number) {
    if (last_number_) {
        std::uint64_t const between = frames_between(*last_number_, number);
        counts_.lost += between - std::min(between, unnumbered_);
    }
    last_number_ = number;
    unnumbered_ = 0;
}

// False if the frame that arrives has to go.
bool Live_feed::make_room(std::unique_lock<std::mutex>& lock) {
    if (is_draining_) {
        return true;
    }
    if (drop_ == Drop_policy::none) {
        room_came_.wait(
            lock, [this] { return waiting_.size() < capacity_ || is_draining_ || is_closed_; });
        return true;
    }
    if (waiting_.size() < capacity_) {
        return true;
    }
    ++counts_.dropped;
    if (drop_ == Drop_policy::newest) {
        return false;
    }
    spare_.push_back(std::move(waiting_.front()));
    waiting_.pop_front();
    return true;
}

bool Live_feed::give(std::string_view bytes, Capture const& capture, Steady_time arrival) {
    if (bytes.size() != frame_bytes_) {
        note_incomplete(Incomplete_cause::size_mismatch, capture.frame_number);
        return true;
    }
    std::unique_lock lock(mutex_);
    if (is_closed_ || (is_draining_ && ++given_while_draining_ > most_while_draining)) {
        return false;
    }
    note_number(capture.frame_number);
    bool const has_room = make_room(lock);
    if (is_closed_) {
        return false;
    }
    ++counts_.received;
    if (!has_room) {
        return true;
    }
    Live_frame frame;
    if (!spare_.empty()) {
        frame = std::move(spare_.back());
        spare_.pop_back();
    }
    lock.unlock(); // while the bytes are copied: only this thread adds frames
    frame.bytes.assign(bytes);
    frame.capture = capture;
    frame.arrival = arrival;
    lock.lock();
    waiting_.push_back(std::move(frame));
    lock.unlock();
    frame_came_.notify_one();
    return true;
}

bool Live_feed::would_wait() const {
    std::scoped_lock const lock(mutex_);
    return drop_ == Drop_policy::none && waiting_.size() >= capacity_ && !is_draining_ &&
           !is_closed_;
}

void Live_feed::note_incomplete(Incomplete_cause cause, std::optional<std::uint64_t> number) {
    std::scoped_lock const lock(mutex_);
    ++counts_.incomplete[static_cast<std::size_t>(cause)];
    if (number) {
        note_number(*number);
    } else {
        ++unnumbered_;
    }
}

void Live_feed::note_reconnection() {
    std::scoped_lock const lock(mutex_);
    ++counts_.reconnections;
    last_number_.reset();
    unnumbered_ = 0;
}

void Live_feed::end(std::string failure) {
    {
        std::scoped_lock const lock(mutex_);
        has_ended_ = true;
        failure_ = std::move(failure);
    }
    frame_came_.notify_all();
}

bool Live_feed::take(
    Live_frame& frame, std::optional<Steady_time> until,
    std::function<bool()> const& stop_requested) {
    std::unique_lock lock(mutex_);
    while (waiting_.empty()) {
        Steady_time const now = std::chrono::steady_clock::now();
        if (has_ended_ || (until && now >= *until)) {
            return false;
        }
        if (stop_requested) {
            lock.unlock(); // what it asks may ask this feed
            bool const is_requested = stop_requested();
            lock.lock();
            if (is_requested) {
                return false;
            }
        }
        Steady_time const end_of_patience = now + patience;
        frame_came_.wait_until(
            lock, until ? std::min(*until, end_of_patience) : end_of_patience,
            [this] { return !waiting_.empty() || has_ended_; });
    }
    std::swap(frame, waiting_.front());
    spare_.push_back(std::move(waiting_.front()));
    waiting_.pop_front();
    lock.unlock();
    room_came_.notify_one();
    return true;
}

void Live_feed::drain() {
    {
        std::scoped_lock const lock(mutex_);
        is_draining_ = true;
    }
    room_came_.notify_all();
}

void Live_feed::close() {
    {
        std::scoped_lock const lock(mutex_);
        is_closed_ = true;
    }
    room_came_.notify_all();
}

bool Live_feed::is_at_end() const {
    std::scoped_lock const lock(mutex_);
    return has_ended_ && waiting_.empty();
}

std::string Live_feed::failure() const {
    std::scoped_lock const lock(mutex_);
    return failure_;
}

Live_counts Live_feed::counts() const {
    std::scoped_lock const lock(mutex_);
    return counts_;
}

} // namespace veldrane_mrv::polarization
