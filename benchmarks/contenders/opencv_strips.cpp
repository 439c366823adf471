#include "contenders/contenders.hpp"

#include <algorithm>
#include <cstdint>
#include <opencv2/core.hpp>

namespace {

constexpr int strip_height = 16;

/// Weights of the samples: every 2x2 neighbourhood holds each angle once, so that the sum of the
/// four weighted samples is the Stokes quantity of each pixel, whatever the parities.
struct Patterns {
    cv::Mat minus_s1, minus_s2;
};

struct Strip {
    cv::Mat samples, weighted, columns, s0, minus_s1, minus_s2, magnitude, angle, value;
    cv::Mat ratios[2];
};

Patterns make_patterns(int phase, int width) {
    static constexpr int angles[4][4] = {
        {0, 135, 45, 90}, {45, 90, 0, 135}, {90, 45, 135, 0}, {135, 0, 90, 45}};
    Patterns patterns{
        cv::Mat::zeros(strip_height + 1, width, CV_32F),
        cv::Mat::zeros(strip_height + 1, width, CV_32F)};
    for (int row = 0; row <= strip_height; ++row) {
        for (int column = 0; column < width; ++column) {
            int const angle = angles[phase & 3][2 * (row & 1) + (column & 1)];
            cv::Mat& pattern = angle % 90 == 0 ? patterns.minus_s1 : patterns.minus_s2;
            pattern.at<float>(row, column) = angle < 90 ? -1.0F : 1.0F;
        }
    }
    return patterns;
}

/// Sums of the 2x2 neighbourhoods by two shifted additions.
void add_neighbours(cv::Mat const& samples, cv::Mat& columns, cv::Mat& sums) {
    int const width = samples.cols - 1;
    cv::add(samples.colRange(0, width), samples.colRange(1, width + 1), columns);
    int const height = samples.rows - 1;
    cv::add(columns.rowRange(0, height), columns.rowRange(1, height + 1), sums);
}

void weighted_sums(Strip& strip, cv::Mat const& pattern, cv::Mat& sums) {
    cv::multiply(strip.samples, pattern.rowRange(0, strip.samples.rows), strip.weighted);
    add_neighbours(strip.weighted, strip.columns, sums);
}

/// The samples of the strip as floats, one row and one column larger. Behind the frame's end the
/// neighbour on the other side, which measures the same angle, is repeated.
void load_strip(Strip& strip, cv::Mat const& raw, int first, int end) {
    cv::Mat& samples = strip.samples;
    samples.create(end - first + 1, raw.cols + 1, CV_32F);
    cv::Mat inside = samples.colRange(0, raw.cols);
    raw.rowRange(first, std::min(end + 1, raw.rows))
        .convertTo(inside.rowRange(0, std::min(end + 1, raw.rows) - first), CV_32F);
    if (end == raw.rows) {
        raw.row(raw.rows - 2).convertTo(inside.row(end - first), CV_32F);
    }
    samples.col(raw.cols - 2).copyTo(samples.col(raw.cols));
}

void process_strip(
    Polarization_computation_arguments const& frame, Patterns const& patterns, Strip& strip,
    cv::Mat const& raw, int first, int end) {
    double const limit = frame.maximum_output_value;
    auto const plane = [&](std::uint16_t* data) {
        return cv::Mat(raw.rows, raw.cols, CV_16U, data).rowRange(first, end);
    };
    load_strip(strip, raw, first, end);
    weighted_sums(strip, patterns.minus_s1, strip.minus_s1);
    weighted_sums(strip, patterns.minus_s2, strip.minus_s2);
    // The angles' sets of planes are measured with the degree, which needs S0 even if its plane is
    // not wanted.
    add_neighbours(strip.samples, strip.columns, strip.s0);
    if (frame.s0_image != nullptr) {
        cv::Mat s0 = plane(frame.s0_image);
        strip.s0.convertTo(s0, CV_16U, 0.5);
        cv::min(s0, limit, s0);
    }
    // The conversion saturates at 0; samples within their depth cannot exceed the limit here.
    if (frame.s1_image != nullptr) {
        strip.minus_s1.convertTo(plane(frame.s1_image), CV_16U, -1);
    }
    if (frame.s2_image != nullptr) {
        strip.minus_s2.convertTo(plane(frame.s2_image), CV_16U, -1);
    }
    if (frame.azimuth_image != nullptr && frame.dolp_image != nullptr) {
        // The angle of the opposite point is 0 to 360 degrees where the azimuth is 0 to 180.
        cv::cartToPolar(strip.minus_s1, strip.minus_s2, strip.magnitude, strip.angle, true);
        strip.angle.convertTo(plane(frame.azimuth_image), CV_16U, limit / 360);
        cv::divide(strip.magnitude, strip.s0, strip.value, 2 * limit);
        cv::Mat dolp = plane(frame.dolp_image);
        strip.value.convertTo(dolp, CV_16U);
        cv::min(dolp, limit, dolp);
    }
    if (frame.normalized_stokes_image != nullptr) {
        cv::divide(strip.minus_s1, strip.s0, strip.ratios[0], -2);
        cv::divide(strip.minus_s2, strip.s0, strip.ratios[1], -2);
        cv::merge(
            strip.ratios, 2,
            cv::Mat(raw.rows, raw.cols, CV_32FC2, frame.normalized_stokes_image)
                .rowRange(first, end));
    }
}

} // namespace

void contenders::opencv_strips(Polarization_computation_arguments const& frame) {
    // Kept from frame to frame, as a program that processes a stream would.
    static Strip strip;
    static Patterns patterns;
    static int phase = -1;
    auto const width = static_cast<int>(frame.width);
    if (phase != frame.polar_phase || patterns.minus_s1.cols != width + 1) {
        cv::setNumThreads(1);
        patterns = make_patterns(frame.polar_phase, width + 1);
        phase = frame.polar_phase;
    }
    auto const height = static_cast<int>(frame.height);
    cv::Mat const raw(height, width, CV_16U, const_cast<std::uint16_t*>(frame.raw_image));
    for (int first = 0; first < height; first += strip_height) {
        process_strip(frame, patterns, strip, raw, first, std::min(first + strip_height, height));
    }
}
