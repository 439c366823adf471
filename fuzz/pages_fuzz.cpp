/// @file
/// Any bytes as a file of several pictures, found and read as the commands do it. What can be read
/// is the same in every order; everything else is refused with a line for the user.

#include "memory_file.hpp"

#include "veldrane_mrv/polarization/frame_list.hpp"

#include <optional>
#include <vector>

namespace {

using fuzz::Memory_file;
using fuzz::require;
using namespace veldrane_mrv::polarization;

/// A few bytes can name very many pictures.
constexpr std::size_t most_pictures{16};

/// Nothing for a picture that is refused.
std::optional<Frame> read(Frame_list& source, std::size_t number, Frame_slot& slot) {
    try {
        source.read(number, slot);
        Frame const& frame = slot.frame();
        require(frame.width != 0 && frame.height != 0, "an empty frame was read");
        require(frame.samples.size() == frame.width * frame.height, "samples are missing");
        return frame;
    } catch (File_failure const&) {
        return std::nullopt;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Memory_file const file;
    file.write({data, size});
    std::vector<Frame_place> const places =
        find_frames({file.path().string()}, std::nullopt, {0, most_pictures, 1}).frames;

    // Memory is kept from one picture to the next, as in a run.
    Frame_list in_order(places, std::nullopt);
    Frame_slot slot;
    std::vector<std::optional<Frame>> frames;
    for (std::size_t index = 0; index < places.size(); ++index) {
        frames.push_back(read(in_order, index, slot));
    }
    Frame_list backwards(places, std::nullopt);
    for (std::size_t index = places.size(); index-- > 0;) {
        std::optional<Frame> const frame = read(backwards, index, slot);
        require(frame.has_value() == frames[index].has_value(), "the order decides on refusal");
        require(
            !frame ||
                (frame->width == frames[index]->width && frame->height == frames[index]->height &&
                 frame->samples == frames[index]->samples),
            "the order changes samples");
    }
    return 0;
}
