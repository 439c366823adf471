#pragma once

#include "support/frame_ring.hpp"

#include <string>
#include <string_view>
#include <vector>

/// Whom a table compares.
enum class Field {
    everybody,
    libraries_and_plain_loops,
    libraries,
};

/// One column of a table: calls over a ring of frames of one size with one set of planes.
struct Case {
    std::string name;
    Frame_size size;
    Output_planes planes;
    std::size_t ring;  ///< frames and output sets
    std::size_t calls; ///< calls that one measurement times
    Placement placement = {};

    /// Such cases are measured in turn, on the same memory.
    bool shares_frames_with(Case const& other) const {
        return size.height == other.size.height && size.width == other.size.width &&
               ring == other.ring;
    }
};

struct Table {
    std::string name; ///< as given to --table
    std::string title;
    std::string unit;
    Field field;
    double units_per_second;
    bool by_pixel; ///< shows time per pixel, not per call
    std::vector<Case> cases;
};

/// All tables, or with `quick` the same with small frames and few calls, for a look whether
/// everything works.
std::vector<Table> make_tables(bool quick);
