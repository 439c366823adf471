#include "veldrane_mrv/polarization/frame_transform.hpp"

#include "band_transform.hpp"
#include "call_checks.hpp"
#include "processor_call.hpp"
#include "thread_team.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/guarantees.hpp"
#include "veldrane_mrv/polarization/pipeline.hpp"

#include <algorithm>
#include <limits>
#include <vector>

namespace veldrane_mrv::polarization {
namespace {

using Row_below = Band_transform::Row_below;

// A share of less is done before another thread has woken up.
constexpr std::size_t least_pixels = std::size_t{1} << 17;

// In fast mode the end of a share costs about four rows; this keeps it to a per cent.
constexpr std::size_t least_rows = 400;

// More shares than threads, so that one that is held up leaves its last ones to the others.
constexpr std::size_t shares_per_thread = 4;

// Samples of a band whose rows are made on the way: 256 KB stay in the second-level cache until the
// planes are computed.
constexpr std::size_t band_pixels = std::size_t{1} << 17;

std::size_t even(std::size_t rows) {
    return (rows + 1) & ~std::size_t{1};
}

/// Rows of a frame in shares: all of the same even number of rows but the last, which has what is
/// left and at least two.
struct Shares {
    std::size_t height;
    std::size_t rows;
    std::size_t count;

    Shares(std::size_t frame_height, std::size_t share_rows)
        : height{frame_height}, rows{even(share_rows)}, count{std::max<std::size_t>(
                                                            1, (height + rows - 2) / rows)} {}

    std::size_t begin(std::size_t share) const { return share * rows; }
    std::size_t end(std::size_t share) const {
        return share + 1 == count ? height : (share + 1) * rows;
    }
};

// As many for each thread, or else one has to work alone in the end.
Shares shares_of(Size const& frame, Mode mode, unsigned threads) {
    std::size_t const least =
        std::max(mode == Mode::fast ? least_rows : std::size_t{2}, least_pixels / frame.width);
    std::size_t const most = std::max<std::size_t>(1, frame.height / least);
    std::size_t const count =
        most < threads ? most : threads * std::min(shares_per_thread, most / threads);
    return {frame.height, (frame.height - 1) / (threads == 1 ? 1 : count) + 1};
}

} // namespace

class Frame_transform::Parts {
public:
    Parts(Settings const& settings, Transform_options const& options)
        : settings_{settings}, options_{options}, team_{resolved({options.threads, 0, {}}).threads},
          workers_(team_.threads(), Worker{Band_transform{settings, options}, {}}) {}

    Settings const& settings() const { return settings_; }

    void run(
        Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes) {
        check(Source{frame.size(), frame.samples()}, planes, signed_planes);
        compute(
            frame.size(), planes, signed_planes, &frame,
            [&](std::size_t begin, std::size_t end, unsigned thread, Plane_views const& wanted) {
                std::size_t const rows = end - begin + (end == frame.height() ? 0 : 1);
                workers_[thread].transform(
                    {{frame.row(begin).data(), rows, frame.width()},
                     begin,
                     end - begin,
                     frame.height()},
                    from_row(wanted, begin, frame.width()),
                    from_row(signed_planes, begin, frame.width()), Row_below::kept);
            });
    }

    void run(
        Frame_rows const& frame, Plane_views const& planes, Signed_views const& signed_planes) {
        Size const size{frame.width, frame.height};
        check(Source{size}, planes, signed_planes);
        if (options_.mode == Mode::fast && !planes.normalized_stokes.empty()) {
            gather(frame);
            run(Frame_view{frame_, frame.height, frame.width}, planes, signed_planes);
            return;
        }
        compute(
            size, planes, signed_planes, nullptr,
            [&](std::size_t begin, std::size_t end, unsigned thread, Plane_views const& wanted) {
                compute_share(frame, begin, end, workers_[thread], wanted, signed_planes);
            });
    }

    void run(Band const& band, Plane_views const& planes, Signed_views const& signed_planes) {
        check_band_call(band, settings_, planes, signed_planes);
        check_mode_and_noise(planes);
        bool const is_whole = band.first == 0 && band.ends_frame();
        if (options_.mode == Mode::fast && !planes.normalized_stokes.empty()) {
            if (!is_whole) {
                throw Argument_error{
                    "the plane normalized_stokes", "wanted of a part of a frame",
                    "want it of whole frames in fast mode"};
            }
            run(band.samples, planes, signed_planes);
            return;
        }
        workers_.front().transform(band, planes, signed_planes, Row_below::kept);
    }

private:
    struct Worker {
        Band_transform transform;
        /// Of a band whose rows are made on the way.
        std::vector<std::uint16_t> samples;
    };

    void check(
        Source const& source, Plane_views const& planes, Signed_views const& signed_planes) const {
        check_call_of(source, settings_, planes, signed_planes);
        check_mode_and_noise(planes);
    }

    void check_mode_and_noise(Plane_views const& planes) const {
        check_mode(settings_, options_.mode);
        if (!planes.uncertainty.empty()) {
            static_cast<void>(noise_of(settings_));
        }
    }

    // The packed plane cannot be had from bands, so one thread computes it from the whole frame.
    template <class Compute_share>
    void compute(
        Size const& size, Plane_views const& planes, Signed_views const& signed_planes,
        Frame_view const* frame, Compute_share const& compute_share) {
        Shares const shares = shares_of(size, options_.mode, team_.threads());
        Plane_views banded = planes;
        bool const is_packed = options_.mode == Mode::fast && !planes.normalized_stokes.empty();
        if (is_packed && options_.fills_normalized_stokes) {
            std::ranges::fill(planes.normalized_stokes, std::numeric_limits<float>::quiet_NaN());
        }
        bool const is_apart = is_packed && shares.count > 1;
        if (is_apart) {
            banded.normalized_stokes = {};
        }
        std::size_t const first_share = is_apart ? 1 : 0;
        bool const has_others = !banded.wanted().empty() || !signed_planes.empty();
        team_.run(
            first_share + (has_others ? shares.count : 0), [&](std::size_t part, unsigned thread) {
                if (part < first_share) {
                    call_processor(
                        *frame, settings_, {.normalized_stokes = planes.normalized_stokes});
                } else {
                    std::size_t const share = part - first_share;
                    compute_share(shares.begin(share), shares.end(share), thread, banded);
                }
            });
    }

    // From the top down: each row is made once, and what fast mode leaves in the row below a band
    // is overwritten by the next one.
    void compute_share(
        Frame_rows const& frame, std::size_t begin, std::size_t end, Worker& worker,
        Plane_views const& planes, Signed_views const& signed_planes) const {
        std::size_t const width = frame.width;
        Shares const bands{end - begin, std::max<std::size_t>(16, band_pixels / width)};
        worker.samples.resize(std::max(worker.samples.size(), (bands.rows + 2) * width));
        std::uint16_t* const samples = worker.samples.data();
        std::size_t made = 0; // rows of the band that the one before it has made
        for (std::size_t number = 0; number < bands.count; ++number) {
            std::size_t const first = begin + bands.begin(number);
            std::size_t const rows = begin + bands.end(number) - first;
            std::size_t const needed = first + rows == frame.height ? rows : rows + 1;
            frame.fill(first + made, first + needed, samples + made * width);
            worker.transform(
                {{samples, needed, width}, first, rows, frame.height},
                from_row(planes, first, width), from_row(signed_planes, first, width),
                first + rows == end ? Row_below::kept : Row_below::overwritten);
            std::copy_n(samples + rows * width, (needed - rows) * width, samples);
            made = needed - rows;
        }
    }

    void gather(Frame_rows const& frame) {
        frame_.resize(frame.height * frame.width);
        Shares const shares =
            shares_of({frame.width, frame.height}, Mode::calibrated, team_.threads());
        team_.run(shares.count, [&](std::size_t share, unsigned) {
            std::size_t const begin = shares.begin(share);
            frame.fill(begin, shares.end(share), frame_.data() + begin * frame.width);
        });
    }

    Settings settings_;
    Transform_options options_;
    Thread_team team_;
    std::vector<Worker> workers_;
    /// A frame whose rows were made on the way, where it has to be had as a whole.
    std::vector<std::uint16_t> frame_;
};

Frame_transform::Frame_transform(Settings const& settings, Transform_options const& options)
    : parts_{std::make_unique<Parts>(settings, options)} {}

Frame_transform::~Frame_transform() = default;
Frame_transform::Frame_transform(Frame_transform&& other) noexcept = default;
Frame_transform& Frame_transform::operator=(Frame_transform&& other) noexcept = default;

Settings const& Frame_transform::settings() const {
    return parts_->settings();
}

void Frame_transform::operator()(
    Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes) {
    parts_->run(frame, planes, signed_planes);
}

void Frame_transform::operator()(
    Frame_rows const& frame, Plane_views const& planes, Signed_views const& signed_planes) {
    parts_->run(frame, planes, signed_planes);
}

void Frame_transform::operator()(
    Band const& band, Plane_views const& planes, Signed_views const& signed_planes) {
    parts_->run(band, planes, signed_planes);
}

} // namespace veldrane_mrv::polarization
