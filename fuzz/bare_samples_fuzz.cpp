/// @file
/// Any bytes as a recording of bare samples in any layout, found and read as the commands do it.
/// Every sample has to hold the bits that the description of its format names.

#include "input_reader.hpp"
#include "memory_file.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/frame_list.hpp"

namespace {

using fuzz::Input_reader;
using fuzz::Memory_file;
using fuzz::require;
using namespace veldrane_mrv::polarization;

/// Also strides that are shorter than a row, and numbers as large as the options let through.
std::optional<Raw_layout> draw_layout(Input_reader& input) {
    constexpr unsigned small_limit = 40;
    auto const format = all_pixel_formats[input.below(9)];
    bool const is_huge = input.below(16) == 0;
    std::size_t const width = is_huge ? input.next<std::uint32_t>() : 1 + input.below(small_limit);
    std::size_t const height = is_huge ? input.next<std::uint32_t>() : 1 + input.below(small_limit);
    std::uint64_t const header = is_huge ? input.next<std::uint32_t>() : input.below(small_limit);
    std::size_t const stride = is_huge ? input.next<std::uint32_t>() : input.below(2 * small_limit);
    if (width == 0 || height == 0) {
        return std::nullopt;
    }
    try {
        return make_raw_layout(std::string(name_of(format)), width, height, header, stride);
    } catch (Argument_error const&) {
        return std::nullopt;
    }
}

/// Bit by bit from the description of the formats.
unsigned sample_in_row(std::span<std::uint8_t const> row, Pixel_format format, std::size_t column) {
    auto const packed_in_pairs = [&](unsigned low_bits) {
        std::size_t const group = column / 2 * 3;
        bool const is_second = column % 2 != 0;
        unsigned const low = row[group + 1] >> (is_second ? 4U : 0U) & ((1U << low_bits) - 1U);
        return static_cast<unsigned>(row[group + (is_second ? 2 : 0)]) << low_bits | low;
    };
    if (format == Pixel_format::mono10_packed) {
        return packed_in_pairs(2);
    }
    if (format == Pixel_format::mono12_packed) {
        return packed_in_pairs(4);
    }
    unsigned sample = 0;
    unsigned const bits = stored_bits_of(format);
    for (unsigned bit = 0; bit < bits; ++bit) {
        std::size_t const place = column * bits + bit;
        sample |= (row[place / 8] >> place % 8 & 1U) << bit;
    }
    return sample;
}

void require_samples(
    Frame const& frame, std::span<std::uint8_t const> bytes, Raw_layout const& layout,
    std::size_t index) {
    require(frame.width == layout.width && frame.height == layout.height, "another size was read");
    require(frame.samples.size() == frame.width * frame.height, "samples are missing");
    std::size_t const frame_begin = layout.header_bytes + index * layout.height * layout.stride;
    for (std::size_t row = 0; row < frame.height; ++row) {
        auto const row_bytes = bytes.subspan(frame_begin + row * layout.stride);
        for (std::size_t column = 0; column < frame.width; ++column) {
            require(
                frame.samples[row * frame.width + column] ==
                    sample_in_row(row_bytes, layout.format, column),
                "a sample has other bits than the file");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input_reader input{{data, size}};
    std::optional<Raw_layout> const layout = draw_layout(input);
    if (!layout) {
        return 0;
    }
    auto const bytes = input.rest();
    static Memory_file const file;
    file.write(bytes);
    Found_frames const found = find_frames({file.path().string()}, layout);
    require(found.frames.empty() != found.failures.empty(), "a file has neither frames nor faults");
    Frame_list source(found, layout);
    Frame_slot slot;
    // What was found is whole, so that nothing is refused any more.
    while (source.read_next(slot)) {
        require_samples(slot.frame(), bytes, *layout, slot.place().index);
    }
    return 0;
}
