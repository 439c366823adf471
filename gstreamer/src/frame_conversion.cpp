#include "frame_conversion.hpp"

#include "veldrane_mrv/polarization/frame.hpp"
#include "veldrane_mrv/polarization/guarantees.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <span>

namespace polarization_element {
namespace {

using polarization::Size;

// What the frames of a stream have in common is checked before the first of them.
polarization::Frame_transform checked_transform(
    Options const& options, std::shared_ptr<polarization::Calibration const> const& calibration,
    Size const& size, Samples samples) {
    Transform_choice const choice = transform_choice(options, calibration, samples);
    polarization::Frame const black{
        size.width, size.height, std::vector<std::uint16_t>(size.width * size.height)};
    check_call(black.view(), choice.settings, {});
    return polarization::Frame_transform(
        choice.settings, {.mode = choice.mode, .threads = options.threads});
}

// S0 as a screen shows its light, white from the full scale on; for any 16 bits.
std::vector<std::uint8_t> intensity_levels(unsigned full_scale) {
    std::vector<std::uint8_t> levels;
    for (unsigned element = 0; element < 65536; ++element) {
        levels.push_back(polarization::display_level(static_cast<double>(element) / full_scale));
    }
    return levels;
}

/// The largest of samples above a limit of the form 2^n - 1; several threads may look.
class Excess {
public:
    explicit Excess(unsigned limit) : limit_{limit} {}

    void look(std::span<std::uint16_t const> samples) {
        // The bits of all samples together are quick to find and tell whether to look closer.
        std::uint16_t bits = 0;
        for (std::uint16_t const sample : samples) {
            bits |= sample;
        }
        if (bits > limit_) {
            std::lock_guard const lock{mutex_};
            largest_ = std::max<unsigned>(largest_, *std::ranges::max_element(samples));
        }
    }
    unsigned largest() const { return largest_; }

private:
    unsigned limit_;
    std::mutex mutex_;
    unsigned largest_ = 0;
};

// Whether a plane can be written where it is to go: elements without gaps, at their alignment.
bool holds_plane(Rows<std::byte> const& target, std::size_t width) {
    return target.stride == static_cast<std::ptrdiff_t>(width * sizeof(std::uint16_t)) &&
           reinterpret_cast<std::uintptr_t>(target.first) % alignof(std::uint16_t) == 0;
}

// The part of a plane that lies in one row; empty if the plane is.
template <class Element>
std::span<Element const> row_of(std::span<Element const> plane, std::size_t row, Size const& size) {
    return plane.empty() ? plane : plane.subspan(row * size.width, size.width);
}

} // namespace

Frame_conversion::Frame_conversion(
    Options const& options, std::shared_ptr<polarization::Calibration const> const& calibration,
    Size const& size, Samples samples)
    : output_{options.output}, samples_{samples}, transform_{checked_transform(
                                                      options, calibration, size, samples)},
      planes_{size.height, size.width, planes_of(options)},
      colours_(is_picture(options.output) ? size.width : 0) {
    if (output_ == Output::intensity) {
        levels_ = intensity_levels(scale().full_scale());
    }
}

void Frame_conversion::operator()(
    Rows<std::byte const> const& frame, Rows<std::byte> const& target) {
    std::size_t const width = size().width;
    Excess excess(scale().largest_sample());
    polarization::Frame_rows const rows{
        size().height, width, [&](std::size_t begin, std::size_t end, std::uint16_t* samples) {
            auto const format = samples_ == Samples::of_8_bits ? polarization::Pixel_format::mono8
                                                               : polarization::Pixel_format::mono16;
            std::size_t const bytes = bytes_per_row(format, width);
            for (std::size_t row = begin; row != end; ++row, samples += width) {
                unpack_row(format, {frame[row], bytes}, {samples, width});
                excess.look({samples, width});
            }
        }};
    polarization::Plane_views views = planes_.views();
    if (is_picture(output_)) {
        transform_(rows, views);
        draw_picture(target);
    } else if (holds_plane(target, width)) {
        // Over `void`, for compilers that doubt the alignment.
        void* const elements = target.first;
        views.integer_plane(planes_.wanted().list().front()) = {
            static_cast<std::uint16_t*>(elements), width * size().height};
        transform_(rows, views);
    } else {
        transform_(rows, views);
        store_plane(target);
    }
    largest_excess_ = excess.largest();
}

void Frame_conversion::store_plane(Rows<std::byte> const& target) {
    auto const plane = planes_.integer_plane(planes_.wanted().list().front());
    for (std::size_t row = 0; row < size().height; ++row) {
        auto const elements = std::as_bytes(row_of(plane, row, size()));
        std::ranges::copy(elements, target[row]);
    }
}

void Frame_conversion::draw_picture(Rows<std::byte> const& target) {
    polarization::Plane_views const views = planes_.views();
    unsigned const full_scale = scale().full_scale();
    for (std::size_t row = 0; row < size().height; ++row) {
        auto const part = [&]<class Element>(std::span<Element> plane) {
            return row_of(std::span<Element const>(plane), row, size());
        };
        polarization::Picture_source const source{part(views.azimuth), part(views.dolp),
                                                  size().width,        1,
                                                  full_scale,          part(views.validity)};
        if (output_ == Output::angle) {
            draw_angle_degree(source, colours_);
        } else if (output_ == Output::degree) {
            draw_degree(source, colours_);
        } else {
            std::ranges::transform(part(views.s0), colours_.begin(), [this](std::uint16_t s0) {
                return polarization::Colour{levels_[s0], levels_[s0], levels_[s0]};
            });
        }
        std::byte* pixel = target[row];
        for (auto const& [red, green, blue] : colours_) {
            std::array<std::uint8_t, 4> const bytes{blue, green, red, 255};
            std::memcpy(pixel, bytes.data(), bytes.size());
            pixel += bytes.size();
        }
    }
}

} // namespace polarization_element
