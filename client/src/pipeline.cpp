#include "veldrane_mrv/polarization/pipeline.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <tbb/global_control.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <optional>
#include <thread>

namespace veldrane_mrv::polarization {
namespace {

constexpr unsigned most_threads = 1024;
constexpr std::size_t most_frames_in_flight = 65536;

// What travels through the stages: a frame's number and its fate so far.
struct Token {
    std::size_t index = 0;
    std::optional<Frame_failure> failure;
    bool dropped = false;
};

class Run {
public:
    Run(Pipeline_options const& options, detail::Pipeline_stages const& stages)
        : options_{options}, stages_{stages}, tokens_(options.frames_in_flight) {}

    Token* read(tbb::flow_control& control) {
        if (stop_requested()) {
            control.stop();
            return nullptr;
        }
        // A frame's slot is free again: reading and writing keep the order, so the frame that had
        // it is the first to have left the pipeline, which holds no more frames than slots.
        Token& token = tokens_[next_index_ % tokens_.size()];
        token = Token{next_index_, std::nullopt, false};
        bool found = true;
        attempt(token, Pipeline_stage::read, [&] {
            found = stages_.read(token.index, slot_of(token));
        });
        if (!found) {
            control.stop();
            return nullptr;
        }
        ++next_index_;
        return &token;
    }

    void work(Token& token) {
        if (proceeds(token)) {
            attempt(
                token, Pipeline_stage::work, [&] { stages_.work(token.index, slot_of(token)); });
        }
    }

    void write(Token& token) {
        if (proceeds(token)) {
            attempt(
                token, Pipeline_stage::write, [&] { stages_.write(token.index, slot_of(token)); });
        }
        if (token.failure) {
            result_.failed.push_back(*std::move(token.failure));
        } else if (!token.dropped) {
            result_.done.push_back(token.index);
        }
    }

    Pipeline_result take_result() {
        result_.stopped = stopped_;
        return std::move(result_);
    }

private:
    bool stop_requested() {
        if (!stopped_ && options_.stop_requested && options_.stop_requested()) {
            stopped_ = true;
        }
        return stopped_;
    }

    bool proceeds(Token& token) {
        if (!token.failure && !token.dropped && stop_requested()) {
            token.dropped = true;
        }
        return !token.failure && !token.dropped;
    }

    std::size_t slot_of(Token const& token) const { return token.index % tokens_.size(); }

    template <class Stage>
    void attempt(Token& token, Pipeline_stage stage, Stage run) {
        try {
            run();
        } catch (std::exception const& error) {
            token.failure = Frame_failure{token.index, stage, error.what()};
        } catch (...) {
            token.failure = Frame_failure{token.index, stage, "an exception of unknown type"};
        }
    }

    Pipeline_options const& options_;
    detail::Pipeline_stages const& stages_;
    std::vector<Token> tokens_;
    std::size_t next_index_ = 0;
    std::atomic<bool> stopped_{false};
    Pipeline_result result_;
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
    using Control = tbb::global_control;
    std::size_t const allowed = Control::active_value(Control::max_allowed_parallelism);
    // Without it an arena gets no more workers than the machine has cores.
    std::optional<Control> more_threads;
    if (options.threads > allowed) {
        more_threads.emplace(Control::max_allowed_parallelism, options.threads);
    }
    Run run{options, stages};
    auto const read = tbb::make_filter<void, Token*>(
        tbb::filter_mode::serial_in_order,
        [&](tbb::flow_control& control) { return run.read(control); });
    auto const work =
        tbb::make_filter<Token*, Token*>(tbb::filter_mode::parallel, [&](Token* token) {
            run.work(*token);
            return token;
        });
    auto const write = tbb::make_filter<Token*, void>(
        tbb::filter_mode::serial_in_order, [&](Token* token) { run.write(*token); });
    // The workers' rounding mode is that of the thread that makes the context.
    tbb::task_group_context context{
        tbb::task_group_context::isolated,
        tbb::task_group_context::default_traits | tbb::task_group_context::fp_settings};
    tbb::task_arena arena{static_cast<int>(options.threads)};
    arena.execute(
        [&] { tbb::parallel_pipeline(options.frames_in_flight, read & work & write, context); });
    return run.take_result();
}

} // namespace veldrane_mrv::polarization
