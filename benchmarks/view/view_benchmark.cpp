// What answers to a browser cost: processor time of this program for each, of which reading and
// unpacking, as a page asks for them. Another program's time does not count.

#include "veldrane_mrv/polarization/pixel_format.hpp"
#include "veldrane_mrv/polarization/processor.hpp"
#include "view/view_frames.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <random>
#include <string>
#include <vector>

namespace {

namespace polarization = veldrane_mrv::polarization;
using polarization::Raw_layout;

struct Options {
    std::string pixel_format = "Mono12p";
    std::size_t width = 2448;
    std::size_t height = 2048;
    unsigned rounds = 31;
};

double processor_ms() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

double median(std::vector<double> times) {
    auto const middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

/// Frames in memory, as a file in the page cache: each is copied when it is read.
class Frames_in_memory : public polarization::Frame_source {
public:
    explicit Frames_in_memory(Raw_layout const& layout)
        : decoder_{sample_decoder(layout)}, frames_(4, std::string(layout.frame_bytes(), '\0')) {
        std::mt19937 random{1};
        for (std::string& frame : frames_) {
            std::generate(frame.begin(), frame.end(), [&] { return static_cast<char>(random()); });
        }
    }

    std::string name() const override { return "memory"; }
    std::optional<std::size_t> count() const override { return std::nullopt; }
    polarization::Frame_place place(std::size_t number) const override {
        return {"memory", number, 2};
    }

private:
    void fetch(std::size_t number, polarization::Fetched_frame& target) override {
        target.bytes = frames_[number % frames_.size()];
        target.decoder = decoder_;
    }

    std::shared_ptr<polarization::Frame_decoder const> decoder_;
    std::vector<std::string> frames_;
};

struct Case {
    char const* name;
    polarize_tool::Query query;
};

int run(Options const& options) {
    check(polarization::processor_features());
    auto const layout =
        polarization::make_raw_layout(options.pixel_format, options.width, options.height, 0, 0);
    Frames_in_memory source(layout);
    polarize_tool::Frame_preparation const preparation({}, layout);
    auto const settings = polarization::ideal_settings(
        polarization::Mosaic::from_phase(2),
        polarization::Scale(static_cast<int>(bit_depth_of(layout.format))));
    polarize_tool::View_setup setup{
        .name = "memory",
        .transform = {settings, std::nullopt},
        .calibration_file = {},
        .rate = {},
        .camera = {},
        .generator = "benchmark"};
    polarize_tool::View_frames frames(std::move(setup), preparation, source);
    auto const handlers = frames.handlers();
    std::string const part = "64,64,1280,720";
    std::vector<Case> const cases{
        {"one sample of a frame, so reading and unpacking",
         {{"region", "0,0,1,1"}, {"planes", "raw"}}},
        {"fit, scale 3: raw", {{"scale", "3"}, {"planes", "raw"}}},
        {"fit, scale 3: s0", {{"scale", "3"}, {"planes", "s0"}}},
        {"fit, scale 3: azimuth,dolp", {{"scale", "3"}, {"planes", "azimuth,dolp"}}},
        {"fit, scale 3: four views",
         {{"scale", "3"}, {"planes", "s0,azimuth,dolp,s1_s0,validity"}}},
        {"1280 x 720: s0", {{"region", part}, {"planes", "s0"}}},
        {"1280 x 720: azimuth,dolp", {{"region", part}, {"planes", "azimuth,dolp"}}},
        {"1280 x 720: four views",
         {{"region", part}, {"planes", "s0,azimuth,dolp,s1_s0,validity"}}}};
    std::vector<std::vector<double>> first(cases.size());
    std::vector<std::vector<double>> again(cases.size());
    std::size_t number = 0;
    for (unsigned round = 0; round < options.rounds; ++round) {
        for (std::size_t at = 0; at < cases.size(); ++at) {
            auto query = cases[at].query;
            query["number"] = std::to_string(number++);
            for (auto* const times : {&first, &again}) {
                double const begin = processor_ms();
                if (handlers.at("/frame")(query).status != 200) {
                    throw std::runtime_error("a frame is refused; give a larger one");
                }
                (*times)[at].push_back(processor_ms() - begin);
            }
        }
    }
    std::printf(
        "%s %zu x %zu, medians of %u answers, ms of processor time\n%-50s %9s %9s\n",
        options.pixel_format.c_str(), options.width, options.height, options.rounds, "planes",
        "new frame", "same");
    for (std::size_t at = 0; at < cases.size(); ++at) {
        std::printf("%-50s %9.2f %9.2f\n", cases[at].name, median(first[at]), median(again[at]));
    }
    return 0;
}

} // namespace

int main(int argument_count, char** arguments) {
    try {
        Options options;
        CLI::App program{"Processor time of answers to a browser"};
        program.add_option("--pixel-format", options.pixel_format)->capture_default_str();
        program.add_option("--width", options.width)->capture_default_str();
        program.add_option("--height", options.height)->capture_default_str();
        program.add_option("--rounds", options.rounds)
            ->check(CLI::PositiveNumber)
            ->capture_default_str();
        CLI11_PARSE(program, argument_count, arguments);
        return run(options);
    } catch (std::exception const& error) {
        std::fprintf(stderr, "error: %s\n", error.what());
        return 1;
    }
}
