// Frames that reach the generator alone: two rows, and rows too short for a block.

#include "support/frame_ring.hpp"

#include <benchmark/benchmark.h>
#include <string>

namespace {

void generate(benchmark::State& state, Output_set set, Frame_size size) {
    Frame_ring const ring(size, 1, set.planes);
    auto const frame = ring.frames_with(set.planes)[0];
    for (auto _ : state) {
        qn_polarization_processor_transform_vector_avx2(frame, ring.matrices());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(size.pixels()));
}

bool const registered = [] {
    for (Output_set const& set : output_sets) {
        auto const add = [&](char const* name, Frame_size size) {
            benchmark::RegisterBenchmark(
                (std::string("generator ") + name + " " + set.name).c_str(), generate, set, size);
        };
        add("4096x2", {2, 4096});
        add("30x512", {512, 30});
    }
    return true;
}();

} // namespace
