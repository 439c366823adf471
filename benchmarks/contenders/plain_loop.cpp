// What a good engineer writes without the library: plain C++ loops that the compiler vectorises.
// Compiled several times with flags of its own for each, so nothing here is inline or visible but
// the function that the build names by PLAIN_LOOP.

#include "contenders/contenders.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

struct Pair {
    std::int32_t low, high;
};

#if PLAIN_LOOP_WORDS

/// Two pixels of 16 bits as one number. The even column stands in its low half, so that both
/// columns widen to 32 bits without a shuffle. It takes some knowledge of what vectorises well.
static Pair load_pair(std::uint16_t const* from) {
    std::uint32_t word;
    std::memcpy(&word, from, sizeof(word));
    return {static_cast<std::int32_t>(word & 0xFFFF), static_cast<std::int32_t>(word >> 16)};
}

static void store_pair(std::uint16_t* to, std::int32_t low, std::int32_t high) {
    std::uint32_t const word =
        static_cast<std::uint32_t>(low) | (static_cast<std::uint32_t>(high) << 16);
    std::memcpy(to, &word, sizeof(word));
}

#else

static Pair load_pair(std::uint16_t const* from) {
    return {from[0], from[1]};
}

static void store_pair(std::uint16_t* to, std::int32_t low, std::int32_t high) {
    to[0] = static_cast<std::uint16_t>(low);
    to[1] = static_cast<std::uint16_t>(high);
}

#endif

static std::int32_t clamped(std::int32_t value, std::int32_t limit) {
    std::int32_t const below = value < limit ? value : limit;
    return below > 0 ? below : 0;
}

static float smaller(float a, float b) {
    return a < b ? a : b;
}

static float larger(float a, float b) {
    return a > b ? a : b;
}

/// Rounds a number that is not negative.
static std::int32_t rounded(float value) {
    return static_cast<std::int32_t>(value + 0.5F);
}

/// atan2(y, x) in units of pi, -1 to 1, within 0.3 degrees: a polynomial of two terms on the
/// smaller quotient, then reflections by selects.
static float turned_angle(float y, float x) {
    float const x_length = x < 0 ? -x : x;
    float const y_length = y < 0 ? -y : y;
    float const longer = larger(larger(x_length, y_length), 1e-20F);
    float const quotient = smaller(x_length, y_length) / longer;
    float const octant = quotient * (0.3095F - 0.0595F * quotient * quotient);
    float const quadrant = y_length > x_length ? 0.5F - octant : octant;
    float const half = x < 0 ? 1.0F - quadrant : quadrant;
    return y < 0 ? -half : half;
}

struct Stokes {
    std::int32_t doubled_s0, s1, s2;
};

/// `swapped`: the row's even columns measure 45 or 135 degrees; `positive`: the smaller angle of
/// its even columns' pair stands in the pixel itself.
template <bool swapped, bool positive, bool odd>
static Stokes stokes(
    std::int32_t own, std::int32_t horizontal, std::int32_t vertical, std::int32_t diagonal) {
    std::int32_t const along = own - diagonal;
    std::int32_t const across = horizontal - vertical;
    std::int32_t const of_even = odd ? across : along;
    std::int32_t const of_odd = odd ? along : across;
    std::int32_t const signed_even = positive ? of_even : -of_even;
    std::int32_t const signed_odd = positive ? -of_odd : of_odd;
    std::int32_t const sum = own + horizontal + vertical + diagonal;
    return {sum, swapped ? signed_odd : signed_even, swapped ? signed_even : signed_odd};
}

static std::int32_t s0_pixel(Stokes of, std::int32_t limit) {
    std::int32_t const half = (of.doubled_s0 + 1) >> 1;
    return half < limit ? half : limit;
}

static std::int32_t azimuth_pixel(Stokes of, float limit) {
    float const angle = turned_angle(static_cast<float>(of.s2), static_cast<float>(of.s1));
    return rounded((angle * 0.5F + 0.5F) * limit);
}

static std::int32_t dolp_pixel(Stokes of, float limit) {
    float const s1 = static_cast<float>(of.s1);
    float const s2 = static_cast<float>(of.s2);
    float const length = __builtin_sqrtf(s1 * s1 + s2 * s2);
    float const doubled_s0 = larger(static_cast<float>(of.doubled_s0), 1e-20F);
    return rounded(smaller(2.0F * limit * length / doubled_s0, limit));
}

static void store_ratios(float* pair, Stokes of) {
    float const s0 = 0.5F * static_cast<float>(of.doubled_s0);
    pair[0] = static_cast<float>(of.s1) / s0;
    pair[1] = static_cast<float>(of.s2) / s0;
}

/// Where a row's pixels go. The loop takes the pointers one by one: `__restrict` holds for
/// parameters, not for members.
struct Output_row {
    float* normalized_stokes;
    std::uint16_t *s0, *s1, *s2, *azimuth, *dolp;
};

/// Columns `column` and `column + 1` of a row.
template <Output_planes wanted>
[[gnu::always_inline]] static inline void store_pixels(
    Output_row const& row, std::size_t column, Stokes even, Stokes odd, std::int32_t limit) {
    float const scale = static_cast<float>(limit);
    if constexpr ((wanted & s0_plane) != 0) {
        store_pair(row.s0 + column, s0_pixel(even, limit), s0_pixel(odd, limit));
    }
    if constexpr ((wanted & s1_plane) != 0) {
        store_pair(row.s1 + column, clamped(even.s1, limit), clamped(odd.s1, limit));
    }
    if constexpr ((wanted & s2_plane) != 0) {
        store_pair(row.s2 + column, clamped(even.s2, limit), clamped(odd.s2, limit));
    }
    if constexpr ((wanted & azimuth_plane) != 0) {
        store_pair(row.azimuth + column, azimuth_pixel(even, scale), azimuth_pixel(odd, scale));
    }
    if constexpr ((wanted & dolp_plane) != 0) {
        store_pair(row.dolp + column, dolp_pixel(even, scale), dolp_pixel(odd, scale));
    }
    if constexpr ((wanted & normalized_stokes_plane) != 0) {
        store_ratios(row.normalized_stokes + 2 * column, even);
        store_ratios(row.normalized_stokes + 2 * column + 2, odd);
    }
}

/// Two pixels from their own pair of samples, the next one, and both pairs beside them.
template <Output_planes wanted, bool swapped, bool positive>
[[gnu::always_inline]] static inline void process_pair(
    std::uint16_t const* own, std::uint16_t const* beside, std::size_t column, std::size_t next,
    Output_row const& row, std::int32_t limit) {
    Pair const pair = load_pair(own + column);
    Pair const pair_beside = load_pair(beside + column);
    std::int32_t const right = own[next];
    std::int32_t const right_beside = beside[next];
    store_pixels<wanted>(
        row, column,
        stokes<swapped, positive, false>(pair.low, pair.high, pair_beside.low, pair_beside.high),
        stokes<swapped, positive, true>(pair.high, right, pair_beside.high, right_beside), limit);
}

/// One row of an even width. `beside` is the row below or, for the last row, above.
template <Output_planes wanted, bool swapped, bool positive>
static void process_row(
    std::uint16_t const* __restrict own, std::uint16_t const* __restrict beside,
    float* __restrict normalized_stokes, std::uint16_t* __restrict s0, std::uint16_t* __restrict s1,
    std::uint16_t* __restrict s2, std::uint16_t* __restrict azimuth, std::uint16_t* __restrict dolp,
    std::size_t width, std::int32_t limit) {
    Output_row const row{normalized_stokes, s0, s1, s2, azimuth, dolp};
    for (std::size_t column = 0; column + 2 < width; column += 2) {
        process_pair<wanted, swapped, positive>(own, beside, column, column + 2, row, limit);
    }
    // The last column's neighbours lie to its left.
    process_pair<wanted, swapped, positive>(own, beside, width - 2, width - 2, row, limit);
}

template <Output_planes wanted>
static void process_frame(Polarization_computation_arguments const& frame) {
    auto const limit = static_cast<std::int32_t>(frame.maximum_output_value);
    for (std::size_t row = 0; row < frame.height; ++row) {
        std::size_t const at = row * frame.width;
        bool const swapped = ((static_cast<std::size_t>(frame.polar_phase) ^ row) & 1) != 0;
        bool const positive = frame.polar_phase < 2;
        auto* const process =
            swapped ? positive ? process_row<wanted, true, true> : process_row<wanted, true, false>
            : positive ? process_row<wanted, false, true>
                       : process_row<wanted, false, false>;
        std::uint16_t const* const own = frame.raw_image + at;
        process(
            own, row + 1 < frame.height ? own + frame.width : own - frame.width,
            (wanted & normalized_stokes_plane) != 0 ? frame.normalized_stokes_image + 2 * at
                                                    : nullptr,
            (wanted & s0_plane) != 0 ? frame.s0_image + at : nullptr,
            (wanted & s1_plane) != 0 ? frame.s1_image + at : nullptr,
            (wanted & s2_plane) != 0 ? frame.s2_image + at : nullptr,
            (wanted & azimuth_plane) != 0 ? frame.azimuth_image + at : nullptr,
            (wanted & dolp_plane) != 0 ? frame.dolp_image + at : nullptr, frame.width, limit);
    }
}

} // namespace

void contenders::PLAIN_LOOP(Polarization_computation_arguments const& frame) {
    switch (planes_of(frame)) {
    case stokes_planes:
        return process_frame<stokes_planes>(frame);
    case azimuth_and_dolp:
        return process_frame<azimuth_and_dolp>(frame);
    case s0_azimuth_and_dolp:
        return process_frame<s0_azimuth_and_dolp>(frame);
    case five_planes:
        return process_frame<five_planes>(frame);
    case six_planes:
        return process_frame<six_planes>(frame);
    default:
        return;
    }
}
