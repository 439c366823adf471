#include "output/calibration_table.hpp"

#include <cmath>
#include <cstdio>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

std::string calibration_table(polarization::Calibration const& calibration) {
    std::string table =
        "row  column  polariser  throughput  diattenuation  orientation  off by    residual";
    for (std::size_t position = 0; position < calibration.analysers.size(); ++position) {
        polarization::Analyser const& analyser = calibration.analysers[position];
        int const nominal = calibration.mosaic.angle(position / 2, position % 2);
        char line[160];
        std::snprintf(
            line, sizeof line, "\n%3zu  %6zu  %9d  %10.4f  %13.4f  %11.3f  %+6.3f  %8.4f %%",
            position / 2, position % 2, nominal, analyser.throughput, analyser.diattenuation,
            analyser.orientation, std::remainder(analyser.orientation - nominal, 180.0),
            100.0 * analyser.residual);
        table += line;
    }
    polarization::Calibration_quality const& quality = calibration.quality;
    char line[256];
    std::snprintf(
        line, sizeof line,
        "\n%zu frames, residual %.4f %% of the mean, condition number %.3f, at most %.1f degrees "
        "between angles, orientations off by %+.3f degrees in common",
        quality.frame_count, 100.0 * quality.rms_residual, quality.condition_number,
        quality.worst_angle_gap, common_offset(calibration.analysers, calibration.mosaic));
    return table + line;
}

} // namespace polarize_tool
