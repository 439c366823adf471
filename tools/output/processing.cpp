#include "output/processing.hpp"

#include "terminal/interruption.hpp"

#include <chrono>

namespace polarize_tool {
namespace {

using polarization::Mode;
using polarization::Plane;
using polarization::Plane_set;

constexpr std::array integer_planes = {
    Plane::s0, Plane::s1, Plane::s2, Plane::azimuth, Plane::dolp};

// In physical units an angle or a degree that is none shows as NaN, which another plane tells.
Plane_set with_companions(Plane_set planes) {
    if (planes.contains(Plane::azimuth)) {
        planes.insert(Plane::dolp);
    }
    if (planes.contains(Plane::dolp)) {
        planes.insert(Plane::s0);
    }
    return planes;
}

Plane_set computed_planes(Processing const& processing) {
    Plane_set computed =
        processing.units == Units::scaled ? processing.planes : with_companions(processing.planes);
    if (processing.is_signed) { // these come with their signs, in memory of their own
        computed.erase(Plane::s1);
        computed.erase(Plane::s2);
    }
    return computed;
}

} // namespace

bool Processing::holds_sign(Plane plane) const {
    return is_signed && (plane == Plane::s1 || plane == Plane::s2);
}

Sample_kind Processing::kind_of(Plane plane) const {
    if (plane == Plane::normalized_stokes || units != Units::scaled) {
        return Sample_kind::float32;
    }
    return holds_sign(plane) ? Sample_kind::int32 : Sample_kind::uint16;
}

Frame_processor::Frame_processor(Processing const& processing)
    : processing_(processing), computed_(computed_planes(processing)) {
    if (processing.is_signed) {
        signed_.emplace(processing.settings, processing.mode);
    } else if (processing.mode == Mode::calibrated) {
        calibrated_.emplace(processing.settings);
    }
}

void Frame_processor::take_memory(std::size_t height, std::size_t width) {
    if (planes_ && planes_->height() == height && planes_->width() == width) {
        return;
    }
    planes_.emplace(height, width, computed_);
    if (processing_.is_signed) {
        signed_planes_.emplace(height, width, processing_.planes);
    }
}

void Frame_processor::transform_once(Frame const& frame) {
    if (signed_) {
        (*signed_)(frame.view(), planes_->views(), signed_planes_->views());
    } else if (calibrated_) {
        (*calibrated_)(frame.view(), planes_->views());
    } else {
        polarization::transform(frame.view(), processing_.settings, planes_->views());
    }
}

void Frame_processor::run(Frame const& frame) {
    take_memory(frame.height, frame.width);
    milliseconds_.clear();
    for (unsigned repetition = 0; repetition < processing_.repetitions; ++repetition) {
        // Whoever interrupts a run does not want the frame any more, so one repetition will do.
        if (repetition > 0 && interruption_flag()) {
            break;
        }
        auto const start = std::chrono::steady_clock::now();
        transform_once(frame);
        std::chrono::duration<double, std::milli> const elapsed =
            std::chrono::steady_clock::now() - start;
        milliseconds_.push_back(elapsed.count());
    }
    if (processing_.units != Units::scaled) {
        convert();
    }
}

void Frame_processor::convert() {
    for (Plane const plane : integer_planes) {
        if (processing_.planes.contains(plane)) {
            auto& result = converted_[static_cast<std::size_t>(plane)];
            result.resize(planes_->height() * planes_->width());
            convert(plane, result);
        }
    }
}

void Frame_processor::convert(Plane plane, std::vector<float>& result) {
    polarization::Scale const& scale = processing_.settings.scale;
    if (plane == Plane::azimuth) {
        polarization::angles(
            stored(Plane::azimuth), stored(Plane::dolp), scale,
            processing_.units == Units::degrees ? polarization::Angle_unit::degrees
                                                : polarization::Angle_unit::radians,
            result);
    } else if (plane == Plane::dolp) {
        polarization::degrees_of_polarization(
            stored(Plane::dolp), stored(Plane::s0), scale, result);
    } else if (processing_.holds_sign(plane)) {
        std::span<std::int32_t const> const elements =
            plane == Plane::s1 ? signed_planes_->s1 : signed_planes_->s2;
        polarization::stokes_in_samples(elements, scale, result);
    } else {
        polarization::stokes_in_samples(stored(plane), scale, result);
    }
}

std::span<std::uint16_t const> Frame_processor::stored(Plane plane) const {
    return planes_->integer_plane(plane);
}

Array_view Frame_processor::array(Plane plane) const {
    std::size_t const width = planes_->width();
    std::size_t const height = planes_->height();
    if (plane == Plane::normalized_stokes) {
        return {planes_->normalized_stokes(), width, height, 2};
    }
    switch (processing_.kind_of(plane)) {
    case Sample_kind::float32:
        return {std::span<float const>(converted_[static_cast<std::size_t>(plane)]), width, height};
    case Sample_kind::int32:
        return {
            std::span<std::int32_t const>(
                plane == Plane::s1 ? signed_planes_->s1 : signed_planes_->s2),
            width, height};
    case Sample_kind::uint16:
        break;
    }
    return {stored(plane), width, height};
}

} // namespace polarize_tool
