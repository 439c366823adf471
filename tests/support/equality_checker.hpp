/// @file
/// The library against the reference, bit for bit, in guarded memory.

#pragma once

#include "support/comparison.hpp"
#include "support/guarded_frame.hpp"
#include "support/scene.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace support {

/// Frames of up to this many pixels fit a checker and `compute`.
inline constexpr std::size_t largest_frame{std::size_t{64} * 1024};

class Equality_checker {
public:
    explicit Equality_checker(
        Transform transform = &qn_polarization_processor_transform_vector_avx2);

    /// Runs the scene twice, flush against either edge of the guarded memory and on opposite fills,
    /// and compares every plane: requested ones with the reference, the others with their fill.
    /// Passes over scenes that are not in the sample.
    /// @return the first thing that is wrong, with the scene
    testing::AssertionResult operator()(Scene const& scene);

    /// Calls of the transform so far, two for each scene that was not passed over.
    std::size_t calls() const { return calls_; }

    /// Calls that the scenes passed over would have made.
    std::size_t calls_left_out() const { return calls_left_out_; }

private:
    void compute_expected(Scene const& scene);
    void fill_unwritten_floats(Scene const& scene, Fill fill);
    testing::AssertionResult check_plane(Scene const& scene, Plane plane) const;

    Transform transform_;
    Guarded_frame frame_{largest_frame};
    std::array<std::vector<std::byte>, every_plane.size()> expected_;
    std::size_t calls_{0};
    std::size_t calls_left_out_{0};
};

/// Calls that all checkers of the process have made.
std::size_t checked_calls();

/// One in so many scenes of the process is compared, the first and each that lies so many behind
/// another: the environment's VELDRANE_EQUALITY_STRIDE, else 1. For emulated processors.
/// @throws std::invalid_argument if it is set and no number, or 0
std::size_t equality_stride();

/// What a run of the equality tests did.
struct Equality_volume {
    /// Whether no test was filtered out.
    bool is_whole_run;
    std::size_t calls;
    std::uint64_t rounds;
};

/// Guarded calls of a round, at least, whatever is rearranged in the suites.
inline constexpr std::size_t least_calls_of_a_round{400'000};

/// Reports a test failure if a whole run made too few calls for its rounds.
void expect_volume(Equality_volume const& volume);

/// The equality tests go through their scenes in rounds, each with other seeds.
struct Equality_rounds {
    /// Of round 0: the environment's VELDRANE_EQUALITY_SEED, else a fixed one.
    std::uint64_t seed;
    /// The round to begin with: VELDRANE_EQUALITY_FIRST_ROUND, else 0.
    std::uint64_t first;
    /// VELDRANE_EQUALITY_ROUNDS, else 1.
    std::uint64_t count;
};

/// @throws std::invalid_argument if one of the three is set and no number, or there is no round
Equality_rounds equality_rounds();

/// The first seed of each round. No round takes more than a million.
std::vector<std::uint64_t> equality_seeds();

} // namespace support
