#include "frames_in_threads.hpp"

#include "veldrane_mrv/polarization/frame_transform.hpp"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include <sched.h>

namespace veldrane_python {
namespace {

namespace polarization = veldrane_mrv::polarization;

polarization::Plane_views planes_of(Targets const& targets, std::size_t index) {
    polarization::Plane_views planes;
    polarization::for_each_plane(
        [&](polarization::Plane, auto& view, auto const& series) { view = series.frame(index); },
        planes, targets.planes);
    return planes;
}

/// What one frame in flight needs.
class Worker {
public:
    /// As many threads as a frame takes.
    static constexpr std::size_t most_threads = 1024;

    Worker(polarization::Settings const& settings, polarization::Mode mode, std::size_t threads)
        : transform_{settings, {.mode = mode, .threads = static_cast<unsigned>(threads)}} {}

    void process(Raw_frames const& raw, Targets const& targets, std::size_t index) {
        transform_(
            raw.frame(index, memory_), planes_of(targets, index),
            {targets.signed_s1.frame(index), targets.signed_s2.frame(index)});
    }

private:
    polarization::Frame_transform transform_;
    std::vector<std::uint16_t> memory_;
};

// Frames one after the other from a common counter: unlike a pipeline's, no frame waits for the one
// before it. New threads inherit the rounding mode.
class Frame_counter {
public:
    explicit Frame_counter(std::size_t count) : count_{count} {}

    // What `make_process` returns, for frames until there are none or something was thrown in any
    // thread.
    template <class Make_process>
    void work(Make_process const& make_process) {
        try {
            auto process = make_process();
            for (std::size_t index = next_++; index < count_; index = next_++) {
                process(index);
            }
        } catch (...) {
            next_ = count_;
            std::call_once(first_failure_, [&] { failure_ = std::current_exception(); });
        }
    }

    void rethrow_failure() const {
        if (failure_) {
            std::rethrow_exception(failure_);
        }
    }

private:
    std::size_t count_;
    std::atomic<std::size_t> next_{0};
    std::once_flag first_failure_;
    std::exception_ptr failure_;
};

// Whether there was a thread to be had. Otherwise those there are do the work.
bool start(std::vector<std::jthread>& threads, std::function<void()> const& work) {
    try {
        threads.emplace_back(work);
        return true;
    } catch (std::system_error const&) {
        return false;
    } catch (std::bad_alloc const&) {
        return false;
    }
}

// Those this thread may run on: a batch system or a container often leaves it a few of many.
std::size_t usable_processors() {
    cpu_set_t usable;
    if (sched_getaffinity(0, sizeof usable, &usable) != 0) {
        // More processors than such a set has room for.
        return std::max(1U, std::thread::hardware_concurrency());
    }
    return static_cast<std::size_t>(CPU_COUNT(&usable));
}

} // namespace

void process_frames(
    Raw_frames const& raw, Targets const& targets, polarization::Settings const& settings,
    polarization::Mode mode, std::size_t threads, std::function<void()> const& between_frames) {
    std::size_t const wanted = threads == 0 ? usable_processors() : threads;
    // Frames side by side lose no time to one another, so threads share a frame only where there
    // are too few of them.
    std::size_t const sharing = std::clamp<std::size_t>(
        wanted / std::max<std::size_t>(1, raw.count()), 1, Worker::most_threads);
    Worker own{settings, mode, sharing};
    if (raw.count() == 1) {
        own.process(raw, targets, 0);
        return;
    }
    Frame_counter frames{raw.count()};
    {
        std::function<void()> const help = [&] {
            frames.work([&] {
                return [&, worker = Worker{settings, mode, sharing}](std::size_t index) mutable {
                    worker.process(raw, targets, index);
                };
            });
        };
        std::vector<std::jthread> others;
        std::size_t const useful = std::min(wanted, raw.count()); // 0 without a frame
        while (others.size() + 1 < useful && start(others, help)) {
        }
        frames.work([&] {
            return [&](std::size_t index) {
                between_frames();
                own.process(raw, targets, index);
            };
        });
    }
    frames.rethrow_failure();
}

} // namespace veldrane_python
