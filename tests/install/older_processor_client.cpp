// What must run on any x86-64, and, asked for `s0_requested`, what must not.

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

int main(int argument_count, char** arguments) {
    bool const request = argument_count > 1 && std::string_view(arguments[1]) == "s0_requested";
    std::array<std::uint16_t, 4> const raw{1, 2, 3, 4};
    std::array<std::uint16_t, 4> s0{};
    std::array<float, 16> const weights{1, 1, 1, 1};
    Polarization_computation_arguments frame{};
    frame.height = 2;
    frame.width = 2;
    frame.raw_image = raw.data();
    frame.maximum_output_value = 65535;
    frame.s0_image = request ? s0.data() : nullptr;

    int failures = qn_polarization_processor_vector_avx2_module_initialize();
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        frame.polar_phase = phase;
        failures += qn_polarization_processor_transform_vector_avx2(
            frame, Calibration_matrices{weights, weights, weights, weights});
    }
    failures += qn_polarization_processor_vector_avx2_module_terminate();
    std::printf("%s: %d failures\n", arguments[0], failures);
    return failures;
}
