#include "comparison/runners.hpp"

#include "comparison/numpy_process.hpp"
#include "contenders/contenders.hpp"

#include <cstdio>
#include <ctime>

namespace {

/// Time that this thread had a processor: what else runs on the machine counts only for what it
/// does to the caches, the memory and the clock.
double processor_seconds() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

template <typename Process>
Runner in_this_process(std::string name, Runner::Kind kind, Process process) {
    auto const measure = [process](Workload const& work) {
        double const start = processor_seconds();
        for (std::size_t call = 0, frame = 0; call < work.of.calls; ++call) {
            process(work.frames[frame], work.matrices);
            frame = frame + 1 == work.frames.size() ? 0 : frame + 1;
        }
        return (processor_seconds() - start) / static_cast<double>(work.of.calls);
    };
    return {std::move(name), kind, process, measure};
}

Runner contender(std::string name, Runner::Kind kind, contenders::Process& process) {
    return in_this_process(
        std::move(name), kind,
        [&process](Polarization_computation_arguments const& frame, Calibration_matrices const&) {
            process(frame);
        });
}

} // namespace

bool Runner::takes_part_in(Field field) const {
    switch (field) {
    case Field::libraries:
        return kind == Kind::library;
    case Field::libraries_and_plain_loops:
        return kind == Kind::library || kind == Kind::plain_loop;
    default:
        return true;
    }
}

std::vector<Runner> make_library_runners(Libraries const& libraries) {
    std::vector<Runner> runners;
    for (auto const& [name, library] : libraries) {
        // The lambda keeps the library loaded.
        runners.push_back(in_this_process(
            name, Runner::Kind::library,
            [library = library](
                Polarization_computation_arguments const& frame,
                Calibration_matrices const& matrices) { library->transform()(frame, matrices); }));
    }
    return runners;
}

std::vector<Runner> make_other_runners(std::string const& python, std::string const& numpy_script) {
    using Kind = Runner::Kind;
    std::vector<Runner> runners;
    runners.push_back(contender("limit, ordinary stores", Kind::copy, contenders::limit));
    runners.push_back(contender("memcpy", Kind::copy, contenders::memory_copy));
    for (auto const& [name, process] : {
             std::pair<char const*, contenders::Process*>{
                 "plain loop, AVX2", contenders::plain_loop_avx2},
             std::pair<char const*, contenders::Process*>{
                 "plain loop, -march=native", contenders::plain_loop_native},
             std::pair<char const*, contenders::Process*>{
                 "loop over words, AVX2", contenders::word_loop_avx2},
             std::pair<char const*, contenders::Process*>{
                 "loop over words, -march=native", contenders::word_loop_native},
         }) {
        runners.push_back(contender(name, Kind::plain_loop, *process));
    }
    runners.push_back(contender("OpenCV, strips", Kind::other, contenders::opencv_strips));
    if (numpy_is_there(python)) {
        auto const numpy = std::make_shared<Numpy_process>(python, numpy_script);
        runners.push_back(
            {"NumPy, slices", Kind::python,
             [numpy](Polarization_computation_arguments const& frame, Calibration_matrices const&) {
                 numpy->process(frame);
             },
             [numpy](Workload const& work) { return numpy->seconds_per_frame(work.frames[0]); }});
    } else {
        std::fprintf(
            stderr, "NumPy is left out: %s has none; install python3-numpy.\n", python.c_str());
    }
    return runners;
}
