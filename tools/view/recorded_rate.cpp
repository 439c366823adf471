#include "view/recorded_rate.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace polarize_tool {

std::optional<double> recorded_rate(std::vector<Frame_place> const& frames) {
    std::vector<std::uint64_t> steps;
    for (std::size_t next = 1; next < frames.size(); ++next) {
        Frame_place const& begin = frames[next - 1];
        Frame_place const& end = frames[next];
        bool const has_times = begin.capture && end.capture && begin.file == end.file;
        if (has_times && end.capture->camera_time_ns > begin.capture->camera_time_ns) {
            steps.push_back(end.capture->camera_time_ns - begin.capture->camera_time_ns);
        }
    }
    if (steps.empty()) {
        return std::nullopt;
    }
    auto const middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
    std::ranges::nth_element(steps, middle);
    return 1e9 / static_cast<double>(*middle);
}

} // namespace polarize_tool
