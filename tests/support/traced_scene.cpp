#include "support/traced_scene.hpp"

namespace support {

Scene scene_of_numbered_matrices(std::size_t height, std::size_t width) {
    Scene scene{height, width, Samples(height * width, 1), {}};
    for (std::size_t position = 0; position < scene.matrices.size(); ++position) {
        // Twice S0, as the first row of every matrix.
        auto const weight = static_cast<float>(2 * (s0_by_matrix_0 + static_cast<int>(position)));
        scene.matrices[position] = matrix_of({weight, 0, 0, 0}, {}, {});
    }
    return scene;
}

Scene scene_of_positions(std::size_t height, std::size_t width, std::size_t picked_sample) {
    Weights pick{};
    pick[picked_sample] = 1;
    Scene scene{height, width, {}, everywhere(matrix_of({1, 1, 1, 1}, pick, {}))};
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            scene.samples.push_back(position_sample(row, column));
        }
    }
    return scene;
}

} // namespace support
