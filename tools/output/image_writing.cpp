#include "output/image_writing.hpp"

#include "veldrane_mrv/polarization/memory_watch.hpp"

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

namespace polarize_tool {

std::vector<std::uint8_t> encode_png(cv::Mat const& picture) {
    std::vector<std::uint8_t> bytes;
    veldrane_mrv::polarization::Memory_watch const memory;
    // Level 1: higher ones take several times as long and gain little on noisy frames.
    if (!cv::imencode(".png", picture, bytes, {cv::IMWRITE_PNG_COMPRESSION, 1})) {
        memory.throw_if_refused();
        throw std::runtime_error("the picture cannot be encoded as PNG");
    }
    return bytes;
}

std::vector<std::uint8_t> encode_png(polarization::Colour_picture const& picture) {
    return encode_png(matrix_of(picture));
}

cv::Mat matrix_of(polarization::Colour_picture const& picture) {
    cv::Mat matrix(static_cast<int>(picture.height), static_cast<int>(picture.width), CV_8UC3);
    std::ranges::transform(
        picture.pixels, matrix.ptr<cv::Vec3b>(), [](polarization::Colour const& colour) {
            return cv::Vec3b(colour[2], colour[1], colour[0]);
        });
    return matrix;
}

} // namespace polarize_tool
