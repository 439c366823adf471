// Every pixel format there and back, as the client layer does it on this processor and the plain
// way, in turn: on rows that stay in the caches, and on frames that have left the nearer ones.

#include "comparison/statistics.hpp"
#include "src/pixel_layouts.hpp"

#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

namespace {

using namespace veldrane_mrv::polarization;

constexpr std::size_t width = 2448;
constexpr std::size_t cached_rows = 16;

struct Bytes_and_samples {
    std::vector<std::byte> bytes;
    std::vector<std::uint16_t> samples;
};

Bytes_and_samples random_frame(Pixel_format format, std::size_t height) {
    std::mt19937 random{1};
    Bytes_and_samples frame{
        std::vector<std::byte>(bytes_per_frame(format, height, width)),
        std::vector<std::uint16_t>(height * width)};
    for (std::uint16_t& sample : frame.samples) {
        sample = static_cast<std::uint16_t>(random() & ((1U << bit_depth_of(format)) - 1));
    }
    pack_frame(format, frame.samples, width, frame.bytes);
    return frame;
}

using Way = void (*)(Pixel_format format, Bytes_and_samples& frame);

void unpack(Pixel_format format, Bytes_and_samples& frame) {
    unpack_frame(format, frame.bytes, width, frame.samples);
}

void pack(Pixel_format format, Bytes_and_samples& frame) {
    pack_frame(format, frame.samples, width, frame.bytes);
}

template <class Do_row>
void by_rows(Pixel_format format, Bytes_and_samples& frame, Do_row do_row) {
    std::size_t const row_bytes = bytes_per_row(format, width);
    for (std::size_t row = 0; row * width != frame.samples.size(); ++row) {
        do_row(
            frame.bytes.data() + row * row_bytes,
            std::span{frame.samples}.subspan(row * width, width));
    }
}

void unpack_plainly(Pixel_format format, Bytes_and_samples& frame) {
    by_rows(format, frame, [format](std::byte const* row, std::span<std::uint16_t> samples) {
        pixel_layouts::unpack_plainly(format, row, samples);
    });
}

void pack_plainly(Pixel_format format, Bytes_and_samples& frame) {
    by_rows(format, frame, [format](std::byte* row, std::span<std::uint16_t const> samples) {
        pixel_layouts::pack_plainly(format, samples, row);
    });
}

constexpr std::array<Way, 4> ways = {unpack, unpack_plainly, pack, pack_plainly};

double nanoseconds_per_pixel(
    Way way, Pixel_format format, std::vector<Bytes_and_samples>& frames, std::size_t turns) {
    auto const start = std::chrono::steady_clock::now();
    for (std::size_t turn = 0; turn != turns; ++turn) {
        way(format, frames[turn % frames.size()]);
    }
    std::chrono::duration<double, std::nano> const time = std::chrono::steady_clock::now() - start;
    return time.count() / static_cast<double>(turns * frames.front().samples.size());
}

/// Medians over the rounds, in which all ways take their turns.
std::array<double, ways.size()> measure(
    Pixel_format format, std::vector<Bytes_and_samples>& frames, std::size_t turns,
    unsigned rounds) {
    std::array<std::vector<double>, ways.size()> times;
    for (unsigned round = 0; round < rounds; ++round) {
        for (std::size_t way = 0; way < ways.size(); ++way) {
            times[way].push_back(nanoseconds_per_pixel(ways[way], format, frames, turns));
        }
    }
    std::array<double, ways.size()> medians;
    for (std::size_t way = 0; way < ways.size(); ++way) {
        medians[way] = median(times[way]);
    }
    return medians;
}

} // namespace

int main(int argc, char** argv) {
    unsigned rounds = 15;
    std::size_t height = 2048;
    CLI::App program{"Unpacking and packing of each pixel format, ns per pixel."};
    program.add_option("--rounds", rounds, "Measurements of each, 15 unless given")
        ->check(CLI::Range(1U, 1000U));
    program.add_option("--height", height, "Of a frame of 2448 columns, 2048 unless given")
        ->check(CLI::Range(2, 16384));
    CLI11_PARSE(program, argc, argv);

    std::printf(
        "ns per pixel, medians of %u rounds: 2448x%zu of the caches, three frames of 2448x%zu\n",
        rounds, cached_rows, height);
    std::printf(
        "%-14s %8s %8s %8s %8s   %8s %8s %8s %8s\n", "", "unpack", "plain", "pack", "plain",
        "unpack", "plain", "pack", "plain");
    for (Pixel_format const format : all_pixel_formats) {
        std::vector<Bytes_and_samples> cached{random_frame(format, cached_rows)};
        std::vector<Bytes_and_samples> frames(3, random_frame(format, height));
        auto const near = measure(format, cached, height / cached_rows + 1, rounds);
        auto const far = measure(format, frames, frames.size(), rounds);
        std::printf(
            "%-14s %8.3f %8.3f %8.3f %8.3f   %8.3f %8.3f %8.3f %8.3f\n", name_of(format).data(),
            near[0], near[1], near[2], near[3], far[0], far[1], far[2], far[3]);
    }
    return 0;
}
