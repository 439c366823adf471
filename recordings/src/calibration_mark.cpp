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

bool is_of_calibration(std::filesystem::path const& file, std::string_view start) {
    constexpr std::string_view mark = ".maps-";
    constexpr std::size_t digits = 16;
    std::string const stem = file.stem().string();
    std::size_t const place = stem.rfind(mark);
    bool const is_map_name =
        file.extension() == ".npy" && place != std::string::npos &&
        stem.size() == place + mark.size() + digits &&
        stem.find_first_not_of("0123456789abcdef", place + mark.size()) == std::string::npos;
    return is_of_calibration(start) || (is_map_name && start.starts_with("\x93NUMPY"));
}

} // namespace veldrane_mrv::polarization
