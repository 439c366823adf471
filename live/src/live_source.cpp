#include "veldrane_mrv/polarization/live_source.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <cmath>
#include <limits>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

constexpr std::size_t most_waiting_frames = 4096;

std::size_t checked(std::size_t waiting_frames) {
    if (waiting_frames < 1 || waiting_frames > most_waiting_frames) {
        throw Argument_error(
            "number of frames that may wait", std::to_string(waiting_frames), "give 1 to 4096");
    }
    return waiting_frames;
}

void check_seconds(std::optional<double> seconds) {
    constexpr double longest = 1e9;
    if (seconds && !(*seconds > 0 && *seconds <= longest)) {
        throw Argument_error(
            "time in seconds", std::to_string(*seconds), "give more than 0 and at most 1e9");
    }
}

} // namespace

Live_source::Live_source(
    std::string name, std::filesystem::path file, Raw_layout const& layout, Live_options options)
    : name_{std::move(name)}, file_{std::move(file)}, layout_{layout}, options_{std::move(options)},
      decoder_{sample_decoder(layout)}, feed_{
                                            layout.frame_bytes(), checked(options_.waiting_frames),
                                            options_.drop} {
    check_seconds(options_.seconds);
}

Live_source::~Live_source() {
    feed_.close();
}

std::optional<std::size_t> Live_source::count() const {
    return is_at_end_ ? std::optional(found_) : std::nullopt;
}

std::optional<Frame_shape> Live_source::shape() const {
    return Frame_shape{layout_.width, layout_.height, 16};
}

Frame_place Live_source::place(std::size_t number) const {
    Frame_place place = {file_, number, std::numeric_limits<std::size_t>::max()};
    if (found_ > 0 && number == found_ - 1) {
        place.capture = capture_;
    }
    return place;
}

void Live_source::begin() {
    has_begun_ = true;
    is_at_end_ = true; // unless they begin
    begin_receiving();
    is_at_end_ = false;
    if (options_.seconds) {
        until_ = std::chrono::steady_clock::now() +
                 std::chrono::nanoseconds(std::llround(*options_.seconds * 1e9));
    }
}

bool Live_source::has_frame(std::size_t number) {
    if (!has_begun_) {
        begin();
    }
    while (found_ <= number && !is_at_end_) {
        if (find_next()) {
            ++found_;
        } else {
            end_of_frames();
        }
    }
    return number < found_;
}

bool Live_source::find_next() {
    if (options_.frames && found_ >= *options_.frames) {
        is_stopped_ = true;
        return false;
    }
    auto const is_stopping = [this] {
        is_stopped_ = is_stopped_ || (until_ && std::chrono::steady_clock::now() >= *until_) ||
                      (options_.stop_requested && options_.stop_requested());
        return is_stopped_;
    };
    bool is_there = !is_stopping() && feed_.take(frame_, until_, is_stopping);
    if (!is_there && is_stopping()) { // what has arrived by then is still handed on
        feed_.drain();
        stop_receiving();
        is_there = feed_.take(frame_, std::chrono::steady_clock::now());
    }
    if (is_there) {
        capture_ = frame_.capture;
        arrival_ = frame_.arrival;
        has_bytes_ = true;
    }
    return is_there;
}

void Live_source::end_of_frames() {
    is_at_end_ = true;
    feed_.close();
    stop_receiving();
    std::string const failure = feed_.failure();
    if (!failure.empty() && !is_stopped_) {
        throw File_failure(name_, failure);
    }
}

void Live_source::fetch(std::size_t number, Fetched_frame& target) {
    if (number + 1 != found_ || !has_bytes_) {
        throw Argument_error(
            "frame number", std::to_string(number),
            "read live frames in their order, and each frame once");
    }
    has_bytes_ = false;
    target.bytes.swap(frame_.bytes);
    target.decoder = decoder_;
}

} // namespace veldrane_mrv::polarization
