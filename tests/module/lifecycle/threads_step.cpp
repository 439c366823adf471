#include "threads_step.hpp"

#include "event_log.hpp"
#include "frame.hpp"
#include "observed_module.hpp"

#include <atomic>
#include <cstddef>
#include <numeric>
#include <thread>
#include <vector>

namespace lifecycle {
namespace {

constexpr int client_count = 8;

struct Transform_counts {
    std::size_t all = 0;
    std::size_t equal = 0;
};

Transform_counts transform_until(std::atomic<bool> const& is_over) {
    Frame_planes first{};
    Transform_counts counts{};
    bool const begun = compute(the_module(), first) == 0;
    do {
        Frame_planes planes{};
        bool const as_before = compute(the_module(), planes) == 0 && planes == first;
        ++counts.all;
        counts.equal += begun && as_before ? 1U : 0U;
    } while (!is_over);
    return counts;
}

void note_verdict(char const* what, bool verdict) {
    note("%s: %s", what, verdict ? "yes" : "no");
}

} // namespace

void initialize_and_terminate_in_threads(int rounds) {
    Module const& module = the_module();
    Call_counts const& calls = count_calls_only();
    std::vector<int> zeros(client_count);
    std::atomic<bool> is_over = false;
    Transform_counts transforms;
    std::thread transforming([&] { transforms = transform_until(is_over); });
    std::vector<std::thread> clients;
    // Between their calls the clients share nothing: an atomic would order them by itself and hide
    // a missing lock from ThreadSanitizer.
    for (int& zeros_of_one : zeros) {
        clients.emplace_back([&module, &zeros_of_one, rounds] {
            int count = 0;
            for (int round = 0; round < rounds; ++round) {
                count += module.initialize() == 0 ? 1 : 0;
                count += module.terminate() == 0 ? 1 : 0;
            }
            zeros_of_one = count;
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    is_over = true;
    transforming.join();

    int const all = 2 * client_count * rounds;
    note(
        "# %d calls by %d threads, %zu bindings, %zu transforms meanwhile", all, client_count,
        calls.opened.load(), transforms.all);
    note_verdict("every call returned 0", std::accumulate(zeros.begin(), zeros.end(), 0) == all);
    note_verdict("at least one binding", calls.opened > 0);
    note_verdict(
        "as many dlopen, mrv_get_log, mrv_free_log and dlclose",
        calls.got == calls.opened && calls.freed == calls.opened && calls.closed == calls.opened);
    note_verdict("never two calls to the outside at once", calls.overlapping == 0);
    note_verdict("every transform gave the same planes", transforms.equal == transforms.all);
}

} // namespace lifecycle
