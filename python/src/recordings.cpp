#include "bindings.hpp"

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

// The array keeps the samples where they are.
template <class Sample>
py::array array_of(std::vector<Sample> samples, std::size_t height, std::size_t width) {
    auto owned = std::make_unique<std::vector<Sample>>(std::move(samples));
    Sample* const data = owned->data();
    py::capsule const owner{
        owned.get(), [](void* pointer) { delete static_cast<std::vector<Sample>*>(pointer); }};
    static_cast<void>(owned.release());
    return py::array_t<Sample>{std::vector<std::size_t>{height, width}, data, owner};
}

std::vector<std::uint8_t> narrowed(std::vector<std::uint16_t> const& samples) {
    std::vector<std::uint8_t> result(samples.size());
    std::transform(samples.begin(), samples.end(), result.begin(), [](std::uint16_t sample) {
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
        : source_{polarization::open_frames(file, layout)} {}

    std::size_t count() const { return source_->count().value_or(0); }

    py::array read(std::size_t number) {
        polarization::Frame_slot slot;
        std::vector<std::uint8_t> narrow;
        {
            py::gil_scoped_release const unlocked;
            fetch(number, slot);
            if (slot.sample_bits() == 8) {
                narrow = narrowed(slot.frame().samples);
            }
        }
        polarization::Frame& frame = slot.frame();
        return slot.sample_bits() == 8
                   ? array_of(std::move(narrow), frame.height, frame.width)
                   : array_of(std::move(frame.samples), frame.height, frame.width);
    }

private:
    void fetch(std::size_t number, polarization::Frame_slot& slot) {
        std::lock_guard const lock{reading_};
        source_->read(number, slot);
    }

    std::unique_ptr<polarization::Frame_source> source_;
    std::mutex reading_;
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
        .def("read", &Frame_file::read);
    module.def("find_pictures", &find_pictures);
}

} // namespace veldrane_python
