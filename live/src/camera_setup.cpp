#include "camera_setup.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <mutex>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

using aravis::call;
using aravis::text;

std::string number(double value) {
    std::array<char, 32> words = {};
    std::snprintf(words.data(), words.size(), "%g", value);
    return words.data();
}

std::string joined(std::vector<std::string> const& words) {
    std::string line;
    for (std::string const& word : words) {
        line += (line.empty() ? "" : ", ") + word;
    }
    return line;
}

std::string ids_of(std::vector<Camera_description> const& cameras) {
    std::vector<std::string> ids;
    ids.reserve(cameras.size());
    for (Camera_description const& camera : cameras) {
        ids.push_back(camera.id);
    }
    return joined(ids);
}

std::string id_of_the_only_camera() {
    std::vector<Camera_description> const cameras = list_cameras();
    if (cameras.empty()) {
        throw Argument_error(
            "camera", "not given and none answers",
            "check its power, its cable and its address, which has to lie in the network of this "
            "machine");
    }
    if (cameras.size() > 1) {
        throw Argument_error(
            "camera", "not given and " + std::to_string(cameras.size()) + " answer",
            "choose one of " + ids_of(cameras));
    }
    return cameras.front().id;
}

aravis::Owned<ArvCamera> opened(std::string const& id) {
    aravis::Error error;
    aravis::Owned<ArvCamera> camera(arv_camera_new(id.c_str(), error.slot()));
    if (camera) {
        return camera;
    }
    std::vector<Camera_description> const others = list_cameras();
    bool const is_there = std::any_of(others.begin(), others.end(), [&](auto const& other) {
        return other.id == id || other.address == id;
    });
    throw File_failure(
        "camera " + id,
        is_there ? "answers but cannot be opened; does another program use it?"
                 : "does not answer; " + (others.empty() ? "nor does any other: check power, cable "
                                                           "and addresses"
                                                         : "those that do: " + ids_of(others)));
}

std::string address_of(ArvCamera* camera) {
    if (arv_camera_is_gv_device(camera) == FALSE) {
        return "";
    }
    GSocketAddress* const address =
        arv_gv_device_get_device_address(ARV_GV_DEVICE(arv_camera_get_device(camera)));
    if (!G_IS_INET_SOCKET_ADDRESS(address)) {
        return "";
    }
    gchar* const words =
        g_inet_address_to_string(g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(address)));
    std::string result = text(words);
    g_free(words);
    return result;
}

// By asking the camera itself: to look for all of them takes a second.
Camera_description description_of(ArvCamera* camera, std::string const& id) {
    return {
        id,
        text(call(arv_camera_get_vendor_name, camera)),
        text(call(arv_camera_get_model_name, camera)),
        text(call(arv_camera_get_device_serial_number, camera)),
        address_of(camera),
        arv_camera_is_gv_device(camera) != FALSE   ? "GigEVision"
        : arv_camera_is_uv_device(camera) != FALSE ? "USB3Vision"
                                                   : "Fake"};
}

std::vector<std::string> pixel_formats_of(ArvCamera* camera) {
    guint count = 0;
    char const** const names =
        call(arv_camera_dup_available_pixel_formats_as_strings, camera, &count);
    std::vector<std::string> formats;
    for (char const* const name : std::vector<char const*>(names, names + count)) {
        bool const is_ours = std::any_of(
            all_pixel_formats.begin(), all_pixel_formats.end(),
            [name](Pixel_format format) { return name_of(format) == name; });
        if (is_ours) {
            formats.emplace_back(name);
        }
    }
    g_free(names);
    return formats;
}

// By names: this version of Aravis has no numbers for some of them.
Pixel_format set_pixel_format(ArvCamera* camera, std::string const& wanted) {
    std::vector<std::string> const formats = pixel_formats_of(camera);
    std::string const current = text(call(arv_camera_get_pixel_format_as_string, camera));
    std::string const& format = wanted.empty() ? current : wanted;
    if (std::find(formats.begin(), formats.end(), format) == formats.end()) {
        throw Argument_error(
            "pixel format", format + (wanted.empty() ? " in the camera" : ""),
            formats.empty() ? "this camera has none of the grey formats that can be processed"
                            : "give one that this camera has: " + joined(formats));
    }
    if (format != current) {
        call(arv_camera_set_pixel_format_from_string, camera, format.c_str());
    }
    return parse_pixel_format(format);
}

bool has_feature(ArvCamera* camera, char const* name) {
    return call(arv_camera_is_feature_available, camera, name) != FALSE;
}

// Neighbours in the frame would not be neighbours in the mosaic, or mirrored ones.
void refuse_moved_pixels(ArvCamera* camera) {
    for (char const* const name : {"DecimationHorizontal", "DecimationVertical"}) {
        if (has_feature(camera, name) && call(arv_camera_get_integer, camera, name) > 1) {
            throw Argument_error(
                std::string(name) + " of the camera",
                std::to_string(call(arv_camera_get_integer, camera, name)),
                "set it to 1, since pixels that are left out leave no mosaic");
        }
    }
    for (char const* const name : {"ReverseX", "ReverseY"}) {
        if (has_feature(camera, name) && call(arv_camera_get_boolean, camera, name)) {
            throw Argument_error(
                std::string(name) + " of the camera", "on",
                "turn it off, since it mirrors the mosaic and the angles with it");
        }
    }
}

// Sums of neighbours mix the analysers.
void refuse_binning(ArvCamera* camera) {
    if (!call(arv_camera_is_binning_available, camera)) {
        return;
    }
    gint columns = 1;
    gint rows = 1;
    call(arv_camera_get_binning, camera, &columns, &rows);
    if (columns > 1 || rows > 1) {
        throw Argument_error(
            "binning of the camera", std::to_string(columns) + " x " + std::to_string(rows),
            "set it to 1 x 1, since sums of neighbouring pixels mix the analysers");
    }
}

Region region_of(ArvCamera* camera) {
    gint column = 0;
    gint row = 0;
    gint width = 0;
    gint height = 0;
    call(arv_camera_get_region, camera, &column, &row, &width, &height);
    return {
        static_cast<std::size_t>(std::max(0, column)), static_cast<std::size_t>(std::max(0, row)),
        static_cast<std::size_t>(std::max(0, width)),
        static_cast<std::size_t>(std::max(0, height))};
}

Size sensor_of(ArvCamera* camera, Region const& region) {
    gint width = 0;
    gint height = 0;
    try {
        call(arv_camera_get_sensor_size, camera, &width, &height);
    } catch (aravis::Failure const&) {
        width = 0; // not every camera tells
    }
    return {
        std::max(static_cast<std::size_t>(std::max(0, width)), region.column + region.width),
        std::max(static_cast<std::size_t>(std::max(0, height)), region.row + region.height)};
}

// The offsets go first and come last: in between, either size has to fit.
void put_region(ArvCamera* camera, Region const& region) {
    call(arv_camera_set_integer, camera, "OffsetX", gint64{0});
    call(arv_camera_set_integer, camera, "OffsetY", gint64{0});
    call(arv_camera_set_integer, camera, "Width", static_cast<gint64>(region.width));
    call(arv_camera_set_integer, camera, "Height", static_cast<gint64>(region.height));
    call(arv_camera_set_integer, camera, "OffsetX", static_cast<gint64>(region.column));
    call(arv_camera_set_integer, camera, "OffsetY", static_cast<gint64>(region.row));
}

// Packed samples run on from row to row in what cameras send, and begin at a byte in each row here.
void check_rows(Pixel_format format, std::size_t width, bool is_given) {
    if (width * stored_bits_of(format) % 8 != 0) {
        throw Argument_error(
            std::string("width of the ") + (is_given ? "region" : "camera's own region"),
            std::to_string(width),
            "give a region whose width is a multiple of 4, so that rows end with a byte in " +
                std::string(name_of(format)) + ", or choose another pixel format");
    }
}

/// @return whether the camera took it; it is as it was if not
bool takes_region(ArvCamera* camera, Region const& region) {
    Region const before = region_of(camera);
    try {
        put_region(camera, region);
    } catch (aravis::Failure const&) {
        // What the camera has now tells whether it took the region.
    }
    if (region_of(camera) == region) {
        return true;
    }
    put_region(camera, before);
    return false;
}

void set_region(ArvCamera* camera, Region const& region) {
    Size const sensor = sensor_of(camera, {});
    bool const is_inside = sensor == Size{} || fits(region, sensor);
    if (is_inside && takes_region(camera, region)) {
        return;
    }
    std::string const steps =
        "corner in steps of " + std::to_string(call(arv_camera_get_x_offset_increment, camera)) +
        " and " + std::to_string(call(arv_camera_get_y_offset_increment, camera)) +
        ", size in steps of " + std::to_string(call(arv_camera_get_width_increment, camera)) +
        " and " + std::to_string(call(arv_camera_get_height_increment, camera));
    throw Argument_error(
        "region of the camera", to_string(region),
        "this camera takes regions within " + to_string(sensor) + " pixels, " + steps);
}

struct Number_feature {
    char const* name;
    char const* unit;
    gboolean (*is_available)(ArvCamera*, GError**);
    void (*get_bounds)(ArvCamera*, double*, double*, GError**);
    void (*set)(ArvCamera*, double, GError**);
    double (*get)(ArvCamera*, GError**);
};

constexpr Number_feature exposure_feature = {
    "exposure",
    " us",
    arv_camera_is_exposure_time_available,
    arv_camera_get_exposure_time_bounds,
    arv_camera_set_exposure_time,
    arv_camera_get_exposure_time};
constexpr Number_feature gain_feature = {
    "gain",
    "",
    arv_camera_is_gain_available,
    arv_camera_get_gain_bounds,
    arv_camera_set_gain,
    arv_camera_get_gain};
constexpr Number_feature frame_rate_feature = {
    "frame rate",
    " frames/s",
    arv_camera_is_frame_rate_available,
    arv_camera_get_frame_rate_bounds,
    arv_camera_set_frame_rate,
    arv_camera_get_frame_rate};

std::optional<double> put_number(
    ArvCamera* camera, Number_feature const& feature, std::optional<double> wanted) {
    if (!call(feature.is_available, camera)) {
        if (wanted) {
            throw Argument_error(
                feature.name, number(*wanted) + feature.unit,
                "leave it out, since this camera cannot be told");
        }
        return std::nullopt;
    }
    if (wanted) {
        double least = 0.0;
        double largest = 0.0;
        call(feature.get_bounds, camera, &least, &largest);
        if (!(*wanted >= least && *wanted <= largest)) {
            throw Argument_error(
                feature.name, number(*wanted) + feature.unit,
                "this camera takes " + number(least) + " to " + number(largest) + feature.unit);
        }
        call(feature.set, camera, *wanted);
    }
    return call(feature.get, camera);
}

/// @return what the camera has then, if it tells
std::optional<double> set_number(
    ArvCamera* camera, Number_feature const& feature, std::optional<double> wanted) {
    try {
        return put_number(camera, feature, wanted);
    } catch (aravis::Failure const&) {
        if (wanted) {
            throw Argument_error(
                feature.name, number(*wanted) + feature.unit,
                "leave it out, since this camera refuses it as it is set up now");
        }
        return std::nullopt; // nobody asked for it
    }
}

// A camera that chooses for itself would overwrite what is set.
void end_automatic(ArvCamera* camera, Camera_options const& options) {
    if (options.exposure_us && call(arv_camera_is_exposure_auto_available, camera)) {
        call(arv_camera_set_exposure_time_auto, camera, ARV_AUTO_OFF);
    }
    if (options.gain && call(arv_camera_is_gain_auto_available, camera)) {
        call(arv_camera_set_gain_auto, camera, ARV_AUTO_OFF);
    }
}

// A program that was killed leaves its camera sending to where nobody listens.
void end_earlier_run(ArvCamera* camera) {
    aravis::Error error; // of a camera that does not send
    arv_camera_stop_acquisition(camera, error.slot());
}

Camera_settings set_up(ArvCamera* camera, Camera_options const& options) {
    Camera_settings settings;
    end_earlier_run(camera);
    refuse_binning(camera);
    refuse_moved_pixels(camera);
    settings.pixel_format = set_pixel_format(camera, options.pixel_format);
    if (options.region) {
        check_rows(settings.pixel_format, options.region->width, true);
        set_region(camera, *options.region);
    }
    settings.region = region_of(camera);
    check_rows(settings.pixel_format, settings.region.width, options.region.has_value());
    settings.sensor = sensor_of(camera, settings.region);
    end_automatic(camera, options);
    // The longest exposure may hang on the frame rate, so this is first.
    settings.frame_rate = set_number(camera, frame_rate_feature, options.frame_rate);
    settings.exposure_us = set_number(camera, exposure_feature, options.exposure_us);
    settings.gain = set_number(camera, gain_feature, options.gain);
    if (call(arv_camera_are_chunks_available, camera)) { // which change what a buffer holds
        call(arv_camera_set_chunk_mode, camera, FALSE);
    }
    call(arv_camera_set_acquisition_mode, camera, ARV_ACQUISITION_MODE_CONTINUOUS);
    return settings;
}

Raw_layout layout_of(Camera_settings const& settings) {
    return make_raw_layout(
        std::string(name_of(settings.pixel_format)), settings.region.width, settings.region.height,
        0, 0);
}

} // namespace

bool is_built_with_cameras() {
    return true;
}

std::vector<Camera_description> list_cameras() {
    static std::mutex one_at_a_time; // the list that it walks is the process'
    std::scoped_lock const lock(one_at_a_time);
    arv_update_device_list();
    std::vector<Camera_description> cameras;
    for (unsigned i = 0; i < arv_get_n_devices(); ++i) {
        cameras.push_back(
            {text(arv_get_device_id(i)), text(arv_get_device_vendor(i)),
             text(arv_get_device_model(i)), text(arv_get_device_serial_nbr(i)),
             text(arv_get_device_address(i)), text(arv_get_device_protocol(i))});
    }
    std::sort(
        cameras.begin(), cameras.end(), [](auto const& a, auto const& b) { return a.id < b.id; });
    return cameras;
}

namespace aravis {

Ready_camera ready_camera(Camera_options const& options) {
    std::string const id = options.id.empty() ? id_of_the_only_camera() : options.id;
    Ready_camera ready;
    ready.camera = opened(id);
    try {
        ready.description = description_of(ready.camera.get(), id);
        ready.settings = set_up(ready.camera.get(), options);
        ready.pixel_format = call(arv_camera_get_pixel_format, ready.camera.get());
    } catch (Failure const&) {
        throw File_failure(
            "camera " + id, "breaks off while it is set up; check its cable, and whether another "
                            "program uses it");
    }
    ready.layout = layout_of(ready.settings);
    return ready;
}

} // namespace aravis
} // namespace veldrane_mrv::polarization
