#include "reference/reference_transform.hpp"

namespace reference {
namespace {

std::array<float, 16> const& matrix_at(Calibration_matrices const& matrices, std::size_t index) {
    switch (index) {
    case 0:
        return matrices.even_row_even_column;
    case 1:
        return matrices.even_row_odd_column;
    case 2:
        return matrices.odd_row_even_column;
    default:
        return matrices.odd_row_odd_column;
    }
}

void store_weighted(
    Polarization_computation_arguments const& arguments, std::size_t index, Stokes const& stokes,
    bool same_range) {
    float const m = arguments.maximum_output_value;
    auto const store_stokes = [&](std::uint16_t* plane, float quantity) {
        if (plane != nullptr) {
            float const value = same_range
                                    ? quantity
                                    : rescale_weighted(quantity, m, arguments.maximum_input_value);
            plane[index] = clamp_and_convert_weighted(value, m);
        }
    };
    store_stokes(arguments.s0_image, stokes.s0);
    store_stokes(arguments.s1_image, stokes.s1);
    store_stokes(arguments.s2_image, stokes.s2);
    if (arguments.azimuth_image != nullptr) {
        arguments.azimuth_image[index] =
            clamp_and_convert_weighted(azimuth_weighted(stokes.s1, stokes.s2, m), m);
    }
    if (arguments.dolp_image != nullptr) {
        arguments.dolp_image[index] = clamp_and_convert_weighted(dolp_weighted(stokes, m), m);
    }
}

void store_fixed(
    Polarization_computation_arguments const& arguments, std::size_t index, Stokes const& stokes,
    bool same_range) {
    float const m = arguments.maximum_output_value;
    auto const store_stokes = [&](std::uint16_t* plane, float quantity) {
        if (plane != nullptr) {
            float const value =
                same_range ? quantity : rescale_fixed(quantity, m, arguments.maximum_input_value);
            plane[index] = clamp_and_convert_fixed(value, m);
        }
    };
    store_stokes(arguments.s0_image, stokes.s0);
    store_stokes(arguments.s1_image, stokes.s1);
    store_stokes(arguments.s2_image, stokes.s2);
    if (arguments.azimuth_image != nullptr) {
        arguments.azimuth_image[index] =
            clamp_and_convert_fixed(azimuth_fixed(stokes.s1, stokes.s2, m), m);
    }
    if (arguments.dolp_image != nullptr) {
        arguments.dolp_image[index] = clamp_and_convert_fixed(dolp_fixed(stokes, m), m);
    }
}

void write_integer_planes(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices,
    Frame_rule const& frame) {
    bool const same_range = same_output_range(arguments);
    for (std::size_t row = 0; row < arguments.height; ++row) {
        for (std::size_t column = 0; column < arguments.width; ++column) {
            Pixel_place const place = frame.place(row, column);
            Stokes const stokes = stokes_at(arguments, matrices, {row, column}, place);
            std::size_t const index = row * arguments.width + column;
            if (place.in_vector_block) {
                store_fixed(arguments, index, stokes, same_range);
            } else {
                store_weighted(arguments, index, stokes, same_range);
            }
        }
    }
}

void write_float_plane(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices,
    Frame_rule const& frame) {
    for (std::size_t pair = 0; pair < arguments.height * arguments.width; ++pair) {
        auto const source = frame.float_pair_source(pair);
        if (source) {
            Pixel_place const place = frame.place(source->row, source->column);
            Stokes const stokes = stokes_at(arguments, matrices, *source, place);
            arguments.normalized_stokes_image[2 * pair] = stokes.s1 / stokes.s0;
            arguments.normalized_stokes_image[2 * pair + 1] = stokes.s2 / stokes.s0;
        }
    }
}

} // namespace

bool same_output_range(Polarization_computation_arguments const& arguments) {
    std::uint32_t const shift = static_cast<std::uint32_t>(arguments.bit_depth) & 31u;
    std::uint32_t const full_scale = (std::uint32_t{1} << shift) - 1u;
    return static_cast<std::uint32_t>(arguments.maximum_output_value_integer) == full_scale;
}

Quartet quartet_at(
    Polarization_computation_arguments const& arguments, Position position,
    Pixel_place const& place) {
    std::size_t const side = place.last_column ? position.column - 1 : position.column + 1;
    std::uint16_t const* const own = arguments.raw_image + position.row * arguments.width;
    std::uint16_t const* const other =
        place.last_row ? own - arguments.width : own + arguments.width;
    return {own[position.column], own[side], other[position.column], other[side]};
}

Stokes stokes_at(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices,
    Position position, Pixel_place const& place) {
    if (place.in_vector_block) {
        return stokes_fixed(arguments, position.row, position.column);
    }
    return stokes_weighted(
        quartet_at(arguments, position, place), matrix_at(matrices, place.matrix));
}

void transform(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices) {
    Frame_rule const frame(arguments.height, arguments.width);
    if (arguments.s0_image != nullptr || arguments.s1_image != nullptr ||
        arguments.s2_image != nullptr || arguments.azimuth_image != nullptr ||
        arguments.dolp_image != nullptr) {
        write_integer_planes(arguments, matrices, frame);
    }
    if (arguments.normalized_stokes_image != nullptr) {
        write_float_plane(arguments, matrices, frame);
    }
}

} // namespace reference
