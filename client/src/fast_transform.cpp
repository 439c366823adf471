#include "veldrane_mrv/polarization/fast_transform.hpp"

#include "processor_call.hpp"

#include "veldrane_mrv/polarization/guarantees.hpp"

namespace veldrane_mrv::polarization {

void transform(Frame_view const& frame, Settings const& settings, Plane_views const& planes) {
    check_call(frame, settings, planes);
    check_mode(settings, Mode::fast);
    call_processor(frame, settings, planes);
}

} // namespace veldrane_mrv::polarization
