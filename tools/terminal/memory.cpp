#include "terminal/memory.hpp"

#include <new>
#include <opencv2/core.hpp>
#include <stdexcept>

namespace polarize_tool {

bool is_lack_of_memory(std::exception const& error) {
    auto const* const of_opencv = dynamic_cast<cv::Exception const*>(&error);
    return dynamic_cast<std::bad_alloc const*>(&error) != nullptr ||
           dynamic_cast<std::length_error const*>(&error) != nullptr ||
           (of_opencv != nullptr && of_opencv->code == cv::Error::StsNoMem);
}

} // namespace polarize_tool
