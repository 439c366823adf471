/// @file
/// Threads that share out the parts of one piece of work after another.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace veldrane_mrv::polarization {

/// The calling thread and others, which wait between the pieces of work. These are started with the
/// first piece that has several parts; where the system refuses them, or they wake up late, the
/// others do their share. For one caller at a time.
class Thread_team {
public:
    /// `task(part, thread)`; each of the threads has a number below `threads()`, the caller 0.
    using Task = std::function<void(std::size_t part, unsigned thread)>;

    /// @param threads the calling one included
    explicit Thread_team(unsigned threads) : threads_{threads} {}
    ~Thread_team();
    Thread_team(Thread_team const&) = delete;
    Thread_team& operator=(Thread_team const&) = delete;

    unsigned threads() const { return threads_; }

    /// Every part below `parts` once, in the caller's floating-point environment; returns when all
    /// are done. An exception keeps further parts from beginning and is thrown here, the first one.
    void run(std::size_t parts, Task const& task);

private:
    struct Work;
    void start();
    void help(unsigned thread);

    unsigned threads_;
    std::vector<std::thread> others_;

    // Guarded by the mutex.
    std::mutex mutex_;
    std::condition_variable begun_;
    std::condition_variable left_;
    Work* work_ = nullptr;
    /// Of pieces of work so far: the next one may lie where the last one lay.
    std::uint64_t count_ = 0;
    bool ends_ = false;
};

} // namespace veldrane_mrv::polarization
