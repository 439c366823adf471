#include "reduced/concurrent_calls.hpp"

#include "support/plain_call.hpp"

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

namespace reduced {

bool agree_in_all_threads(support::Scene const& scene, std::size_t calls_per_thread) {
    support::Plain_matrices const matrices(scene.matrices);
    support::Plain_planes const expected(scene);
    auto const run = [&](support::Plain_planes const& planes) {
        return qn_polarization_processor_transform_vector_avx2(
            planes.arguments(scene, scene.samples.data()), matrices.references());
    };
    if (run(expected) != 0) {
        return false;
    }

    std::atomic<bool> all_agree{true};
    std::latch all_run{static_cast<std::ptrdiff_t>(thread_count)};
    auto const work = [&] {
        all_run.arrive_and_wait();
        for (std::size_t call = 0; call < calls_per_thread; ++call) {
            int failures = qn_polarization_processor_vector_avx2_module_initialize();
            support::Plain_planes const planes(scene);
            failures |= run(planes);
            failures |= qn_polarization_processor_vector_avx2_module_terminate();
            if (failures != 0 || expected.difference_from(planes, scene)) {
                all_agree = false;
            }
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < thread_count; ++index) {
        threads.emplace_back(work);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return all_agree;
}

} // namespace reduced
