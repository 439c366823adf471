#include "random_numbers.hpp"

#include "veldrane_mrv/polarization/simulation.hpp"

namespace veldrane_mrv::polarization {
namespace {

constexpr std::uint64_t golden_step = 0x9E3779B97F4A7C15U;

// Steele, Lea & Flood, "Fast splittable pseudorandom number generators", OOPSLA 2014.
std::uint64_t scramble(std::uint64_t x) {
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9U;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBU;
    return x ^ (x >> 31);
}

double sum_of_four_parts(std::uint64_t word) {
    return static_cast<double>(
        (word & 0xFFFFU) + ((word >> 16) & 0xFFFFU) + ((word >> 32) & 0xFFFFU) + (word >> 48));
}

} // namespace

double uniform_number(std::uint64_t seed, std::uint64_t draw) {
    constexpr double step = 1.0 / 9007199254740992.0; // 2^-53
    return static_cast<double>(scramble(scramble(seed) + golden_step * (draw + 1)) >> 11) * step;
}

std::uint64_t seed_for(std::uint64_t seed, std::uint64_t purpose) {
    return scramble(scramble(seed + golden_step) ^ scramble(purpose + 1));
}

double normal_deviate(std::uint64_t seed, std::uint64_t draw) {
    // The sum of twelve uniform numbers has variance 1 and is normal to well below the quantisation
    // of a sample; it needs no logarithm or sine, whose last bits differ between libraries.
    constexpr double uniform_step = 1.0 / 65536.0;
    std::uint64_t const start = scramble(seed + golden_step) + 3 * draw * golden_step;
    double sum = 0.0;
    for (std::uint64_t word = 1; word <= 3; ++word) {
        sum += sum_of_four_parts(scramble(start + word * golden_step));
    }
    return (sum + 6.0) * uniform_step - 6.0;
}

} // namespace veldrane_mrv::polarization
