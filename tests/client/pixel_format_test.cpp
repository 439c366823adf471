// Pixel formats: bytes by the published layouts, the way there and back for every format, width and
// stride, in memory that ends where the frame ends, and refusals.

#include "veldrane_mrv/polarization/pixel_format.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <random>
#include <vector>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;

using Bytes = std::vector<std::byte>;
using Samples = std::vector<std::uint16_t>;

Bytes bytes(std::initializer_list<unsigned> values) {
    Bytes result;
    for (unsigned const value : values) {
        result.push_back(static_cast<std::byte>(value));
    }
    return result;
}

Samples random_samples(Pixel_format format, std::size_t count, std::mt19937_64& random) {
    Samples samples(count);
    std::uint64_t const mask = (std::uint64_t{1} << bit_depth_of(format)) - 1;
    std::ranges::generate(samples, [&] { return static_cast<std::uint16_t>(random() & mask); });
    return samples;
}

struct Known {
    Pixel_format format;
    Samples samples;
    Bytes bytes;
};

// 0xABC and 0x123 of 12 bits, 0x2BC and 0x123 of 10 bits, written out by hand.
std::vector<Known> const known_rows = {
    {Pixel_format::mono8, {0xAB, 0x01}, bytes({0xAB, 0x01})},
    {Pixel_format::mono10, {0x2BC, 0x123}, bytes({0xBC, 0x02, 0x23, 0x01})},
    {Pixel_format::mono12, {0xABC, 0x123}, bytes({0xBC, 0x0A, 0x23, 0x01})},
    {Pixel_format::mono14, {0x3ABC}, bytes({0xBC, 0x3A})},
    {Pixel_format::mono16, {0xABCD}, bytes({0xCD, 0xAB})},
    {Pixel_format::mono12p, {0xABC, 0x123}, bytes({0xBC, 0x3A, 0x12})},
    {Pixel_format::mono12p, {0xABC, 0x123, 0xFED}, bytes({0xBC, 0x3A, 0x12, 0xED, 0x0F})},
    // 10 1011 1100, 01 0010 0011, 11 1111 1111, 00 0000 0001 from the lowest bit on.
    {Pixel_format::mono10p, {0x2BC, 0x123, 0x3FF, 0x001}, bytes({0xBC, 0x8E, 0xF4, 0x7F, 0x00})},
    {Pixel_format::mono12_packed, {0xABC, 0x123}, bytes({0xAB, 0x3C, 0x12})},
    {Pixel_format::mono12_packed, {0xABC}, bytes({0xAB, 0x0C})},
    {Pixel_format::mono10_packed, {0x2BC, 0x123}, bytes({0xAF, 0x30, 0x48})},
    {Pixel_format::mono10_packed, {0x2BE}, bytes({0xAF, 0x02})}};

TEST(Pixel_format, known_bytes_are_known_samples) {
    for (Known const& known : known_rows) {
        Samples samples(known.samples.size());
        unpack_row(known.format, known.bytes, samples);
        EXPECT_EQ(samples, known.samples) << name_of(known.format);
        Bytes packed(known.bytes.size());
        pack_row(known.format, known.samples, packed);
        EXPECT_EQ(packed, known.bytes) << name_of(known.format);
    }
    std::cout << known_rows.size() << " rows by hand\n";
}

// Bit by bit, in another way than by groups.
std::uint16_t sample_at(Pixel_format format, Bytes const& row, std::size_t column) {
    auto const bit = [&](std::size_t index) {
        return (std::to_integer<unsigned>(row[index / 8]) >> (index % 8)) & 1U;
    };
    unsigned const depth = bit_depth_of(format);
    bool const pairs =
        format == Pixel_format::mono10_packed || format == Pixel_format::mono12_packed;
    unsigned sample = 0;
    for (unsigned index = 0; index < depth; ++index) {
        std::size_t place = column * stored_bits_of(format) + index;
        if (pairs) {
            std::size_t const pair = 24 * (column / 2);
            std::size_t const low_place = pair + (column % 2 == 0 ? 8 : 12) + index;
            std::size_t const high_place = pair + (column % 2 == 0 ? 0 : 16) + index - (depth - 8);
            place = index < depth - 8 ? low_place : high_place;
        }
        sample |= bit(place) << index;
    }
    return static_cast<std::uint16_t>(sample);
}

TEST(Pixel_format, every_format_and_width_there_and_back) {
    std::mt19937_64 random{1};
    std::size_t rows = 0;
    std::size_t compared = 0;
    for (Pixel_format const format : all_pixel_formats) {
        for (std::size_t width = 1; width <= 100; ++width, ++rows) {
            Samples const samples = random_samples(format, width, random);
            Bytes row(bytes_per_row(format, width), std::byte{0xFF});
            pack_row(format, samples, row);
            Samples back(width, 0xFFFF);
            unpack_row(format, row, back);
            ASSERT_EQ(back, samples) << name_of(format) << ", width " << width;
            for (std::size_t column = 0; column < width; ++column, ++compared) {
                ASSERT_EQ(sample_at(format, row, column), samples[column]) << name_of(format);
            }
        }
    }
    std::cout << rows << " rows, " << compared << " samples bit by bit\n";
}

TEST(Pixel_format, frames_with_and_without_gaps_between_rows) {
    std::mt19937_64 random{2};
    std::size_t frames = 0;
    for (Pixel_format const format : all_pixel_formats) {
        for (std::size_t const width : {1U, 2U, 3U, 31U, 64U, 77U}) {
            std::size_t const row_bytes = bytes_per_row(format, width);
            for (std::size_t const stride : {std::size_t{0}, row_bytes, row_bytes + 13}) {
                constexpr std::size_t height = 5;
                Samples const samples = random_samples(format, height * width, random);
                Bytes frame(bytes_per_frame(format, height, width, stride), std::byte{0xA5});
                pack_frame(format, samples, width, frame, stride);
                Samples back(samples.size());
                unpack_frame(format, frame, width, back, stride);
                EXPECT_EQ(back, samples) << name_of(format) << ", " << width << ", " << stride;
                std::size_t const step = stride == 0 ? row_bytes : stride;
                EXPECT_EQ(frame.size(), 4 * step + row_bytes);
                if (step > row_bytes) {
                    EXPECT_EQ(frame[row_bytes], std::byte{0xA5});
                    EXPECT_EQ(frame[step - 1], std::byte{0xA5});
                }
                ++frames;
            }
        }
    }
    std::cout << frames << " frames\n";
}

TEST(Pixel_format, bits_above_the_depth_are_kept_in_two_byte_formats) {
    Samples samples(1);
    unpack_row(Pixel_format::mono12, bytes({0xC0, 0xAB}), samples);
    EXPECT_EQ(samples[0], 0xABC0);
}

TEST(Pixel_format, sizes) {
    EXPECT_EQ(bytes_per_row(Pixel_format::mono10p, 2448), 3060U);
    EXPECT_EQ(bytes_per_row(Pixel_format::mono12p, 2448), 3672U);
    EXPECT_EQ(bytes_per_row(Pixel_format::mono10_packed, 2448), 3672U);
    EXPECT_EQ(bytes_per_row(Pixel_format::mono14, 2448), 4896U);
    EXPECT_EQ(bytes_per_row(Pixel_format::mono10p, 5), 7U);
    EXPECT_EQ(bytes_per_frame(Pixel_format::mono8, 0, 7), 0U);
    EXPECT_THROW(bytes_per_row(Pixel_format::mono16, SIZE_MAX / 4), Argument_error);
    EXPECT_THROW(bytes_per_frame(Pixel_format::mono16, SIZE_MAX / 4, 4), Argument_error);
}

TEST(Pixel_format, names_are_read_as_written_and_others_refused_with_a_list) {
    for (Pixel_format const format : all_pixel_formats) {
        EXPECT_EQ(parse_pixel_format(name_of(format)), format);
    }
    for (std::string_view const name :
         {"", "mono8", "MONO12P", "Mono12Packed ", "Mono13", "Mono"}) {
        try {
            parse_pixel_format(name);
            ADD_FAILURE() << name;
        } catch (Argument_error const& error) {
            EXPECT_EQ(error.value(), name);
            EXPECT_EQ(
                error.remedy(), "give one of Mono8, Mono10, Mono12, Mono14, Mono16, Mono10p, "
                                "Mono12p, Mono10Packed, Mono12Packed");
        }
    }
}

std::string refused_argument(std::function<void()> const& call) {
    try {
        call();
    } catch (Argument_error const& error) {
        return error.argument();
    }
    return "nothing";
}

TEST(Pixel_format, sizes_that_do_not_agree_are_refused_before_anything_is_written) {
    Bytes frame(30, std::byte{0x11});
    Samples samples(20, 7);
    auto const unpack = [&](std::size_t width, std::size_t stride, std::size_t size) {
        return refused_argument([&] {
            unpack_frame(
                Pixel_format::mono12p, std::span{frame}.first(size), width, samples, stride);
        });
    };
    auto const pack = [&](std::size_t width, std::size_t stride, std::size_t size) {
        return refused_argument([&] {
            pack_frame(Pixel_format::mono12p, samples, width, std::span{frame}.first(size), stride);
        });
    };
    for (auto const& call : {std::function{unpack}, std::function{pack}}) {
        EXPECT_EQ(call(10, 0, 29), "frame");
        EXPECT_EQ(call(10, 16, 30), "frame");
        EXPECT_EQ(call(10, 14, 30), "stride");
        EXPECT_EQ(call(0, 0, 30), "width");
        EXPECT_EQ(call(3, 0, 30), "width");
    }
    EXPECT_EQ(
        refused_argument(
            [&] { unpack_row(Pixel_format::mono16, std::span{frame}.first(29), {samples}); }),
        "row");
    samples[11] = 4096;
    EXPECT_EQ(pack(10, 0, 30), "samples");
    EXPECT_TRUE(std::ranges::all_of(frame, [](std::byte b) { return b == std::byte{0x11}; }));
    samples[11] = 7;
    EXPECT_EQ(samples, Samples(20, 7));
    EXPECT_EQ(pack(10, 0, 30), "nothing");
    EXPECT_EQ(unpack(10, 0, 30), "nothing");
}

} // namespace
} // namespace client_test
