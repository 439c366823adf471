#include "veldrane_mrv/polarization/guarantees.hpp"

#include "call_checks.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

namespace veldrane_mrv::polarization {

void check_mode(Settings const& settings, Mode mode) {
    if (settings.tables && mode == Mode::fast) {
        throw Argument_error{
            "the mode", "fast", "give the calibrated mode, which alone knows single pixels"};
    }
}

void check_call(Frame_view const& frame, Settings const& settings, Plane_views const& planes) {
    check_call_of({frame.size(), frame.samples()}, settings, planes, {});
}

} // namespace veldrane_mrv::polarization
