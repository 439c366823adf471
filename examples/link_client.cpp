// A client that links the processor: one frame of a uniformly polarised scene.
//
//     g++ link_client.cpp $(pkg-config --cflags --libs veldrane_mrv_polarization)

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

int main() {
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma")) {
        std::puts("This processor has no AVX2 and FMA; no frame processed.");
        return 0;
    }
    qn_polarization_processor_vector_avx2_module_initialize();

    // Horizontal light behind the mosaic 0 135 / 45 90 of phase 0: full, half, half, none.
    std::size_t const height = 64;
    std::size_t const width = 96;
    std::vector<std::uint16_t> raw(height * width);
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            std::size_t const direct = row % 2 == 0 && column % 2 == 0;
            std::size_t const crossed = row % 2 == 1 && column % 2 == 1;
            raw[row * width + column] = static_cast<std::uint16_t>(1000 * (1 + direct - crossed));
        }
    }

    // Weights of the four positions in the mosaic's cell: rows for 2 * S0, S1, S2, and one unused;
    // columns for a pixel's own sample, its horizontal, vertical and diagonal neighbour.
    std::array<float, 16> const even_even{1, 1, 1, 1, 1, 0, 0, -1, 0, -1, 1, 0};
    std::array<float, 16> const even_odd{1, 1, 1, 1, 0, 1, -1, 0, -1, 0, 0, 1};
    std::array<float, 16> const odd_even{1, 1, 1, 1, 0, -1, 1, 0, 1, 0, 0, -1};
    std::array<float, 16> const odd_odd{1, 1, 1, 1, -1, 0, 0, 1, 0, 1, -1, 0};

    std::vector<std::uint16_t> azimuth(raw.size());
    std::vector<std::uint16_t> dolp(raw.size());
    Polarization_computation_arguments arguments{}; // null planes are not computed
    arguments.height = height;
    arguments.width = width;
    arguments.polar_phase = 0;
    arguments.raw_image = raw.data();
    arguments.bit_depth = 12;
    arguments.maximum_input_value = 2 * 4095; // S0 reaches twice the sensor's full scale
    arguments.maximum_output_value = 65535;
    arguments.maximum_output_value_integer = 65535;
    arguments.azimuth_image = azimuth.data();
    arguments.dolp_image = dolp.data();
    qn_polarization_processor_transform_vector_avx2(
        arguments, Calibration_matrices{even_even, even_odd, odd_even, odd_odd});

    std::printf("azimuth %.1f degrees, degree %.3f\n", azimuth[0] * 180. / 65535, dolp[0] / 65535.);
    qn_polarization_processor_vector_avx2_module_terminate();
}
