/// @file
/// Raw frames from wherever they come, one after another or by number, every sample exactly as it
/// is stored.
#pragma once

#include "veldrane_mrv/polarization/file_failure.hpp"
#include "veldrane_mrv/polarization/frame.hpp"
#include "veldrane_mrv/polarization/raw_layout.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veldrane_mrv::polarization {

/// What a camera tells of one frame.
struct Capture {
    std::uint64_t frame_number = 0;   ///< the camera's count, which may wrap
    std::uint64_t camera_time_ns = 0; ///< by the camera's clock, from whenever that began
    std::uint64_t host_time_ns = 0;   ///< since 1970, by this machine's clock, as the frame arrived

    friend bool operator==(Capture const&, Capture const&) = default;
};

/// What is known of a frame before it is read: the file that it is in, or the name of its source.
struct Frame_place {
    std::filesystem::path file;
    std::size_t index = 0;
    std::size_t count = 1; // frames in the file
    std::optional<Capture> capture = std::nullopt;

    bool is_part() const { return count > 1; }
    /// For messages: the file, and the number in it of one of several.
    std::string name() const;
    /// Start of the names of its results: the file's name without ending, and behind it the number
    /// of one of several, with as many digits as sort.
    std::string stem() const;
};

/// What frames look like before the first is read.
struct Frame_shape {
    std::size_t width;
    std::size_t height;
    /// 8 for pictures of 8 bits a sample, else 16: what it takes to hold any sample.
    unsigned sample_bits;
};

/// Turns single rows of a frame into samples, where these lie apart.
class Row_decoder {
public:
    virtual ~Row_decoder() = default;
    virtual Frame_shape shape() const = 0;
    /// Fills `target` with samples of `row`, from `column` on.
    virtual void decode_row(
        std::string_view bytes, std::size_t row, std::size_t column,
        std::span<std::uint16_t> target) const = 0;
};

/// Turns the bytes of a frame into samples. Knows nothing of other frames, so that one serves any
/// number of threads.
class Frame_decoder {
public:
    virtual ~Frame_decoder() = default;
    /// Fills `frame`, all of it.
    /// @return bits of a sample as in `Frame_shape`
    /// @throws File_failure in the name of `place`
    virtual unsigned decode(
        std::string_view bytes, Frame_place const& place, Frame& frame) const = 0;
    /// Null if a frame can only be decoded as a whole.
    virtual Row_decoder const* by_rows() const { return nullptr; }
};

/// Decodes frames of bare samples.
/// @param layout of which the header is not looked at
std::shared_ptr<Frame_decoder const> sample_decoder(Raw_layout const& layout);

/// What a source hands over: either `bytes` and who decodes them, or `frame` and `sample_bits`
/// where these cannot be told apart. All memory is kept from one frame to the next.
struct Fetched_frame {
    std::string bytes;
    std::shared_ptr<Frame_decoder const> decoder;
    Frame frame;
    unsigned sample_bits = 16;
};

/// Room for one frame. Used for one frame after another, it keeps its memory.
class Frame_slot {
public:
    /// Of the frame that was read last.
    Frame_place const& place() const { return place_; }

    /// The frame that was read last, the caller's to change. The first call unpacks or decompresses
    /// it, in the caller's thread, so that frames in several slots are decoded side by side; it
    /// needs no source any more.
    /// @throws File_failure if what was read is no such frame
    /// @throws std::logic_error if nothing was read
    Frame& frame();

    /// 8 or 16, as in `Frame_shape`.
    /// @throws as `frame`
    unsigned sample_bits();

    /// Of the frame that was read last. Decodes it if its size does not show before.
    /// @throws as `frame`
    Size size();

    /// Whether `frame` is there, so that `copy_row` copies in place of decoding.
    bool is_decoded() const { return state_ == State::decoded; }

    /// Fills `target` with samples of `row` from `column` on, as they are stored. After `size`; any
    /// number of threads at a time.
    void copy_row(std::size_t row, std::size_t column, std::span<std::uint16_t> target) const;

private:
    Row_decoder const* undecoded_rows() const;

    friend class Frame_source;
    enum class State { empty, fetched, decoded };

    State state_ = State::empty;
    Frame_place place_;
    Fetched_frame fetched_;
};

/// Where frames come from. One thread at a time reads, each frame into a slot; who has the slot
/// decodes the frame, in any thread. Frames are quickest in their order.
class Frame_source {
public:
    virtual ~Frame_source() = default;
    Frame_source(Frame_source const&) = delete;
    Frame_source& operator=(Frame_source const&) = delete;

    /// For messages: the file, the folder, the camera.
    virtual std::string name() const = 0;

    /// How many frames there are; nothing where that shows only when they end.
    virtual std::optional<std::size_t> count() const = 0;

    /// Whether there is a frame `number`. Where `count` does not tell, this waits for it.
    /// @throws File_failure if a source breaks off; there are no frames behind that
    virtual bool has_frame(std::size_t number) {
        auto const frames = count();
        return !frames || number < *frames;
    }

    /// Nothing if frames have to be read for it, or need not be alike.
    virtual std::optional<Frame_shape> shape() const { return std::nullopt; }

    /// @param number of a frame that there is
    virtual Frame_place place(std::size_t number) const = 0;

    /// What should have held frames and does not, a line each.
    virtual std::vector<std::string> failures() const { return {}; }

    /// Reads frame `number`, the serial step: the disk's.
    /// @throws File_failure if it cannot be read
    /// @throws Argument_error if there is no such frame
    void read(std::size_t number, Frame_slot& slot);

    /// Reads the frame behind the last one that was read, at first the first.
    /// @return whether there was one
    /// @throws File_failure; the next call goes on behind that frame
    bool read_next(Frame_slot& slot);

protected:
    Frame_source() = default;

    /// Fills `target`; `has_frame(number)` is true.
    /// @throws File_failure
    virtual void fetch(std::size_t number, Fetched_frame& target) = 0;

    /// For sources that stand in front of others.
    static void fetch_from(Frame_source& source, std::size_t number, Fetched_frame& target);

private:
    std::size_t next_ = 0;
};

/// One file: a PNG, a PGM, a TIFF of one or many pictures, an npy array of one or many frames, or
/// with `layout` bare samples; told apart by content and not by name. Bare samples beside which a
/// description stands (recording_description.hpp) need no layout. A file that is none of them has
/// one frame, which cannot be read.
/// @throws File_failure if the file cannot be opened, or holds no frame as far as can be told
/// @throws Argument_error if `layout` is given for a picture or an npy array, or contradicts a
///         description
std::unique_ptr<Frame_source> open_frames(
    std::filesystem::path const& file, std::optional<Raw_layout> const& layout = std::nullopt);

/// The first frame of a picture.
/// @throws File_failure
Frame read_frame(std::filesystem::path const& file);

} // namespace veldrane_mrv::polarization
