#include "report/report_pictures.hpp"

#include "output/image_writing.hpp"
#include "page/page_encoding.hpp"
#include "veldrane_mrv/polarization/pictures.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

namespace polarize_tool {
namespace {

constexpr std::size_t longest_side = 1400;

// Above this a PNG of noisy colours takes megabytes; the exact values are in the page anyway.
constexpr std::size_t most_lossless_pixels = 300'000;
constexpr int jpeg_quality = 92;

// Sums over a square of the frame that becomes one pixel of the pictures.
struct Square {
    double s0 = 0.0;
    double degree = 0.0;
    double s1 = 0.0;
    double s2 = 0.0;
    double pixels = 0.0;
    double valid_pixels = 0.0;
};

class Binned_planes {
public:
    Binned_planes(Report_planes const& planes, Picture_scales const& scales, std::size_t binning)
        : planes_{planes}, scales_{scales}, binning_{binning},
          width_{(planes.width + binning - 1) / binning},
          height_{(planes.height + binning - 1) / binning}, s0_(width_ * height_),
          azimuth_(width_ * height_), degree_(width_ * height_), validity_(width_ * height_) {
        for (std::size_t element = 0; element <= planes.full_scale; ++element) {
            double const direction =
                2.0 * std::numbers::pi * (static_cast<double>(element) / planes.full_scale + 0.5);
            directions_.push_back({std::cos(direction), std::sin(direction)});
        }
        for (std::size_t row = 0; row < height_; ++row) {
            for (std::size_t column = 0; column < width_; ++column) {
                store(row * width_ + column, sum_of(row * binning, column * binning));
            }
        }
    }

    cv::Mat s0_picture() const {
        return cv::Mat(
            static_cast<int>(height_), static_cast<int>(width_), CV_8UC1,
            const_cast<std::uint8_t*>(s0_.data()));
    }
    polarization::Picture_source source() const {
        return {azimuth_, degree_, width_, height_, polarization::fine_scale, validity_};
    }

private:
    Square sum_of(std::size_t first_row, std::size_t first_column) const {
        Square square;
        std::size_t const row_end = std::min(first_row + binning_, planes_.height);
        std::size_t const column_end = std::min(first_column + binning_, planes_.width);
        for (std::size_t row = first_row; row < row_end; ++row) {
            for (std::size_t column = first_column; column < column_end; ++column) {
                std::size_t const index = row * planes_.width + column;
                double const s0 = planes_.s0[index];
                square.s0 += s0;
                square.pixels += 1.0;
                if (!planes_.validity.empty() && planes_.validity[index] != 0) {
                    continue;
                }
                double const degree = planes_.dolp[index];
                auto const& [cosine, sine] = directions_[planes_.azimuth[index]];
                square.degree += degree;
                square.s1 += s0 * degree * cosine;
                square.s2 += s0 * degree * sine;
                square.valid_pixels += 1.0;
            }
        }
        return square;
    }

    void store(std::size_t index, Square const& square) {
        // A scene looks as bright as it is.
        s0_[index] = polarization::display_level(square.s0 / square.pixels / scales_.s0_top);
        degree_[index] = polarization::fine_degree(
            square.degree / std::max(square.valid_pixels, 1.0) / planes_.full_scale /
            scales_.degree_top);
        validity_[index] = square.valid_pixels > 0.0 ? 0 : 1;
        azimuth_[index] =
            polarization::fine_azimuth(std::atan2(square.s2, square.s1) / (2.0 * std::numbers::pi));
    }

    Report_planes const& planes_;
    Picture_scales scales_;
    std::size_t binning_;
    std::size_t width_;
    std::size_t height_;
    std::vector<std::array<double, 2>> directions_;
    std::vector<std::uint8_t> s0_;
    std::vector<std::uint16_t> azimuth_;
    std::vector<std::uint16_t> degree_;
    std::vector<std::uint8_t> validity_;
};

Picture encoded(cv::Mat const& image) {
    auto const width = static_cast<std::size_t>(image.cols);
    auto const height = static_cast<std::size_t>(image.rows);
    if (width * height <= most_lossless_pixels) {
        return {data_uri("image/png", encode_png(image)), width, height};
    }
    std::vector<std::uint8_t> bytes;
    if (!cv::imencode(".jpg", image, bytes, {cv::IMWRITE_JPEG_QUALITY, jpeg_quality})) {
        throw std::runtime_error("the pictures cannot be encoded as JPEG");
    }
    return {data_uri("image/jpeg", bytes), width, height};
}

} // namespace

Picture_scales picture_scales(
    Element_counts const& s0, Element_counts const& dolp, unsigned full_scale) {
    constexpr std::array ends{0.05, 0.1, 0.2, 0.3, 0.5};
    double const most = static_cast<double>(dolp.quantile(0.99)) / full_scale;
    auto const end =
        std::find_if(ends.begin(), ends.end(), [most](double top) { return top >= most; });
    return {std::max(1U, s0.quantile(0.999)), end == ends.end() ? 1.0 : *end};
}

Report_pictures report_pictures(Report_planes const& planes, Picture_scales const& scales) {
    std::size_t const side = std::max(planes.width, planes.height);
    std::size_t const binning = (side + longest_side - 1) / longest_side;
    Binned_planes const binned(planes, scales, binning);
    return {
        encoded(binned.s0_picture()),
        encoded(matrix_of(polarization::angle_degree_picture(binned.source()))),
        encoded(matrix_of(polarization::degree_picture(binned.source()))), binning};
}

} // namespace polarize_tool
