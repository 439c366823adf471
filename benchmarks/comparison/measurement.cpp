#include "comparison/measurement.hpp"

#include "comparison/statistics.hpp"

namespace {

constexpr std::size_t rounds_of_slow_runners = 3;

/// A time of each runner for each workload; slow runners have fewer.
void measure_round(
    std::size_t round, std::vector<Workload> const& work, std::size_t first_case,
    Measured_table& measured) {
    for (std::size_t i = 0; i < work.size(); ++i) {
        for (std::size_t k = 0; k < measured.runners.size(); ++k) {
            Runner const& runner = *measured.runners[k];
            if (runner.is_slow() && (round == 0 || round > rounds_of_slow_runners)) {
                continue;
            }
            double const seconds = runner.measure(work[i]);
            if (round != 0) {
                measured.times[k][first_case + i].push_back(seconds);
            }
        }
    }
}

/// Cases one behind the other that share their frames: from `begin` to before `end`.
void measure_cases(
    std::size_t begin, std::size_t end, std::size_t rounds, Measured_table& measured) {
    auto const& cases = measured.table.cases;
    unsigned planes = 0;
    for (std::size_t i = begin; i < end; ++i) {
        planes |= cases[i].planes;
    }
    Frame_ring const ring(cases[begin].size, cases[begin].ring, static_cast<Output_planes>(planes));
    std::vector<Workload> work;
    for (std::size_t i = begin; i < end; ++i) {
        work.push_back(
            {cases[i], ring.frames_with(cases[i].planes, cases[i].placement), ring.matrices()});
    }
    // The first round, which nobody counts, touches every page and wakes the processor.
    for (std::size_t round = 0; round <= rounds; ++round) {
        measure_round(round, work, begin, measured);
    }
}

} // namespace

double Measured_table::median_seconds(std::size_t runner, std::size_t of_case) const {
    return median(times[runner][of_case]);
}

double Measured_table::ratio(std::size_t runner, std::size_t of_case) const {
    Times const& own = times[runner][of_case];
    Times const& first = times[0][of_case];
    std::vector<double> ratios;
    for (std::size_t round = 0; round < own.size(); ++round) {
        ratios.push_back(own[round] / first[round]);
    }
    return median(ratios);
}

Measured_table measure(Table const& table, std::vector<Runner> const& runners, std::size_t rounds) {
    Measured_table measured{table, {}, {}};
    for (Runner const& runner : runners) {
        if (runner.takes_part_in(table.field)) {
            measured.runners.push_back(&runner);
        }
    }
    measured.times.assign(measured.runners.size(), std::vector<Times>(table.cases.size()));

    for (std::size_t begin = 0, end = 0; begin < table.cases.size(); begin = end) {
        while (end < table.cases.size() &&
               table.cases[end].shares_frames_with(table.cases[begin])) {
            ++end;
        }
        measure_cases(begin, end, rounds, measured);
    }
    return measured;
}
