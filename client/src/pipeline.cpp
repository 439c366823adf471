#include "veldrane_mrv/polarization/pipeline.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <iterator>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

constexpr unsigned most_threads = 1024;
constexpr std::size_t most_frames_in_flight = 65536;

// Kept as it was thrown: to write its text takes memory, of which there is more when all is done.
struct Failure {
    std::size_t index;
    Pipeline_stage stage;
    std::exception_ptr exception;
};

Frame_failure described(Failure const& failure) {
    try {
        std::rethrow_exception(failure.exception);
    } catch (std::bad_alloc const&) {
        return {
            failure.index, failure.stage,
            "too little memory; use fewer threads, fewer frames in flight or smaller frames", true};
    } catch (std::exception const& error) {
        return {failure.index, failure.stage, error.what()};
    } catch (...) {
        return {failure.index, failure.stage, "an exception of unknown type"};
    }
}

// A frame on its way, in the slot of the same number.
struct Token {
    std::size_t index = 0;
    std::exception_ptr exception;
    Pipeline_stage stage = Pipeline_stage::read; // of the exception
    bool is_dropped = false;
    bool is_worked = false;
};

// Whichever thread is free writes the next frame if that is ready, or else reads one and works on
// it itself. Threads are started here, one when all others are busy, and not by a scheduler of
// tasks: those start threads where nobody can do without one that the system refuses.
class Run {
public:
    Run(Pipeline_options const& options, detail::Pipeline_stages const& stages)
        : options_{options}, stages_{stages}, tokens_(options.frames_in_flight) {
        others_.reserve(options.threads - 1);
    }

    Pipeline_result operator()() {
        take_part();
        others_.clear(); // waits for them; none is started any more
        if (unexpected_) {
            std::rethrow_exception(unexpected_);
        }
        Pipeline_result result{std::move(done_), {}, stopped_};
        result.failed.reserve(failed_.size());
        std::ranges::transform(failed_, std::back_inserter(result.failed), described);
        return result;
    }

private:
    using Lock = std::unique_lock<std::mutex>;

    // Exceptions of the stages belong to their frames; any other ends the run.
    void take_part() {
        try {
            Lock lock{mutex_};
            while (take_step(lock)) {
            }
        } catch (...) {
            std::scoped_lock const lock{mutex_};
            if (!unexpected_) {
                unexpected_ = std::current_exception();
            }
            changed_.notify_all();
        }
    }

    // False if there is nothing left to do.
    bool take_step(Lock& lock) {
        bool const is_written = is_at_end_ && next_written_ == next_read_;
        if (is_written || unexpected_) {
            return false;
        }
        bool const has_ready = next_written_ < next_read_ && token_of(next_written_).is_worked;
        bool const has_room = next_read_ - next_written_ < tokens_.size();
        if (has_ready && !is_writing_) {
            write_next(lock);
        } else if (!is_at_end_ && !is_reading_ && has_room) {
            read_and_work(lock);
        } else {
            ++idle_;
            changed_.wait(lock);
            --idle_;
        }
        return true;
    }

    void read_and_work(Lock& lock) {
        Token& token = token_of(next_read_);
        token = Token{};
        token.index = next_read_;
        is_reading_ = true;
        lock.unlock();
        bool const is_read = read(token);
        lock.lock();
        is_reading_ = false;
        is_at_end_ = !is_read;
        next_read_ += is_read ? 1 : 0;
        changed_.notify_all();
        if (!is_read) {
            return;
        }
        if (idle_ == 0) {
            start_another();
        }
        lock.unlock();
        if (proceeds(token)) {
            attempt(
                token, Pipeline_stage::work, [&] { stages_.work(token.index, slot_of(token)); });
        }
        lock.lock();
        token.is_worked = true;
        changed_.notify_all();
    }

    bool read(Token& token) {
        if (stop_requested()) {
            return false;
        }
        bool found = true;
        attempt(token, Pipeline_stage::read, [&] {
            found = stages_.read(token.index, slot_of(token));
        });
        return found;
    }

    void write_next(Lock& lock) {
        Token& token = token_of(next_written_);
        is_writing_ = true;
        lock.unlock();
        if (proceeds(token)) {
            attempt(
                token, Pipeline_stage::write, [&] { stages_.write(token.index, slot_of(token)); });
        }
        if (token.exception) {
            failed_.push_back({token.index, token.stage, std::exchange(token.exception, nullptr)});
        } else if (!token.is_dropped) {
            done_.push_back(token.index);
        }
        lock.lock();
        is_writing_ = false;
        ++next_written_;
        changed_.notify_all();
    }

    // Without another thread those there are do the work.
    void start_another() {
        if (others_.size() + 1 >= options_.threads || !can_start_ || unexpected_) {
            return;
        }
        try {
            others_.emplace_back([this] { take_part(); });
        } catch (std::system_error const&) {
            can_start_ = false;
        } catch (std::bad_alloc const&) {
            can_start_ = false;
        }
    }

    bool stop_requested() {
        if (!stopped_ && options_.stop_requested && options_.stop_requested()) {
            stopped_ = true;
        }
        return stopped_;
    }

    bool proceeds(Token& token) {
        if (!token.exception && !token.is_dropped && stop_requested()) {
            token.is_dropped = true;
        }
        return !token.exception && !token.is_dropped;
    }

    Token& token_of(std::size_t index) { return tokens_[index % tokens_.size()]; }
    std::size_t slot_of(Token const& token) const { return token.index % tokens_.size(); }

    template <class Stage>
    void attempt(Token& token, Pipeline_stage stage, Stage run) {
        try {
            run();
        } catch (...) {
            token.exception = std::current_exception();
            token.stage = stage;
        }
    }

    Pipeline_options const& options_;
    detail::Pipeline_stages const& stages_;
    std::atomic<bool> stopped_{false};

    // Of whichever thread is writing.
    std::vector<std::size_t> done_;
    std::vector<Failure> failed_;

    // Guarded by the mutex, as is which thread a token belongs to.
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Token> tokens_;
    std::size_t next_read_ = 0;
    std::size_t next_written_ = 0;
    bool is_reading_ = false;
    bool is_writing_ = false;
    bool is_at_end_ = false;
    bool can_start_ = true;
    unsigned idle_ = 0;
    std::exception_ptr unexpected_;
    std::vector<std::jthread> others_; // the last member: they use all others
};

} // namespace

std::string_view name_of(Pipeline_stage stage) {
    switch (stage) {
    case Pipeline_stage::read:
        return "read";
    case Pipeline_stage::work:
        return "work";
    case Pipeline_stage::write:
        break;
    }
    return "write";
}

Pipeline_options resolved(Pipeline_options options) {
    if (options.threads == 0) {
        options.threads = std::clamp(std::thread::hardware_concurrency(), 1U, most_threads);
    }
    if (options.frames_in_flight == 0) {
        options.frames_in_flight = std::size_t{2} * options.threads;
    }
    if (options.threads > most_threads) {
        throw Argument_error(
            "threads", std::to_string(options.threads),
            "give at most " + std::to_string(most_threads) + ", or 0 for one a core");
    }
    if (options.frames_in_flight > most_frames_in_flight) {
        throw Argument_error(
            "frames_in_flight", std::to_string(options.frames_in_flight),
            "give at most " + std::to_string(most_frames_in_flight) + ", or 0 for two a thread");
    }
    return options;
}

Pipeline_result detail::run_stages(Pipeline_options const& options, Pipeline_stages const& stages) {
    return Run{options, stages}();
}

} // namespace veldrane_mrv::polarization
