#include "output/calibration_plot.hpp"

#include "output/drawing.hpp"
#include "veldrane_mrv/polarization/calibration_mark.hpp"
#include "veldrane_mrv/polarization/units.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <opencv2/imgproc.hpp>
#include <string>
#include <string_view>
#include <zlib.h>

namespace polarize_tool {
namespace {

namespace polarization = veldrane_mrv::polarization;

// Okabe and Ito's colours, which people with any kind of colour vision tell apart.
std::array<cv::Scalar, 4> const position_colours = {
    cv::Scalar(178, 114, 0), cv::Scalar(0, 94, 213), cv::Scalar(115, 158, 0),
    cv::Scalar(167, 121, 204)};

constexpr double half_turn = 180.0;

/// A field with its axes: x from 0 to 180 degrees, y between two limits.
class Axes {
public:
    Axes(cv::Mat& picture, cv::Rect field, double low, double high, std::string const& title)
        : picture_{picture}, field_{field}, low_{low}, high_{high} {
        for (int angle = 0; angle <= 180; angle += 30) {
            cv::Point const foot = at(angle, low);
            cv::line(picture, foot, at(angle, high), grid);
            write_text(picture, std::to_string(angle), foot + cv::Point(-10, 20));
        }
        constexpr int steps = 4;
        for (int step = 0; step <= steps; ++step) {
            double const value = low + (high - low) * step / steps;
            cv::line(picture, at(0.0, value), at(half_turn, value), grid);
            char text[32];
            std::snprintf(text, sizeof text, "%9.4g", value);
            write_text(picture, text, cv::Point(4, at(0.0, value).y + 5));
        }
        write_text(picture, title, cv::Point(field.x, field.y - 12));
    }

    cv::Point at(double angle, double value) const {
        return {
            field_.x + static_cast<int>(std::lround(angle / half_turn * field_.width)),
            field_.y + field_.height -
                static_cast<int>(std::lround((value - low_) / (high_ - low_) * field_.height))};
    }

    void mark(double angle, double value, cv::Scalar const& colour) const {
        cv::circle(picture_, at(angle, value), 5, paper, cv::FILLED, cv::LINE_AA);
        cv::circle(picture_, at(angle, value), 5, colour, 2, cv::LINE_AA);
    }

private:
    cv::Mat& picture_;
    cv::Rect field_;
    double low_;
    double high_;
};

/// Measured and fitted mean of one frame at one position, per unit of source intensity.
struct Pair {
    double angle;
    double measured;
    double fitted;
};

std::vector<Pair> pairs_of(
    polarization::Calibration const& calibration,
    std::span<polarization::Series_point const> series, std::size_t position,
    double source_degree) {
    std::vector<Pair> pairs;
    for (polarization::Series_point const& point : series) {
        pairs.push_back(
            {polarization::within_half_turn(point.polariser_angle),
             point.means[position] / point.source_intensity,
             expected_mean(calibration, position, point.polariser_angle, 1.0, source_degree)});
    }
    return pairs;
}

void draw_fit(
    cv::Mat& picture, Axes const& axes, polarization::Calibration const& calibration,
    std::size_t position, double source_degree) {
    std::vector<cv::Point> curve;
    for (double angle = 0.0; angle <= half_turn; angle += 1.0) {
        curve.push_back(
            axes.at(angle, expected_mean(calibration, position, angle, 1.0, source_degree)));
    }
    cv::polylines(picture, curve, false, position_colours[position], 1, cv::LINE_AA);
}

void append_number(std::string& bytes, std::size_t number) {
    for (int const shift : {24, 16, 8, 0}) {
        bytes += static_cast<char>((number >> shift) & 0xFFU);
    }
}

} // namespace

cv::Mat calibration_plot(
    polarization::Calibration const& calibration,
    std::span<polarization::Series_point const> series, double source_degree) {
    std::array<std::vector<Pair>, 4> pairs;
    double highest = 0.0;
    double largest_rest = 1e-9;
    for (std::size_t position = 0; position < pairs.size(); ++position) {
        pairs[position] = pairs_of(calibration, series, position, source_degree);
        for (Pair const& pair : pairs[position]) {
            highest = std::max({highest, pair.measured, pair.fitted});
            largest_rest = std::max(largest_rest, std::abs(pair.measured - pair.fitted));
        }
    }
    cv::Mat picture(720, 960, CV_8UC3, paper);
    Axes const means(
        picture, {90, 60, 840, 400}, 0.0, highest * 1.05,
        "Mean sample: circles measured, lines fitted, over the polariser's angle in degrees");
    Axes const rests(
        picture, {90, 540, 840, 140}, -largest_rest * 1.1, largest_rest * 1.1,
        "Measured less fitted");
    for (std::size_t position = 0; position < pairs.size(); ++position) {
        cv::Scalar const& colour = position_colours[position];
        draw_fit(picture, means, calibration, position, source_degree);
        for (Pair const& pair : pairs[position]) {
            means.mark(pair.angle, pair.measured, colour);
            rests.mark(pair.angle, pair.measured - pair.fitted, colour);
        }
        std::string const label =
            "row " + std::to_string(position / 2) + ", column " + std::to_string(position % 2) +
            ": polariser " + std::to_string(calibration.mosaic.angle(position / 2, position % 2));
        write_text(picture, label, {90 + static_cast<int>(position) * 215, 24}, colour);
    }
    return picture;
}

std::vector<std::uint8_t> marked_as_plot(std::vector<std::uint8_t> png) {
    constexpr std::string_view mark = polarization::calibration_mark;
    constexpr std::size_t size_of_kind = 4;
    std::string chunk;
    append_number(chunk, mark.size() - size_of_kind);
    chunk += mark;
    append_number(
        chunk,
        crc32(0, reinterpret_cast<Bytef const*>(mark.data()), static_cast<uInt>(mark.size())));
    png.insert(png.begin() + polarization::place_of_calibration_mark, chunk.begin(), chunk.end());
    return png;
}

} // namespace polarize_tool
