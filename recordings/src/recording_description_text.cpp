#include "veldrane_mrv/polarization/recording_description.hpp"

#include "description_format.hpp"

#include <nlohmann/json.hpp>

#include <string_view>

namespace veldrane_mrv::polarization {
namespace {

using Json = nlohmann::ordered_json;

Json told(std::string const& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json told(std::optional<double> const& number) {
    return number ? Json(*number) : Json(nullptr);
}

Json json_of(Recorded_settings const& settings) {
    Json json = {
        {"exposure_us", told(settings.exposure_us)},
        {"gain", told(settings.gain)},
        {"frame_rate", told(settings.frame_rate)},
        {"region", nullptr}};
    if (auto const& region = settings.region) {
        json["region"] = {
            {"column", region->column},
            {"row", region->row},
            {"width", region->width},
            {"height", region->height}};
    }
    return json;
}

Json json_of(Receiving_counts const& counts) {
    Json incomplete = Json::object();
    for (auto const& [cause, count] : counts.incomplete) {
        incomplete[cause] = count;
    }
    return {
        {"received", counts.received},
        {"lost", counts.lost},
        {"dropped", counts.dropped},
        {"incomplete", incomplete}};
}

// In one line: a line a frame would hide all else. Goes no further where `text` is too long.
void append_numbers(
    std::string& text, char const* key, std::vector<Capture> const& captures,
    std::uint64_t Capture::*number, std::size_t largest) {
    text.append(",\n  \"").append(key).append("\": [");
    for (std::size_t index = 0; index < captures.size() && text.size() <= largest; ++index) {
        text.append(index == 0 ? "" : ", ").append(std::to_string(captures[index].*number));
    }
    text += ']';
}

} // namespace

std::string recording_description_text(
    Recording_description const& description, std::size_t largest) {
    Camera_identity const& camera = description.camera;
    Json json = {
        {"format", recordings::description_mark},
        {"version", recordings::description_version},
        {"pixel_format", name_of(description.format)},
        {"width", description.size.width},
        {"height", description.size.height},
        {"frames", nullptr},
        {"layout", nullptr},
        {"camera",
         {{"id", told(camera.id)},
          {"vendor", told(camera.vendor)},
          {"model", told(camera.model)},
          {"serial", told(camera.serial)}}},
        {"settings", json_of(description.settings)},
        {"counts", json_of(description.counts)},
        {"begin", told(description.begin)},
        {"software", told(description.software)}};
    if (description.frames) {
        json["frames"] = *description.frames;
    }
    if (description.mosaic) {
        json["layout"] = description.mosaic->to_string();
    }
    std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace);
    constexpr std::string_view end = "\n}";
    text.resize(text.size() - end.size());
    std::size_t const without_captures = text.size();
    if (!description.captures.empty()) {
        auto const append = [&](char const* key, std::uint64_t Capture::*number) {
            append_numbers(text, key, description.captures, number, largest);
        };
        append("frame_number", &Capture::frame_number);
        append("camera_time_ns", &Capture::camera_time_ns);
        append("host_time_ns", &Capture::host_time_ns);
    }
    if (text.size() + end.size() + 1 > largest) {
        text.resize(without_captures);
    }
    return text.append(end) + "\n";
}

} // namespace veldrane_mrv::polarization
