#include "quality_json.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

namespace veldrane_mrv::polarization {
namespace {

Json outlying_json(std::vector<Outlying_frame> const& frames) {
    Json all = Json::array();
    for (Outlying_frame const& frame : frames) {
        all.push_back(
            {{"source", frame.source},
             {"angle_degrees", finite(frame.polariser_angle, "polariser angle")},
             {"residual", finite(frame.residual, "residual")}});
    }
    return all;
}

Json models_json(std::vector<Model_quality> const& models) {
    Json all = Json::array();
    for (Model_quality const& model : models) {
        all.push_back(
            {{"model", name_of(model.model)},
             {"rms_degree_error", finite(model.rms_degree_error, "rms degree error")},
             {"rms_angle_error_degrees", finite(model.rms_angle_error_degrees, "rms angle error")},
             {"rms_sample_residual", finite(model.rms_sample_residual, "rms sample residual")}});
    }
    return all;
}

Quality_flag read_flag(Node const& node) {
    std::string const name = node.text();
    for (Quality_flag const flag : all_quality_flags) {
        if (name_of(flag) == name) {
            return flag;
        }
    }
    node.refuse("there is no flag \"" + name + "\"");
}

std::vector<Outlying_frame> read_outlying_frames(Node const& node) {
    std::vector<Outlying_frame> frames;
    for (std::size_t index = 0; index < node.array_size(); ++index) {
        Node const frame = node[index];
        frame.require_object({"source", "angle_degrees", "residual"});
        frames.push_back(
            {frame["source"].text(), frame["angle_degrees"].number(), frame["residual"].number(0)});
    }
    return frames;
}

std::vector<Model_quality> read_models(Node const& node) {
    std::vector<Model_quality> models;
    for (std::size_t index = 0; index < node.array_size(); ++index) {
        Node const model = node[index];
        model.require_object(
            {"model", "rms_degree_error", "rms_angle_error_degrees", "rms_sample_residual"});
        models.push_back(
            {read_model(model["model"]), model["rms_degree_error"].number(0),
             model["rms_angle_error_degrees"].number(0), model["rms_sample_residual"].number(0)});
    }
    return models;
}

} // namespace

double finite(double number, std::string const& figure) {
    if (!std::isfinite(number)) {
        throw Argument_error(
            figure, std::isnan(number) ? "NaN" : "infinite", "give a finite number");
    }
    return number;
}

Calibration_model read_model(Node const& node) {
    try {
        return parse_calibration_model(node.text());
    } catch (Argument_error const& error) {
        node.refuse("there is no model \"" + error.value() + "\"");
    }
}

Json quality_json(Calibration const& calibration, int version) {
    Calibration_quality const& quality = calibration.quality;
    Json flags = Json::array();
    for (Quality_flag const flag : quality.flags) {
        flags.push_back(name_of(flag));
    }
    Json json = {
        {"rms_residual", finite(quality.rms_residual, "rms residual")},
        {"condition_number", finite(quality.condition_number, "condition number")},
        {"frame_count", quality.frame_count},
        {"worst_angle_gap_degrees", finite(quality.worst_angle_gap, "worst angle gap")},
        {"source_level", finite(quality.source_level, "source level")},
        {"common_offset_degrees", common_offset(calibration.analysers, calibration.mosaic)},
        {"flags", flags},
        {"outlying_frames", outlying_json(quality.outlying_frames)}};
    if (version > 2) {
        json["models"] = models_json(quality.models);
        json["held_out_frame"] = quality.held_out_frame;
    }
    return json;
}

Calibration_quality read_quality(Node const& node, std::size_t version) {
    if (version == 1) {
        node.require_object(
            {"rms_residual", "condition_number", "frame_count", "worst_angle_gap_degrees",
             "source_level", "flags"});
    } else if (version == 2) {
        node.require_object(
            {"rms_residual", "condition_number", "frame_count", "worst_angle_gap_degrees",
             "source_level", "common_offset_degrees", "flags", "outlying_frames"});
    } else {
        node.require_object(
            {"rms_residual", "condition_number", "frame_count", "worst_angle_gap_degrees",
             "source_level", "common_offset_degrees", "flags", "outlying_frames", "models",
             "held_out_frame"});
    }
    Calibration_quality quality;
    quality.rms_residual = node["rms_residual"].number(0);
    quality.condition_number = node["condition_number"].number(0);
    quality.frame_count = node["frame_count"].count();
    quality.worst_angle_gap = node["worst_angle_gap_degrees"].number(0);
    quality.source_level = node["source_level"].number(0);
    Node const flags = node["flags"];
    for (std::size_t index = 0; index < flags.array_size(); ++index) {
        quality.flags.push_back(read_flag(flags[index]));
    }
    if (version > 1) {
        quality.outlying_frames = read_outlying_frames(node["outlying_frames"]);
    }
    if (version > 2) {
        quality.models = read_models(node["models"]);
        quality.held_out_frame = node["held_out_frame"].text();
    }
    return quality;
}

} // namespace veldrane_mrv::polarization
