/// @file
/// Memory for the frames of a view: those in use, and a few more.
#pragma once

#include "input/frame_finding.hpp"
#include "input/frame_preparation.hpp"
#include "veldrane_mrv/polarization/live_feed.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

/// One frame: its bytes as they were read, and its samples as soon as they were asked for.
struct Kept_frame {
    /// Held while what follows is filled; whoever has `is_prepared` seen under it may read.
    std::mutex filling;
    bool is_read = false;
    bool is_prepared = false;
    Frame_slot slot;
    Frame const* samples = nullptr;
    std::vector<std::uint8_t> saturated;
    std::vector<std::string> warnings;
    /// Of a camera's frame.
    polarization::Steady_time arrival{};
    Frame room; ///< of `Frame_preparation`
};

/// Frames by their numbers. Keeps at most `most` when nobody uses more, and lets those go first
/// whose last use is longest ago; a frame that nobody has asked for has none. For any number of
/// threads.
class Kept_frames {
    struct Place;

public:
    explicit Kept_frames(std::size_t most);
    ~Kept_frames();

    /// A frame in use. Ends before the `Kept_frames`.
    class Use {
    public:
        Use() = default;
        Use(Kept_frames& frames, Place& place) : frames_{&frames}, place_{&place} {}
        Use(Use&& other) noexcept;
        Use& operator=(Use&& other) noexcept;
        ~Use();

        explicit operator bool() const { return place_ != nullptr; }
        Kept_frame& operator*() const;
        Kept_frame* operator->() const { return &**this; }
        std::size_t number() const;

    private:
        Kept_frames* frames_ = nullptr;
        Place* place_ = nullptr;
    };

    /// Nothing if it is not kept.
    Use find(std::size_t number);
    /// Takes a place for it if it is not kept: one whose memory is free, neither read nor prepared.
    Use find_or_take(std::size_t number);
    /// The same for a frame that comes unasked. It counts as never used, but no other one takes its
    /// place before the next has come so.
    Use take_newest(std::size_t number);

private:
    Place& place_for(std::size_t number);
    void release(Place& place);

    std::size_t const most_;
    std::mutex mutex_;
    std::uint64_t uses_ = 0;
    std::optional<std::size_t> newest_;
    std::vector<std::unique_ptr<Place>> places_;
};

} // namespace polarize_tool
