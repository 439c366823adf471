#include "veldrane_mrv/polarization/dark_frame.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

// 65537 * 65535 is the largest 32-bit number.
constexpr std::size_t most_frames = 65537;
constexpr double largest_level = 65535;

Dark_frame_average average_of(std::span<Frame_view const> frames) {
    Dark_frame_average average;
    for (Frame_view const& frame : frames) {
        average.add(frame);
    }
    return average;
}

std::size_t pixel_count(std::size_t height, std::size_t width) {
    std::size_t pixels;
    if (height == 0 || width == 0 || __builtin_mul_overflow(height, width, &pixels) ||
        pixels > std::vector<std::uint16_t>{}.max_size()) {
        throw Argument_error(
            "size of the dark frame", to_string(Size{width, height}),
            "give the size of the frames");
    }
    return pixels;
}

void subtract_levels(
    std::span<std::uint16_t const> samples, std::uint16_t const* levels, std::uint16_t* result) {
    for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
        // The form that compilers know as one saturating subtraction.
        std::uint16_t const larger = std::max(samples[pixel], levels[pixel]);
        result[pixel] = static_cast<std::uint16_t>(larger - levels[pixel]);
    }
}

bool overlap_in_part(std::span<std::uint16_t const> left, std::span<std::uint16_t const> right) {
    std::less<> const before;
    return left.data() != right.data() && before(left.data(), right.data() + right.size()) &&
           before(right.data(), left.data() + left.size());
}

} // namespace

Dark_frame::Dark_frame(std::span<Frame_view const> frames)
    : Dark_frame{average_of(frames).result()} {}

Dark_frame::Dark_frame(std::size_t height, std::size_t width, std::array<double, 4> const& levels)
    : height_{height}, width_{width}, levels_(pixel_count(height, width)) {
    std::array<std::uint16_t, 4> rounded{};
    for (std::size_t position = 0; position < levels.size(); ++position) {
        double const level = levels[position];
        // Written so that a NaN fails.
        if (!(level >= 0 && level <= largest_level)) {
            throw Argument_error(
                "dark level of position " + std::to_string(position), std::to_string(level),
                "give a level of 0 to 65535");
        }
        rounded[position] = static_cast<std::uint16_t>(std::floor(level + 0.5));
    }
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            levels_[row * width + column] = rounded[cell_position(row, column)];
        }
    }
}

Dark_frame::Dark_frame(std::vector<std::uint16_t> levels, std::size_t height, std::size_t width)
    : height_{height}, width_{width}, levels_{std::move(levels)} {}

std::array<double, 4> Dark_frame::means() const {
    std::array<double, 4> sums{};
    std::array<double, 4> counts{};
    for (std::size_t row = 0; row < height_; ++row) {
        for (std::size_t column = 0; column < width_; ++column) {
            std::size_t const position = cell_position(row, column);
            sums[position] += levels_[row * width_ + column];
            ++counts[position];
        }
    }
    for (std::size_t position = 0; position < sums.size(); ++position) {
        sums[position] /= std::max(counts[position], 1.0);
    }
    return sums;
}

void Dark_frame_average::add(Frame_view const& frame) {
    if (frame_count_ == 0) {
        height_ = frame.height();
        width_ = frame.width();
        sums_.assign(frame.pixels(), 0);
    }
    Size const first{width_, height_};
    if (frame.size() != first) {
        throw Argument_error(
            "size of dark frame " + std::to_string(frame_count_), to_string(frame.size()),
            "give frames of the size of the first one, " + to_string(first));
    }
    if (frame_count_ == most_frames) {
        throw Argument_error(
            "number of dark frames", std::to_string(frame_count_ + 1),
            "give at most " + std::to_string(most_frames));
    }
    std::transform(
        sums_.begin(), sums_.end(), frame.data(), sums_.begin(),
        [](std::uint32_t sum, std::uint16_t sample) { return sum + sample; });
    ++frame_count_;
}

void Dark_frame_average::require_frames() const {
    if (frame_count_ == 0) {
        throw Argument_error("number of dark frames", "0", "give at least one");
    }
}

std::vector<float> Dark_frame_average::means() const {
    require_frames();
    std::vector<float> means(sums_.size());
    auto const count = static_cast<double>(frame_count_);
    std::ranges::transform(sums_, means.begin(), [count](std::uint32_t sum) {
        return static_cast<float>(static_cast<double>(sum) / count);
    });
    return means;
}

Dark_frame Dark_frame_average::result() const {
    require_frames();
    std::vector<std::uint16_t> levels(sums_.size());
    std::uint64_t const count = frame_count_;
    std::transform(sums_.begin(), sums_.end(), levels.begin(), [count](std::uint32_t sum) {
        return static_cast<std::uint16_t>((std::uint64_t{sum} + count / 2) / count);
    });
    return Dark_frame{std::move(levels), height_, width_};
}

void subtract(Frame_view const& frame, Dark_frame const& dark, std::span<std::uint16_t> result) {
    if (frame.size() != dark.size()) {
        throw Argument_error(
            "size of the frame", to_string(frame.size()),
            "give frames of the dark frame's size, " + to_string(dark.size()));
    }
    if (result.size() != frame.pixels()) {
        throw Argument_error(
            "result", std::to_string(result.size()) + " elements",
            "give the " + std::to_string(frame.pixels()) + " elements of the frame");
    }
    if (overlap_in_part(frame.samples(), result) || overlap_in_part(dark.levels(), result) ||
        dark.levels().data() == result.data()) {
        throw Argument_error(
            "result", "memory of the frame in part or of the dark levels",
            "give the whole frame's own memory or another one");
    }
    subtract_levels(frame.samples(), dark.levels().data(), result.data());
}

void subtract_from_row(
    std::span<std::uint16_t> samples, Dark_frame const& dark, std::size_t row, std::size_t column) {
    subtract_levels(samples, dark.levels().data() + row * dark.width() + column, samples.data());
}

} // namespace veldrane_mrv::polarization
