#include "view/frame_answers.hpp"

#include "input/settings_rows.hpp"

#include <bit>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

namespace polarize_tool {
namespace {

using Json = nlohmann::ordered_json;
using polarization::Region;
using polarization::Size;

// The planes of an answer are the numbers of this machine as they lie in memory.
static_assert(std::endian::native == std::endian::little);

constexpr std::size_t alignment = 8;

constexpr std::size_t aligned(std::size_t bytes) {
    return (bytes + alignment - 1) / alignment * alignment;
}

template <class Number>
Json number_or_null(std::optional<Number> const& number) {
    return number ? Json(*number) : Json();
}

// Names of files need not be UTF-8.
std::string text_of(Json const& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Answer json_answer(Json const& json) {
    return {200, "application/json", text_of(json)};
}

Json mosaic_of(polarization::Mosaic const& mosaic) {
    auto const& angles = mosaic.layout();
    return {{angles[0], angles[1]}, {angles[2], angles[3]}};
}

Json camera_of(std::optional<View_camera> const& camera) {
    if (!camera) {
        return {};
    }
    return {
        {"model", camera->model},
        {"id", camera->id},
        {"exposure_us", number_or_null(camera->exposure_us)},
        {"gain", number_or_null(camera->gain)},
        {"frame_rate", number_or_null(camera->frame_rate)},
        {"pixel_format", camera->pixel_format}};
}

// Numbers of 64 bits are more than numbers of JavaScript hold.
Json capture_of(std::optional<polarization::Capture> const& capture) {
    if (!capture) {
        return {};
    }
    return {
        {"frame_number", std::to_string(capture->frame_number)},
        {"camera_time_ns", std::to_string(capture->camera_time_ns)},
        {"host_time_ns", std::to_string(capture->host_time_ns)}};
}

Json reception_of(std::optional<Reception> const& reception) {
    if (!reception) {
        return {};
    }
    polarization::Live_counts const& counts = reception->counts;
    return {
        {"received", counts.received},
        {"dropped", counts.dropped},
        {"lost", counts.lost},
        {"incomplete", counts.all_incomplete()},
        {"reconnections", counts.reconnections},
        {"rate", number_or_null(reception->rate)},
        {"latency_ms", number_or_null(reception->latency_ms)}};
}

Json array_of(Region const& region) {
    return {region.column, region.row, region.width, region.height};
}

// The count of its bytes, and text up to a multiple of 8 bytes.
std::string header_of(Json const& json) {
    std::string text = text_of(json);
    text.resize(aligned(sizeof(std::uint32_t) + text.size()) - sizeof(std::uint32_t), ' ');
    auto const length = static_cast<std::uint32_t>(text.size());
    std::string header(sizeof length, '\0');
    std::memcpy(header.data(), &length, sizeof length);
    return header + text;
}

} // namespace

Answer refusal(int status, std::string const& line) {
    return {status, "text/plain; charset=utf-8", line};
}

Answer source_answer(
    View_setup const& setup, Frame_preparation const& preparation,
    std::optional<Reception> const& reception, std::optional<std::size_t> frames,
    std::optional<Size> const& size) {
    polarization::Settings const& settings = setup.transform.settings;
    Json rows = Json::array();
    for (auto const& [label, value] :
         settings_rows(preparation, setup.transform, setup.mode, setup.calibration_file)) {
        rows.push_back({label, value});
    }
    return json_answer(
        {{"name", setup.name},
         {"kind", reception                  ? "camera"
                  : frames == std::size_t{1} ? "frame"
                                             : "recording"},
         {"frames", number_or_null(frames)},
         {"width", size ? Json(size->width) : Json()},
         {"height", size ? Json(size->height) : Json()},
         {"bit_depth", preparation.bit_depth()},
         {"full_scale", settings.scale.full_scale()},
         {"s0_unit", settings.scale.sample_units_per_step()},
         {"mosaic", mosaic_of(settings.mosaic)},
         {"rate", number_or_null(setup.rate)},
         {"settings", rows},
         {"camera", camera_of(setup.camera)},
         {"reception", reception_of(reception)},
         {"generator", setup.generator}});
}

Answer frame_answer(
    Plane_making& making, Kept_frames::Use const& frame, Region const& region,
    Frame_request const& request, std::optional<Reception> const& reception) {
    Planes_wanted wanted{region, request.scale};
    Size const size = wanted.size();
    Frame_place const& place = frame->slot.place();
    Json planes = Json::array();
    for (View_plane const plane : request.planes) {
        auto const& about = description_of(plane);
        planes.push_back({{"name", about.name}, {"type", about.type}});
    }
    Json const json = {
        {"number", frame.number()},
        {"name", place.name()},
        {"frame_width", frame->samples->width},
        {"frame_height", frame->samples->height},
        {"region", array_of(region)},
        {"scale", request.scale},
        {"width", size.width},
        {"height", size.height},
        {"planes", planes},
        {"warnings", frame->warnings},
        {"capture", capture_of(place.capture)},
        {"camera", reception_of(reception)}};
    Answer answer{200, "application/octet-stream", header_of(json)};
    std::size_t offset = answer.body.size();
    std::size_t bytes = offset;
    for (View_plane const plane : request.planes) {
        bytes += aligned(size.width * size.height * description_of(plane).bytes);
    }
    answer.body.resize(bytes);
    for (View_plane const plane : request.planes) {
        wanted.targets[static_cast<unsigned>(plane)] = answer.body.data() + offset;
        offset += aligned(size.width * size.height * description_of(plane).bytes);
    }
    making.make({frame->samples->view(), frame->saturated}, wanted);
    return answer;
}

Answer statistics_answer(
    std::size_t number, Region const& region, View_statistics const& statistics) {
    Json quantities = Json::array();
    for (Quantity_statistics const& quantity : statistics.quantities) {
        quantities.push_back(
            {{"name", quantity.name},
             {"unit", quantity.unit},
             {"mean", number_or_null(quantity.mean)},
             {"deviation", number_or_null(quantity.deviation)},
             {"least", number_or_null(quantity.least)},
             {"largest", number_or_null(quantity.largest)},
             {"histogram",
              {{"from", quantity.from}, {"to", quantity.to}, {"counts", quantity.counts}}}});
    }
    return json_answer(
        {{"number", number},
         {"region", array_of(region)},
         {"pixels", statistics.pixels},
         {"valid_pixels", statistics.valid_pixels},
         {"quantities", quantities}});
}

} // namespace polarize_tool
