/// @file
/// Covers, in a program that a sanitizer or valgrind watches: every chosen variant against the
/// reference, bit for bit, in every geometry where the walk changes; the choice of a leaf for all
/// 2048 combinations; calls in several threads; initialise and terminate in and out of balance.

#include "reduced/chosen_variants.hpp"
#include "reduced/concurrent_calls.hpp"
#include "reduced/left_out.hpp"
#include "support/plain_call.hpp"

#include <cstdio>
#include <cstdlib>

namespace {

using namespace reduced;
using namespace support;

struct Failure {};

void require(bool condition, char const* what) {
    if (!condition) {
        std::fprintf(stderr, "sanitized_equality: %s\n", what);
        throw Failure{};
    }
}

Plane_set planes_of(Variant const& variant) {
    unsigned bits = 0;
    for (std::size_t plane = 0; plane < plane_count; ++plane) {
        bits |= variant[first_plane_place + plane] << plane;
    }
    return {bits};
}

/// A frame that leads to the variant: even sizes, or one less.
Scene scene_of(
    Variant const& variant, std::size_t even_height, std::size_t even_width, Sample_kind samples,
    Matrix_kind matrices, std::uint64_t seed) {
    Scene scene = make_scene(
        even_height - 1 + variant[height_place], even_width - 1 + variant[width_place], samples,
        matrices, static_cast<std::int32_t>(variant[phase_place]), seed);
    scene.scale = variant[range_place] != 0 ? sample_units : rescaled_12_bit;
    scene.wanted = planes_of(variant);
    return scene;
}

struct Even_geometry {
    std::size_t height;
    std::size_t width;
};

/// Without a block, with one, two and three; a tail of any length behind them; one row pair and
/// more. The odd sizes lie one below.
constexpr std::array<Even_geometry, 12> geometries{
    {{4, 18},
     {4, 32},
     {4, 34},
     {4, 48},
     {6, 30},
     {6, 50},
     {6, 64},
     {8, 36},
     {8, 46},
     {10, 66},
     {4, 80},
     {12, 34}}};

/// Two rows may be narrow.
constexpr std::array<std::size_t, 5> widths_of_two_rows{4, 6, 16, 34, 50};

void compare_variant(Variant const& variant, std::size_t& calls) {
    auto const compare = [&](Even_geometry geometry, Sample_kind samples, Matrix_kind matrices) {
        Scene const scene =
            scene_of(variant, geometry.height, geometry.width, samples, matrices, ++calls);
        require(equals_the_reference(scene), "a call differs from the reference");
    };
    for (Sample_kind const samples : every_sample_kind) {
        for (Matrix_kind const matrices : every_matrix_kind) {
            for (Even_geometry const& geometry : geometries) {
                compare(geometry, samples, matrices);
            }
            if (variant[height_place] != 0) {
                for (std::size_t const width : widths_of_two_rows) {
                    compare({2, width}, samples, matrices);
                }
            }
        }
    }
}

/// @return leaves that compute, the empty ones among them
std::size_t select_every_leaf() {
    std::size_t computing = 0;
    for (unsigned phase = 0; phase < value_count(phase_place); ++phase) {
        for (unsigned flags = 0; flags < 1U << (parameter_count - 1); ++flags) {
            Variant variant{phase};
            for (std::size_t place = 1; place < parameter_count; ++place) {
                variant[place] = flags >> (place - 1) & 1U;
            }
            Scene const scene =
                scene_of(variant, 4, 34, Sample_kind::random_16_bit, Matrix_kind::random, flags);
            Plain_matrices const matrices(scene.matrices);
            Plain_planes const planes(scene);
            int const result = qn_polarization_processor_transform_vector_avx2(
                planes.arguments(scene, scene.samples.data()), matrices.references());
            require(
                result == (is_left_out(variant) ? left_out : 0),
                "a call reached another leaf than its own");
            computing += result == 0 ? 1 : 0;
        }
    }
    return computing;
}

/// Two references and one give-back too many, then a new binding.
void bind_and_release() {
    require(qn_polarization_processor_vector_avx2_module_terminate() == 0, "terminate failed");
    for (int round = 0; round < 2; ++round) {
        for (int reference = 0; reference < 2; ++reference) {
            require(
                qn_polarization_processor_vector_avx2_module_initialize() == 0,
                "initialise failed");
        }
        for (int release = 0; release < 3; ++release) {
            require(
                qn_polarization_processor_vector_avx2_module_terminate() == 0, "terminate failed");
        }
    }
}

void run_everything() {
    std::size_t calls = 0;
    for (Variant const& variant : chosen_variants) {
        compare_variant(variant, calls);
    }
    std::printf(
        "%zu variants equal to the reference in %zu calls\n", chosen_variants.size(), calls);

    std::size_t const computing = select_every_leaf();
    std::printf("2048 combinations reached their leaves, %zu that compute\n", computing);
    require(computing == chosen_variants.size() + 32, "variants are missing");

    bind_and_release();
    constexpr std::size_t calls_per_thread = 50;
    for (Variant const& variant : chosen_variants) {
        Scene const scene =
            scene_of(variant, 8, 66, Sample_kind::random_16_bit, Matrix_kind::random, 1);
        require(agree_in_all_threads(scene, calls_per_thread), "threads disturb each other");
    }
    std::printf(
        "%zu calls in each of %zu threads agree\n", calls_per_thread * chosen_variants.size(),
        thread_count);
}

} // namespace

int main() {
    try {
        run_everything();
    } catch (Failure const&) {
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
