#include "input/recorded_settings.hpp"

#include "terminal/failure.hpp"

#include <algorithm>

namespace polarize_tool {
namespace {

using polarization::Described_recording;
using Recordings = std::vector<Described_recording>;

// The first that differs from those before it; null if none does.
template <class Value>
Described_recording const* differing(Recordings const& recordings, Value value_of) {
    auto const found = std::ranges::find_if(recordings, [&](Described_recording const& recording) {
        return value_of(recording) != value_of(recordings.front());
    });
    return found == recordings.end() ? nullptr : &*found;
}

[[noreturn]] void refuse_differing(
    std::string const& option, std::string const& what, std::string const& first,
    Described_recording const& other, std::string const& others) {
    throw Usage_error(
        option + " is not given, and " + other.file.string() + " has " + what + " " + others +
        ", not " + first + " as those before; process it in a call of its own");
}

polarization::Pixel_format format_of(Described_recording const& recording) {
    return recording.description.format;
}

unsigned depth_of(Described_recording const& recording) {
    return bit_depth_of(format_of(recording));
}

void take_layout(Recordings const& recordings, Input_options& input) {
    auto const same = [&recordings](auto value_of) { return !differing(recordings, value_of); };
    if (same(format_of) && same([](auto const& recording) { return recording.description.size; })) {
        input.recorded_layout = recordings.front().description.layout();
    }
}

void take_depth(Recordings const& recordings, Sample_options& samples) {
    unsigned const depth = depth_of(recordings.front());
    if (auto const* const other = differing(recordings, depth_of)) {
        refuse_differing(
            "--bit-depth", "the bit depth", std::to_string(depth), *other,
            std::to_string(depth_of(*other)));
    }
    samples.recorded_depth = static_cast<int>(depth);
}

void take_mosaic(Recordings const& recordings, Mosaic_options& mosaic) {
    auto const& told = recordings.front().description.mosaic;
    auto const* const other =
        differing(recordings, [](auto const& recording) { return recording.description.mosaic; });
    if (other != nullptr && told && other->description.mosaic) {
        refuse_differing(
            "--layout", "the layout", told->to_string(), *other,
            other->description.mosaic->to_string());
    }
    if (other == nullptr && told) {
        mosaic.layout = told->to_string();
        mosaic.told_by = polarization::description_file_of(recordings.front().file);
    }
}

} // namespace

void take_from_recordings(Input_options& input, Sample_options& samples, Mosaic_options& mosaic) {
    bool const has_format = !input.pixel_format.empty();
    bool const has_mosaic = mosaic.phase || !mosaic.layout.empty();
    if (input.reads_standard_input() || (has_format && has_mosaic)) {
        return;
    }
    Recordings const recordings = polarization::described_recordings(input.inputs, has_format);
    if (recordings.empty()) {
        return;
    }
    if (!has_format) {
        take_layout(recordings, input);
    }
    if (!has_format && samples.bit_depth == 0) {
        take_depth(recordings, samples);
    }
    if (!has_mosaic) {
        take_mosaic(recordings, mosaic);
    }
}

} // namespace polarize_tool
