/// @file
/// Any bytes as a file of several pictures, found and read as the commands do it. What can be read
/// is the same in every order; everything else is refused with a line for the user.

#include "memory_file.hpp"

#include "input/frame_reading.hpp"
#include "terminal/failure.hpp"

#include <algorithm>

namespace {

using fuzz::Memory_file;
using fuzz::require;
using namespace polarize_tool;

/// A few bytes can name very many pictures.
constexpr std::size_t most_pictures{16};

/// Nothing for a picture that is refused.
std::optional<Frame> read(Frame_reader& reader, Frame_place const& place, Fetched_frame& fetched) {
    try {
        reader.fetch(place, fetched);
        reader.decode(fetched);
    } catch (File_failure const&) {
        return std::nullopt;
    }
    Frame const& frame = fetched.frame;
    require(frame.width != 0 && frame.height != 0, "an empty frame was read");
    require(frame.samples.size() == frame.width * frame.height, "samples are missing");
    return frame;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Memory_file const file;
    file.write({data, size});
    std::vector<Frame_place> places =
        find_frames({file.path().string()}, std::nullopt, {0, most_pictures, 1}).frames;

    // Memory is kept from one picture to the next, as in a run.
    Frame_reader in_order(std::nullopt);
    Fetched_frame fetched;
    std::vector<std::optional<Frame>> frames;
    for (Frame_place const& place : places) {
        frames.push_back(read(in_order, place, fetched));
    }
    std::reverse(places.begin(), places.end());
    std::reverse(frames.begin(), frames.end());
    Frame_reader backwards(std::nullopt);
    for (std::size_t index = 0; index < places.size(); ++index) {
        std::optional<Frame> const frame = read(backwards, places[index], fetched);
        require(frame.has_value() == frames[index].has_value(), "the order decides on refusal");
        require(
            !frame ||
                (frame->width == frames[index]->width && frame->height == frames[index]->height &&
                 frame->samples == frames[index]->samples),
            "the order changes samples");
    }
    return 0;
}
