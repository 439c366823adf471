#include "calibration_text.hpp"

#include "array_file.hpp"
#include "map_faults.hpp"

namespace veldrane_mrv::polarization {

Calibration complete(
    Calibration_text const& text, std::shared_ptr<Calibration_maps const> const& maps,
    std::filesystem::path const& array) {
    Calibration calibration = text.calibration;
    if (std::string const hash = array_hash(calibration.model, *maps); hash != text.maps->hash) {
        throw File_error(
            array, 0, "",
            "the hash of its bytes is " + hash + ", not the " + text.maps->hash +
                " of the calibration: they were changed, or are of another one",
            damaged);
    }
    if (auto const fault = find_number_fault(calibration.model, *maps)) {
        throw File_error(array, 0, fault->key, "this is " + fault->problem, damaged);
    }
    calibration.maps = maps;
    return calibration;
}

} // namespace veldrane_mrv::polarization
