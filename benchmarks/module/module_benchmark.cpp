// What a call and a pair of lifecycle calls cost before any pixel.

#include "support/frame_ring.hpp"

#include <benchmark/benchmark.h>

namespace {

void call_without_planes(benchmark::State& state) {
    Frame_ring const ring({2, 16}, 1, no_plane);
    auto const frame = ring.frames_with(no_plane)[0];
    for (auto _ : state) {
        qn_polarization_processor_transform_vector_avx2(frame, ring.matrices());
    }
}
BENCHMARK(call_without_planes);

void call_for_2x2(benchmark::State& state) {
    Frame_ring const ring({2, 2}, 1, five_planes);
    auto const frame = ring.frames_with(five_planes)[0];
    for (auto _ : state) {
        qn_polarization_processor_transform_vector_avx2(frame, ring.matrices());
    }
}
BENCHMARK(call_for_2x2);

void first_and_last_client(benchmark::State& state) {
    for (auto _ : state) {
        qn_polarization_processor_vector_avx2_module_initialize();
        qn_polarization_processor_vector_avx2_module_terminate();
    }
}
BENCHMARK(first_and_last_client);

void another_client(benchmark::State& state) {
    qn_polarization_processor_vector_avx2_module_initialize();
    for (auto _ : state) {
        qn_polarization_processor_vector_avx2_module_initialize();
        qn_polarization_processor_vector_avx2_module_terminate();
    }
    qn_polarization_processor_vector_avx2_module_terminate();
}
BENCHMARK(another_client);

} // namespace
