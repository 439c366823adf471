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
