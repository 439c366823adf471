#pragma once

#include "border/last_column.hpp"
#include "border/last_row_and_column.hpp"
#include "kernel/block.hpp"
#include "kernel/walk.hpp"
#include "quartet/image_buffer_overlays.hpp"
#include "quartet/quartets_of_row.hpp"

#include <array>
#include <cstddef>
#include <type_traits>

namespace kernel {

/// Vector body of one row pair: `block_count` blocks from column 0 on. A function of its own, since
/// the four parities of a frame share it; it is entered once per row pair.
///
/// All blocks of the first row come before those of the second: half as many streams of stores at a
/// time, which memory serves better than it minds the middle row being read twice, and no more
/// vectors alive than there are registers. Nothing can tell the order: the blocks of a row pair
/// store to places of their own, in the float plane too, where the rows are 2 * width floats apart
/// and the blocks of one take fewer than width.
/// @param float_index the running index of the float plane, which no row or tail resets
/// @return the index behind the last block
template <typename Indices, typename Set>
[[gnu::noinline]] std::size_t compute_blocks(
    Polarization_computation_arguments const& arguments, block::Constants const& constants,
    std::size_t row, std::size_t block_count, std::size_t float_index) {
    block::Planes const planes{
        arguments.raw_image,  arguments.normalized_stokes_image,
        arguments.s0_image,   arguments.s1_image,
        arguments.s2_image,   arguments.azimuth_image,
        arguments.dolp_image, arguments.width,
    };
    block::Constants const broadcast = constants;
    std::size_t const begin = row * planes.width;
    std::size_t const size = block_count * block::columns;
    static_assert(block::columns == block::stored_floats, "one step for pixels and floats");
    for (std::size_t step = 0; step != size; step += block::columns) {
        block::compute_row_of_block<Indices, Set, 0>(
            planes, broadcast, begin + step, float_index + step);
    }
    for (std::size_t step = 0; step != size; step += block::columns) {
        block::compute_row_of_block<Indices, Set, 1>(
            planes, broadcast, begin + step, float_index + step);
    }
    return float_index + size;
}

} // namespace kernel

/// The walk over one frame. Every pixel of a 16-bit plane is written once, in this order:
///
///     row pairs    | blocks of 16 columns | weighted tail | last column(s) |
///       ...
///     last row(s)  | generate_last_row_and_column                         |
///
/// A row pair reads three rows, so the last row pair of an even height is the border's. The loop
/// bounds are unsigned and wrap outside the contract (a width below 16 with a height above 2).
template <typename Indices, typename... Flag>
requires requests_a_plane<Flag...>
[[gnu::always_inline]] inline int Polarization_process_vector_avx2_callback::process(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices) {
    using Flags = Split_flags<Flag...>;
    using Set = typename Flags::Set;
    constexpr bool width_is_even = Flags::behind[1];

    Image_buffer_overlays overlays = make_image_buffer_overlays(arguments);
    auto const generate_quartets = [&](std::size_t row, std::size_t begin, std::size_t end,
                                       std::array<float, 16> const& even,
                                       std::array<float, 16> const& odd) {
        generate_quartets_of_row<Set, false>(row, begin, end, even, odd, arguments, overlays);
    };
    auto const finish_row_pair =
        [&]<typename... Output>(Output_set<Output...>, std::size_t row, std::size_t column) {
            generate_last_column<Output..., std::bool_constant<width_is_even>>(
                arguments, matrices, overlays, row, column);
        };

    // One block less than whole ones in the row: the tail has at least 16 columns. Which pixels are
    // a block's and which are a quartet's decides their bits, so the split is a part of the
    // results' definition.
    std::size_t const block_count = (arguments.width >> 4) - 1;
    block::Constants const constants = block::broadcast_constants<Set>(arguments);
    std::size_t float_index = 0;
    std::size_t row = 0;
    if (arguments.height != 2) {
        do {
            if (block_count != 0) {
                float_index = kernel::compute_blocks<Indices, Set>(
                    arguments, constants, row, block_count, float_index);
            }
            std::size_t const tail = block::columns * block_count;
            // The last even column below which the tail ends: width - 2 or width - 1.
            std::size_t const column = (arguments.width - 1) & ~std::size_t{1};
            generate_quartets(
                row, tail, column, matrices.even_row_even_column, matrices.even_row_odd_column);
            generate_quartets(
                row + 1, tail, column, matrices.odd_row_even_column, matrices.odd_row_odd_column);
            finish_row_pair(Set{}, row, column);
            row += 2;
        } while (arguments.height - 2 > row);
    }
    generate_last_row_and_column<Flag...>(arguments, matrices, overlays, row);
    return 0;
}
