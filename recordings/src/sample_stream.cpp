#include "veldrane_mrv/polarization/sample_stream.hpp"

#include "source_kind.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

// A pipe holds 64 KiB unless asked for more: a frame of 2448 x 2048 would take 120 turns between
// its writer and its reader. This much any user may ask for.
void widen(int pipe) {
    constexpr int bytes = 1 << 20;
    if (fcntl(pipe, F_GETPIPE_SZ) < bytes) {
        fcntl(pipe, F_SETPIPE_SZ, bytes); // or it stays as it is
    }
}

std::size_t sum_or_largest(std::size_t a, std::size_t b) {
    return a > std::numeric_limits<std::size_t>::max() - b ? std::numeric_limits<std::size_t>::max()
                                                           : a + b;
}

} // namespace

Sample_stream::Sample_stream(
    int descriptor, std::string name, std::filesystem::path file, Raw_layout const& layout,
    Frame_selection const& selection, std::function<bool()> stop_requested)
    : descriptor_{descriptor}, name_{std::move(name)}, file_{std::move(file)}, layout_{layout},
      selection_{selection},
      stop_requested_{std::move(stop_requested)}, unpacker_{recordings::unpacker({layout})} {
    widen(descriptor);
}

std::optional<std::size_t> Sample_stream::count() const {
    return is_at_end_ ? std::optional(found_) : std::nullopt;
}

std::optional<Frame_shape> Sample_stream::shape() const {
    return Frame_shape{layout_.width, layout_.height, 16};
}

Frame_place Sample_stream::place(std::size_t number) const {
    // One of many, whether or not others come.
    return {
        file_, selection_.start + number * selection_.step,
        std::numeric_limits<std::size_t>::max()};
}

bool Sample_stream::has_frame(std::size_t number) {
    while (found_ <= number && !is_at_end_) {
        find_next();
    }
    return number < found_;
}

void Sample_stream::find_next() {
    std::size_t const wanted =
        found_ == 0 ? selection_.start : sum_or_largest(passed_ - 1, selection_.step);
    if (selection_.stop && wanted >= *selection_.stop) {
        is_at_end_ = true;
        return;
    }
    while (passed_ <= wanted) {
        try {
            is_at_end_ = !read_frame();
        } catch (...) {
            is_at_end_ = is_at_end_ || is_within_frame_; // where the next one begins is not known
            throw;
        }
        if (is_at_end_) {
            return;
        }
        is_within_frame_ = false;
        ++passed_;
    }
    ++found_;
    has_bytes_ = true;
}

// The padding behind a frame is read with the next one: nobody is to wait for it.
bool Sample_stream::read_frame() {
    std::size_t const frame_bytes = layout_.frame_bytes();
    bool const is_first = passed_ == 0;
    bool const is_there = is_first ? skip(layout_.header_bytes, "its header")
                                   : skip(
                                         layout_.offset_of(1) - layout_.offset_of(0) - frame_bytes,
                                         "the padding behind frame " + std::to_string(passed_ - 1));
    std::size_t const count = is_there ? fill(bytes_, frame_bytes) : 0;
    if (is_stopped_ || (count == 0 && !is_first)) {
        return false;
    }
    if (!is_there || (count == 0 && layout_.header_bytes == 0)) {
        break_off("is empty; check what writes to it");
    }
    char const* const kind = recordings::kind_of_picture(std::string_view(bytes_).substr(0, count));
    if (kind != nullptr && is_first && layout_.header_bytes == 0) {
        break_off(
            std::string("begins like ") + kind +
            ", but only bare samples are read from it; save it to a file");
    }
    if (count != frame_bytes) {
        break_off(description_of_end("frame " + std::to_string(passed_), count, frame_bytes));
    }
    return true;
}

/// False if the stream ends before the first of them.
bool Sample_stream::skip(std::uint64_t count, std::string const& what) {
    constexpr std::uint64_t piece = 1 << 16;
    std::string skipped;
    for (std::uint64_t done = 0; done < count;) {
        std::size_t const size = static_cast<std::size_t>(std::min(piece, count - done));
        std::size_t const read = fill(skipped, size);
        done += read;
        if (read != size && !is_stopped_ && done > 0) {
            break_off(description_of_end(what, done, count));
        }
        if (read != size) {
            return false;
        }
    }
    return true;
}

std::string Sample_stream::description_of_end(
    std::string const& what, std::uint64_t done, std::uint64_t of) {
    return "ends within " + what + ", after " + std::to_string(done) + " of its " +
           std::to_string(of) +
           " bytes; check what writes to it, or --width, --height, --pixel-format, "
           "--header-bytes and --stride";
}

void Sample_stream::break_off(std::string const& problem) {
    is_at_end_ = true;
    throw File_failure(name_, problem);
}

// Memory is taken as bytes come: a frame whose size is a slip of the pen is no reason to ask for
// more than the stream gives.
std::size_t Sample_stream::fill(std::string& bytes, std::size_t count) {
    constexpr std::size_t piece = std::size_t{16} << 20;
    bytes.resize(std::min(bytes.size(), count));
    std::size_t done = 0;
    while (done < count) {
        if (bytes.size() == done) {
            bytes.resize(std::min(count, done + piece));
        }
        std::size_t const read = read_some(bytes.data() + done, bytes.size() - done);
        if (read == 0) {
            break;
        }
        done += read;
    }
    return done;
}

// Waits with a limit: a signal may interrupt another thread than the one that waits.
std::size_t Sample_stream::read_some(char* target, std::size_t count) {
    constexpr int patience = 100; // milliseconds
    while (!is_stopped_) {
        is_stopped_ = stop_requested_ && stop_requested_();
        pollfd stream = {descriptor_, POLLIN, 0};
        if (is_stopped_ || poll(&stream, 1, patience) <= 0) {
            continue;
        }
        ssize_t const read = ::read(descriptor_, target, count);
        if (read >= 0) {
            is_within_frame_ = is_within_frame_ || read > 0;
            return static_cast<std::size_t>(read);
        }
        if (errno != EINTR && errno != EAGAIN) {
            break_off(std::string("cannot be read: ") + std::strerror(errno));
        }
    }
    return 0;
}

void Sample_stream::fetch(std::size_t number, Fetched_frame& target) {
    if (number + 1 != found_ || !has_bytes_) {
        throw Argument_error(
            "frame number", std::to_string(number),
            "read a stream in its order, and each frame once");
    }
    has_bytes_ = false;
    target.bytes.swap(bytes_);
    target.decoder = unpacker_;
}

} // namespace veldrane_mrv::polarization
