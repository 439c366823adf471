#include "pixels/signed_blocks.hpp"

#include "kernel/block.hpp"
#include "quartet/group.hpp"
#include "variants/vector_data_indices_avx2.hpp"

namespace fixed {
namespace {

/// Limits and factors, broadcast to all lanes.
struct Signed_constants {
    __m256i largest;
    block::Constants rescaling;
};

/// The opposite of a number is stored as the number is: rounding to nearest has no preferred sign.
template <bool rescale>
[[gnu::always_inline]] inline __m256i signed_pixels(
    __m256i difference, Signed_constants const& constants) {
    if constexpr (rescale) {
        __m256 const value =
            block::stokes_plane_value<true>(_mm256_cvtepi32_ps(difference), constants.rescaling);
        __m256 const limit = constants.rescaling.maximum_output_value;
        __m256 const lowest = _mm256_xor_ps(limit, _mm256_set1_ps(-0.0F));
        return _mm256_cvtps_epi32(_mm256_max_ps(_mm256_min_ps(value, limit), lowest));
    } else {
        __m256i const lowest = _mm256_sub_epi32(_mm256_setzero_si256(), constants.largest);
        return _mm256_max_epi32(_mm256_min_epi32(difference, constants.largest), lowest);
    }
}

enum class Store { ordinary, streaming };

/// Where the rows of a plane go.
template <Store how>
struct Signed_plane {
    std::int32_t* elements;

    [[gnu::always_inline]] void store(std::size_t at, __m256i even, __m256i odd) const {
        if constexpr (how == Store::ordinary) {
            quartet::store_16_wide_pixels(elements + at, even, odd);
        } else {
            // Columns   0 1 2 3 | 8 9 10 11   and   4 5 6 7 | 12 13 14 15.
            __m256i const low = _mm256_unpacklo_epi32(even, odd);
            __m256i const high = _mm256_unpackhi_epi32(even, odd);
            auto* const destination = reinterpret_cast<__m128i*>(elements + at);
            _mm_stream_si128(destination, _mm256_castsi256_si128(low));
            _mm_stream_si128(destination + 1, _mm256_castsi256_si128(high));
            _mm_stream_si128(destination + 2, _mm256_extracti128_si256(low, 1));
            _mm_stream_si128(destination + 3, _mm256_extracti128_si256(high, 1));
        }
    }
};

/// One row of one plane. @tparam index `Indices::s1_operand` or `Indices::s2_operand`
template <typename Indices, auto index, unsigned row, bool rescale, Store how>
void compute_row(
    Polarization_computation_arguments const& arguments, std::size_t first_row, std::size_t columns,
    Signed_plane<how> plane, Signed_constants const& constants) {
    std::size_t const width = arguments.width;
    std::uint16_t const* const first = arguments.raw_image + first_row * width;
    std::size_t const target = (first_row + row) * width;
    for (std::size_t column = 0; column != columns; column += block::columns) {
        block::Arranged_rows const samples = block::load_block(first + column, width);
        auto const of = [&]<block::Pixels pixels>() __attribute__((always_inline)) {
            auto const [minuend, subtrahend] =
                block::difference_operands<Indices, index, row, pixels>(samples);
            return signed_pixels<rescale>(_mm256_sub_epi32(minuend, subtrahend), constants);
        };
        plane.store(
            target + column, of.template operator()<block::Pixels::even>(),
            of.template operator()<block::Pixels::odd>());
    }
}

// Row by row one plane after the other: the first-level cache still has the samples for the second
// one, and memory takes one stream of stores faster than two.
template <typename Indices, bool rescale, Store how>
void compute_rows(
    Polarization_computation_arguments const& arguments, std::int32_t* s1, std::int32_t* s2,
    Signed_constants const& constants) {
    Blocked_pixels const blocked = blocked_pixels(arguments.height, arguments.width);
    auto const compute = [&]<unsigned row>(std::size_t first_row) {
        if (s1 != nullptr) {
            compute_row<Indices, Indices::s1_operand, row, rescale, how>(
                arguments, first_row, blocked.columns, {s1}, constants);
        }
        if (s2 != nullptr) {
            compute_row<Indices, Indices::s2_operand, row, rescale, how>(
                arguments, first_row, blocked.columns, {s2}, constants);
        }
    };
    for (std::size_t row = 0; row < blocked.rows; row += 2) {
        compute.template operator()<0>(row);
        compute.template operator()<1>(row);
    }
    if constexpr (how == Store::streaming) {
        _mm_sfence();
    }
}

// Planes of four megabytes leave the caches before anybody reads them, so nothing is lost by stores
// that go past these, and a third of the traffic is saved: no line is fetched to be overwritten.
constexpr std::size_t least_streamed_pixels = std::size_t{1} << 20;

bool can_be_streamed(std::size_t width, std::int32_t const* plane) {
    return width % 4 == 0 && reinterpret_cast<std::uintptr_t>(plane) % 16 == 0;
}

/// What all index lists need.
struct Call {
    Polarization_computation_arguments const& arguments;
    std::int32_t* s1;
    std::int32_t* s2;
    bool streams;
};

template <typename Indices, bool rescale>
void compute_with(Call const& call, Signed_constants const& constants) {
    if (call.streams) {
        compute_rows<Indices, rescale, Store::streaming>(
            call.arguments, call.s1, call.s2, constants);
    } else {
        compute_rows<Indices, rescale, Store::ordinary>(
            call.arguments, call.s1, call.s2, constants);
    }
}

template <typename Indices>
void compute_phase(Call const& call) {
    Polarization_computation_arguments const& arguments = call.arguments;
    __m256 const limit = _mm256_set1_ps(arguments.maximum_output_value);
    Signed_constants constants{_mm256_cvtps_epi32(limit), {}};
    constants.rescaling.maximum_output_value = limit;
    if (arguments.maximum_output_value_integer == (1 << arguments.bit_depth) - 1) {
        compute_with<Indices, false>(call, constants);
    } else {
        constants.rescaling.input_reciprocal =
            _mm256_rcp_ps(_mm256_set1_ps(arguments.maximum_input_value));
        compute_with<Indices, true>(call, constants);
    }
}

} // namespace

Blocked_pixels blocked_pixels(std::size_t height, std::size_t width) {
    std::size_t const rows = (height - 1) & ~std::size_t{1};
    return {height == 2 ? 0 : rows, width < 32 ? 0 : (width / 16 - 1) * 16};
}

void compute_signed_blocks(
    Polarization_computation_arguments const& arguments, std::int32_t* s1, std::int32_t* s2,
    std::size_t plane_pixels) {
    Call const call{
        arguments, s1, s2,
        plane_pixels >= least_streamed_pixels && can_be_streamed(arguments.width, s1) &&
            can_be_streamed(arguments.width, s2)};
    switch (arguments.polar_phase) {
    case 1:
        return compute_phase<Phase_1_indices>(call);
    case 2:
        return compute_phase<Phase_2_indices>(call);
    case 3:
        return compute_phase<Phase_3_indices>(call);
    default:
        return compute_phase<Phase_0_indices>(call);
    }
}

} // namespace fixed
