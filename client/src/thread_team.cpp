#include "thread_team.hpp"

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <exception>
#include <new>
#include <system_error>

namespace veldrane_mrv::polarization {

struct Thread_team::Work {
    Work(std::size_t part_count, Task const& task_of_parts)
        : parts{part_count}, task{task_of_parts} {
        std::fegetenv(&environment);
    }

    // Parts until there are none.
    void take(unsigned thread) {
        try {
            for (std::size_t part = next++; part < parts; part = next++) {
                task(part, thread);
            }
        } catch (...) {
            next = parts;
            std::call_once(failed, [this] { failure = std::current_exception(); });
        }
    }

    std::size_t parts;
    Task const& task;
    std::fenv_t environment;
    std::atomic<std::size_t> next{0};
    std::once_flag failed;
    std::exception_ptr failure;
    /// Guarded by the team's mutex.
    unsigned helpers = 0;
};

Thread_team::~Thread_team() {
    {
        std::scoped_lock const lock{mutex_};
        ends_ = true;
    }
    begun_.notify_all();
    std::ranges::for_each(others_, &std::thread::join);
}

void Thread_team::start() {
    try {
        others_.reserve(threads_ - 1);
        while (others_.size() + 1 < threads_) {
            auto const number = static_cast<unsigned>(others_.size() + 1);
            others_.emplace_back([this, number] { help(number); });
        }
    } catch (std::system_error const&) { // those there are do the work
        threads_ = static_cast<unsigned>(others_.size() + 1);
    } catch (std::bad_alloc const&) {
        threads_ = static_cast<unsigned>(others_.size() + 1);
    }
}

void Thread_team::help(unsigned thread) {
    std::unique_lock lock{mutex_};
    std::uint64_t seen = 0;
    while (!ends_) {
        if (work_ == nullptr || count_ == seen) {
            begun_.wait(lock);
            continue;
        }
        Work& work = *work_;
        seen = count_;
        ++work.helpers;
        lock.unlock();
        std::fesetenv(&work.environment);
        work.take(thread);
        lock.lock();
        --work.helpers;
        left_.notify_one();
    }
}

void Thread_team::run(std::size_t parts, Task const& task) {
    Work work{parts, task};
    if (parts < 2 || threads_ < 2) {
        work.take(0);
    } else {
        if (others_.empty()) {
            start();
        }
        {
            std::scoped_lock const lock{mutex_};
            work_ = &work;
            ++count_;
        }
        begun_.notify_all();
        work.take(0);
        std::unique_lock lock{mutex_};
        work_ = nullptr; // who wakes up now is too late, and not waited for
        left_.wait(lock, [&work] { return work.helpers == 0; });
    }
    if (work.failure) {
        std::rethrow_exception(work.failure);
    }
}

} // namespace veldrane_mrv::polarization
