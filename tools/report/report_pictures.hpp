/// @file
/// The pictures of a report.
#pragma once

#include "report/report_statistics.hpp"

#include <cstddef>
#include <string>

namespace polarize_tool {

/// Where the scales of the pictures end; what lies above is shown as the end.
struct Picture_scales {
    /// Element of S0 that is shown as white.
    unsigned s0_top;
    /// Degree of polarisation with the last colour of the scale, and the full brightness of an
    /// angle.
    double degree_top;
};

/// White for the brightest thousandth; 0.05, 0.1, 0.2, 0.3, 0.5 or 1 for the degree, so that all
/// but the largest hundredth of them are told apart.
Picture_scales picture_scales(
    Element_counts const& s0, Element_counts const& dolp, unsigned full_scale);

/// One picture as a URI that holds it.
struct Picture {
    std::string uri;
    std::size_t width;
    std::size_t height;
};

struct Report_pictures {
    Picture s0;
    Picture angle;
    Picture degree;
    /// Pixels of the frame along each side of a pixel of a picture: the least number that leaves at
    /// most 1400 of them. S0 and degree are means, the angle that of the summed Stokes vectors;
    /// pixels that are not valid count for S0 alone, and where all are the pictures are grey.
    std::size_t binning;
};
Report_pictures report_pictures(Report_planes const& planes, Picture_scales const& scales);

} // namespace polarize_tool
