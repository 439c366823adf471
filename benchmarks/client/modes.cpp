// The ways of the client layer through a frame, in turn on the same memory: fast and calibrated
// mode, calibrations with gains and with weights of every pixel's own, signed planes, and beside
// each the program that only moves its bytes.

#include "client/traffic.hpp"
#include "comparison/statistics.hpp"

#include "veldrane_mrv/polarization/sensor_tables.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace veldrane_mrv::polarization;

constexpr int bit_depth = 12;

/// As vectors and arrays of NumPy lie: each buffer 16 bytes behind the start of a page.
template <class Element>
class Page_buffer {
public:
    explicit Page_buffer(std::size_t count) : memory_(count * sizeof(Element) + 2 * page) {
        auto const address = reinterpret_cast<std::uintptr_t>(memory_.data());
        std::size_t const first = (address + page - 1) / page * page + 16 - address;
        elements_ = {reinterpret_cast<Element*>(memory_.data() + first), count};
    }
    std::span<Element> elements() const { return elements_; }

private:
    static constexpr std::size_t page = 4096;
    std::vector<std::byte> memory_;
    std::span<Element> elements_;
};

/// A frame and memory for all planes.
class Bench_frame {
public:
    explicit Bench_frame(Size const& size)
        : size_{size}, raw_{pixels()}, signed_1_{pixels()}, signed_2_{pixels()} {
        std::mt19937 random{1};
        for (std::uint16_t& sample : raw_.elements()) {
            sample = static_cast<std::uint16_t>(random() % (1U << bit_depth));
        }
        for (int plane = 0; plane < 5; ++plane) {
            planes_.emplace_back(pixels());
        }
    }

    Frame_view view() const { return {raw_.elements(), size_.height, size_.width}; }

    Plane_views views(Plane_set const& wanted) const {
        Plane_views views;
        for (Plane const plane : wanted.list()) {
            views.integer_plane(plane) = planes_[static_cast<std::size_t>(plane)].elements();
        }
        return views;
    }

    Signed_views signed_views() const { return {signed_1_.elements(), signed_2_.elements()}; }

private:
    std::size_t pixels() const { return size_.width * size_.height; }

    Size size_;
    Page_buffer<std::uint16_t> raw_;
    std::vector<Page_buffer<std::uint16_t>> planes_;
    Page_buffer<std::int32_t> signed_1_;
    Page_buffer<std::int32_t> signed_2_;
};

Settings settings_for(Calibration_model model, Size const& size) {
    Settings settings = ideal_settings(Mosaic::from_phase(2), Scale{bit_depth});
    if (model == Calibration_model::position) {
        return settings;
    }
    Calibration calibration = ideal_calibration(settings.mosaic);
    auto maps = std::make_shared<Calibration_maps>();
    maps->sensor = size;
    maps->region = region_of(size);
    maps->bit_depth = bit_depth;
    std::size_t const pixels = size.width * size.height;
    maps->dark_level.assign(pixels, 40);
    if (model == Calibration_model::gain) {
        maps->gain.assign(pixels, 1.01F);
    } else {
        maps->throughput.assign(pixels, 1.01F);
        maps->diattenuation.assign(pixels, 0.95F);
        maps->orientation.resize(pixels);
        for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
            maps->orientation[pixel] = static_cast<float>(
                settings.mosaic.angle(pixel / size.width, pixel % size.width) + 1);
        }
    }
    calibration.model = model;
    calibration.maps = maps;
    settings.tables = std::make_shared<Sensor_tables const>(calibration, region_of(size));
    return settings;
}

struct Contender {
    std::string name;
    std::function<void(Bench_frame const&)> run;
    /// The same with the rows of a frame shared by two threads; empty if there is no such way.
    std::function<void(Bench_frame const&)> run_shared{};
    /// Which of the contenders its ratio refers to.
    std::size_t yardstick = 0;
};

Contender of_transform(
    std::string name, Settings const& settings, Mode mode, Plane_set const& wanted,
    bool is_signed) {
    Plane_set unsigned_ones = wanted;
    if (is_signed) {
        unsigned_ones.erase(Plane::s1);
        unsigned_ones.erase(Plane::s2);
    }
    auto const run = [=](auto& transform, Bench_frame const& frame) {
        transform(
            frame.view(), frame.views(unsigned_ones),
            is_signed ? frame.signed_views() : Signed_views{});
    };
    auto const shared =
        std::make_shared<Frame_transform>(settings, Transform_options{.mode = mode, .threads = 2});
    return {
        std::move(name),
        [=](Bench_frame const& frame) {
            // One for each call: the threads of a round share contenders.
            Signed_transform transform{settings, mode};
            run(transform, frame);
        },
        [=](Bench_frame const& frame) { run(*shared, frame); }};
}

Contender of_traffic(
    std::string name, Settings const& settings, Plane_set const& wanted, bool is_signed) {
    return {std::move(name), [=](Bench_frame const& frame) {
                Plane_views const views = frame.views(wanted);
                auto const memory = [](auto span) { return span.empty() ? nullptr : span.data(); };
                Polarization_computation_arguments record{};
                record.height = frame.view().height();
                record.width = frame.view().width();
                record.raw_image = frame.view().data();
                record.s0_image = memory(views.s0);
                record.s1_image = is_signed ? nullptr : memory(views.s1);
                record.s2_image = is_signed ? nullptr : memory(views.s2);
                record.azimuth_image = memory(views.azimuth);
                record.dolp_image = memory(views.dolp);
                std::vector<std::span<std::byte const>> tables;
                if (settings.tables) {
                    tables = {
                        std::as_bytes(settings.tables->dark_levels()),
                        std::as_bytes(settings.tables->gains()),
                        std::as_bytes(settings.tables->weights())};
                }
                Signed_views const both = is_signed ? frame.signed_views() : Signed_views{};
                std::int32_t* const signed_planes[] = {memory(both.s1), memory(both.s2)};
                move_same_bytes(record, tables, signed_planes);
            }};
}

double milliseconds_of(
    std::function<void(Bench_frame const&)> const& run, std::vector<Bench_frame> const& frames) {
    auto const start = std::chrono::steady_clock::now();
    for (Bench_frame const& frame : frames) {
        run(frame);
    }
    std::chrono::duration<double, std::milli> const time = std::chrono::steady_clock::now() - start;
    return time.count() / static_cast<double>(frames.size());
}

/// Frames of two threads in the time of one thread's.
double gain_of_two_threads(
    Contender const& contender, std::vector<Bench_frame> const& first,
    std::vector<Bench_frame> const& second) {
    double const alone = milliseconds_of(contender.run, first);
    auto const start = std::chrono::steady_clock::now();
    std::thread other{[&] { milliseconds_of(contender.run, second); }};
    milliseconds_of(contender.run, first);
    other.join();
    std::chrono::duration<double, std::milli> const both = std::chrono::steady_clock::now() - start;
    return 2 * alone * static_cast<double>(first.size()) / both.count();
}

struct Wanted_planes {
    char const* name;
    Plane_set planes;
};

Wanted_planes const sets[] = {
    {"azimuth, DoLP", {Plane::azimuth, Plane::dolp}},
    {"S0, azimuth, DoLP", {Plane::s0, Plane::azimuth, Plane::dolp}},
    {"S0, S1, S2", {Plane::s0, Plane::s1, Plane::s2}},
    {"five", {Plane::s0, Plane::s1, Plane::s2, Plane::azimuth, Plane::dolp}}};

struct Way {
    char const* name;
    Calibration_model model;
    Mode mode;
};

constexpr Way ways[] = {
    {"fast", Calibration_model::position, Mode::fast},
    {"position", Calibration_model::position, Mode::calibrated},
    {"gain", Calibration_model::gain, Mode::calibrated},
    {"pixel", Calibration_model::pixel, Mode::calibrated}};

/// Ways through a frame, each with the bytes that it moves.
std::vector<Contender> contenders_of(
    Plane_set const& wanted, std::vector<Settings> const& settings) {
    std::vector<Contender> all;
    std::size_t position = 0;
    for (std::size_t way = 0; way < std::size(ways); ++way) {
        bool const has_tables = ways[way].model != Calibration_model::position;
        std::size_t const first = all.size();
        if (!has_tables) {
            position = first;
        }
        auto const add = [&](std::string const& name, bool is_signed, std::size_t yardstick) {
            all.push_back(of_transform(name, settings[way], ways[way].mode, wanted, is_signed));
            all.back().yardstick = yardstick;
            all.push_back(of_traffic("  its bytes alone", settings[way], wanted, is_signed));
            all.back().yardstick = all.size() - 2;
        };
        add(ways[way].name, false, has_tables ? position : 0);
        if (!has_tables && wanted.contains(Plane::s1)) {
            add(std::string{ways[way].name} + ", signed", true, first);
        }
    }
    return all;
}

/// The ratios are medians over the rounds, in which all contenders take their turns.
void print_table(
    Wanted_planes const& set, std::vector<Settings> const& settings, unsigned rounds,
    std::vector<Bench_frame> const& frames, std::vector<Bench_frame> const& others) {
    std::vector<Contender> const contenders = contenders_of(set.planes, settings);
    std::vector<std::vector<double>> times(contenders.size());
    std::vector<std::vector<double>> ratios(contenders.size());
    std::vector<std::vector<double>> gains(contenders.size());
    std::vector<std::vector<double>> shared_gains(contenders.size());
    for (unsigned round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            times[i].push_back(milliseconds_of(contenders[i].run, frames));
            ratios[i].push_back(times[i].back() / times[contenders[i].yardstick].back());
            gains[i].push_back(gain_of_two_threads(contenders[i], frames, others));
            if (contenders[i].run_shared) {
                shared_gains[i].push_back(
                    milliseconds_of(contenders[i].run, frames) /
                    milliseconds_of(contenders[i].run_shared, frames));
            }
        }
    }
    std::printf(
        "\n%-24s %9s %7s  %-18s %9s %6s\n", set.name, "ms", "ratio", "to", "2 threads", "shared");
    for (std::size_t i = 0; i < contenders.size(); ++i) {
        std::printf(
            "%-24s %9.2f %7.2f  %-18s %9.2f", contenders[i].name.c_str(), median(times[i]),
            median(ratios[i]), contenders[contenders[i].yardstick].name.c_str(), median(gains[i]));
        if (!shared_gains[i].empty()) {
            std::printf(" %6.2f", median(shared_gains[i]));
        }
        std::printf("\n");
    }
}

} // namespace

int main(int argc, char** argv) {
    unsigned rounds = 15;
    Size size{2448, 2048};
    CLI::App program{"Modes and calibration models of the client layer, side by side."};
    program.add_option("--rounds", rounds, "Measurements of each, 15 unless given")
        ->check(CLI::Range(1U, 1000U));
    program.add_option("--width", size.width)->check(CLI::Range(32, 16384));
    program.add_option("--height", size.height)->check(CLI::Range(2, 16384));
    CLI11_PARSE(program, argc, argv);

    std::vector<Settings> settings;
    for (Way const& way : ways) {
        settings.push_back(settings_for(way.model, size));
    }
    // Each frame has left the caches when its turn comes again.
    std::vector<Bench_frame> frames;
    std::vector<Bench_frame> others;
    for (int frame = 0; frame < 3; ++frame) {
        frames.emplace_back(size);
        others.emplace_back(size);
    }
    std::printf(
        "%zu x %zu, %d bits, medians of %u rounds; each ratio is to the line that it names; frames "
        "of\n"
        "two threads, and frames that two threads share, in the time of one thread's\n",
        size.width, size.height, bit_depth, rounds);
    for (Wanted_planes const& set : sets) {
        print_table(set, settings, rounds, frames, others);
    }
    return 0;
}
