/// @file
/// Threads that run the handlers of the view's server.
#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <cstddef>
#include <new>
#include <thread>
#include <vector>

namespace polarize_tool {

/// Unlike asio's own pool it ends the threads that it has if the system gives it no more: that one
/// waits for ever for them.
class View_workers {
public:
    /// @throws std::system_error if the system does not give as many
    explicit View_workers(std::size_t count) {
        try {
            while (threads_.size() < count) {
                threads_.emplace_back([this] { run(); });
            }
        } catch (...) {
            stop();
            throw;
        }
    }
    ~View_workers() { stop(); }
    View_workers(View_workers const&) = delete;
    View_workers& operator=(View_workers const&) = delete;

    boost::asio::io_context& context() { return context_; }

    /// Waits for the handlers at work; those that have not begun never will.
    void stop() {
        context_.stop();
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
    }

private:
    void run() {
        while (!context_.stopped()) {
            try {
                context_.run();
            } catch (std::bad_alloc const&) {
                // Of an answer on its way back: its connection has ended with it.
            }
        }
    }

    boost::asio::io_context context_;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{
        context_.get_executor()};
    std::vector<std::thread> threads_;
};

} // namespace polarize_tool
