#include "bindings.hpp"
#include "frame_rooms.hpp"

#include "veldrane_mrv/polarization/frame_list.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>
#include <string>
#include <utility>
#include <vector>

namespace veldrane_python {
namespace {

namespace py = pybind11;
namespace polarization = veldrane_mrv::polarization;

py::array narrow_array_of(polarization::Frame const& frame) {
    py::array_t<std::uint8_t> result{std::vector<std::size_t>{frame.height, frame.width}};
    std::uint8_t* const target = result.mutable_data();
    py::gil_scoped_release const unlocked;
    std::ranges::transform(frame.samples, target, [](std::uint16_t sample) {
        return static_cast<std::uint8_t>(sample);
    });
    return result;
}

/// One file of frames. Threads that ask at the same time wait for each other at the disk, and where
/// a TIFF file holds several pictures also while one of them is decoded.
class Frame_file {
public:
    Frame_file(
        std::filesystem::path const& file, std::optional<polarization::Raw_layout> const& layout)
        : source_{polarization::open_frames(file, layout)}, rooms_{std::make_shared<Frame_rooms>(
                                                                count() > 1 ? rooms_of_many : 0)} {}

    std::size_t count() const { return source_->count().value_or(0); }

    py::list failures() const {
        py::list lines;
        for (std::string const& line : source_->failures()) {
            lines.append(text_of_bytes(line));
        }
        return lines;
    }

    py::array read(std::size_t number) {
        auto slot = rooms_->take();
        unsigned sample_bits = 0;
        {
            py::gil_scoped_release const unlocked;
            fetch(number, *slot);
            sample_bits = slot->sample_bits();
        }
        if (sample_bits == 8) {
            py::array result = narrow_array_of(slot->frame());
            rooms_->give_back(std::move(slot));
            return result;
        }
        return lend_frame(rooms_, std::move(slot));
    }

private:
    // For two threads. What one file keeps, no other can use.
    static constexpr std::size_t rooms_of_many = 2;

    void fetch(std::size_t number, polarization::Frame_slot& slot) {
        std::lock_guard const lock{reading_};
        source_->read(number, slot);
    }

    std::unique_ptr<polarization::Frame_source> source_;
    std::mutex reading_;
    std::shared_ptr<Frame_rooms> rooms_;
};

// A slow disk, or a TIFF file whose pictures are counted, holds up no other thread.
std::unique_ptr<Frame_file> open_file(
    std::filesystem::path const& file, std::optional<polarization::Raw_layout> const& layout) {
    py::gil_scoped_release const unlocked;
    return std::make_unique<Frame_file>(file, layout);
}

std::unique_ptr<Frame_file> open_bare_samples(
    std::filesystem::path const& file, std::string const& pixel_format, std::size_t height,
    std::size_t width, std::uint64_t header_bytes, std::size_t stride) {
    return open_file(
        file, polarization::make_raw_layout(pixel_format, width, height, header_bytes, stride));
}

// Frames as (file, number in it, how many it holds), and what is wrong in a line each.
py::tuple find_pictures(std::filesystem::path const& input) {
    polarization::Found_frames found;
    {
        py::gil_scoped_release const unlocked;
        Interruption_check check;
        found = polarization::find_frames(
            {input.string()}, std::nullopt, {}, [&] { check(); },
            polarization::Damaged_files::are_frames);
    }
    py::list places;
    for (polarization::Frame_place const& place : found.frames) {
        places.append(py::make_tuple(text_of_bytes(place.file.string()), place.index, place.count));
    }
    py::list failures;
    for (std::string const& failure : found.failures) {
        failures.append(text_of_bytes(failure));
    }
    return py::make_tuple(places, failures);
}

py::array_t<std::uint64_t> numbers_of(
    std::vector<polarization::Capture> const& captures,
    std::uint64_t polarization::Capture::*number) {
    py::array_t<std::uint64_t> numbers{static_cast<py::ssize_t>(captures.size())};
    std::ranges::transform(captures, numbers.mutable_data(), number);
    return numbers;
}

// What stands beside a recording, as far as it is needed to read it; None if nothing does. Times
// and numbers of its frames are None where there are none.
py::object recording_description(std::filesystem::path const& file) {
    std::optional<polarization::Recording_description> told;
    {
        py::gil_scoped_release const unlocked;
        told = polarization::read_recording_description(file);
    }
    if (!told) {
        return py::none();
    }
    py::object captures = py::none();
    if (!told->captures.empty()) {
        using polarization::Capture;
        captures = py::make_tuple(
            numbers_of(told->captures, &Capture::frame_number),
            numbers_of(told->captures, &Capture::camera_time_ns),
            numbers_of(told->captures, &Capture::host_time_ns));
    }
    return py::make_tuple(
        std::string(name_of(told->format)), told->size.height, told->size.width,
        told->mosaic ? py::cast(told->mosaic->to_string()) : py::none(), captures);
}

} // namespace

void bind_recordings(py::module_& module) {
    bound_class<Frame_file>(module, "Frame_file")
        .def(
            py::init(
                [](std::filesystem::path const& file) { return open_file(file, std::nullopt); }),
            py::arg("file"))
        .def(
            py::init(&open_bare_samples), py::arg("file"), py::arg("pixel_format"),
            py::arg("height"), py::arg("width"), py::arg("header_bytes"), py::arg("stride"))
        .def_property_readonly("count", &Frame_file::count)
        .def_property_readonly("failures", &Frame_file::failures)
        .def("read", &Frame_file::read);
    module.def("recording_description", &recording_description);
    module.def("find_pictures", &find_pictures);
}

} // namespace veldrane_python
