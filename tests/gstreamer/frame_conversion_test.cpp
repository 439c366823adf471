// Frames in any memory to planes and pictures in any memory: what the client layer and the pictures
// give, and nothing beside it.
#include "frame_conversion.hpp"

#include "expected_outputs.hpp"

#include <cstring>
#include <gtest/gtest.h>

namespace {

using namespace expected_outputs;
using namespace polarization_element;
using polarization::Frame;
using polarization::Size;

constexpr std::byte untouched{0xA5};

/// Rows with bytes before and between them.
struct Memory {
    std::size_t offset;
    std::size_t row_bytes;
    std::size_t stride;
    std::vector<std::byte> bytes;

    Memory(std::size_t height, std::size_t bytes_of_row, std::size_t padding, std::size_t before)
        : offset{before}, row_bytes{bytes_of_row}, stride{bytes_of_row + padding},
          bytes(before + height * stride, untouched) {}

    template <class Byte>
    Rows<Byte> rows() {
        return {bytes.data() + offset, static_cast<std::ptrdiff_t>(stride)};
    }
};

Memory memory_of(Frame const& frame, Samples samples, std::size_t padding, std::size_t before) {
    std::size_t const sample_bytes = samples == Samples::of_8_bits ? 1 : 2;
    Memory memory(frame.height, frame.width * sample_bytes, padding, before);
    for (std::size_t index = 0; index < frame.samples.size(); ++index) {
        // The lower byte comes first.
        std::memcpy(
            memory.rows<std::byte>()[index / frame.width] + index % frame.width * sample_bytes,
            &frame.samples[index], sample_bytes);
    }
    return memory;
}

void expect_rows(Memory const& memory, std::vector<std::uint8_t> const& expected) {
    std::size_t wrong = 0;
    for (std::size_t index = 0; index < memory.bytes.size(); ++index) {
        std::size_t const place = index - memory.offset;
        bool const is_inside = index >= memory.offset && place % memory.stride < memory.row_bytes;
        std::byte const wanted =
            is_inside
                ? std::byte{expected
                                [place / memory.stride * memory.row_bytes + place % memory.stride]}
                : untouched;
        wrong += memory.bytes[index] != wanted ? 1U : 0U;
    }
    EXPECT_EQ(wrong, 0U) << "of " << memory.bytes.size() << " bytes";
}

Options options_of(Output output) {
    Options options;
    options.output = output;
    options.layout = "2";
    options.bit_depth = 12;
    return options;
}

polarization::Settings settings_of(int bit_depth) {
    return ideal_settings(polarization::Mosaic::from_phase(2), polarization::Scale(bit_depth));
}

TEST(Frame_conversion, any_memory_will_do) {
    unsigned frames = 0;
    for (Size const size : {Size{2, 2}, Size{17, 2}, Size{16, 3}, Size{33, 5}, Size{64, 10}}) {
        for (Samples const samples : {Samples::of_8_bits, Samples::of_16_bits}) {
            int const depth = samples == Samples::of_8_bits ? 8 : 12;
            Frame const frame = frame_of(size, depth);
            for (Output const output : all_outputs) {
                Options options = options_of(output);
                options.bit_depth = static_cast<unsigned>(depth);
                Frame_conversion conversion(options, nullptr, size, samples);
                auto const expected = bytes_of(frame, settings_of(depth), output);
                for (auto const& [padding, before] :
                     {std::pair(0U, 0U), {0U, 1U}, {2U, 0U}, {13U, 3U}}) {
                    Memory source = memory_of(frame, samples, padding, before);
                    Memory target(size.height, expected.size() / size.height, padding, before);
                    conversion(source.rows<std::byte const>(), target.rows<std::byte>());
                    expect_rows(target, expected);
                    ++frames;
                }
            }
        }
    }
    RecordProperty("frames", std::to_string(frames));
}

TEST(Frame_conversion, rows_may_run_upwards) {
    Size const size{18, 4};
    Frame const frame = frame_of(size, 12);
    Frame_conversion conversion(options_of(Output::dolp), nullptr, size, Samples::of_16_bits);
    Frame turned = frame;
    for (std::size_t row = 0; row < size.height; ++row) {
        auto const begin = frame.samples.begin() + static_cast<std::ptrdiff_t>(row * size.width);
        std::copy_n(
            begin, size.width,
            turned.samples.end() - static_cast<std::ptrdiff_t>((row + 1) * size.width));
    }
    Memory source = memory_of(turned, Samples::of_16_bits, 0, 0);
    Rows<std::byte const> const upwards{
        source.rows<std::byte const>()[size.height - 1],
        -static_cast<std::ptrdiff_t>(source.stride)};
    Memory target(size.height, size.width * 2, 0, 0);
    conversion(upwards, target.rows<std::byte>());
    expect_rows(target, bytes_of(frame, settings_of(12), Output::dolp));
}

TEST(Frame_conversion, threads_full_scale_mode_and_mask_are_those_asked_for) {
    Size const size{512, 530}; // two shares of rows
    Frame const frame = frame_of(size, 12);
    Memory source = memory_of(frame, Samples::of_16_bits, 0, 0);
    for (Output const output : {Output::angle, Output::s0, Output::azimuth}) {
        Options options = options_of(output);
        options.threads = 2;
        options.full_scale = 4095;
        options.mode = Mode_choice::calibrated;
        options.is_masked = false;
        auto const settings =
            ideal_settings(polarization::Mosaic::from_phase(2), polarization::Scale(12, 4095));
        auto const expected =
            bytes_of(frame, settings, output, polarization::Mode::calibrated, false);
        Memory target(size.height, expected.size() / size.height, 0, 0);
        Frame_conversion(options, nullptr, size, Samples::of_16_bits)(
            source.rows<std::byte const>(), target.rows<std::byte>());
        expect_rows(target, expected);
    }
}

} // namespace
