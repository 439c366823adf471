// Rows unpacked and packed by vectors against the plain way, in memory that ends where the row
// does.

#include "src/pixel_layouts.hpp"

#include "support/guarded_pages.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <random>
#include <vector>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;
using support::Guarded_pages;

// Beyond two vectors and the longest rest.
constexpr std::size_t most_samples = 100;
constexpr std::size_t most_bytes = 2 * most_samples;
constexpr auto untouched = std::byte{0xA5};

std::vector<std::byte> random_bytes(std::size_t count, std::mt19937_64& random) {
    std::vector<std::byte> bytes(count);
    std::ranges::generate(bytes, [&] { return static_cast<std::byte>(random()); });
    return bytes;
}

std::vector<std::uint16_t> unpacked_plainly(
    Pixel_format format, std::span<std::byte const> row, std::size_t width) {
    std::vector<std::uint16_t> samples(width);
    pixel_layouts::unpack_plainly(format, row.data(), samples);
    return samples;
}

TEST(Unpacking, gives_what_the_plain_way_gives_between_guard_pages) {
    std::mt19937_64 random{1};
    Guarded_pages const row_pages(most_bytes, Guarded_pages::Access::read_only);
    Guarded_pages const sample_pages(most_bytes, Guarded_pages::Access::read_write);
    std::size_t rows = 0;
    for (Pixel_format const format : all_pixel_formats) {
        for (std::size_t width = 1; width <= most_samples; ++width) {
            // Bits behind the last sample are set as well.
            auto const bytes = random_bytes(bytes_per_row(format, width), random);
            for (support::Edge const edge : support::both_edges) {
                std::ranges::copy(bytes, row_pages.writable(bytes.size(), edge));
                std::span const samples{
                    reinterpret_cast<std::uint16_t*>(sample_pages.guarded(2 * width, edge)), width};
                unpack_row(format, {row_pages.guarded(bytes.size(), edge), bytes.size()}, samples);
                ASSERT_TRUE(std::ranges::equal(samples, unpacked_plainly(format, bytes, width)))
                    << name_of(format) << ", width " << width;
                ++rows;
            }
        }
    }
    std::cout << rows << " rows\n";
}

TEST(Unpacking, needs_no_alignment_and_leaves_what_lies_beside_the_row) {
    std::mt19937_64 random{2};
    constexpr std::size_t width = 77;
    for (Pixel_format const format : all_pixel_formats) {
        std::size_t const row_bytes = bytes_per_row(format, width);
        auto const bytes = random_bytes(row_bytes + 64, random);
        for (std::size_t offset = 0; offset < 64; ++offset) {
            std::span const row = std::span{bytes}.subspan(offset, row_bytes);
            std::vector<std::uint16_t> samples(width + 64, 0xA5A5);
            unpack_row(format, row, std::span{samples}.subspan(offset, width));
            std::vector<std::uint16_t> expected(samples.size(), 0xA5A5);
            std::ranges::copy(
                unpacked_plainly(format, row, width),
                expected.begin() + static_cast<std::ptrdiff_t>(offset));
            ASSERT_EQ(samples, expected) << name_of(format) << ", offset " << offset;
        }
    }
}

TEST(Unpacking, begins_at_any_sample_of_a_row) {
    std::mt19937_64 random{5};
    constexpr std::size_t width = 77;
    Guarded_pages const pages(most_bytes, Guarded_pages::Access::read_only);
    for (Pixel_format const format : all_pixel_formats) {
        auto const bytes = random_bytes(bytes_per_row(format, width), random);
        std::ranges::copy(bytes, pages.writable(bytes.size(), support::Edge::end));
        std::span const row{pages.guarded(bytes.size(), support::Edge::end), bytes.size()};
        auto const whole = unpacked_plainly(format, bytes, width);
        for (std::size_t first = 0; first < width; ++first) {
            for (std::size_t const count : {std::size_t{1}, std::size_t{2}, width - first}) {
                std::vector<std::uint16_t> samples(std::min(count, width - first));
                unpack_row(format, row, samples, first);
                ASSERT_TRUE(
                    std::ranges::equal(samples, std::span{whole}.subspan(first, samples.size())))
                    << name_of(format) << ", samples from " << first;
            }
        }
        std::vector<std::uint16_t> beyond(8);
        EXPECT_THROW(unpack_row(format, row, beyond, width - 4), Argument_error);
    }
}

TEST(Packing, gives_what_the_plain_way_gives_between_guard_pages) {
    std::mt19937_64 random{3};
    Guarded_pages const sample_pages(most_bytes, Guarded_pages::Access::read_only);
    Guarded_pages const row_pages(most_bytes, Guarded_pages::Access::read_write);
    for (Pixel_format const format : all_pixel_formats) {
        std::uint64_t const largest = (std::uint64_t{1} << bit_depth_of(format)) - 1;
        for (std::size_t width = 1; width <= most_samples; ++width) {
            std::vector<std::uint16_t> samples(width);
            std::ranges::generate(
                samples, [&] { return static_cast<std::uint16_t>(random() & largest); });
            samples[width / 2] = static_cast<std::uint16_t>(largest);
            std::vector<std::byte> expected(bytes_per_row(format, width));
            pixel_layouts::pack_plainly(format, samples, expected.data());
            for (support::Edge const edge : support::both_edges) {
                std::ranges::copy(
                    std::as_bytes(std::span{samples}), sample_pages.writable(2 * width, edge));
                std::span const row{row_pages.guarded(expected.size(), edge), expected.size()};
                std::ranges::fill(row, untouched);
                std::span const given{
                    reinterpret_cast<std::uint16_t const*>(sample_pages.guarded(2 * width, edge)),
                    width};
                pack_row(format, given, row);
                ASSERT_TRUE(std::ranges::equal(row, expected))
                    << name_of(format) << ", width " << width;
            }
        }
    }
}

TEST(Packing, needs_no_alignment_and_leaves_what_lies_beside_the_row) {
    std::mt19937_64 random{4};
    constexpr std::size_t width = 77;
    for (Pixel_format const format : all_pixel_formats) {
        std::vector<std::uint16_t> samples(width + 64);
        std::ranges::generate(samples, [&] {
            return static_cast<std::uint16_t>(random() & ((1U << bit_depth_of(format)) - 1));
        });
        std::size_t const row_bytes = bytes_per_row(format, width);
        for (std::size_t offset = 0; offset < 64; ++offset) {
            std::span const given = std::span{samples}.subspan(offset, width);
            std::vector<std::byte> bytes(row_bytes + 64, untouched);
            auto expected = bytes;
            pack_row(format, given, std::span{bytes}.subspan(offset, row_bytes));
            pixel_layouts::pack_plainly(format, given, expected.data() + offset);
            ASSERT_EQ(bytes, expected) << name_of(format) << ", offset " << offset;
        }
    }
}

} // namespace
} // namespace client_test
