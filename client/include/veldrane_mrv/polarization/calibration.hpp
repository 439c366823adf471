/// @file
/// What is known of a sensor's analysers, and the weights that undo their faults.
///
/// A sample under the analyser at position k of the cell, in linearly polarised or unpolarised
/// light of Stokes quantities S0, S1, S2, is by Malus' law for an imperfect analyser
///
///   I = T / 2 * (S0 + D * (cos(2 phi) * S1 + sin(2 phi) * S2)) + dark level
///
/// with throughput T, diattenuation D (the contrast: 1 lets nothing of the crossed light through)
/// and orientation phi. T * (1, D cos 2 phi, D sin 2 phi) / 2 for the four positions is the
/// instrument matrix, 4 x 3; its pseudo-inverse gives the weights of (S0, S1, S2). This is the
/// usual treatment of division-of-focal-plane sensors: Chenault and Chipman, "Measuring linear
/// diattenuation and retardance spectra with a rotating sample polarimeter", Applied Optics 32,
/// 3513 (1993), and Powell and Gruev, "Calibration methods for division-of-focal-plane
/// polarimeters", Optics Express 21, 21039 (2013).
#pragma once

#include "veldrane_mrv/polarization/calibration_maps.hpp"
#include "veldrane_mrv/polarization/matrices.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"
#include "veldrane_mrv/polarization/noise_model.hpp"

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veldrane_mrv::polarization {

/// One of the four positions of the cell. The ideal one has throughput 1, diattenuation 1, the
/// orientation of the mosaic and a dark level of 0.
struct Analyser {
    /// Relative to the mean of the four, which is 1: a source's absolute intensity is not known.
    double throughput = 1;
    double diattenuation = 1;
    /// In degrees, in [0, 180), zero direction and sense as in the mosaic's layout.
    double orientation = 0;
    /// Mean sample without light, if known. Weights cannot take it off: subtract a dark frame.
    std::optional<double> dark_level;
    /// Root mean square of measured minus fitted means, as a fraction of the mean signal.
    double residual = 0;

    bool operator==(Analyser const&) const = default;
};

/// What a reader of the calibration should know before trusting it.
enum class Quality_flag {
    /// Fewer than six frames: the residuals say little.
    few_frames,
    /// More than 60 degrees between neighbouring polariser angles.
    wide_angle_gap,
    /// Residuals above 1 %: a source that is not steady, angles that are not right, a dark level.
    large_residual,
    /// An analyser with a diattenuation below 0.5.
    weak_diattenuation,
    /// An analyser with a diattenuation above 1.01, which no polariser has: a dark level was taken
    /// off twice, or the sensor is not linear.
    diattenuation_above_one,
    /// Condition number above 3: noise of the samples grows in S1 and S2.
    poor_conditioning,
    /// No dark level was given: what there is lowers the diattenuations.
    dark_level_unknown,
    /// The four orientations are off by 2 degrees or more in common: calibrated angles are turned
    /// by as much.
    orientation_offset
};

inline constexpr std::array<Quality_flag, 8> all_quality_flags = {
    Quality_flag::few_frames,
    Quality_flag::wide_angle_gap,
    Quality_flag::large_residual,
    Quality_flag::weak_diattenuation,
    Quality_flag::diattenuation_above_one,
    Quality_flag::poor_conditioning,
    Quality_flag::dark_level_unknown,
    Quality_flag::orientation_offset};

/// The flag's name as in the list above.
std::string_view name_of(Quality_flag flag);

/// One sentence for a user: what it means, what to do.
std::string_view explanation_of(Quality_flag flag);

/// A frame of the series that does not go with the others.
struct Outlying_frame {
    std::string source;
    double polariser_angle = 0;
    /// Root mean square over the four positions of measured means minus those that the other frames
    /// let expect, as a fraction of the mean signal.
    double residual = 0;

    bool operator==(Outlying_frame const&) const = default;
};

/// What a model makes of a frame of the series that its figures were fitted without.
struct Model_quality {
    Calibration_model model = Calibration_model::position;
    /// Root mean square over all pixels whose four samples are good of the degree of polarisation,
    /// by the model's weights, less that of the source.
    double rms_degree_error = 0;
    /// The same of the angle of polarisation less the polariser's, in degrees.
    double rms_angle_error_degrees = 0;
    /// Root mean square over all good pixels of measured less predicted samples, as a fraction of
    /// the mean signal. The frame's noise is in all three.
    double rms_sample_residual = 0;

    bool operator==(Model_quality const&) const = default;
};

struct Calibration_quality {
    /// Root mean square over all positions and frames of measured minus fitted means, as a fraction
    /// of the mean signal; divided by the degrees of freedom, 0 if there are none.
    double rms_residual = 0;
    /// Largest over smallest singular value of the instrument matrix; 1.414 for an ideal sensor.
    double condition_number = 0;
    std::size_t frame_count = 0;
    /// Largest distance in degrees between neighbouring polariser angles, modulo 180.
    double worst_angle_gap = 0;
    /// S0 of the source behind its polariser in sample units, per unit of source intensity.
    double source_level = 0;
    std::vector<Quality_flag> flags;
    /// Those with a residual above 1 %, the largest first: at most one in four and at most 16,
    /// since many that do not go together tell no wrong one from a right one.
    std::vector<Outlying_frame> outlying_frames{};
    /// In the order of `all_calibration_models`; empty if no frame was held out.
    std::vector<Model_quality> models{};
    /// Name of that frame.
    std::string held_out_frame{};

    bool operator==(Calibration_quality const&) const = default;
};

struct Provenance {
    std::string software_version;
    /// UTC, such as 2026-01-31T12:00:00Z.
    std::string time;
    /// Names of the frames.
    std::vector<std::string> sources;
    std::string sensor;

    bool operator==(Provenance const&) const = default;
};

struct Calibration {
    Mosaic mosaic;
    Matrices matrices;
    /// Indexed by `cell_position`, as are the matrices.
    std::array<Analyser, 4> analysers;
    Calibration_quality quality;
    Provenance provenance;
    Calibration_model model = Calibration_model::position;
    /// Null for the model `position`. Shared, since they are large and nobody changes them.
    std::shared_ptr<Calibration_maps const> maps{};
    /// If it was measured.
    std::optional<Noise_model> noise{};

    /// Maps are equal if their numbers are.
    bool operator==(Calibration const& other) const;
};

/// Throughputs are relative to their mean of 1, so one of four is at most 4; a position that gets a
/// hundredth of the light of its neighbours measures nothing.
inline constexpr double least_throughput = 0.01;
inline constexpr double largest_throughput = 4;

/// In degrees, half the distance between neighbouring polarisers: an analyser that is farther from
/// the mosaic's orientation is another one.
inline constexpr double farthest_orientation = 22.5;

/// An ideal sensor: weights 1, -1 and 0, no flags, no frames.
Calibration ideal_calibration(Mosaic const& mosaic);

/// The weights of analysers: for each position the pseudo-inverse of the instrument matrix whose
/// rows stand in the order of the quartet: own, horizontal, vertical, diagonal neighbour. Row 0 is
/// doubled, so that ideal analysers get weights of 1, and -1, 0 and 1 in rows 1 and 2. Dark levels
/// do not enter.
/// @throws Argument_error if the orientations do not tell S1 from S2 or a figure is not usable
Matrices matrices_of(std::array<Analyser, 4> const& analysers);

/// Largest over smallest singular value of the instrument matrix.
/// @throws Argument_error if a figure is not usable
double condition_number(std::array<Analyser, 4> const& analysers);

/// Mean distance in degrees of the orientations from the mosaic's, positive counter-clockwise: how
/// far the polariser's zero is from the rows, or the sensor turned in its mount. Calibrated angles
/// count from the polariser's zero, so they are turned by it.
double common_offset(std::array<Analyser, 4> const& analysers, Mosaic const& mosaic);

/// The mean that the calibration expects at a position with a polariser before the source.
double expected_mean(
    Calibration const& calibration, std::size_t position, double polariser_angle,
    double source_intensity = 1, double source_degree = 1);

/// The calibration of a frame that was cut out of a frame of this one.
/// @throws Argument_error if there are maps: their region has a size too
Calibration of_region(
    Calibration const& calibration, std::size_t row_offset, std::size_t column_offset);

/// The same with maps, if there are any: those of the region, which is all of the sensor then.
/// @throws Argument_error if the maps do not cover the region of their sensor
Calibration of_region(Calibration const& calibration, Region const& region);

/// Version of this software, as calibrations name it.
std::string_view software_version();

/// Now, in UTC, such as 2026-01-31T12:00:00Z.
std::string current_time();

} // namespace veldrane_mrv::polarization
