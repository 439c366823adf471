#include "support/plain_call.hpp"

#include "reference/reference_transform.hpp"

#include <algorithm>
#include <cstdio>
#include <span>

namespace support {

Plain_matrices::Plain_matrices(Matrix_set const& matrices) {
    constexpr std::size_t read_weights = 12;
    for (std::size_t index = 0; index < matrices.size(); ++index) {
        matrices_[index] = std::make_unique_for_overwrite<Matrix>();
        std::copy_n(matrices[index].begin(), read_weights, matrices_[index]->begin());
    }
}

Plain_planes::Plain_planes(Scene const& scene) {
    if (scene.wanted.has(Plane::normalized_stokes)) {
        normalized_stokes_ = std::make_unique<float[]>(2 * scene.pixels());
    }
    for (std::size_t index = 0; index < integer_planes_.size(); ++index) {
        if (scene.wanted.has(every_plane[1 + index])) {
            integer_planes_[index] =
                std::make_unique_for_overwrite<std::uint16_t[]>(scene.pixels());
        }
    }
}

Polarization_computation_arguments Plain_planes::arguments(
    Scene const& scene, std::uint16_t const* samples) const {
    return arguments_of(
        scene, samples,
        {normalized_stokes_.get(), integer_planes_[0].get(), integer_planes_[1].get(),
         integer_planes_[2].get(), integer_planes_[3].get(), integer_planes_[4].get()});
}

std::span<std::byte const> Plain_planes::bytes(Plane plane, std::size_t pixels) const {
    if (plane == Plane::normalized_stokes) {
        return std::as_bytes(std::span{normalized_stokes_.get(), 2 * pixels});
    }
    auto const index = static_cast<std::size_t>(plane) - 1;
    return std::as_bytes(std::span{integer_planes_[index].get(), pixels});
}

std::optional<Difference> Plain_planes::difference_from(
    Plain_planes const& actual, Scene const& scene) const {
    auto const rule = scene.any_nan_is_equal ? Nan_rule::any_nan_is_equal : Nan_rule::exact_bits;
    for (Plane const plane : every_plane) {
        if (scene.wanted.has(plane)) {
            auto const difference = first_difference(
                plane, scene.width, bytes(plane, scene.pixels()),
                actual.bytes(plane, scene.pixels()), rule);
            if (difference) {
                return difference;
            }
        }
    }
    return std::nullopt;
}

bool equals_the_reference(Scene const& scene, Transform transform) {
    Plain_matrices const matrices(scene.matrices);
    Plain_planes const expected(scene);
    Plain_planes const actual(scene);
    std::uint16_t const* const samples = scene.samples.data();
    reference::transform(expected.arguments(scene, samples), matrices.references());
    int const result = transform(actual.arguments(scene, samples), matrices.references());
    if (result != 0) {
        std::fprintf(stderr, "returned %d: %s\n", result, describe(scene).c_str());
        return false;
    }
    if (auto const difference = expected.difference_from(actual, scene)) {
        std::fprintf(stderr, "%s: %s\n", describe(*difference).c_str(), describe(scene).c_str());
        return false;
    }
    return true;
}

} // namespace support
