#include "support/scene.hpp"

#include <sstream>

namespace support {

Scene make_scene(
    std::size_t height, std::size_t width, Sample_kind samples, Matrix_kind matrices,
    std::int32_t polar_phase, std::uint64_t seed) {
    Scene scene{
        height, width, make_samples(samples, height, width, seed),
        make_matrices(matrices, polar_phase, seed)};
    scene.polar_phase = polar_phase;
    scene.sample_name = name_of(samples);
    scene.matrix_name = name_of(matrices);
    scene.seed = seed;
    scene.any_nan_is_equal = matrices == Matrix_kind::non_finite;
    return scene;
}

Polarization_computation_arguments arguments_of(
    Scene const& scene, std::uint16_t const* samples,
    std::array<void*, every_plane.size()> const& planes) {
    auto const wanted = [&](Plane plane) {
        return scene.wanted.has(plane) ? planes[static_cast<std::size_t>(plane)] : nullptr;
    };
    auto const integers = [&](Plane plane) { return static_cast<std::uint16_t*>(wanted(plane)); };
    return {
        scene.height,
        scene.width,
        scene.polar_phase,
        samples,
        scene.scale.bit_depth,
        scene.scale.maximum_input_value,
        scene.scale.maximum_output_value,
        scene.scale.maximum_output_value_integer,
        static_cast<float*>(wanted(Plane::normalized_stokes)),
        integers(Plane::s0),
        integers(Plane::s1),
        integers(Plane::s2),
        integers(Plane::azimuth),
        integers(Plane::dolp)};
}

std::string describe(Scene const& scene) {
    std::ostringstream text;
    text << scene.height << " x " << scene.width << ", phase " << scene.polar_phase
         << ", bit_depth " << scene.scale.bit_depth << ", maximum_input_value "
         << scene.scale.maximum_input_value << ", maximum_output_value "
         << scene.scale.maximum_output_value << ", maximum_output_value_integer "
         << scene.scale.maximum_output_value_integer << ", samples " << scene.sample_name
         << ", matrices " << scene.matrix_name << ", seed " << scene.seed << ", planes";
    for (Plane const plane : every_plane) {
        if (scene.wanted.has(plane)) {
            text << ' ' << name_of(plane);
        }
    }
    return text.str();
}

} // namespace support
