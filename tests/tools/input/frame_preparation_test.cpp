// What is left of a frame by the joined pass, from bytes as from a frame in memory, against the
// steps one after another over the whole frame.

#include "input/frame_preparation.hpp"

#include "test_files.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <random>

namespace {

using namespace polarize_tool;
using polarization::Pixel_format;
using polarization::Region;
using polarization::Size;

struct Case {
    Pixel_format format;
    Size size;
    std::optional<Region> region;
    int shift;
    bool has_dark;
};

using Samples = std::vector<std::uint16_t>;

Samples random_samples(Case const& one, unsigned largest, unsigned seed) {
    std::mt19937 random{seed};
    Samples samples(one.size.width * one.size.height);
    std::ranges::generate(
        samples, [&] { return static_cast<std::uint16_t>(random() % (largest + 1)); });
    return samples;
}

class Frame_preparation_test : public testing::Test {
protected:
    std::filesystem::path write(Case const& one, Samples const& samples, char const* name) const {
        std::string bytes(
            bytes_per_frame(one.format, one.size.height, one.size.width, stride(one)), '\0');
        pack_frame(
            one.format, samples, one.size.width, std::as_writable_bytes(std::span(bytes)),
            stride(one));
        test_files::write(folder_ / name, bytes);
        return folder_ / name;
    }

    static Raw_layout layout(Case const& one) {
        return {one.format, one.size.width, one.size.height, 0, stride(one)};
    }

    static std::size_t stride(Case const& one) {
        return bytes_per_row(one.format, one.size.width) + 3;
    }

    Sample_options options(Case const& one, std::filesystem::path const& dark) const {
        Sample_options options;
        options.bit_depth = 9 - one.shift;
        options.shift = one.shift;
        if (one.region) {
            Region const& region = *one.region;
            options.region_text = std::to_string(region.column) + "," + std::to_string(region.row) +
                                  "," + std::to_string(region.width) + "," +
                                  std::to_string(region.height);
        }
        if (one.has_dark) {
            options.dark_frames = {dark.string()};
        }
        return options;
    }

    test_files::Folder folder_;
};

struct Expected {
    Samples samples;
    std::vector<std::uint8_t> saturated;
    unsigned largest;
};

Expected step_by_step(Case const& one, Samples samples, Samples dark) {
    Region const part = one.region.value_or(region_of(one.size));
    unsigned const limit = (1U << (9 - one.shift)) - 1;
    Expected expected{{}, {}, 0};
    for (std::size_t row = 0; row < part.height; ++row) {
        for (std::size_t column = 0; column < part.width; ++column) {
            std::size_t const index = (part.row + row) * one.size.width + part.column + column;
            int const sample = samples[index] >> one.shift;
            int const level = one.has_dark ? dark[index] >> one.shift : 0;
            expected.samples.push_back(static_cast<std::uint16_t>(std::max(0, sample - level)));
            expected.largest = std::max(expected.largest, static_cast<unsigned>(sample));
            if (one.has_dark) {
                expected.saturated.push_back(static_cast<unsigned>(sample) >= limit ? 1 : 0);
            }
        }
    }
    return expected;
}

std::vector<Case> cases() {
    std::vector<Case> all;
    Size const size{77, 9};
    for (Pixel_format const format : polarization::all_pixel_formats) {
        for (int const shift : {0, 2}) {
            for (bool const has_dark : {false, true}) {
                all.push_back({format, size, std::nullopt, shift, has_dark});
                for (std::size_t corner = 1; corner <= 5; ++corner) {
                    all.push_back({format, size, Region{corner, 3, 60, 5}, shift, has_dark});
                    all.push_back({format, size, Region{corner, corner, 2, 2}, shift, has_dark});
                }
            }
        }
    }
    return all;
}

TEST_F(Frame_preparation_test, in_one_pass_is_what_the_steps_give) {
    std::size_t compared = 0;
    for (Case const& one : cases()) {
        unsigned const full = (1U << bit_depth_of(one.format)) - 1;
        Samples const samples = random_samples(one, std::min(full, 600U), 1);
        Samples const dark = random_samples(one, 100, 2);
        std::filesystem::path const dark_file = write(one, dark, "dark.raw");
        std::filesystem::path const file = write(one, samples, "frame.raw");
        Frame_preparation const preparation(options(one, dark_file), layout(one));
        Expected const expected = step_by_step(one, samples, dark);

        Frame_slot slot;
        Frame room;
        std::vector<std::uint8_t> saturated{7};
        auto const source = polarization::open_frames(file, layout(one));
        source->read(0, slot);
        auto const& [from_bytes, warnings] =
            preparation.apply(slot, room, Dark_level::subtracted, &saturated);
        ASSERT_FALSE(slot.is_decoded());
        ASSERT_EQ(from_bytes.samples, expected.samples);
        ASSERT_EQ(saturated, expected.saturated);
        bool const is_above = expected.largest > (1U << (9 - one.shift)) - 1;
        ASSERT_EQ(!warnings.depth.empty(), is_above);
        if (is_above) {
            std::string const told = "samples up to " + std::to_string(expected.largest) + ",";
            ASSERT_NE(warnings.depth.find(told), std::string::npos) << warnings.depth;
        }

        Frame in_memory{one.size.width, one.size.height, samples};
        Sample_warnings const same =
            preparation.apply(in_memory, slot.place().name(), Dark_level::subtracted, &saturated);
        ASSERT_EQ(in_memory.samples, expected.samples);
        ASSERT_EQ(in_memory.size(), from_bytes.size());
        ASSERT_EQ(saturated, expected.saturated);
        ASSERT_EQ(same.depth, warnings.depth);
        compared += expected.samples.size();
    }
    std::cout << compared << " samples\n";
}

TEST_F(Frame_preparation_test, a_picture_takes_no_second_frame) {
    Case const one{Pixel_format::mono16, {4, 2}, Region{2, 0, 2, 2}, 1, false};
    Frame_preparation const preparation(options(one, {}), std::nullopt);
    test_files::write(folder_ / "picture.pgm", "P5 4 2 255\n" + std::string("abcdefgh"));
    Frame_slot slot;
    Frame room;
    polarization::open_frames(folder_ / "picture.pgm")->read(0, slot);
    auto const& [frame, warnings] = preparation.apply(slot, room);
    EXPECT_EQ(&frame, &slot.frame());
    EXPECT_EQ(room.samples.capacity(), 0U);
    EXPECT_EQ(frame.samples, (Samples{'c' / 2, 'd' / 2, 'g' / 2, 'h' / 2}));
}

TEST_F(Frame_preparation_test, a_frame_darker_than_the_dark_frame_is_told_by_its_region) {
    Case one{Pixel_format::mono12p, {40, 8}, std::nullopt, 0, true};
    Samples samples(320, 30);
    samples[3 * 40 + 7] = 500;
    std::filesystem::path const dark_file = write(one, Samples(320, 31), "dark.raw");
    std::filesystem::path const file = write(one, samples, "frame.raw");
    auto const warning = [&] {
        Frame_preparation const preparation(options(one, dark_file), layout(one));
        Frame_slot slot;
        Frame frame;
        polarization::open_frames(file, layout(one))->read(0, slot);
        return preparation.apply(slot, frame).warnings.dark;
    };
    EXPECT_EQ(warning(), "");
    one.region = Region{8, 0, 20, 4};
    EXPECT_NE(warning().find("mean is 31.0, that of the frame 30.0;"), std::string::npos);
    one.region = Region{7, 3, 20, 4};
    EXPECT_EQ(warning(), "");
}

} // namespace
