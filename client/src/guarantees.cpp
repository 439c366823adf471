#include "veldrane_mrv/polarization/guarantees.hpp"

#include "buffers.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <string>

namespace veldrane_mrv::polarization {
namespace {

void check_frame_size(Frame_view const& frame) {
    if (can_be_processed(frame.size())) {
        return;
    }
    if (frame.height() < 2) {
        throw Argument_error{
            "the height of the frame", std::to_string(frame.height()),
            "give a frame of at least 2 rows"};
    }
    throw Argument_error{
        "the width of the frame", std::to_string(frame.width()),
        "give a frame of at least 16 columns, or of at least 2 if it has exactly 2 rows"};
}

} // namespace

void check_call(Frame_view const& frame, Settings const& settings, Plane_views const& planes) {
    check_frame_size(frame);
    for_each_plane(
        [&](Plane plane, auto elements) {
            check_plane(name_of(plane), elements, elements_per_pixel(plane) * frame.pixels());
        },
        planes);
    check_overlap(buffers_of(frame, planes));
    check(settings.matrices);
    check(processor_features());
}

} // namespace veldrane_mrv::polarization
