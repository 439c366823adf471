#include "output/calibration_table.hpp"

#include "output/map_statistics.hpp"

#include <cmath>
#include <cstdio>
#include <utility>

namespace polarize_tool {

namespace {

namespace polarization = veldrane_mrv::polarization;

std::string bad_pixel_line(polarization::Measured_calibration const& measured) {
    polarization::Calibration_maps const& maps = *measured.calibration.maps;
    polarization::Bad_pixel_counts const& counts = measured.bad_pixels;
    std::string line = std::to_string(maps.bad_pixels.size()) + " bad pixels of " +
                       std::to_string(maps.region.width * maps.region.height);
    std::string separator = ": ";
    for (auto const& [count, cause] :
         {std::pair(counts.known, "known"), std::pair(counts.hot, "hot"),
          std::pair(counts.saturated, "saturated"),
          std::pair(counts.weak_or_strong, "too weak or too strong"),
          std::pair(counts.other_analyser, "with another analyser"),
          std::pair(counts.noisy, "noisy")}) {
        if (count > 0) {
            line += separator + std::to_string(count) + " " + cause;
            separator = ", ";
        }
    }
    return line;
}

std::string model_lines(polarization::Calibration_quality const& quality) {
    if (quality.models.empty()) {
        return {};
    }
    std::string text = "\nmodel     degree off by  angle off by  residual   on " +
                       quality.held_out_frame + ", held out";
    for (polarization::Model_quality const& model : quality.models) {
        char line[128];
        std::snprintf(
            line, sizeof line, "\n%-8s  %13.5f  %8.4f deg  %7.4f %%",
            std::string(name_of(model.model)).c_str(), model.rms_degree_error,
            model.rms_angle_error_degrees, 100.0 * model.rms_sample_residual);
        text += line;
    }
    return text;
}

} // namespace

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

std::string map_table(polarization::Measured_calibration const& measured) {
    std::string table = bad_pixel_line(measured) + "\nmap                median     spread";
    for (Shown_map const& map : shown_maps(measured.calibration.model)) {
        Map_statistics const statistics = statistics_of(values_of(map, measured), measured);
        char line[160];
        std::snprintf(
            line, sizeof line, "\n%-13s  %10.4f  %9.4f  %s", std::string(map.name).c_str(),
            statistics.median, statistics.spread, std::string(map.meaning).c_str());
        table += line;
    }
    return table + model_lines(measured.calibration.quality);
}

std::string noise_line(polarization::Photon_transfer const& transfer) {
    char line[160];
    std::snprintf(
        line, sizeof line,
        "%.4g electrons per count, read noise %.3g electrons, from %zu pairs at most %.1f %% off "
        "the line",
        transfer.noise.electrons_per_count, transfer.noise.read_noise, transfer.points.size(),
        100.0 * transfer.largest_deviation);
    return line;
}

} // namespace polarize_tool
