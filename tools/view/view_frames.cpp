#include "view/view_frames.hpp"

#include "input/transform_settings.hpp"
#include "veldrane_mrv/polarization/guarantees.hpp"
#include "view/frame_answers.hpp"
#include "view/view_refusals.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <thread>
#include <utility>

namespace polarize_tool {
namespace {

using polarization::Steady_time;
using Seconds = std::chrono::duration<double>;

constexpr std::chrono::seconds longest_wait(1);

// Those asked for last: a page asks once more for parts of the frame that it shows, while it has up
// to three others under way.
constexpr std::size_t frames_kept = 4;

// Of a camera with the newest. Such a frame is gone for good, and a page that stands still shows
// one while others look on.
constexpr std::size_t camera_frames_kept = 8;

// A browser that takes its request back goes unnoticed while one waits for it. Half of the threads
// that a server has answers what need not wait.
constexpr std::size_t most_waiting = 4;

// Of a camera, for its rate.
constexpr Seconds rate_time(2.0);

/// What one request at a time uses.
struct Worker {
    Plane_making planes;
    Statistics_making statistics;
};

} // namespace

class View_frames::Parts {
public:
    Parts(
        View_setup setup, Frame_preparation const& preparation, polarization::Frame_source& source,
        polarization::Live_source* live)
        : setup_{std::move(setup)}, preparation_{preparation}, source_{source}, live_{live},
          kept_{live == nullptr ? frames_kept : camera_frames_kept} {
        if (live != nullptr) {
            receiver_ = std::thread([this] { receive(); });
        }
    }

    ~Parts() {
        if (receiver_.joinable()) {
            live_->feed().end();
            receiver_.join();
        }
    }

    void read_first() { prepare(numbered(0)); }

    Answer source(Query const& query) {
        return answered([&] {
            require_none(query);
            std::optional<std::size_t> const frames =
                live_ == nullptr ? source_.count() : std::nullopt;
            return source_answer(
                setup_, preparation_, reception(std::nullopt), frames, shown_size());
        });
    }

    Answer frame(Query const& query) {
        return answered([&] {
            Frame_request const request = frame_request(query);
            Kept_frames::Use const use = request.frame.number ? numbered(*request.frame.number)
                                                              : newest(request.frame.after);
            if (!use) {
                return Answer{204, "", ""};
            }
            prepare(use);
            polarization::Region const region = part_of(use, request.region);
            return naming(use->slot.place(), [&] {
                return with_worker([&](Worker& worker) {
                    return frame_answer(
                        worker.planes, use, region, request, reception(use->arrival));
                });
            });
        });
    }

    Answer statistics(Query const& query) {
        return answered([&] {
            Statistics_request const request = statistics_request(query);
            Kept_frames::Use const use = numbered(request.number);
            prepare(use);
            polarization::Region const region = part_of(use, request.region);
            return naming(use->slot.place(), [&] {
                return with_worker([&](Worker& worker) {
                    return statistics_answer(
                        request.number, region,
                        worker.statistics.make({use->samples->view(), use->saturated}, region));
                });
            });
        });
    }

    bool has_frame() const {
        std::scoped_lock const lock(receiving_);
        return newest_.has_value();
    }

    bool has_ended() const {
        std::scoped_lock const lock(receiving_);
        return has_ended_;
    }

    std::string failure() const {
        std::scoped_lock const lock(receiving_);
        return failure_;
    }

private:
    // The frames of a list may differ; the first stands for all until they are looked at.
    std::optional<polarization::Size> shown_size() {
        try {
            if (live_ != nullptr) {
                auto const shape = live_->shape();
                return preparation_.part_of({shape->width, shape->height}, live_->name()).size();
            }
            Kept_frames::Use const use = numbered(0);
            prepare(use);
            return use->samples->size();
        } catch (File_failure const&) {
            return std::nullopt; // the frame itself says why
        }
    }

    Kept_frames::Use numbered(std::size_t number) {
        if (live_ == nullptr) {
            auto const count = source_.count();
            if (count && number >= *count) {
                throw Refused{
                    404, "number is " + std::to_string(number) + ", but there are " +
                             std::to_string(*count) + " frames; give a smaller one"};
            }
            return kept_.find_or_take(number);
        }
        {
            std::scoped_lock const lock(receiving_);
            if (!newest_ || number > *newest_) {
                throw Refused{
                    404, "number is " + std::to_string(number) +
                             ", which the camera has not reached; ask with after=-1"};
            }
        }
        Kept_frames::Use use = kept_.find(number);
        if (!use) {
            throw Refused{
                410, "number is " + std::to_string(number) +
                         ", a frame that is not kept any more; ask with after=-1"};
        }
        return use;
    }

    /// Nothing if none came.
    Kept_frames::Use newest(long long after) {
        auto const next = static_cast<std::size_t>(after + 1);
        if (live_ == nullptr) {
            auto const count = source_.count();
            return count && next >= *count ? Kept_frames::Use() : kept_.find_or_take(next);
        }
        auto const until = std::chrono::steady_clock::now() + longest_wait;
        std::unique_lock lock(receiving_);
        auto const is_there = [&] { return newest_ && *newest_ >= next; };
        std::uint64_t const turn = is_there() ? waits_ : ++waits_;
        auto const is_too_many = [&] { return waits_ >= turn + most_waiting; };
        frame_came_.notify_all();
        for (;;) {
            bool const came = frame_came_.wait_until(
                lock, until, [&] { return is_there() || has_ended_ || is_too_many(); });
            if (is_there()) {
                std::size_t const number = *newest_;
                lock.unlock();
                if (Kept_frames::Use use = kept_.find(number)) {
                    return use;
                }
                lock.lock(); // two came in between
            }
            if (has_ended_) {
                throw Refused{410, failure_.empty() ? setup_.name + ": sends no more" : failure_};
            }
            if (!came || is_too_many() || std::chrono::steady_clock::now() >= until) {
                return {};
            }
        }
    }

    void prepare(Kept_frames::Use const& use) {
        std::scoped_lock const lock(use->filling);
        if (use->is_prepared) {
            return;
        }
        if (!use->is_read) { // a camera's frames have been
            std::scoped_lock const one_at_a_time(reading_);
            naming(source_.place(use.number()), [&] { source_.read(use.number(), use->slot); });
            use->is_read = true;
        }
        Frame_place const& place = use->slot.place();
        try {
            naming(place, [&] { prepare_samples(*use, place); });
        } catch (...) {
            // What is decoded as a whole is prepared where it lies, so not again. A camera's frames
            // are unpacked row by row from what stays as it came.
            use->is_read = live_ != nullptr;
            throw;
        }
        use->is_prepared = true;
    }

    void prepare_samples(Kept_frame& frame, Frame_place const& place) {
        auto const& calibration = setup_.transform.calibration;
        if (calibration && !preparation_.takes_part_of_sensor()) {
            check_sensor(
                frame.slot.size(), place.name(), *calibration, setup_.calibration_file,
                preparation_.region().has_value());
        }
        Prepared_frame const prepared =
            preparation_.apply(frame.slot, frame.room, Dark_level::subtracted, &frame.saturated);
        check_call(prepared.frame.view(), setup_.transform.settings, {});
        frame.samples = &prepared.frame;
        frame.warnings.clear();
        for (std::string const& warning : {prepared.warnings.depth, prepared.warnings.dark}) {
            if (!warning.empty()) {
                frame.warnings.push_back(warning);
            }
        }
    }

    static polarization::Region part_of(
        Kept_frames::Use const& use, std::optional<polarization::Region> const& region) {
        polarization::Region const part = clipped(region, use->samples->size());
        if (part.width == 0 || part.height == 0) {
            throw Refused{
                404, "region is " + to_string(*region) + ", but the frame has " +
                         to_string(use->samples->size()) + " pixels; give a part of it"};
        }
        return part;
    }

    template <class Action>
    Answer with_worker(Action action) {
        std::unique_ptr<Worker> worker;
        {
            std::scoped_lock const lock(resting_);
            if (!workers_.empty()) {
                worker = std::move(workers_.back());
                workers_.pop_back();
            }
        }
        if (worker == nullptr) {
            auto const& settings = setup_.transform.settings;
            worker = std::make_unique<Worker>(Worker{
                Plane_making(settings, setup_.mode), Statistics_making(settings, setup_.mode)});
        }
        Answer answer = action(*worker);
        std::scoped_lock const lock(resting_);
        workers_.push_back(std::move(worker));
        return answer;
    }

    // Nothing where there is no camera.
    std::optional<Reception> reception(std::optional<Steady_time> arrival) const {
        if (live_ == nullptr) {
            return std::nullopt;
        }
        Reception result{live_->counts(), std::nullopt, std::nullopt};
        std::scoped_lock const lock(receiving_);
        Steady_time const now = std::chrono::steady_clock::now();
        if (arrivals_.size() > 1 && now - arrivals_.back() < rate_time) {
            auto const count = static_cast<double>(arrivals_.size());
            Seconds const between = arrivals_.back() - arrivals_.front();
            Seconds const until_now = now - arrivals_.front();
            // The second once the next frame is late.
            result.rate = std::min((count - 1) / between.count(), count / until_now.count());
        }
        if (arrival) {
            result.latency_ms = std::chrono::duration<double, std::milli>(now - *arrival).count();
        }
        return result;
    }

    void receive() {
        std::string failure;
        try {
            for (std::size_t number = 0; live_->has_frame(number); ++number) {
                take(number);
            }
        } catch (std::exception const& error) {
            failure = is_lack_of_memory(error) ? setup_.name + ": " + reason_of(std::bad_alloc())
                                               : reason_of(error);
        }
        {
            std::scoped_lock const lock(receiving_);
            has_ended_ = true;
            failure_ = failure;
        }
        frame_came_.notify_all();
    }

    void take(std::size_t number) {
        Steady_time const arrival = live_->arrival();
        {
            Kept_frames::Use const use = kept_.take_newest(number);
            std::scoped_lock const lock(use->filling);
            live_->read(number, use->slot);
            use->arrival = arrival;
            use->is_read = true;
        }
        {
            std::scoped_lock const lock(receiving_);
            newest_ = number;
            arrivals_.push_back(arrival);
            while (arrival - arrivals_.front() > rate_time) {
                arrivals_.pop_front();
            }
        }
        frame_came_.notify_all();
    }

    View_setup setup_;
    Frame_preparation const& preparation_;
    polarization::Frame_source& source_;
    polarization::Live_source* live_;
    std::mutex reading_; // of frames in any order
    Kept_frames kept_;
    std::mutex resting_;
    std::vector<std::unique_ptr<Worker>> workers_; // that rest
    mutable std::mutex receiving_;
    std::condition_variable frame_came_; // or has to be waited for by one more
    std::uint64_t waits_ = 0;            // that have begun
    std::optional<std::size_t> newest_;
    std::deque<Steady_time> arrivals_; // of the last seconds
    bool has_ended_ = false;
    std::string failure_;
    std::thread receiver_;
};

View_frames::View_frames(
    View_setup setup, Frame_preparation const& preparation, polarization::Frame_source& source)
    : parts_{std::make_unique<Parts>(std::move(setup), preparation, source, nullptr)} {}

View_frames::View_frames(
    View_setup setup, Frame_preparation const& preparation, polarization::Live_source& source)
    : parts_{std::make_unique<Parts>(std::move(setup), preparation, source, &source)} {}

View_frames::~View_frames() = default;

void View_frames::read_first() {
    parts_->read_first();
}

Handlers View_frames::handlers() {
    Parts& parts = *parts_;
    return {
        {"/source", [&parts](Query const& query) { return parts.source(query); }},
        {"/frame", [&parts](Query const& query) { return parts.frame(query); }},
        {"/statistics", [&parts](Query const& query) { return parts.statistics(query); }}};
}

bool View_frames::has_frame() const {
    return parts_->has_frame();
}

bool View_frames::has_ended() const {
    return parts_->has_ended();
}

std::string View_frames::failure() const {
    return parts_->failure();
}

} // namespace polarize_tool
