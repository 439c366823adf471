#include "frames_in_threads.hpp"

#include <algorithm>
#include <atomic>
#include <exception>
#include <limits>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace veldrane_python {
namespace {

namespace mrv = veldrane_mrv::polarization;

bool wants_signed(Targets const& targets) {
    return targets.signed_s1.data != nullptr || targets.signed_s2.data != nullptr;
}

mrv::Plane_views planes_of(Targets const& targets, std::size_t index) {
    auto const& of = targets.integer_planes;
    return {of[0].frame(index), of[1].frame(index), of[2].frame(index),
            of[3].frame(index), of[4].frame(index), targets.normalized_stokes.frame(index)};
}

/// What one frame in flight needs.
class Worker {
public:
    Worker(mrv::Settings const& settings, mrv::Mode mode, bool is_signed)
        : settings_{settings}, mode_{mode} {
        if (is_signed) {
            signed_.emplace(settings, mode);
        } else if (mode == mrv::Mode::calibrated) {
            calibrated_.emplace(settings);
        }
    }

    void process(Raw_frames const& raw, Targets const& targets, std::size_t index) {
        mrv::Frame_view const frame = raw.frame(index, memory_);
        mrv::Plane_views const planes = planes_of(targets, index);
        if (mode_ == mrv::Mode::fast) {
            std::ranges::fill(planes.normalized_stokes, std::numeric_limits<float>::quiet_NaN());
        }
        if (signed_) {
            (*signed_)(
                frame, planes, {targets.signed_s1.frame(index), targets.signed_s2.frame(index)});
        } else if (calibrated_) {
            (*calibrated_)(frame, planes);
        } else {
            mrv::transform(frame, settings_, planes);
        }
    }

private:
    mrv::Settings const& settings_;
    mrv::Mode mode_;
    std::optional<mrv::Calibrated_transform> calibrated_;
    std::optional<mrv::Signed_transform> signed_;
    std::vector<std::uint16_t> memory_;
};

// Frames one after the other from a common counter: unlike a pipeline's, no frame waits for the one
// before it. New threads inherit the rounding mode.
void run_in_threads(
    Raw_frames const& raw, Targets const& targets, mrv::Settings const& settings, mrv::Mode mode,
    std::size_t threads) {
    std::atomic<std::size_t> next{0};
    std::exception_ptr failure;
    std::once_flag first_failure;
    auto const work = [&] {
        try {
            Worker worker{settings, mode, wants_signed(targets)};
            for (std::size_t index = next++; index < raw.count(); index = next++) {
                worker.process(raw, targets, index);
            }
        } catch (...) {
            next = raw.count();
            std::call_once(first_failure, [&] { failure = std::current_exception(); });
        }
    };
    {
        std::vector<std::jthread> others;
        others.reserve(threads - 1);
        for (std::size_t number = 1; number < threads; ++number) {
            others.emplace_back(work);
        }
        work();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

} // namespace

void process_frames(
    Raw_frames const& raw, Targets const& targets, mrv::Settings const& settings, mrv::Mode mode,
    std::size_t threads) {
    // Asking for the number of processors reads a file of the system's, too long for one frame.
    if (raw.count() <= 1 || threads == 1) {
        Worker worker{settings, mode, wants_signed(targets)};
        for (std::size_t index = 0; index < raw.count(); ++index) {
            worker.process(raw, targets, index);
        }
        return;
    }
    std::size_t const wanted =
        threads == 0 ? std::max(1U, std::thread::hardware_concurrency()) : threads;
    run_in_threads(raw, targets, settings, mode, std::min(wanted, raw.count()));
}

} // namespace veldrane_python
