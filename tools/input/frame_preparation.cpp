#include "input/frame_preparation.hpp"

#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <numeric>

namespace polarize_tool {
namespace {

using polarization::Region;

void shift_down(std::span<std::uint16_t> samples, int bits) {
    for (std::uint16_t& sample : samples) {
        sample = static_cast<std::uint16_t>(sample >> bits);
    }
}

unsigned largest_above(std::span<std::uint16_t const> samples, unsigned limit) {
    // The bits of all samples together are quick to find and tell whether to look closer.
    std::uint16_t bits = 0;
    for (std::uint16_t const sample : samples) {
        bits |= sample;
    }
    return bits <= limit ? 0 : *std::max_element(samples.begin(), samples.end());
}

std::uint64_t sum_of(std::span<std::uint16_t const> samples) {
    return std::accumulate(samples.begin(), samples.end(), std::uint64_t{0});
}

} // namespace

void Sample_findings::add(Sample_findings const& other) {
    largest = std::max(largest, other.largest);
    sum += other.sum;
}

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
    Sample_options const& options, std::optional<Raw_layout> const& raw,
    std::optional<polarization::Region> const& frames_on_sensor)
    : bit_depth_{options.depth(raw)}, shift_{options.shift}, region_{options.region()},
      frames_on_sensor_{frames_on_sensor} {
    if (bit_depth_ < 1) {
        throw Usage_error("--shift " + std::to_string(shift_) + " leaves nothing of the samples");
    }
    if (!options.dark_frames.empty()) {
        read_dark(options, raw);
    }
}

std::optional<Region> Frame_preparation::region_on_sensor() const {
    if (!frames_on_sensor_ || !region_) {
        return region_ ? region_ : frames_on_sensor_;
    }
    return Region{
        frames_on_sensor_->column + region_->column, frames_on_sensor_->row + region_->row,
        region_->width, region_->height};
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
        shift_down(frame.samples, shift_);
        try {
            average.add(frame.view());
        } catch (polarization::Argument_error const& error) {
            throw File_failure(place.name(), std::string("as a dark frame: ") + error.what());
        }
    }
    dark_ = average.result();
    dark_means_ = average.means();
    note_mean_of_dark();
}

void Frame_preparation::note_mean_of_dark() {
    Region const part = region_.value_or(region_of(dark_->size()));
    if (!fits(part, dark_->size())) {
        return; // no frame of the dark frame's size is taken
    }
    std::uint64_t sum = 0;
    for (std::size_t row = part.row; row < part.row + part.height; ++row) {
        sum += sum_of(dark_->levels().subspan(row * dark_->width() + part.column, part.width));
    }
    mean_of_dark_ = static_cast<double>(sum) / static_cast<double>(part.height * part.width);
}

Region Frame_preparation::part_of(polarization::Size const& frame, std::string const& name) const {
    if (dark_ && dark_->size() != frame) {
        throw File_failure(
            name, "has " + to_string(frame) + " pixels, the dark frame " +
                      to_string(dark_->size()) + "; take dark frames with the same settings");
    }
    Region const part = region_.value_or(region_of(frame));
    if (!fits(part, frame)) {
        throw File_failure(
            name, "has " + to_string(frame) + " pixels; the region of " + to_string(part) +
                      " does not fit in; give a smaller --region");
    }
    return part;
}

Sample_findings Frame_preparation::prepare_row(
    std::span<std::uint16_t> samples, std::size_t row, std::size_t column, Dark_level level,
    std::uint8_t* saturated) const {
    if (shift_ > 0) {
        shift_down(samples, shift_);
    }
    Sample_findings found{.largest = largest_above(samples, limit())};
    if (!dark_) {
        return found;
    }
    found.sum = sum_of(samples);
    if (level == Dark_level::kept) {
        return found;
    }
    if (saturated != nullptr) {
        std::transform(
            samples.begin(), samples.end(), saturated,
            [limit = limit()](std::uint16_t sample) { return std::uint8_t{sample >= limit}; });
    }
    subtract_from_row(samples, *dark_, row, column);
    return found;
}

template <class Copy_row>
Sample_warnings Frame_preparation::apply_by_rows(
    Frame& target, polarization::Size const& whole, std::string const& name, Dark_level level,
    std::vector<std::uint8_t>* saturated, Copy_row copy_row) const {
    Region const part = part_of(whole, name);
    bool const notes = saturated != nullptr && dark_ && level == Dark_level::subtracted;
    if (saturated != nullptr) {
        saturated->resize(notes ? part.width * part.height : 0);
    }
    // Never less than `whole` while the rows of a frame move towards its own start.
    target.samples.resize(std::max(target.samples.size(), part.width * part.height));
    Sample_findings findings;
    for (std::size_t row = 0; row < part.height; ++row) {
        std::span const samples = std::span(target.samples).subspan(row * part.width, part.width);
        copy_row(part.row + row, part.column, samples);
        findings.add(prepare_row(
            samples, part.row + row, part.column, level,
            notes ? saturated->data() + row * part.width : nullptr));
    }
    target.width = part.width;
    target.height = part.height;
    target.samples.resize(part.width * part.height);
    return warnings(findings, part, name);
}

Sample_warnings Frame_preparation::apply(
    Frame& frame, std::string const& name, Dark_level level,
    std::vector<std::uint8_t>* saturated) const {
    std::uint16_t const* const samples = frame.samples.data();
    std::size_t const width = frame.width;
    return apply_by_rows(
        frame, frame.size(), name, level, saturated,
        [=](std::size_t row, std::size_t column, std::span<std::uint16_t> target) {
            std::uint16_t const* const from = samples + row * width + column;
            if (from != target.data()) {
                std::memmove(target.data(), from, target.size_bytes());
            }
        });
}

Prepared_frame Frame_preparation::apply(
    Frame_slot& slot, Frame& room, Dark_level level, std::vector<std::uint8_t>* saturated) const {
    polarization::Size const whole = slot.size();
    std::string const name = slot.place().name();
    if (slot.is_decoded()) {
        Frame& frame = slot.frame();
        return {frame, apply(frame, name, level, saturated)};
    }
    return {
        room, apply_by_rows(
                  room, whole, name, level, saturated,
                  [&slot](std::size_t row, std::size_t column, std::span<std::uint16_t> target) {
                      slot.copy_row(row, column, target);
                  })};
}

Sample_warnings Frame_preparation::warnings(
    Sample_findings const& findings, Region const& part, std::string const& name) const {
    return {depth_warning(findings.largest, name), dark_warning(findings.sum, part, name)};
}

std::string Frame_preparation::depth_warning(unsigned largest, std::string const& name) const {
    if (largest <= limit()) {
        return {};
    }
    return name + ": has samples up to " + std::to_string(largest) + ", above the full scale " +
           std::to_string(limit()) + " of bit depth " + std::to_string(bit_depth_) +
           "; the total intensity may clip; give a larger --bit-depth, or --shift for samples at "
           "the upper end of 16 bits";
}

std::string Frame_preparation::dark_warning(
    std::uint64_t sum, Region const& part, std::string const& name) const {
    double const mean = static_cast<double>(sum) / static_cast<double>(part.height * part.width);
    if (!dark_ || !(mean_of_dark_ > mean)) {
        return {};
    }
    char means[64];
    std::snprintf(means, sizeof means, "%.1f, that of the frame %.1f", mean_of_dark_, mean);
    return name + ": is darker than the dark level taken off it, whose mean is " + means +
           "; what would fall below 0 clips to 0; give dark frames taken with the lens covered and "
           "with the frame's exposure and gain";
}

} // namespace polarize_tool
