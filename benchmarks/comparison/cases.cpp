#include "comparison/cases.hpp"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t ring_frames = 4;

/// Calls that together take about as long as `pixels` pixels.
std::size_t calls_for(std::size_t pixels, Frame_size size) {
    return std::max<std::size_t>(1, pixels / size.pixels());
}

Table frame_table(bool quick) {
    Frame_size const size = quick ? Frame_size{256, 320} : Frame_size{2048, 2448};
    Table table{"frames", "Frames of 2448x2048, four in a ring, nothing stays in the caches",
                "ms",     Field::everybody,
                1e3,      false,
                {}};
    if (quick) {
        table.title = "Frames of 320x256, four in a ring";
    }
    for (Output_set const& set : output_sets) {
        table.cases.push_back({set.name, size, set.planes, ring_frames, ring_frames});
    }
    return table;
}

constexpr Output_set sets_of_two_kinds[] = {output_sets[0], output_sets[1]};

Table placement_table(bool quick) {
    constexpr std::pair<char const*, Placement> placements[] = {
        {"all at page + 16", {}},
        {"each 64 further", {16, 16 + 64, 64}},
        {"each 704 further", {16, 16 + 704, 704}},
        {"each 832 further", {16, 16 + 832, 832}},
        {"raw at page + 2064", {16 + 2048, 16, 0}}};
    Frame_size const size = quick ? Frame_size{64, 320} : Frame_size{2048, 2448};
    Table table{
        "placements",
        "The same frames, buffers placed differently",
        "ms",
        Field::libraries_and_plain_loops,
        1e3,
        false,
        {}};
    for (Output_set const& set : sets_of_two_kinds) {
        for (auto const& [name, placement] : placements) {
            table.cases.push_back(
                {std::string(set.name) + ", " + name, size, set.planes, ring_frames, ring_frames,
                 placement});
        }
    }
    return table;
}

Table width_table(std::size_t height) {
    Table table{"widths",   "Frames of other widths, nothing stays in the caches",
                "ns/pixel", Field::libraries_and_plain_loops,
                1e9,        true,
                {}};
    for (std::size_t const width : {2448U, 2464U, 2048U, 3000U, 2047U, 4112U}) {
        for (Output_set const& set : sets_of_two_kinds) {
            table.cases.push_back(
                {std::to_string(width) + " " + set.name,
                 {height, width},
                 set.planes,
                 ring_frames,
                 ring_frames});
        }
    }
    return table;
}

Table cache_table(std::size_t pixels) {
    Frame_size const size{64, 512};
    Table table{"cache", "One frame of 512x64 again and again, in the caches",
                "us",    Field::everybody,
                1e6,     false,
                {}};
    for (Output_set const& set : output_sets) {
        table.cases.push_back({set.name, size, set.planes, 1, calls_for(pixels, size)});
    }
    return table;
}

Table weighted_table(std::size_t pixels) {
    Table table{"weighted", "Frames without a vector block",
                "ns/pixel", Field::libraries_and_plain_loops,
                1e9,        true,
                {}};
    for (Frame_size const size : {Frame_size{2, 4096}, Frame_size{4096, 30}}) {
        for (Output_set const& set : output_sets) {
            table.cases.push_back(
                {std::to_string(size.width) + "x" + std::to_string(size.height) + " " + set.name,
                 size, set.planes, 1, calls_for(pixels, size)});
        }
    }
    return table;
}

Table call_table(std::size_t calls) {
    Table table{
        "calls", "One call with little or nothing to do", "ns", Field::libraries, 1e9, false, {}};
    table.cases.push_back({"nothing requested", {2048, 2448}, no_plane, 1, calls});
    for (Output_set const& set : output_sets) {
        table.cases.push_back({std::string("2x2 ") + set.name, {2, 2}, set.planes, 1, calls});
    }
    return table;
}

Table growth_table(std::size_t pixels, std::size_t largest) {
    Table table{"growth",   "Growth with the frame, {azimuth,DoLP}, one frame again and again",
                "ns/pixel", Field::libraries,
                1e9,        true,
                {}};
    for (std::size_t side = 64; side <= largest; side *= 2) {
        Frame_size const size{side, side};
        table.cases.push_back(
            {std::to_string(side) + "x" + std::to_string(side), size, azimuth_and_dolp, 1,
             calls_for(pixels, size)});
    }
    return table;
}

} // namespace

std::vector<Table> make_tables(bool quick) {
    // A measurement takes about ten milliseconds.
    std::size_t const pixels = quick ? 100'000 : 4'000'000;
    return {
        frame_table(quick),
        placement_table(quick),
        width_table(quick ? 16 : 2048),
        cache_table(pixels),
        weighted_table(pixels / 4),
        call_table(quick ? 1'000 : 100'000),
        growth_table(pixels, quick ? 256 : 8192)};
}
