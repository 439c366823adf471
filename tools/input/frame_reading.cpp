#include "input/frame_reading.hpp"

#include "input/input_opening.hpp"
#include "input/tiff_reading.hpp"
#include "terminal/failure.hpp"
#include "terminal/memory.hpp"
#include "terminal/standard_error.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string_view>
#include <unistd.h>

namespace polarize_tool {
namespace {

class Open_file {
public:
    explicit Open_file(std::filesystem::path const& file)
        : file_(file), input_(open_input(file, Input_role::frame)) {}

    std::size_t size() const { return static_cast<std::size_t>(input_.status.st_size); }

    // As many bytes as there are, at most `count`.
    void read(std::uint64_t offset, std::size_t count, std::string& bytes) const {
        bytes.resize(count);
        std::size_t done = 0;
        while (done < count) {
            ssize_t const part = pread(
                input_.descriptor.get(), bytes.data() + done, count - done,
                static_cast<off_t>(offset + done));
            if (part < 0 && errno != EINTR) {
                throw File_failure(file_, std::string("cannot be read: ") + std::strerror(errno));
            }
            if (part == 0) {
                break;
            }
            done += part > 0 ? static_cast<std::size_t>(part) : 0;
        }
        bytes.resize(done);
    }

private:
    std::filesystem::path const& file_;
    regular_files::Input input_;
};

enum class Format { png, tiff, pgm, other };

/// OpenCV reads more formats, but those are lossy or change samples: a plain (ASCII) PGM of up to
/// 8 bits is stretched to 255.
Format format_of(std::string_view bytes) {
    using namespace std::string_view_literals;
    if (bytes.starts_with("\x89PNG\r\n\x1a\n"sv)) {
        return Format::png;
    }
    if (begins_like_tiff(bytes)) {
        return Format::tiff;
    }
    return bytes.starts_with("P5"sv) || bytes.starts_with("P6"sv) ? Format::pgm : Format::other;
}

/// A PNG's header chunk says in byte 24 how many bits a sample has. OpenCV stretches fewer than 8.
bool has_narrow_samples(std::string_view png) {
    constexpr std::size_t bit_depth = 24;
    return png.size() > bit_depth && png[bit_depth] < 8;
}

/// Files of several pictures, one behind the other, are within the format; readers give the first.
bool holds_several_pictures(std::string_view pgm) {
    std::size_t at = 2;
    std::array<std::size_t, 3> numbers{}; // width, height, largest sample
    for (std::size_t& number : numbers) {
        while (at < pgm.size() && std::isdigit(static_cast<unsigned char>(pgm[at])) == 0) {
            at = pgm[at] == '#' ? std::min(pgm.find('\n', at), pgm.size()) : at + 1;
        }
        auto const read = std::from_chars(pgm.data() + at, pgm.data() + pgm.size(), number);
        at = static_cast<std::size_t>(read.ptr - pgm.data());
    }
    auto const [width, height, largest] = numbers;
    std::size_t const row_bytes = width * (largest > 255 ? 2 : 1);
    std::size_t const start = std::min(at + 1, pgm.size());
    if (row_bytes == 0 || height > (pgm.size() - start) / row_bytes) {
        return false; // damaged, which is for the decoder to say
    }
    std::string_view const rest = pgm.substr(start + height * row_bytes);
    std::size_t const next = rest.find_first_not_of(" \t\r\n");
    return next != std::string_view::npos && rest.substr(next).starts_with("P5");
}

cv::Mat decoded(std::string_view bytes) {
    // The decoders print their own complaints; the caller's line says all that a user can act on.
    Silenced_standard_error const silence;
    Memory_watch const memory;
    cv::Mat image;
    try {
        cv::Mat const encoded(
            1, static_cast<int>(bytes.size()), CV_8UC1, const_cast<char*>(bytes.data()));
        image = cv::imdecode(encoded, cv::IMREAD_UNCHANGED);
    } catch (cv::Exception const&) {
        image.release();
    }
    if (image.empty()) {
        memory.throw_if_refused();
    }
    return image;
}

std::string read_with_opencv(std::string_view bytes, Frame& frame) {
    cv::Mat const image = decoded(bytes);
    if (image.empty()) {
        return damaged_image;
    }
    if (image.channels() != 1) {
        return colour_image;
    }
    frame.width = static_cast<std::size_t>(image.cols);
    frame.height = static_cast<std::size_t>(image.rows);
    frame.samples.resize(image.total());
    image.convertTo(cv::Mat(image.rows, image.cols, CV_16UC1, frame.samples.data()), CV_16U);
    return {};
}

std::string problem_of_other_format(std::string_view bytes) {
    std::string const what_it_is_not = "not a PNG, TIFF or binary PGM image; ";
    if (bytes.empty()) {
        return "is empty, " + what_it_is_not + "copy or record it again";
    }
    if (bytes.starts_with("\xFF\xD8\xFF")) {
        return "a JPEG, " + what_it_is_not +
               "JPEG changes the samples, so record it again without loss";
    }
    if (bytes.starts_with("P2")) {
        return "a plain (ASCII) PGM is not read; save it as binary PGM or PNG";
    }
    return what_it_is_not + "convert it to one of these, or describe raw samples with "
                            "--pixel-format, --width and --height";
}

std::string read_image(std::string_view bytes, Frame& frame) {
    switch (format_of(bytes)) {
    case Format::tiff:
        return read_tiff(bytes, frame);
    case Format::png:
        if (has_narrow_samples(bytes)) {
            return samples_of_other_kind;
        }
        return read_with_opencv(bytes, frame);
    case Format::pgm:
        if (holds_several_pictures(bytes)) {
            return "holds several pictures; save each in a file of its own";
        }
        return read_with_opencv(bytes, frame);
    case Format::other:
        break;
    }
    return problem_of_other_format(bytes);
}

} // namespace

Frame read_frame(std::filesystem::path const& file) {
    Frame_reader reader(std::nullopt);
    Fetched_frame fetched;
    reader.fetch({file, 0, 1}, fetched);
    reader.decode(fetched);
    return std::move(fetched.frame);
}

Frame_reader::Frame_reader(std::optional<Raw_layout> raw) : raw_(raw) {}

Frame_reader::~Frame_reader() = default;

void Frame_reader::fetch(Frame_place const& place, Fetched_frame& target) {
    target.place = place;
    target.is_decoded = false;
    if (!raw_ && place.is_part()) {
        fetch_page(place, target);
        return;
    }
    Open_file const file(place.file);
    if (!raw_) {
        file.read(0, file.size(), target.bytes);
        return;
    }
    file.read(raw_->offset_of(place.index), raw_->frame_bytes(), target.bytes);
    if (target.bytes.size() != raw_->frame_bytes()) {
        throw File_failure(
            place.file, "ends within frame " + std::to_string(place.index) + ", at byte " +
                            std::to_string(file.size()) + "; has it become shorter meanwhile?");
    }
}

// Pictures of one file share an open file, so that finding the next does not mean a walk through
// all before it.
void Frame_reader::fetch_page(Frame_place const& place, Fetched_frame& target) {
    if (tiff_ == nullptr || open_file_ != place.file) {
        tiff_ = nullptr;
        tiff_ = std::make_unique<Tiff_file>(place.file);
        open_file_ = place.file;
    }
    std::string const problem = tiff_->read(place.index, target.frame);
    if (!problem.empty()) {
        throw File_failure(place.name(), problem);
    }
    target.is_decoded = true;
}

void Frame_reader::decode(Fetched_frame& target) const {
    if (target.is_decoded) {
        return;
    }
    Frame& frame = target.frame;
    if (raw_) {
        frame.width = raw_->width;
        frame.height = raw_->height;
        frame.samples.resize(frame.width * frame.height);
        polarization::unpack_frame(
            raw_->format, std::as_bytes(std::span(target.bytes)), frame.width, frame.samples,
            raw_->stride);
        return;
    }
    std::string const problem = read_image(target.bytes, frame);
    if (!problem.empty()) {
        throw File_failure(target.place.name(), problem);
    }
}

} // namespace polarize_tool
