#include "commands/view_run.hpp"

#include "commands/camera_options.hpp"
#include "commands/live_statistics.hpp"
#include "input/transform_settings.hpp"
#include "page/page_colours.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"
#include "terminal/visible_text.hpp"
#include "veldrane_mrv/polarization/build_identification.hpp"
#include "veldrane_mrv/polarization/processor.hpp"
#include "view/recorded_rate.hpp"
#include "view/view_files.hpp"
#include "view/view_frames.hpp"
#include "view/view_server.hpp"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace polarize_tool {
namespace {

using polarization::Mode;

void warn_of_listening(View_address const& address) {
    if (!is_on_this_machine(address)) {
        warn(
            "--listen is " + address.listen +
            ", so frames and the page's token travel unencrypted to other machines; put TLS in "
            "front, or use an ssh tunnel without --listen (docs/view.md)");
    }
}

/// @param camera what the frames come from, if it is one
void serve(
    View_frames& frames, View_address const& address,
    polarization::Live_source const* camera = nullptr) {
    Handlers handlers = frames.handlers();
    handlers.emplace("/colours", [text = page_colours()](Query const&) {
        return Answer{200, "application/json", text};
    });
    View_server_options options;
    options.address = address.listen;
    options.port = address.port;
    options.hosts = address.hosts;
    options.names = names_without_port(address);
    View_server server(options, view_files(), std::move(handlers));
    warn_of_listening(address);
    tell_what_stays("interrupted; the page gets no more frames");
    say(page_address(address, server.origin(), server.token()));
    bool is_told = false;
    std::optional<polarization::Steady_time> silent_until;
    if (camera != nullptr) {
        silent_until = std::chrono::steady_clock::now() + longest_silence;
    }
    server.run([&] {
        if (silent_until && std::chrono::steady_clock::now() >= *silent_until) {
            silent_until.reset();
            if (!frames.has_frame() && !frames.has_ended()) {
                warn(told_silence(*camera));
            }
        }
        if (!is_told && frames.has_ended() && !interruption_flag()) {
            is_told = true;
            std::string const failure = frames.failure();
            if (!failure.empty()) {
                complain(failure + "; the page keeps the last frames until Ctrl-C");
            }
        }
        return interruption_flag().load();
    });
}

View_setup setup_for(
    std::string name, View_line const& line, Frame_preparation const& preparation) {
    Transform_settings transform = transform_settings(
        line.mosaic, line.calibration_file, std::nullopt, preparation,
        line.zero_direction.value_or(0));
    transform.settings.noise = noise_of(line, transform.calibration);
    Mode const mode = line.mode.value_or(transform.calibration ? Mode::calibrated : Mode::fast);
    return {
        .name = std::move(name),
        .transform = std::move(transform),
        .calibration_file = line.calibration_file,
        .mode = mode,
        .rate = std::nullopt,
        .camera = std::nullopt,
        .generator = "veldrane-polarize " + std::string(polarization::software_version())};
}

std::string name_of_inputs(std::vector<std::string> const& inputs) {
    std::string const more =
        inputs.size() > 1 ? " and " + std::to_string(inputs.size() - 1) + " more" : "";
    return visible(inputs.front()) + more;
}

// A misspelt name is a frame that would be met by stepping to it alone; the first has been read.
void complain_of_missing(std::vector<Frame_place> const& frames) {
    for (std::size_t at = 1; at < frames.size(); ++at) {
        std::error_code error;
        if (frames[at].index == 0 && !std::filesystem::exists(frames[at].file, error)) {
            complain(
                visible(frames[at].file.native()) +
                ": cannot be read: " + (error ? error.message() : "No such file or directory"));
        }
    }
}

void view_files_of(View_line& line) {
    auto const raw = line.input.raw_layout();
    check(polarization::processor_features());
    Frame_preparation const preparation(line.samples, raw);
    View_setup setup = setup_for(name_of_inputs(line.input.inputs), line, preparation);
    Found_frames const found = look_for_frames(line.input.inputs, raw, line.input.selection);
    require_frames(found);
    if (found.frames.empty()) {
        throw std::runtime_error(found.failures.front());
    }
    for (std::string const& failure : found.failures) {
        complain(failure);
    }
    if (raw) {
        preparation.part_of({raw->width, raw->height}, found.frames.front().name());
    }
    Frame_list frames(found.frames, raw);
    setup.rate = recorded_rate(found.frames);
    View_frames view(std::move(setup), preparation, frames);
    try {
        view.read_first();
    } catch (File_failure const& failure) {
        if (found.frames.size() == 1) {
            throw;
        }
        complain(failure.what());
    }
    complain_of_missing(found.frames);
    serve(view, line.address);
}

// A camera that does not answer any more is asked several times to stop.
void give_back(std::unique_ptr<polarization::Camera_source> camera) {
    auto const given_back = std::async([&camera] { camera.reset(); });
    if (given_back.wait_for(std::chrono::seconds(1)) == std::future_status::timeout) {
        remark("the camera does not answer yet; giving it back takes up to 12 s, Ctrl-C once more "
               "ends at once");
    }
    given_back.wait();
}

void view_camera(View_line& line) {
    check(polarization::processor_features());
    auto& options = line.camera;
    options.live.stop_requested = [] { return interruption_flag().load(); };
    // A viewer wants what is new: frames that it cannot keep up with are of no use to it.
    options.live.waiting_frames = 2;
    options.live.drop = polarization::Drop_policy::oldest;
    options.sends_at_once = false; // first calibration and dark frames are read
    auto camera = opened_camera(options);
    Frame_preparation const preparation = preparation_for(*camera, line.samples);
    View_setup setup = setup_for(visible(camera->name()), line, preparation);
    check_sensor_of(*camera, setup.transform.calibration, line.calibration_file);
    auto const& about = camera->description();
    auto const& settings = camera->settings();
    setup.camera = View_camera{visible(about.model), visible(about.id),
                               settings.exposure_us, settings.gain,
                               settings.frame_rate,  std::string(name_of(settings.pixel_format))};
    std::uint64_t broken_off = 0;
    {
        View_frames view(std::move(setup), preparation, *camera);
        serve(view, line.address, camera.get());
        broken_off = view.failure().empty() ? 0 : 1;
    }
    // A camera that goes away leaves the frame that it was sending.
    polarization::Live_counts const counts = camera->counts();
    broken_off += counts.reconnections;
    if (counts.lost > 0 || counts.all_incomplete() > broken_off) {
        warn(visible(camera->name()) + ": " + told_losses(counts));
    }
    give_back(std::move(camera));
}

} // namespace

bool is_built_with_view() {
    return true;
}

void run_view(View_line& line) {
    line.shows_camera ? view_camera(line) : view_files_of(line);
    throw_if_interrupted();
}

} // namespace polarize_tool
