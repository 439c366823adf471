/// @file
/// Compares a library that holds only the chosen variants with the reference, bit for bit, and
/// stops at the first difference. Prints what differs, or how many calls agreed.

#include "mutation/chosen_variants.hpp"

#include "reference/arithmetic_mode.hpp"
#include "support/equality_checker.hpp"

#include <array>
#include <dlfcn.h>
#include <iostream>
#include <limits>
#include <stdexcept>

namespace {

using namespace support;

constexpr int different{1};
constexpr int cannot_run{2};

struct Found_difference : std::runtime_error {
    using runtime_error::runtime_error;
};

constexpr Scale rescaled_fraction{12, 1234.5F, 65534.75F, 65535};

class Finder {
public:
    explicit Finder(Transform transform) : check_{transform} {}

    std::size_t calls() const { return check_.calls(); }

    /// Calls that select a variant which the library leaves out would end the process.
    void compare(Scene const& scene) {
        bool const height_is_even = scene.height % 2 == 0;
        bool const width_is_even = scene.width % 2 == 0;
        std::int32_t const phase = scene.polar_phase;
        if (!mutation::is_chosen_in_phase(
                phase >= 1 && phase <= 3 ? static_cast<unsigned>(phase) : 0, scene.wanted.bits,
                height_is_even, width_is_even)) {
            return;
        }
        if (auto const verdict = check_(scene); !verdict) {
            throw Found_difference{verdict.message()};
        }
    }

    Scene generate(
        std::size_t height, std::size_t width, Sample_kind samples, Matrix_kind matrices,
        std::int32_t phase) {
        return make_scene(height, width, samples, matrices, phase, ++seed_);
    }

    /// Every chosen set, both ranges.
    void compare_sets(Scene scene) {
        for (Scale const& scale : {sample_units, rescaled_12_bit, rescaled_fraction}) {
            scene.scale = scale;
            for (unsigned set = 0; set < plane_set_count; ++set) {
                scene.wanted = {set};
                compare(scene);
            }
        }
    }

private:
    Equality_checker check_;
    std::uint64_t seed_{20'240'229};
};

void compare_leaves(Finder& find) {
    for (Sample_kind const samples : every_sample_kind) {
        for (Matrix_kind const matrices : every_matrix_kind) {
            for (std::int32_t const phase : {0, 1, 2, 3, 4, -1}) {
                for (std::size_t const height : {5U, 6U}) {
                    for (std::size_t const width : {49U, 50U}) {
                        find.compare_sets(find.generate(height, width, samples, matrices, phase));
                    }
                }
            }
        }
    }
}

void compare_geometries(Finder& find) {
    for (std::size_t height = 2; height <= 9; ++height) {
        for (std::size_t width = height == 2 ? 2 : 16; width <= 70; ++width) {
            Matrix_kind const matrices = every_matrix_kind[width % every_matrix_kind.size()];
            Scene scene = find.generate(height, width, Sample_kind::random_12_bit, matrices, 0);
            find.compare(scene);
            scene.scale = rescaled_12_bit;
            find.compare(scene);
        }
    }
}

/// Rows too narrow for groups of quartets, where each plane alone takes code of its own.
void compare_narrow_frames(Finder& find) {
    constexpr std::array<std::array<std::size_t, 2>, 4> sizes{{{2, 2}, {2, 6}, {2, 14}, {4, 16}}};
    for (auto const& [height, width] : sizes) {
        for (Matrix_kind const matrices : every_matrix_kind) {
            find.compare_sets(
                find.generate(height, width, Sample_kind::random_12_bit, matrices, 0));
        }
    }
}

void compare_scales(Finder& find) {
    constexpr float infinity{std::numeric_limits<float>::infinity()};
    constexpr std::array outputs{65535.0F, 4095.0F, 1000.3F, 2.5F, 1.0F, 0.5F, 0.0F, -5.0F};
    constexpr std::array inputs{65535.0F, 1234.5F, 0.1F, -4095.0F, 1e-30F, infinity};
    constexpr std::array<std::array<std::int32_t, 2>, 8> depths{
        {{0, 0}, {0, 1}, {12, 4095}, {16, 65535}, {16, 255}, {31, 2147483647}, {32, 0}, {33, 1}}};
    for (float const output : outputs) {
        for (float const input : inputs) {
            for (auto const& [bits, full_scale] : depths) {
                for (Sample_kind const samples :
                     {Sample_kind::random_16_bit, Sample_kind::few_levels}) {
                    Scene scene = find.generate(3, 33, samples, Matrix_kind::random, 0);
                    scene.scale = {bits, input, output, full_scale};
                    find.compare(scene);
                }
            }
        }
    }
}

void compare_rounding_modes(Finder& find) {
    for (unsigned const rounding :
         {reference::downward, reference::upward, reference::toward_zero, reference::nearest}) {
        for (unsigned const subnormals : {0U, reference::subnormals_are_zero}) {
            reference::Arithmetic_mode const mode{rounding | subnormals};
            for (Sample_kind const samples : every_sample_kind) {
                for (Matrix_kind const matrices : every_matrix_kind) {
                    find.compare_sets(find.generate(5, 49, samples, matrices, 0));
                }
            }
        }
    }
}

/// One operation fused or reordered too many moves about one result in ten thousand.
void compare_large_frames(Finder& find) {
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        for (Matrix_kind const matrices : every_matrix_kind) {
            for (Scale const& scale : {sample_units, rescaled_fraction}) {
                Scene scene = find.generate(62, 1023, Sample_kind::random_16_bit, matrices, phase);
                scene.scale = scale;
                find.compare(scene);
            }
        }
    }
}

void compare_everything(Finder& find) {
    compare_geometries(find);
    compare_narrow_frames(find);
    compare_leaves(find);
    compare_scales(find);
    compare_large_frames(find);
    compare_rounding_modes(find);
}

} // namespace

int main(int argument_count, char** arguments) {
    if (argument_count != 2) {
        std::cerr << "usage: difference_finder LIBRARY\n";
        return cannot_run;
    }
    // Bound lazily: what the library leaves out is never called.
    void* const library = dlopen(arguments[1], RTLD_LAZY | RTLD_LOCAL);
    void* const transform = library == nullptr
                                ? nullptr
                                : dlsym(library, "qn_polarization_processor_transform_vector_avx2");
    if (transform == nullptr) {
        std::cerr << "difference_finder: " << dlerror() << '\n';
        return cannot_run;
    }
    Finder find{reinterpret_cast<Transform>(transform)};
    try {
        compare_everything(find);
    } catch (Found_difference const& difference) {
        std::cout << difference.what() << '\n';
        return different;
    }
    std::cout << "equal in " << find.calls() << " calls\n";
    return 0;
}
