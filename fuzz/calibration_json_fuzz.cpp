/// @file
/// Any bytes as a calibration. A text is refused, or accepted for good: written again it gives the
/// same calibration.

#include "memory_file.hpp"

#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <algorithm>

namespace polarization = veldrane_mrv::polarization;
using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text(data, data + size);
    try {
        auto const calibration = polarization::calibration_from_json(text, "input");
        auto const again =
            polarization::calibration_from_json(calibration_to_json(calibration), "again");
        require(calibration == again, "a calibration changes when it is written and read");
    } catch (polarization::File_error const& error) {
        require(error.file() == "input", "what was written is refused");
        auto const lines = 1 + std::count(text.begin(), text.end(), '\n');
        require(error.line() <= static_cast<std::size_t>(lines), "there is no such line");
    }
    return 0;
}
