#include "veldrane_mrv/polarization/guarantees.hpp"

#include "buffers.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/processor.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

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

// Tables speak of every pixel, so only frames of their own size and depth have them.
void check_tables(Frame_view const& frame, Settings const& settings) {
    if (!settings.tables) {
        return;
    }
    if (frame.size() != settings.tables->size()) {
        throw Argument_error{
            "the size of the frame", to_string(frame.size()),
            "give frames of the calibrated size, " + to_string(settings.tables->size())};
    }
    if (settings.scale.bit_depth() != settings.tables->bit_depth()) {
        throw Argument_error{
            "the bit depth", std::to_string(settings.scale.bit_depth()),
            "give that of the calibration, " + std::to_string(settings.tables->bit_depth())};
    }
}

} // namespace

void check_mode(Settings const& settings, Mode mode) {
    if (settings.tables && mode == Mode::fast) {
        throw Argument_error{
            "the mode", "fast", "give the calibrated mode, which alone knows single pixels"};
    }
}

void check_call(Frame_view const& frame, Settings const& settings, Plane_views const& planes) {
    check_frame_size(frame);
    for_each_plane(
        [&](Plane plane, auto elements) {
            check_plane(name_of(plane), elements, elements_per_pixel(plane) * frame.pixels());
        },
        planes);
    check_overlap(buffers_of(frame, planes));
    check(settings.matrices);
    check_tables(frame, settings);
    check(processor_features());
}

} // namespace veldrane_mrv::polarization
