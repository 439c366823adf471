// The transform with frames in the caches, where the block's arithmetic takes the time.

#include "support/frame_ring.hpp"

#include <benchmark/benchmark.h>
#include <string>

namespace {

void transform(benchmark::State& state, Output_set set) {
    Frame_ring const ring({64, 512}, 1, set.planes);
    auto const frame = ring.frames_with(set.planes)[0];
    for (auto _ : state) {
        qn_polarization_processor_transform_vector_avx2(frame, ring.matrices());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(ring.size().pixels()));
}

bool const registered = [] {
    for (Output_set const& set : output_sets) {
        benchmark::RegisterBenchmark(
            (std::string("transform 512x64 ") + set.name).c_str(), transform, set);
    }
    return true;
}();

} // namespace
