#include "output/image_writing.hpp"

#include "veldrane_mrv/polarization/memory_watch.hpp"

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

} // namespace polarize_tool
