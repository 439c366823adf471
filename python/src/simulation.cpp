#include "bindings.hpp"
#include "raw_frames.hpp"

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/imperfect_pixels.hpp"
#include "veldrane_mrv/polarization/inspection.hpp"
#include "veldrane_mrv/polarization/simulation.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <string>
#include <tuple>
#include <vector>

namespace veldrane_python {
namespace {

namespace py = pybind11;
namespace polarization = veldrane_mrv::polarization;

polarization::Simulation_settings settings_of(
    std::size_t height, std::size_t width, int phase, int bit_depth,
    polarization::Calibration const* sensor) {
    polarization::Simulation_settings settings{
        .width = width, .height = height, .phase = phase, .bit_depth = bit_depth};
    if (sensor != nullptr) {
        settings.analysers = sensor->analysers;
    }
    return settings;
}

py::array_t<float> plane_of(std::vector<float> const& values, std::size_t height) {
    py::array_t<float> result{std::vector<std::size_t>{height, values.size() / height}};
    std::copy(values.begin(), values.end(), result.mutable_data());
    return result;
}

// Whether there is any, its seed, electrons per count and read noise.
using Noise_arguments = std::tuple<bool, std::uint64_t, std::optional<double>, double>;

polarization::Light light_of(
    polarization::Simulation_settings const& settings, std::optional<double> polariser_angle,
    std::optional<double> flat_level, polarization::Stop_check const& check_stop) {
    if (polariser_angle) {
        return polarization::uniform_light(settings, *polariser_angle);
    }
    if (flat_level) {
        return polarization::flat_light(settings, *flat_level);
    }
    return polarization::scene_light(settings, check_stop);
}

// Frames (N, H, W) and their light.
py::tuple simulate(
    std::uint64_t first_frame, std::size_t count, std::size_t height, std::size_t width, int phase,
    int bit_depth, Noise_arguments const& noise, polarization::Calibration const* sensor,
    std::optional<double> polariser_angle, std::optional<double> flat_level) {
    auto settings = settings_of(height, width, phase, bit_depth, sensor);
    std::tie(settings.noise, settings.seed, settings.electrons_per_count, settings.read_noise) =
        noise;
    py::array_t<std::uint16_t> frames{std::vector<std::size_t>{count, height, width}};
    std::uint16_t* target = frames.mutable_data();
    polarization::Truth truth;
    {
        py::gil_scoped_release const unlocked;
        Interruption_check check;
        polarization::Stop_check const check_stop = std::ref(check);
        if (sensor != nullptr && sensor->maps != nullptr) {
            settings.pixels = std::make_shared<polarization::Sensor_pixels const>(*sensor);
        }
        auto const light = light_of(settings, polariser_angle, flat_level, check_stop);
        for (std::uint64_t number = first_frame; number < first_frame + count; ++number) {
            auto const frame = polarization::record(light, settings, number, check_stop);
            target = std::copy(frame.samples.begin(), frame.samples.end(), target);
        }
        truth = polarization::truth_of(light, check_stop);
    }
    py::dict planes;
    planes["s0"] = plane_of(truth.s0, height);
    planes["s1"] = plane_of(truth.s1, height);
    planes["s2"] = plane_of(truth.s2, height);
    planes["angle"] = plane_of(truth.angle, height);
    planes["degree"] = plane_of(truth.degree, height);
    return py::make_tuple(frames, planes);
}

polarization::Calibration imperfect_sensor(int phase, std::uint64_t seed) {
    polarization::Analyser_spread spread;
    spread.seed = seed;
    polarization::Calibration calibration =
        polarization::ideal_calibration(polarization::Mosaic::from_phase(phase));
    calibration.analysers = polarization::imperfect_analysers(phase, spread);
    calibration.matrices = polarization::matrices_of(calibration.analysers);
    calibration.quality.condition_number = polarization::condition_number(calibration.analysers);
    return calibration;
}

polarization::Calibration imperfect_pixels(
    std::size_t height, std::size_t width, int phase, int bit_depth,
    polarization::Calibration const* sensor, py::dict const& figures, std::uint64_t seed) {
    auto settings = settings_of(height, width, phase, bit_depth, sensor);
    settings.noise = false; // that of frames is not known yet
    polarization::Pixel_spread spread;
    spread.seed = seed;
    spread.gain_spread = figures["gain_spread"].cast<double>();
    spread.orientation_spread = figures["orientation_spread"].cast<double>();
    spread.diattenuation_spread = figures["diattenuation_spread"].cast<double>();
    spread.dark_level = figures["dark_level"].cast<double>();
    spread.dark_spread = figures["dark_spread"].cast<double>();
    spread.hot_pixels = figures["hot_pixels"].cast<double>();
    spread.dead_pixels = figures["dead_pixels"].cast<double>();
    py::gil_scoped_release const unlocked;
    Interruption_check check;
    return polarization::imperfect_pixels(settings, spread, std::ref(check));
}

py::dict inspect(
    py::array const& raw, std::optional<int> bit_depth, std::optional<double> polariser_angle) {
    Raw_frames const frames{raw};
    polarization::Inspection const found = [&] {
        py::gil_scoped_release const unlocked;
        std::vector<std::uint16_t> memory;
        return polarization::inspect(frames.frame(0, memory), bit_depth);
    }();
    py::dict result;
    result["mean"] = found.mean;
    result["smallest"] = found.smallest;
    result["largest"] = found.largest;
    result["used_bits"] = found.depth.used_bits;
    result["zero_low_bits"] = found.depth.zero_low_bits;
    result["bit_depth"] = found.depth.assumed_depth;
    result["shift"] = found.depth.shift;
    result["saturated"] = found.saturated;
    py::list means;
    for (auto const& position : found.positions) {
        means.append(position.mean);
    }
    result["position_means"] = py::tuple(means);
    result["mosaic"] = polarization::name_of(found.balance.verdict);
    result["explanation"] = found.balance.explanation();
    result["phase"] = py::none();
    if (polariser_angle) {
        auto const answer = polarization::phase_behind_polariser(found.positions, *polariser_angle);
        result["phase"] = py::cast(answer.phase);
        result["explanation"] = answer.explanation;
    }
    return result;
}

} // namespace

void bind_simulation(py::module_& module) {
    module.def("simulate", &simulate);
    module.def("imperfect_sensor", &imperfect_sensor);
    module.def("imperfect_pixels", &imperfect_pixels);
    module.def("inspect", &inspect);
}

} // namespace veldrane_python
