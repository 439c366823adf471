/// @file
/// Every pair (S1, S2) that 12-bit samples can give, by either arithmetic of the library.

#pragma once

#include "support/plane_set.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace exhaustive {

/// S1 and S2 take every integer of this magnitude or less.
inline constexpr int largest_difference{4095};
inline constexpr std::size_t differences{2 * largest_difference + 1};

inline constexpr float maximum_output_value{65535};

enum class Arithmetic { fixed, weighted };
char const* name_of(Arithmetic arithmetic);

/// S0 of a pair, among those that 12-bit samples can give with it.
enum class Intensity { smallest, largest, random };
char const* name_of(Intensity intensity);

struct Pair {
    int s1;
    int s2;
    int twice_s0;
    /// What the library stored in the wanted plane.
    std::uint16_t result;
};

/// Hands the pairs of one S1 and all S2 to `visit`, S1 after S1.
/// @return the number of pairs
std::size_t for_each_pair(
    Arithmetic arithmetic, Intensity intensity, support::Plane wanted,
    std::function<void(std::span<Pair const>)> const& visit);

/// The pairs that `for_each_pair` is to visit: all of them, or in a build that is slow those of
/// each 21st S1, unless the environment's VELDRANE_EXHAUSTIVE is 1.
std::size_t pairs_to_visit();

/// Counts the pairs whose result is not the expected one, and keeps the largest error.
class Tally {
public:
    void compare(Pair const& pair, std::uint16_t expected);
    void note_error(Pair const& pair, double counts);

    std::size_t mismatches() const { return mismatches_; }
    double largest_error_in_counts() const { return largest_error_; }

    std::string describe_first_mismatch() const;
    std::string describe_largest_error() const;

private:
    std::size_t mismatches_{0};
    Pair mismatch_{};
    std::uint16_t expected_{0};
    double largest_error_{-1};
    Pair worst_{};
};

} // namespace exhaustive
