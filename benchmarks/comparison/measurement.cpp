#include "comparison/measurement.hpp"

#include "comparison/statistics.hpp"

namespace {

constexpr std::size_t rounds_of_slow_runners = 3;

/// Frames of one size serve all cases that follow each other with it.
Output_planes all_planes_of(Table const& table, Frame_size size) {
    unsigned planes = 0;
    for (Case const& one : table.cases) {
        if (one.size.height == size.height && one.size.width == size.width) {
            planes |= one.planes;
        }
    }
    return static_cast<Output_planes>(planes);
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

    std::unique_ptr<Frame_ring> ring;
    for (std::size_t i = 0; i < table.cases.size(); ++i) {
        Case const& one = table.cases[i];
        if (ring == nullptr || ring->size().height != one.size.height ||
            ring->size().width != one.size.width) {
            ring.reset();
            ring = std::make_unique<Frame_ring>(one.size, one.ring, all_planes_of(table, one.size));
        }
        Workload const work{one, ring->frames_with(one.planes), ring->matrices()};
        // The first round, which nobody counts, touches every page and wakes the processor.
        for (std::size_t round = 0; round <= rounds; ++round) {
            for (std::size_t k = 0; k < measured.runners.size(); ++k) {
                Runner const& runner = *measured.runners[k];
                if (runner.is_slow() && (round == 0 || round > rounds_of_slow_runners)) {
                    continue;
                }
                double const seconds = runner.measure(work);
                if (round != 0) {
                    measured.times[k][i].push_back(seconds);
                }
            }
        }
    }
    return measured;
}
