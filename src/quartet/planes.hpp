#pragma once

#include "quartet/arctangent.hpp"
#include "quartet/degree_of_polarization.hpp"
#include "quartet/image_buffer_overlays.hpp"
#include "quartet/stokes.hpp"

namespace quartet {

/// Calls `store(plane, value)` for every requested 16-bit plane, where `value(stokes)` is what the
/// plane gets of a quartet, clamped and not yet converted.
template <typename Set, typename Lanes, typename Store>
[[gnu::always_inline]] inline void for_each_16_bit_plane(
    Polarization_computation_arguments const& arguments, Image_buffer_overlays const& overlays,
    Store store) {
    if constexpr (Set::want_16_bit_plane) {
        auto const limit = Lanes::load(&arguments.maximum_output_value);
        auto const scaled = [&](auto s) {
            return clamp<Lanes>(
                stokes_plane_value<Set, Lanes>(s, limit, arguments.maximum_input_value), limit);
        };
        if constexpr (Set::want_s0) {
            store(overlays.s0_image, [&](Stokes<Lanes> const& of) { return scaled(of.s0); });
        }
        if constexpr (Set::want_s1) {
            store(overlays.s1_image, [&](Stokes<Lanes> const& of) { return scaled(of.s1); });
        }
        if constexpr (Set::want_s2) {
            store(overlays.s2_image, [&](Stokes<Lanes> const& of) { return scaled(of.s2); });
        }
        if constexpr (Set::want_azimuth) {
            store(overlays.azimuth_image, [&](Stokes<Lanes> const& of) {
                return clamp<Lanes>(azimuth_value<Lanes>(of.s1, of.s2, limit), limit);
            });
        }
        if constexpr (Set::want_dolp) {
            store(overlays.dolp_image, [&](Stokes<Lanes> const& of) {
                return clamp<Lanes>(dolp_value<Lanes>(of.s0, of.s1, of.s2, limit), limit);
            });
        }
    }
}

} // namespace quartet
