#include "veldrane_mrv/polarization/fast_transform.hpp"

#include "processor_call.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/guarantees.hpp"

namespace veldrane_mrv::polarization {

void transform(Frame_view const& frame, Settings const& settings, Plane_views const& planes) {
    check_call(frame, settings, planes);
    if (settings.tables) {
        throw Argument_error{
            "the mode", "fast", "give the calibrated mode, which alone knows single pixels"};
    }
    call_processor(frame, settings, planes);
}

} // namespace veldrane_mrv::polarization
