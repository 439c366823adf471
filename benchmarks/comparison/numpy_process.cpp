#include "comparison/numpy_process.hpp"

#include "comparison/statistics.hpp"
#include "comparison/subprocess.hpp"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

constexpr std::size_t frames_per_run = 3;

struct Plane {
    char const* name;
    void* elements;
    std::size_t bytes;
};

std::vector<Plane> requested_planes(Polarization_computation_arguments const& frame) {
    std::size_t const pixels = frame.height * frame.width;
    std::size_t const bytes = pixels * sizeof(std::uint16_t);
    std::vector<Plane> planes{
        {"s0", frame.s0_image, bytes},
        {"s1", frame.s1_image, bytes},
        {"s2", frame.s2_image, bytes},
        {"azimuth", frame.azimuth_image, bytes},
        {"dolp", frame.dolp_image, bytes},
        {"normalized_stokes", frame.normalized_stokes_image, 2 * pixels * sizeof(float)},
    };
    std::erase_if(planes, [](Plane const& plane) { return plane.elements == nullptr; });
    return planes;
}

} // namespace

bool numpy_is_there(std::string const& python) {
    return run_process({python, "-c", "import numpy"}).exit_status == 0;
}

Numpy_process::Numpy_process(std::string python, std::string script)
    : python_(std::move(python)), script_(std::move(script)) {
    std::string name = (std::filesystem::temp_directory_path() / "bench.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make a folder like '" + name + "'; set TMPDIR");
    }
    folder_ = name;
}

Numpy_process::~Numpy_process() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

std::vector<double> Numpy_process::run(
    Polarization_computation_arguments const& frame, std::size_t frames,
    std::vector<std::string> const& more) const {
    auto const raw = folder_ / "raw";
    std::size_t const bytes = frame.height * frame.width * sizeof(std::uint16_t);
    std::ofstream raw_file(raw, std::ios::binary);
    raw_file.write(
        reinterpret_cast<char const*>(frame.raw_image), static_cast<std::streamsize>(bytes));
    raw_file.close();
    if (!raw_file) {
        throw std::runtime_error(
            "cannot write " + std::to_string(bytes) + " bytes to '" + raw.string() +
            "'; free room there or set TMPDIR");
    }
    std::string planes;
    for (Plane const& plane : requested_planes(frame)) {
        planes.append(planes.empty() ? "" : ",").append(plane.name);
    }
    std::vector<std::string> words{python_,    script_,
                                   "--raw",    raw.string(),
                                   "--height", std::to_string(frame.height),
                                   "--width",  std::to_string(frame.width),
                                   "--phase",  std::to_string(frame.polar_phase),
                                   "--limit",  std::to_string(frame.maximum_output_value),
                                   "--planes", planes,
                                   "--frames", std::to_string(frames)};
    words.insert(words.end(), more.begin(), more.end());
    Finished_process const done = run_process(words);
    std::istringstream lines(done.output);
    std::vector<double> const milliseconds{
        std::istream_iterator<double>(lines), std::istream_iterator<double>()};
    if (done.exit_status != 0 || milliseconds.size() != frames) {
        throw std::runtime_error(
            "'" + script_ + "' failed with {" + planes + "}: " + done.last_error_line() +
            "; mend it or choose a Python without NumPy by --python");
    }
    return milliseconds;
}

void Numpy_process::process(Polarization_computation_arguments const& frame) const {
    auto const out = folder_ / "planes";
    run(frame, 1, {"--out", out.string()});
    std::ifstream file(out, std::ios::binary);
    for (Plane const& plane : requested_planes(frame)) {
        file.read(static_cast<char*>(plane.elements), static_cast<std::streamsize>(plane.bytes));
    }
    if (!file) {
        throw std::runtime_error("'" + out.string() + "' is too short");
    }
}

double Numpy_process::seconds_per_frame(Polarization_computation_arguments const& frame) const {
    return median(run(frame, frames_per_run, {})) / 1e3;
}
