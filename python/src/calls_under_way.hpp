/// @file
/// Calls that wait without the interpreter's lock, in threads that the interpreter may leave
/// behind.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <pybind11/pybind11.h>
#include <thread>

namespace veldrane_python {

/// Calls from threads of any kind. An interpreter that ends cuts off each daemon thread that asks
/// for its lock, and the whole process is aborted if that happens in the middle of C++. So `end`
/// lets such calls come to their end before.
class Calls_under_way {
public:
    /// Gives the interpreter's lock away for as long as it lives; once they end, keeps it.
    class Unlocked {
    public:
        explicit Unlocked(Calls_under_way& calls) : calls_{calls} {
            if (!calls_.are_ending_) {
                ++calls_.count_;
                thread_ = PyEval_SaveThread();
            }
        }
        ~Unlocked() {
            if (thread_ != nullptr) {
                PyEval_RestoreThread(thread_);
                --calls_.count_; // with the lock in hand, which nothing takes away any more
            }
        }
        Unlocked(Unlocked const&) = delete;
        Unlocked& operator=(Unlocked const&) = delete;

    private:
        Calls_under_way& calls_;
        PyThreadState* thread_ = nullptr;
    };

    /// Whether calls that wait for something have to give it up. Any thread.
    bool are_ending() const { return are_ending_; }

    /// Waits until none is under way. With the interpreter's lock, as `forget`.
    void end() {
        are_ending_ = true;
        while (count_ > 0) {
            pybind11::gil_scoped_release const unlocked;
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
        }
    }

    /// In the child of a fork, where none of the other threads is.
    void forget() { count_ = 0; }

private:
    std::atomic<bool> are_ending_ = false;
    std::size_t count_ = 0; // the interpreter's lock is its own
};

} // namespace veldrane_python
