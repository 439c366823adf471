#include "output/processing.hpp"

#include "terminal/interruption.hpp"

#include <chrono>

namespace polarize_tool {
namespace {

using polarization::Element_type;
using polarization::Plane;
using polarization::Plane_set;

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
    auto const& about = description_of(plane);
    return is_signed && about.signed_element != about.element;
}

bool Processing::is_converted(Plane plane) const {
    return units != Units::scaled && description_of(plane).element == Element_type::uint16;
}

Element_type Processing::kind_of(Plane plane) const {
    auto const& about = description_of(plane);
    return is_converted(plane) ? Element_type::float32
           : is_signed         ? about.signed_element
                               : about.element;
}

Frame_processor::Frame_processor(Processing const& processing)
    : processing_{processing}, computed_{computed_planes(processing)},
      // Planes begin as NaN.
      transform_{
          processing.settings,
          {.mode = processing.mode,
           .fills_normalized_stokes = false,
           .threads = processing.threads}},
      marker_{processing.settings, processing.mode} {}

void Frame_processor::take_memory(std::size_t height, std::size_t width) {
    if (planes_ && planes_->height() == height && planes_->width() == width) {
        return;
    }
    planes_.emplace(height, width, computed_);
    if (processing_.is_signed) {
        signed_planes_.emplace(height, width, processing_.planes);
    }
}

template <class Source>
void Frame_processor::transform(Source const& source) {
    transform_(
        source, planes_->views(),
        signed_planes_ ? signed_planes_->views() : polarization::Signed_views());
}

void Frame_processor::run(polarization::Frame_rows const& frame) {
    take_memory(frame.height, frame.width);
    milliseconds_.clear();
    transform(frame);
    convert_planes();
}

void Frame_processor::run(Frame const& frame, std::span<std::uint8_t const> saturated) {
    take_memory(frame.height, frame.width);
    milliseconds_.clear();
    for (unsigned repetition = 0; repetition < processing_.repetitions; ++repetition) {
        // Whoever interrupts a run does not want the frame any more, so one repetition will do.
        if (repetition > 0 && interruption_flag()) {
            break;
        }
        auto const start = std::chrono::steady_clock::now();
        transform(frame.view());
        std::chrono::duration<double, std::milli> const elapsed =
            std::chrono::steady_clock::now() - start;
        milliseconds_.push_back(elapsed.count());
    }
    if (!saturated.empty() && computed_.contains(Plane::validity)) {
        polarization::mark_saturated(saturated, frame.size(), planes_->views().validity);
    }
    convert_planes();
}

void Frame_processor::convert_planes() {
    for (Plane const plane : processing_.planes.list()) {
        if (processing_.is_converted(plane)) {
            auto& result = converted_[static_cast<std::size_t>(plane)];
            result.resize(planes_->height() * planes_->width());
            convert(plane, result);
        }
    }
}

std::span<std::uint8_t const> Frame_processor::validity(
    Frame const& frame, std::span<std::uint8_t const> saturated) {
    if (computed_.contains(Plane::validity)) {
        return planes_->views().validity;
    }
    marks_.resize(frame.samples.size());
    marker_(frame.view(), marks_);
    if (!saturated.empty()) {
        polarization::mark_saturated(saturated, frame.size(), marks_);
    }
    return marks_;
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
        polarization::stokes_in_samples(signed_elements(plane), scale, result);
    } else {
        polarization::stokes_in_samples(stored(plane), scale, result);
    }
}

std::span<std::int32_t const> Frame_processor::signed_elements(Plane plane) const {
    return plane == Plane::s1 ? signed_planes_->s1 : signed_planes_->s2;
}

std::span<std::uint16_t const> Frame_processor::stored(Plane plane) const {
    return planes_->integer_plane(plane);
}

Array_view Frame_processor::array(Plane plane) const {
    auto const array_of = [&]<class Element>(std::span<Element const> elements) {
        return Array_view(
            elements, planes_->width(), planes_->height(), polarization::elements_per_pixel(plane));
    };
    if (processing_.is_converted(plane)) {
        return array_of(std::span<float const>(converted_[static_cast<std::size_t>(plane)]));
    }
    if (processing_.holds_sign(plane)) {
        return array_of(signed_elements(plane));
    }
    return planes_->visit(plane, array_of);
}

} // namespace polarize_tool
