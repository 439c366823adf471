#pragma once

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <cstddef>
#include <cstdint>

/// View of one 16-bit plane. Owns nothing.
struct Image_buffer_overlay {
    std::uint16_t* data; ///< null for a plane that is not requested
    std::size_t height;
    std::size_t width; ///< row stride in elements

    std::uint16_t& at(std::size_t row, std::size_t column) const {
        return data[row * width + column];
    }
};

/// The planes as the single-quartet generator sees them. Every kernel builds one on its stack.
struct Image_buffer_overlays {
    Image_buffer_overlay raw_image;
    Image_buffer_overlay s0_image;
    Image_buffer_overlay s1_image;
    Image_buffer_overlay s2_image;
    Image_buffer_overlay azimuth_image;
    Image_buffer_overlay dolp_image;
};

/// All six entries, whichever planes are requested. The raw frame shares the planes' type and is
/// only read through it.
inline Image_buffer_overlays make_image_buffer_overlays(
    Polarization_computation_arguments const& arguments) {
    auto const overlay = [&arguments](std::uint16_t* data) {
        return Image_buffer_overlay{data, arguments.height, arguments.width};
    };
    return {
        overlay(const_cast<std::uint16_t*>(arguments.raw_image)),
        overlay(arguments.s0_image),
        overlay(arguments.s1_image),
        overlay(arguments.s2_image),
        overlay(arguments.azimuth_image),
        overlay(arguments.dolp_image),
    };
}
