#include "transform.hpp"

#include "mosaic.hpp"

#include <chrono>
#include <limits>

namespace polarize_tool {
namespace {

// No bit depth from 1 on has this as its full scale.
constexpr std::int32_t selects_rescaling = 0;
constexpr unsigned largest_full_scale = 65535;

std::int32_t sensor_full_scale(int bit_depth) {
    return (1 << bit_depth) - 1;
}

// The plane's memory if it is wanted. Filled before the call, so that no timed run meets memory
// that the system has yet to provide.
template <class Element>
Element* prepared(std::vector<Element>& plane, bool wanted, std::size_t size, Element contents) {
    if (!wanted) {
        return nullptr;
    }
    plane.assign(size, contents);
    return plane.data();
}

} // namespace

Output_scale output_scale(int bit_depth, std::optional<unsigned> full_scale) {
    std::int32_t const sensor = sensor_full_scale(bit_depth);
    auto const twice_sensor = static_cast<float>(2 * sensor);
    auto const output = static_cast<float>(full_scale.value_or(largest_full_scale));
    bool const keeps_units = full_scale && static_cast<std::int32_t>(*full_scale) == sensor;
    return {twice_sensor, output, keeps_units ? sensor : selects_rescaling};
}

std::string missing_instructions(bool has_avx2, bool has_fma) {
    if (has_avx2 && has_fma) {
        return {};
    }
    if (!has_avx2 && !has_fma) {
        return "AVX2 and FMA";
    }
    return has_avx2 ? "FMA" : "AVX2";
}

std::string missing_instructions() {
    return missing_instructions(
        __builtin_cpu_supports("avx2") != 0, __builtin_cpu_supports("fma") != 0);
}

std::string size_problem(Frame const& frame) {
    if (frame.height >= 2 && frame.width >= 2 && (frame.height == 2 || frame.width >= 16)) {
        return {};
    }
    return std::to_string(frame.width) + " x " + std::to_string(frame.height) +
           " pixels is too small; at least 16 x 2 are needed, or 2 x 2 in frames of two rows";
}

Transform_result transform(Frame const& frame, Transform_settings const& settings) {
    Transform_result result;
    std::size_t const size = frame.samples.size();
    auto const integer_plane = [&](Plane plane) {
        return prepared(
            result.integer_planes[static_cast<std::size_t>(plane)], settings.planes.contains(plane),
            size, std::uint16_t{0});
    };
    Output_scale const scale = output_scale(settings.bit_depth, settings.full_scale);
    Polarization_computation_arguments const arguments{
        .height = frame.height,
        .width = frame.width,
        .polar_phase = settings.phase,
        .raw_image = frame.samples.data(),
        .bit_depth = settings.bit_depth,
        .maximum_input_value = scale.maximum_input,
        .maximum_output_value = scale.maximum_output,
        .maximum_output_value_integer = scale.maximum_output_integer,
        .normalized_stokes_image = prepared(
            result.normalized_stokes, settings.planes.contains(Plane::normalized_stokes), 2 * size,
            std::numeric_limits<float>::quiet_NaN()),
        .s0_image = integer_plane(Plane::s0),
        .s1_image = integer_plane(Plane::s1),
        .s2_image = integer_plane(Plane::s2),
        .azimuth_image = integer_plane(Plane::azimuth),
        .dolp_image = integer_plane(Plane::dolp),
    };
    Mosaic_weights const weights(settings.phase);
    Calibration_matrices const matrices = weights.matrices();
    for (unsigned repetition = 0; repetition < settings.repetitions; ++repetition) {
        auto const start = std::chrono::steady_clock::now();
        qn_polarization_processor_transform_vector_avx2(arguments, matrices);
        std::chrono::duration<double, std::milli> const elapsed =
            std::chrono::steady_clock::now() - start;
        result.milliseconds.push_back(elapsed.count());
    }
    return result;
}

} // namespace polarize_tool
