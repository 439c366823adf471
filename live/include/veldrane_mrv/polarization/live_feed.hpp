/// @file
/// Frames on their way from the thread that receives them to those that process them.
#pragma once

#include "veldrane_mrv/polarization/frame_source.hpp"

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veldrane_mrv::polarization {

/// Which frame goes when one arrives and there is no room.
enum class Drop_policy {
    newest, ///< the one that arrives
    oldest, ///< the one that waits longest
    none    ///< none: who receives waits, and a camera runs out of memory to send to
};

/// Why a frame was not whole.
enum class Incomplete_cause { missing_packets, time_out, size_mismatch, other };

inline constexpr std::array<Incomplete_cause, 4> all_incomplete_causes = {
    Incomplete_cause::missing_packets, Incomplete_cause::time_out, Incomplete_cause::size_mismatch,
    Incomplete_cause::other};

/// In words: `missing packets`, `time-out`, `size mismatch`, `other`.
std::string_view name_of(Incomplete_cause cause);

/// What became of the frames that a camera sent: `received` whole ones of which `dropped` were not
/// handed on, `incomplete` ones, and `lost` ones, of which nothing came but the gap in the numbers.
struct Live_counts {
    std::uint64_t received = 0;
    std::uint64_t dropped = 0;
    std::uint64_t lost = 0;
    std::array<std::uint64_t, all_incomplete_causes.size()> incomplete = {};
    std::uint64_t reconnections = 0;

    std::uint64_t of(Incomplete_cause cause) const {
        return incomplete[static_cast<std::size_t>(cause)];
    }
    std::uint64_t all_incomplete() const;
};

/// Frames between the number `last` and `now`, as cameras count: on from 65535 by 1 and 2 where the
/// numbers have 16 bits, by 65536 where they have more. A number that lies far behind is that of a
/// camera that has begun anew, and 0 frames lie between.
std::uint64_t frames_between(std::uint64_t last, std::uint64_t now);

using Steady_time = std::chrono::steady_clock::time_point;

/// One whole frame.
struct Live_frame {
    std::string bytes;
    Capture capture;
    Steady_time arrival; ///< of its last byte
};

/// A queue of whole frames whose memory is bounded: no more than `capacity` wait. One thread gives,
/// one takes.
class Live_feed {
public:
    /// @param frame_bytes of a whole frame
    /// @param capacity at least 1
    Live_feed(std::size_t frame_bytes, std::size_t capacity, Drop_policy drop);

    /// Copies a whole frame, whose bytes are the caller's again afterwards. One of another size is
    /// counted as incomplete.
    /// @return false once nobody takes any more
    bool give(std::string_view bytes, Capture const& capture, Steady_time arrival);

    /// Whether `give` would wait for room now.
    bool would_wait() const;

    /// Counts a frame that is not whole.
    /// @param number if it is known
    void note_incomplete(
        Incomplete_cause cause, std::optional<std::uint64_t> number = std::nullopt);

    /// The camera is back, and its numbers may begin anew.
    void note_reconnection();

    /// No frame comes any more; those that wait can still be taken.
    /// @param failure why, empty if that was wanted
    void end(std::string failure = {});

    /// Waits for a frame and swaps it with `frame`, whose memory is used again.
    /// @param until the latest time to wait
    /// @param stop_requested asked several times a second while none comes
    /// @return false if none comes any more, or in time
    bool take(
        Live_frame& frame, std::optional<Steady_time> until = std::nullopt,
        std::function<bool()> const& stop_requested = {});

    /// The end is near: `give` waits no more and drops nothing. So that who knows nothing of the
    /// end does not put it off, it takes 16 frames more and then gives false.
    void drain();

    /// Nobody takes any more: `give` counts nothing and gives false.
    void close();

    /// Whether `end` was called and no frame waits.
    bool is_at_end() const;
    std::string failure() const;
    Live_counts counts() const;

private:
    void note_number(std::uint64_t number);
    bool make_room(std::unique_lock<std::mutex>& lock);

    std::size_t const frame_bytes_;
    std::size_t const capacity_;
    Drop_policy const drop_;
    mutable std::mutex mutex_;
    std::condition_variable frame_came_;
    std::condition_variable room_came_;
    std::deque<Live_frame> waiting_;
    std::vector<Live_frame> spare_; // whose memory is used again
    std::optional<std::uint64_t> last_number_;
    std::uint64_t unnumbered_ = 0; // incomplete ones since, which are in the next gap
    Live_counts counts_;
    std::string failure_;
    bool has_ended_ = false;
    bool is_draining_ = false;
    std::size_t given_while_draining_ = 0;
    bool is_closed_ = false;
};

} // namespace veldrane_mrv::polarization
