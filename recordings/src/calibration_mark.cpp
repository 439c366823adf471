#include "veldrane_mrv/polarization/calibration_mark.hpp"

#include "veldrane_mrv/polarization/calibration_file.hpp"

namespace veldrane_mrv::polarization {

bool is_of_calibration(std::string_view start) {
    constexpr std::size_t size_of_length = 4;
    std::size_t const place = place_of_calibration_mark + size_of_length;
    bool const is_plot = start.starts_with("\x89PNG\r\n\x1a\n") && start.size() > place &&
                         start.substr(place).starts_with(calibration_mark);
    bool const is_calibration =
        start.starts_with('{') && start.find(calibration_schema_name) != std::string_view::npos;
    return is_plot || is_calibration;
}

} // namespace veldrane_mrv::polarization
