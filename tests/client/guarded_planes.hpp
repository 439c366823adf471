/// @file
/// Planes of one call in guarded memory, so that a write beyond one is a fault, with a fill that
/// shows what a call has left alone.
#pragma once

#include "veldrane_mrv/polarization/views.hpp"

#include "support/guarded_frame.hpp"
#include "support/guarded_pages.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace client_test {

namespace polarization = veldrane_mrv::polarization;

class Guarded_planes {
public:
    explicit Guarded_planes(std::size_t most_pixels) {
        for (polarization::Plane const plane : polarization::every_plane) {
            pages(plane).emplace(
                most_pixels * bytes_per_pixel(plane), support::Guarded_pages::Access::read_write);
        }
    }

    /// Freshly filled planes flush against an edge.
    polarization::Plane_views lay(
        std::size_t pixels, polarization::Plane_set const& wanted, support::Edge edge) {
        polarization::Plane_views views;
        for (polarization::Plane const plane : wanted.list()) {
            std::size_t const bytes = pixels * bytes_per_pixel(plane);
            std::byte* const memory = pages(plane)->guarded(bytes, edge);
            support::fill_plane({memory, bytes}, support::Fill::plain);
            polarization::visit_plane(
                plane,
                [&]<class Element>(auto, std::span<Element>& view) {
                    view = {reinterpret_cast<Element*>(memory), bytes / sizeof(Element)};
                },
                views);
        }
        return views;
    }

    /// Whether every plane still is as it was laid.
    static bool untouched(polarization::Plane_views const& views) {
        for (polarization::Plane const plane : views.wanted().list()) {
            if (!support::is_untouched(bytes_of(views, plane), support::Fill::plain)) {
                return false;
            }
        }
        return true;
    }

    static std::span<std::byte const> bytes_of(
        polarization::Plane_views const& views, polarization::Plane plane) {
        return polarization::visit_plane(
            plane,
            [](auto, auto elements) -> std::span<std::byte const> {
                return std::as_bytes(elements);
            },
            views);
    }

private:
    static std::size_t bytes_per_pixel(polarization::Plane plane) {
        return polarization::visit_plane(
            plane,
            [](auto constant, auto elements) {
                return polarization::elements_per_pixel(constant) *
                       sizeof(typename decltype(elements)::value_type);
            },
            polarization::Plane_views{});
    }
    std::optional<support::Guarded_pages>& pages(polarization::Plane plane) {
        return pages_[static_cast<std::size_t>(plane)];
    }

    std::array<std::optional<support::Guarded_pages>, polarization::every_plane.size()> pages_;
};

/// The first plane of `views` that differs from `expected` in a bit, with the place, or nothing.
std::optional<std::string> first_difference(
    polarization::Plane_views const& views, polarization::Planes& expected);

} // namespace client_test
