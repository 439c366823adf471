/// @file
/// Any call inside the contract, drawn from the input: planes, phase, geometry, scales, matrices
/// and samples. Ends the process if the library and the reference disagree in a bit.

#include "input_reader.hpp"

#include "reduced/left_out.hpp"
#include "support/plain_call.hpp"

#include <array>
#include <cstdlib>

namespace {

using namespace reduced;
using namespace support;
using fuzz::Input_reader;

/// Two bytes decide, the same ones in every build: the planes and the parities of the frame, then
/// the range, the phase among the four that differ, and whether four more bytes give any phase.
struct Choice {
    std::uint8_t planes_and_parities;
    std::uint8_t range_and_phase;

    unsigned planes() const { return planes_and_parities & 63U; }
    bool height_is_even() const { return (planes_and_parities & 64U) != 0; }
    bool width_is_even() const { return (planes_and_parities & 128U) != 0; }
    bool same_output_range() const { return (range_and_phase & 1U) != 0; }
    std::int32_t usual_phase() const { return range_and_phase >> 1U & 3U; }
    bool takes_any_phase() const { return (range_and_phase & 8U) != 0; }
};

/// Full scales are often taken from the usual ones: a float of random bits rarely leads anywhere.
float draw_full_scale(Input_reader& input) {
    constexpr std::array usual{65535.0F, 4095.0F, 255.0F, 1.0F, 0.5F, 65534.75F, 1e-30F};
    unsigned const choice = input.below(2 * usual.size());
    return choice < usual.size() ? usual[choice] : input.next<float>();
}

Scale draw_scale(Input_reader& input, bool same_output_range) {
    auto const bit_depth = input.next<std::int32_t>();
    std::uint32_t const expected =
        (std::uint32_t{1} << (static_cast<std::uint32_t>(bit_depth) & 31U)) - 1U;
    std::uint32_t const difference = same_output_range ? 0 : 1U | input.next<std::uint32_t>();
    float input_maximum = draw_full_scale(input);
    float output_maximum = draw_full_scale(input);
    // What the contract excludes; a NaN is no number that is at most 65535.
    if (!(output_maximum <= 65535.0F)) {
        output_maximum = 65535.0F;
    }
    if (input_maximum == 0.0F) {
        input_maximum = 1.0F;
    }
    return {
        bit_depth, input_maximum, output_maximum, static_cast<std::int32_t>(expected ^ difference)};
}

/// Small weights that most sums of samples keep exact, or any float at all.
float draw_weight(Input_reader& input, bool any_float) {
    return any_float ? input.next<float>() : static_cast<float>(input.next<std::int8_t>()) / 16;
}

Matrix_set draw_matrices(Input_reader& input) {
    bool const any_float = input.below(2) != 0;
    Matrix_set matrices{};
    for (Matrix& matrix : matrices) {
        for (float& weight : matrix) {
            weight = draw_weight(input, any_float);
        }
    }
    return matrices;
}

/// The rest of the input over and over.
Samples draw_samples(Input_reader& input, std::size_t count) {
    auto const bytes = input.rest();
    Samples samples(count);
    for (std::size_t index = 0; index < count && !bytes.empty(); ++index) {
        std::size_t const low = 2 * index % bytes.size();
        std::size_t const high = (2 * index + 1) % bytes.size();
        samples[index] = static_cast<std::uint16_t>(bytes[low] | bytes[high] << 8);
    }
    return samples;
}

/// Sizes of the parities drawn: 2 to 11 rows and 16 to 79 columns, or 2 to 79 of two rows.
Scene draw_scene(Input_reader& input) {
    auto const choice = input.next<Choice>();
    std::size_t const height = 2 * (1 + input.below(5)) + (choice.height_is_even() ? 0 : 1);
    std::size_t const width_is_odd = choice.width_is_even() ? 0 : 1;
    std::size_t const width = height == 2 ? 2 * (1 + input.below(39)) + width_is_odd
                                          : 16 + 2 * input.below(32) + width_is_odd;
    Scene scene{height, width, {}, {}};
    scene.wanted = {choice.planes()};
    scene.polar_phase =
        choice.takes_any_phase() ? input.next<std::int32_t>() : choice.usual_phase();
    scene.scale = draw_scale(input, choice.same_output_range());
    scene.matrices = draw_matrices(input);
    scene.samples = draw_samples(input, scene.pixels());
    scene.any_nan_is_equal = true;
    return scene;
}

#ifdef REDUCED_VARIANTS
constexpr bool is_same_range(Scale const& scale) {
    // The depth counts modulo 32.
    auto const bits = static_cast<std::uint32_t>(scale.bit_depth) & 31U;
    return static_cast<std::uint32_t>(scale.maximum_output_value_integer) ==
           (std::uint32_t{1} << bits) - 1U;
}

/// A reduced build computes the calls whose kernel it holds; the others it must not get.
bool is_computed(Scene const& scene) {
    bool const is_known_phase = scene.polar_phase >= 1 && scene.polar_phase <= 3;
    Variant variant{is_known_phase ? static_cast<unsigned>(scene.polar_phase) : 0U};
    variant[range_place] = is_same_range(scene.scale) ? 1 : 0;
    for (std::size_t plane = 0; plane < plane_count; ++plane) {
        variant[first_plane_place + plane] = scene.wanted.bits >> plane & 1U;
    }
    variant[height_place] = scene.height % 2 == 0 ? 1 : 0;
    variant[width_place] = scene.width % 2 == 0 ? 1 : 0;
    return !is_left_out(variant);
}
#else
bool is_computed(Scene const&) {
    return true;
}
#endif

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input_reader input{{data, size}};
    Scene const scene = draw_scene(input);
    if (is_computed(scene) && !equals_the_reference(scene)) {
        std::abort();
    }
    return 0;
}
