#include "bindings.hpp"
#include "frames_in_threads.hpp"
#include "raw_frames.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/noise_model.hpp"
#include "veldrane_mrv/polarization/planes.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"
#include "veldrane_mrv/polarization/transform.hpp"
#include "veldrane_mrv/polarization/uncertainty.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veldrane_python {
namespace {

namespace py = pybind11;
namespace polarization = veldrane_mrv::polarization;
using py::detail::npy_api;

int type_number_of(polarization::Element_type type) {
    switch (type) {
    case polarization::Element_type::uint16:
        return npy_api::NPY_UINT16_;
    case polarization::Element_type::int32:
        return npy_api::NPY_INT32_;
    case polarization::Element_type::uint8:
        return npy_api::NPY_UINT8_;
    case polarization::Element_type::float32:
        break;
    }
    return npy_api::NPY_FLOAT_;
}

/// A plane that was asked for.
struct Wanted_plane {
    py::object name;
    polarization::Plane plane;
    bool is_signed;
    int type_number;
    py::ssize_t elements_per_pixel;

    Wanted_plane(py::handle of_name, bool signed_stokes)
        : Wanted_plane{
              of_name,
              polarization::description_of(
                  polarization::parse_planes(of_name.cast<std::string>()).list().front()),
              signed_stokes} {}

private:
    Wanted_plane(
        py::handle of_name, polarization::Plane_description const& about, bool signed_stokes)
        : name{py::reinterpret_borrow<py::object>(of_name)}, plane{about.plane},
          is_signed{signed_stokes && about.signed_element != about.element},
          type_number{type_number_of(is_signed ? about.signed_element : about.element)},
          elements_per_pixel{static_cast<py::ssize_t>(about.elements_per_pixel)} {}
};

/// Where an array's elements lie, from the lowest to behind the highest byte.
struct Bytes {
    std::uintptr_t begin;
    std::uintptr_t end;
};

Bytes bytes_of(py::array const& array) {
    auto const first = reinterpret_cast<std::uintptr_t>(array.data());
    Bytes bytes{first, first + static_cast<std::uintptr_t>(array.itemsize())};
    for (py::ssize_t axis = 0; axis < array.ndim(); ++axis) {
        py::ssize_t const reach = array.strides(axis) * (array.shape(axis) - 1);
        (reach < 0 ? bytes.begin : bytes.end) += static_cast<std::uintptr_t>(reach);
    }
    return bytes;
}

bool holds(py::array const& array, int type_number) {
    py::dtype const type = array.dtype();
    return type.num() == type_number && (type.byteorder() == '=' || type.byteorder() == '|');
}

bool has_shape_of_plane(Wanted_plane const& wanted, py::array const& array, py::array const& raw) {
    bool const has_several = wanted.elements_per_pixel > 1;
    return array.ndim() == raw.ndim() + (has_several ? 1 : 0) &&
           std::equal(raw.shape(), raw.shape() + raw.ndim(), array.shape()) &&
           (!has_several || array.shape(raw.ndim()) == wanted.elements_per_pixel);
}

bool can_take(Wanted_plane const& wanted, py::array const& array, py::array const& raw) {
    constexpr int flags = npy_api::NPY_ARRAY_C_CONTIGUOUS_ | npy_api::NPY_ARRAY_ALIGNED_ |
                          npy_api::NPY_ARRAY_WRITEABLE_;
    return (array.flags() & flags) == flags && holds(array, wanted.type_number) &&
           has_shape_of_plane(wanted, array, raw);
}

// A subclass may mean something else by its elements, such as a mask.
bool is_exactly_array(py::handle object) {
    return Py_TYPE(object.ptr()) == npy_api::get().PyArray_Type_;
}

bool can_be_processed(py::array const& raw, int bit_depth) {
    if (!holds(raw, npy_api::NPY_UINT16_) && !(bit_depth <= 8 && holds(raw, npy_api::NPY_UINT8_))) {
        return false;
    }
    if ((raw.ndim() != 2 && raw.ndim() != 3) || raw.size() == 0) {
        return false;
    }
    auto const side = [&raw](int from_end) {
        return static_cast<std::size_t>(raw.shape(raw.ndim() - from_end));
    };
    return polarization::can_be_processed({.width = side(1), .height = side(2)});
}

bool any_meet(std::span<Bytes> all) {
    std::ranges::sort(all, {}, &Bytes::begin);
    return std::ranges::adjacent_find(all, [](Bytes const& lower, Bytes const& upper) {
               return upper.begin < lower.end;
           }) != all.end();
}

using Tables = std::shared_ptr<polarization::Sensor_tables const>;

/// Compiled from the maps of a calibration and kept for the next call: that takes as long as some
/// hundred frames. Those of maps that are gone go with the next call that needs tables.
Tables tables_of(polarization::Calibration const& calibration, double zero_direction) {
    struct Entry {
        std::weak_ptr<polarization::Calibration_maps const> maps;
        double zero_direction;
        Tables tables;
    };
    constexpr std::size_t most_entries = 4;
    static std::mutex mutex;
    static std::vector<Entry> entries;
    py::gil_scoped_release const unlocked;
    std::lock_guard const lock{mutex};
    std::erase_if(entries, [](Entry const& entry) { return entry.maps.expired(); });
    auto const found = std::ranges::find_if(entries, [&](Entry const& entry) {
        return entry.maps.lock() == calibration.maps && entry.zero_direction == zero_direction;
    });
    if (found != entries.end()) {
        return found->tables;
    }
    if (entries.size() == most_entries) {
        entries.erase(entries.begin());
    }
    auto const tables = std::make_shared<polarization::Sensor_tables const>(
        calibration, calibration.maps->region, zero_direction);
    entries.push_back({calibration.maps, zero_direction, tables});
    return tables;
}

/// What calls with the same options have in common. Never changed, so threads can share it.
class Plan {
public:
    Plan(
        py::tuple const& planes, int phase, polarization::Scale const& scale,
        polarization::Calibration const* calibration, bool is_calibrated_mode, bool is_signed,
        std::optional<std::pair<double, double>> const& noise, double zero_direction)
        : settings_{polarization::ideal_settings(polarization::Mosaic::from_phase(phase), scale)},
          mode_{is_calibrated_mode ? polarization::Mode::calibrated : polarization::Mode::fast} {
        if (calibration != nullptr) {
            settings_.matrices = calibration->matrices;
        }
        if (calibration != nullptr && calibration->maps) {
            settings_.tables = tables_of(*calibration, zero_direction);
            settings_.matrices = settings_.tables->position_matrices();
        } else if (zero_direction != 0) {
            settings_.matrices = turned(settings_.matrices, zero_direction);
        }
        if (noise) {
            settings_.noise = {.electrons_per_count = noise->first, .read_noise = noise->second};
        } else if (calibration != nullptr) {
            settings_.noise = calibration->noise;
        }
        if (settings_.noise) {
            check(*settings_.noise);
        }
        for (py::handle const name : planes) {
            planes_.emplace_back(name, is_signed);
            if (planes_.back().plane == polarization::Plane::uncertainty) {
                static_cast<void>(noise_of(settings_));
            }
        }
    }

    // The planes by name, done; or None and nothing done, if it takes Python's code to say whether
    // something is wrong, and what. That code is long enough to be felt in every call: a frame of a
    // few million samples has driven it out of the caches when the next one comes.
    py::object process_if_plain(
        py::object const& raw, py::object const& out, std::size_t threads) const {
        if (!is_exactly_array(raw) || !PyDict_CheckExact(out.ptr())) {
            return py::none{};
        }
        auto const frames = py::reinterpret_borrow<py::array>(raw);
        std::optional<py::dict> const arrays =
            can_be_processed(frames, settings_.scale.bit_depth())
                ? plain_arrays(frames, py::reinterpret_borrow<py::dict>(out))
                : std::nullopt;
        if (!arrays) {
            return py::none{};
        }
        run(frames, *arrays, threads);
        return *arrays;
    }

    /// With arguments that have been checked.
    void process(py::array const& raw, py::dict const& arrays, std::size_t threads) const {
        for (Wanted_plane const& wanted : planes_) {
            if (!can_take(wanted, arrays[wanted.name], raw)) {
                throw polarization::Argument_error{
                    "the array for the plane " + std::string{name_of(wanted.plane)},
                    "of another type, order or size",
                    "give a dense one of the plane's type and the frames' size"};
            }
        }
        run(raw, arrays, threads);
    }

private:
    // New references: whatever another thread does to `out`, these arrays stay.
    std::optional<py::dict> plain_arrays(py::array const& raw, py::dict const& out) const {
        std::array<Bytes, polarization::every_plane.size() + 1> bytes{bytes_of(raw)};
        std::size_t count = 1;
        py::dict arrays;
        if (out.size() != planes_.size()) {
            return std::nullopt;
        }
        for (Wanted_plane const& wanted : planes_) {
            py::handle const item = PyDict_GetItem(out.ptr(), wanted.name.ptr());
            if (!item || !is_exactly_array(item)) {
                return std::nullopt;
            }
            auto const array = py::reinterpret_borrow<py::array>(item);
            if (!can_take(wanted, array, raw)) {
                return std::nullopt;
            }
            arrays[wanted.name] = array;
            bytes[count++] = bytes_of(array);
        }
        return any_meet({bytes.data(), count}) ? std::nullopt : std::optional{arrays};
    }

    void run(py::array const& raw, py::dict const& arrays, std::size_t threads) const {
        Raw_frames const frames{raw};
        std::size_t const pixels = frames.height() * frames.width();
        Targets targets;
        for (Wanted_plane const& wanted : planes_) {
            py::array array = arrays[wanted.name];
            void* const data = array.mutable_data();
            if (wanted.is_signed) {
                (wanted.plane == polarization::Plane::s1
                     ? targets.signed_s1
                     : targets.signed_s2) = {static_cast<std::int32_t*>(data), pixels};
                continue;
            }
            polarization::visit_plane(
                wanted.plane,
                [&]<class Element>(polarization::Plane plane, Frame_series<Element>& series) {
                    series = {
                        static_cast<Element*>(data),
                        polarization::elements_per_pixel(plane) * pixels};
                },
                targets.planes);
        }
        py::gil_scoped_release const unlocked;
        process_frames(frames, targets, settings_, mode_, threads, Interruption_check{});
    }

    polarization::Settings settings_;
    polarization::Mode mode_;
    std::vector<Wanted_plane> planes_;
};

// By the planes' names, in their order.
py::dict plane_table() {
    py::object const description =
        py::module_::import("collections")
            .attr("namedtuple")(
                "Plane_description", "dtype signed_dtype elements_per_pixel is_packed unit "
                                     "title meaning undefined");
    py::dict table;
    for (polarization::Plane_description const& about : polarization::plane_table) {
        table[py::str{about.name}] = description(
            name_of(about.element), name_of(about.signed_element), about.elements_per_pixel,
            about.is_packed, about.unit, about.title, about.meaning, about.undefined);
    }
    return table;
}

} // namespace

void bind_plan(py::module_& module) {
    module.attr("plane_table") = plane_table();
    py::list stored;
    for (polarization::Plane const plane : polarization::Plane_set::all().list()) {
        stored.append(name_of(plane));
    }
    module.attr("all_planes") = py::tuple{stored};
    module.def("can_be_processed", [](std::size_t width, std::size_t height) {
        return polarization::can_be_processed({width, height});
    });
    module.def("size_text", [](std::size_t width, std::size_t height) {
        return to_string(polarization::Size{width, height});
    });
    bound_class<Plan>(module, "Plan")
        .def(
            py::init<
                py::tuple const&, int, polarization::Scale const&, polarization::Calibration const*,
                bool, bool, std::optional<std::pair<double, double>> const&, double>(),
            py::arg("planes"), py::arg("phase"), py::arg("scale"),
            py::arg("calibration").none(true), py::arg("is_calibrated_mode"), py::arg("is_signed"),
            py::arg("noise") = py::none(), py::arg("zero_direction") = 0.0)
        .def(
            "process_if_plain", &Plan::process_if_plain, py::arg("raw"), py::arg("out"),
            py::arg("threads"))
        .def(
            "process", &Plan::process, py::arg("raw").noconvert(), py::arg("arrays"),
            py::arg("threads"));
}

} // namespace veldrane_python
