#include "input/frame_preparation.hpp"

#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <span>

namespace polarize_tool {
namespace {

using polarization::Region;

void shift_down(Frame& frame, int bits) {
    for (std::uint16_t& sample : frame.samples) {
        sample = static_cast<std::uint16_t>(sample >> bits);
    }
}

void check_fit(Frame const& frame, Region const& region, std::string const& name) {
    if (!fits(region, frame.size())) {
        throw File_failure(
            name, "has " + to_string(frame.size()) + " pixels; the region of " + to_string(region) +
                      " does not fit in; give a smaller --region");
    }
}

std::span<std::uint16_t const> samples_in_row(
    std::span<std::uint16_t const> samples, std::size_t width, Region const& part,
    std::size_t row) {
    return samples.subspan((part.row + row) * width + part.column, part.width);
}

double mean_of(std::span<std::uint16_t const> samples, std::size_t width, Region const& part) {
    std::uint64_t sum = 0;
    for (std::size_t row = 0; row < part.height; ++row) {
        auto const line = samples_in_row(samples, width, part, row);
        sum = std::accumulate(line.begin(), line.end(), sum);
    }
    return static_cast<double>(sum) / static_cast<double>(part.height * part.width);
}

} // namespace

void cut(Frame& frame, Region const& region) {
    // Every row moves towards the start, so none is overwritten before it has moved.
    for (std::size_t row = 0; row < region.height; ++row) {
        std::uint16_t const* const from =
            frame.samples.data() + (region.row + row) * frame.width + region.column;
        std::copy(from, from + region.width, frame.samples.data() + row * region.width);
    }
    frame.width = region.width;
    frame.height = region.height;
    frame.samples.resize(region.width * region.height);
}

Frame_preparation::Frame_preparation(
    Sample_options const& options, std::optional<Raw_layout> const& raw)
    : bit_depth_{options.depth(raw)}, shift_{options.shift}, region_{options.region()} {
    if (bit_depth_ < 1) {
        throw Usage_error("--shift " + std::to_string(shift_) + " leaves nothing of the samples");
    }
    if (!options.dark_frames.empty()) {
        read_dark(options, raw);
    }
}

void Frame_preparation::read_dark(
    Sample_options const& options, std::optional<Raw_layout> const& raw) {
    Found_frames const found = look_for_frames(options.dark_frames, raw);
    if (!found.failures.empty()) {
        throw std::runtime_error("dark frame " + found.failures.front());
    }
    Frame_list source(found.frames, raw);
    Frame_slot slot;
    polarization::Dark_frame_average average;
    while (source.read_next(slot)) {
        Frame_place const& place = slot.place();
        if (dark_files_.empty() || dark_files_.back() != place.file) {
            dark_files_.push_back(place.file);
        }
        Frame& frame = slot.frame();
        throw_if_interrupted();
        shift_down(frame, shift_);
        try {
            average.add(frame.view());
        } catch (polarization::Argument_error const& error) {
            throw File_failure(place.name(), std::string("as a dark frame: ") + error.what());
        }
    }
    dark_ = average.result();
    dark_means_ = average.means();
}

Sample_warnings Frame_preparation::apply(
    Frame& frame, std::string const& name, Dark_level level,
    std::vector<std::uint8_t>* saturated) const {
    if (shift_ > 0) {
        shift_down(frame, shift_);
    }
    if (dark_ && dark_->size() != frame.size()) {
        throw File_failure(
            name, "has " + to_string(frame.size()) + " pixels, the dark frame " +
                      to_string(dark_->size()) + "; take dark frames with the same settings");
    }
    Region const part = region_.value_or(region_of(frame.size()));
    check_fit(frame, part, name);
    Sample_warnings warnings{depth_warning(frame, part, name), dark_warning(frame, part, name)};
    bool const subtracts = dark_ && level == Dark_level::subtracted;
    if (saturated != nullptr) {
        saturated->clear();
        if (subtracts) {
            note_saturated(frame, part, *saturated);
        }
    }
    if (subtracts) {
        polarization::subtract(frame.view(), *dark_, frame.samples);
    }
    if (region_) {
        cut(frame, part);
    }
    return warnings;
}

void Frame_preparation::note_saturated(
    Frame const& frame, Region const& part, std::vector<std::uint8_t>& saturated) const {
    saturated.resize(part.width * part.height);
    unsigned const limit = (1U << bit_depth_) - 1U;
    for (std::size_t row = 0; row < part.height; ++row) {
        auto const samples = samples_in_row(frame.samples, frame.width, part, row);
        std::transform(
            samples.begin(), samples.end(),
            saturated.begin() + static_cast<std::ptrdiff_t>(row * part.width),
            [limit](std::uint16_t sample) { return std::uint8_t{sample >= limit}; });
    }
}

std::string Frame_preparation::depth_warning(
    Frame const& frame, Region const& part, std::string const& name) const {
    unsigned const limit = (1U << bit_depth_) - 1U;
    // The bits of all samples together are quick to find and tell whether to look closer.
    unsigned bits = 0;
    for (std::size_t row = 0; row < part.height; ++row) {
        for (std::uint16_t const sample : samples_in_row(frame.samples, frame.width, part, row)) {
            bits |= sample;
        }
    }
    if (bits <= limit) {
        return {};
    }
    unsigned largest = 0;
    for (std::size_t row = 0; row < part.height; ++row) {
        auto const samples = samples_in_row(frame.samples, frame.width, part, row);
        largest = std::max<unsigned>(largest, *std::max_element(samples.begin(), samples.end()));
    }
    return name + ": has samples up to " + std::to_string(largest) + ", above the full scale " +
           std::to_string(limit) + " of bit depth " + std::to_string(bit_depth_) +
           "; the total intensity may clip; give a larger --bit-depth, or --shift for samples at "
           "the upper end of 16 bits";
}

std::string Frame_preparation::dark_warning(
    Frame const& frame, Region const& part, std::string const& name) const {
    if (!dark_) {
        return {};
    }
    double const dark = mean_of(dark_->levels(), frame.width, part);
    double const mean = mean_of(frame.samples, frame.width, part);
    if (!(dark > mean)) {
        return {};
    }
    char means[64];
    std::snprintf(means, sizeof means, "%.1f, that of the frame %.1f", dark, mean);
    return name + ": is darker than the dark level taken off it, whose mean is " + means +
           "; what would fall below 0 clips to 0; give dark frames taken with the lens covered and "
           "with the frame's exposure and gain";
}

} // namespace polarize_tool
