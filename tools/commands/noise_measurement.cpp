#include "commands/noise_measurement.hpp"

#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/progress.hpp"

#include <array>
#include <string>
#include <vector>

namespace polarize_tool {

polarization::Photon_transfer measure_noise(
    std::vector<Frame_place> const& flats, std::optional<Raw_layout> const& raw,
    Frame_preparation const& preparation, polarization::Photon_transfer_options const& options,
    bool shows_progress) {
    Frame_list source(flats, raw);
    std::array<Frame_slot, 2> pair;
    std::vector<polarization::Photon_transfer_point> points;
    Progress progress(flats.size(), shows_progress);
    for (std::size_t first = 0; first < flats.size(); first += pair.size()) {
        for (std::size_t number = 0; number < pair.size(); ++number) {
            throw_if_interrupted();
            if (first + number == flats.size()) {
                throw File_failure(
                    pair[0].place().name(),
                    "has no second frame of the same light behind it; give --noise pairs");
            }
            source.read(first + number, pair[number]);
            Frame& frame = pair[number].frame();
            preparation.apply(frame, pair[number].place().name(), Dark_level::kept);
            progress.add(frame.samples.size());
        }
        std::string const source_name = pair[0].place().name() + " and " + pair[1].place().name();
        points.push_back(
            measure_pair({pair[0].frame().view(), pair[1].frame().view(), source_name}, options));
    }
    return polarization::fit_photon_transfer(points);
}

} // namespace polarize_tool
