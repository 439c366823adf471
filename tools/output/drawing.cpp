#include "output/drawing.hpp"

#include <opencv2/imgproc.hpp>

namespace polarize_tool {

void write_text(
    cv::Mat& picture, std::string const& text, cv::Point place, cv::Scalar const& colour) {
    cv::putText(picture, text, place, cv::FONT_HERSHEY_SIMPLEX, 0.5, colour, 1, cv::LINE_AA);
}

} // namespace polarize_tool
