#include "model_quality.hpp"

#include <cmath>
#include <numbers>

namespace veldrane_mrv::polarization {
namespace {

using Instrument_matrix = Eigen::Matrix<double, 4, 3>;
using Weights = Eigen::Matrix<double, 3, 4>;

Weights pseudo_inverse(Instrument_matrix const& matrix) {
    Eigen::Matrix3d const normal = matrix.transpose() * matrix;
    return normal.inverse() * matrix.transpose();
}

struct Sum_of_squares {
    double sum = 0;
    double count = 0;

    void add(double value) {
        sum += value * value;
        ++count;
    }
    double rms() const { return count > 0 ? std::sqrt(sum / count) : 0.0; }
};

class Judge {
public:
    Judge(Fitted_models const& models, Held_out_frame const& frame, double source_degree)
        : models_{models}, frame_{frame}, positions_{rows_of(models.positions.analysers)},
          height_{frame.samples.size() / frame.width}, degree_{source_degree},
          light_{models.positions.quality.source_level * frame.design} {
        for (std::size_t position = 0; position < positions_.size(); ++position) {
            Instrument_matrix matrix;
            for (std::size_t sample = 0; sample < positions_.size(); ++sample) {
                matrix.row(static_cast<Eigen::Index>(sample)) = positions_[position ^ sample];
            }
            weights_[position] = pseudo_inverse(matrix);
        }
    }

    Model_quality operator()(Calibration_model model) const {
        Sum_of_squares degrees;
        Sum_of_squares angles;
        Sum_of_squares residuals;
        for (std::size_t pixel = 0; pixel < frame_.samples.size(); ++pixel) {
            if (models_.bad_pixels[pixel]) {
                continue;
            }
            residuals.add(signal(model, pixel) / gain(model, pixel) - expected(model, pixel));
            Eigen::Vector3d const stokes = stokes_of(model, pixel);
            // None where a neighbour is bad or, in this frame alone, dark.
            if (stokes(0) > 0) {
                degrees.add(stokes.tail<2>().norm() / stokes(0) - degree_);
                angles.add(std::remainder(
                    std::atan2(stokes(2), stokes(1)) * 90 / std::numbers::pi -
                        frame_.polariser_angle,
                    180));
            }
        }
        double const mean_signal = models_.positions.quality.source_level / 2;
        return {model, degrees.rms(), angles.rms(), residuals.rms() / mean_signal};
    }

private:
    std::size_t position_of(std::size_t pixel) const {
        return cell_position(pixel / frame_.width, pixel % frame_.width);
    }

    // What a sample is multiplied by to get that of the position.
    double gain(Calibration_model model, std::size_t pixel) const {
        return model == Calibration_model::gain
                   ? positions_[position_of(pixel)](0) /
                         static_cast<double>(models_.pixels.rows[0][pixel])
                   : 1.0;
    }

    double signal(Calibration_model model, std::size_t pixel) const {
        double const dark_level =
            model == Calibration_model::position
                ? models_.positions.analysers[position_of(pixel)].dark_level.value_or(0)
                : static_cast<double>(models_.dark_levels[pixel]);
        return gain(model, pixel) * (static_cast<double>(frame_.samples[pixel]) - dark_level);
    }

    double expected(Calibration_model model, std::size_t pixel) const {
        Eigen::Vector3d const row = model == Calibration_model::pixel
                                        ? models_.pixels.row(pixel)
                                        : positions_[position_of(pixel)];
        return row.dot(light_) / gain(model, pixel);
    }

    // Zeros if a sample is bad.
    Eigen::Vector3d stokes_of(Calibration_model model, std::size_t pixel) const {
        std::size_t const row = pixel / frame_.width;
        std::size_t const column = pixel % frame_.width;
        std::size_t const across = column + 1 < frame_.width ? pixel + 1 : pixel - 1;
        std::size_t const below = row + 1 < height_ ? pixel + frame_.width : pixel - frame_.width;
        std::array<std::size_t, 4> const quartet{pixel, across, below, across + below - pixel};
        Eigen::Vector4d signals;
        Instrument_matrix matrix;
        for (std::size_t sample = 0; sample < quartet.size(); ++sample) {
            std::size_t const neighbour = quartet[sample];
            if (models_.bad_pixels[neighbour]) {
                return Eigen::Vector3d::Zero();
            }
            signals(static_cast<Eigen::Index>(sample)) = signal(model, neighbour);
            matrix.row(static_cast<Eigen::Index>(sample)) = models_.pixels.row(neighbour);
        }
        return model == Calibration_model::pixel ? pseudo_inverse(matrix) * signals
                                                 : weights_[position_of(pixel)] * signals;
    }

    Fitted_models models_;
    Held_out_frame const& frame_;
    Position_rows positions_;
    std::array<Weights, 4> weights_;
    std::size_t height_;
    double degree_;
    // Stokes quantities behind the polariser.
    Eigen::Vector3d light_;
};

} // namespace

std::vector<Model_quality> judge_models(
    Fitted_models const& models, Held_out_frame const& frame, double source_degree) {
    Judge const judge{models, frame, source_degree};
    std::vector<Model_quality> qualities;
    for (Calibration_model const model : all_calibration_models) {
        qualities.push_back(judge(model));
    }
    return qualities;
}

} // namespace veldrane_mrv::polarization
