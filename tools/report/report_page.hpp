/// @file
/// The page that shows one frame.
#pragma once

#include "report/report_figures.hpp"
#include "report/report_statistics.hpp"
#include "veldrane_mrv/polarization/inspection.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"
#include "veldrane_mrv/polarization/scale.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include <cstddef>
#include <string>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

/// Pixels of the largest frame that fits in a page. A pixel takes at most 8 bytes of the page, 5 to
/// 6 in practice: 29 MB for a frame of 2448 by 2048.
inline constexpr std::size_t most_report_pixels = 8'000'000;

/// Steps of the histogram of samples in an inspection for a page: a power of two, so that each step
/// holds as many of the values that a sample can have.
inline constexpr std::size_t report_histogram_steps = 128;

/// All that a page is made of.
struct Report {
    std::string name;
    Report_planes planes;
    veldrane_mrv::polarization::Mosaic mosaic;
    veldrane_mrv::polarization::Scale scale;
    veldrane_mrv::polarization::Mode mode;
    polarization::Inspection inspection;
    /// How the planes were made, for the reader.
    Rows settings;
    /// Name and version of this program.
    std::string generator;
};

/// A whole HTML document that needs nothing else: pictures, style and script are in it, and a
/// policy in its head forbids any access to the network. With `#pixel=ROW,COLUMN` behind its
/// address it shows the values of that pixel.
std::string report_page(Report const& report);

} // namespace polarize_tool
