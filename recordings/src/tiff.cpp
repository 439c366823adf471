#include "input/tiff_reading.hpp"

#include "input/input_opening.hpp"
#include "terminal/failure.hpp"
#include "terminal/memory.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <tiffio.h>

namespace polarize_tool {
namespace {

/// A damaged size is not to be allocated. OpenCV has the same limit.
constexpr std::size_t largest_frame = std::size_t{1} << 30;

// libtiff prints its complaints unless told otherwise; the caller's line says all that a user can
// act on. Whether there was one tells a broken list of pictures from one that ends.
thread_local unsigned errors = 0;

void count_error(char const*, char const*, va_list) {
    ++errors;
}

void keep_libtiff_quiet() {
    static bool const done = [] {
        TIFFSetErrorHandler(count_error);
        TIFFSetWarningHandler(nullptr);
        return true;
    }();
    static_cast<void>(done);
}

template <typename Value>
Value field(TIFF* image, std::uint32_t tag) {
    Value value{};
    TIFFGetFieldDefaulted(image, tag, &value);
    return value;
}

/// Those that give every sample back as it was, in any version of libtiff or not at all.
bool is_lossless(std::uint16_t compression) {
    constexpr std::array<std::uint16_t, 7> lossless = {
        COMPRESSION_NONE,     COMPRESSION_LZW,  COMPRESSION_ADOBE_DEFLATE, COMPRESSION_DEFLATE,
        COMPRESSION_PACKBITS, COMPRESSION_LZMA, COMPRESSION_ZSTD};
    return std::find(lossless.begin(), lossless.end(), compression) != lossless.end();
}

std::string compression_problem(std::uint16_t compression) {
    std::string const remedy = "; save it uncompressed or with LZW or Deflate";
    if (compression == COMPRESSION_JPEG || compression == COMPRESSION_OJPEG) {
        return "its samples are compressed as JPEG, which changes them" + remedy;
    }
    if (!is_lossless(compression) || TIFFIsCODECConfigured(compression) == 0) {
        return "its compression, number " + std::to_string(compression) + " in TIFF, is not read" +
               remedy;
    }
    return {};
}

/// What keeps a TIFF from being a raw frame as the sensor gave it.
std::string layout_problem(TIFF* image) {
    if (field<std::uint16_t>(image, TIFFTAG_SAMPLESPERPIXEL) != 1 ||
        field<std::uint16_t>(image, TIFFTAG_PHOTOMETRIC) > PHOTOMETRIC_MINISBLACK) {
        return colour_image;
    }
    auto const bits = field<std::uint16_t>(image, TIFFTAG_BITSPERSAMPLE);
    if ((bits != 8 && bits != 16) ||
        field<std::uint16_t>(image, TIFFTAG_SAMPLEFORMAT) != SAMPLEFORMAT_UINT) {
        return samples_of_other_kind;
    }
    if (field<std::uint16_t>(image, TIFFTAG_PHOTOMETRIC) != PHOTOMETRIC_MINISBLACK) {
        return "its samples are inverted (0 is white); save it with 0 as black";
    }
    if (field<std::uint16_t>(image, TIFFTAG_ORIENTATION) != ORIENTATION_TOPLEFT) {
        return "it is turned or mirrored, and the mosaic with it; save it upright";
    }
    if (TIFFIsTiled(image) != 0) {
        return "it is stored in tiles; save it in strips";
    }
    return compression_problem(field<std::uint16_t>(image, TIFFTAG_COMPRESSION));
}

bool read_rows(TIFF* image, Frame& frame) {
    bool const is_8_bit = field<std::uint16_t>(image, TIFFTAG_BITSPERSAMPLE) == 8;
    std::vector<std::uint8_t> bytes(is_8_bit ? frame.width : 0);
    for (std::size_t row = 0; row < frame.height; ++row) {
        std::uint16_t* const samples = frame.samples.data() + row * frame.width;
        void* const target = is_8_bit ? static_cast<void*>(bytes.data()) : samples;
        if (TIFFReadScanline(image, target, static_cast<std::uint32_t>(row)) < 0) {
            return false;
        }
        std::copy(bytes.begin(), bytes.end(), samples);
    }
    return true;
}

std::string read_picture(TIFF* image, Frame& frame) {
    if (std::string problem = layout_problem(image); !problem.empty()) {
        return problem;
    }
    frame.width = field<std::uint32_t>(image, TIFFTAG_IMAGEWIDTH);
    frame.height = field<std::uint32_t>(image, TIFFTAG_IMAGELENGTH);
    if (frame.width == 0 || frame.height > largest_frame / frame.width) {
        return "its size is " + to_string(frame.size()) + ", more than 2^30 pixels; crop it";
    }
    frame.samples.resize(frame.width * frame.height);
    Memory_watch const memory;
    if (!read_rows(image, frame)) {
        memory.throw_if_refused();
        return damaged_image;
    }
    return {};
}

using Tiff_pointer = std::unique_ptr<TIFF, decltype(&TIFFClose)>;
using Tiff_options = std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)>;

// A few bytes can name strips by the hundred million, for whose places libtiff makes room before
// anybody sees the size of the picture. The largest frame's samples in one strip have to fit.
Tiff_options bounded_options() {
    constexpr tmsize_t room_for_other_things = 1 << 20;
    Tiff_options options(TIFFOpenOptionsAlloc(), &TIFFOpenOptionsFree);
    TIFFOpenOptionsSetMaxSingleMemAlloc(
        options.get(), tmsize_t{2 * largest_frame} + room_for_other_things);
    return options;
}

/// A file in memory, as libtiff asks for it.
struct Memory_stream {
    std::string_view bytes;
    std::size_t at = 0;

    static Memory_stream& of(thandle_t handle) { return *static_cast<Memory_stream*>(handle); }

    static tmsize_t read(thandle_t handle, void* target, tmsize_t size) {
        Memory_stream& stream = of(handle);
        std::size_t const left = stream.bytes.size() - std::min(stream.at, stream.bytes.size());
        std::size_t const count = std::min(left, static_cast<std::size_t>(size));
        if (count != 0) {
            std::memcpy(target, stream.bytes.data() + stream.at, count);
            stream.at += count;
        }
        return static_cast<tmsize_t>(count);
    }

    static tmsize_t write(thandle_t, void*, tmsize_t) { return -1; }

    static toff_t seek(thandle_t handle, toff_t offset, int from) {
        Memory_stream& stream = of(handle);
        toff_t const base = from == SEEK_CUR   ? stream.at
                            : from == SEEK_END ? stream.bytes.size()
                                               : 0;
        // Offsets back wrap around, as libtiff means them.
        stream.at = base + offset;
        return stream.at;
    }

    static int close(thandle_t) { return 0; }

    static toff_t size(thandle_t handle) { return of(handle).bytes.size(); }
};

} // namespace

bool begins_like_tiff(std::string_view bytes) {
    using namespace std::string_view_literals;
    return bytes.starts_with("II*\0"sv) || bytes.starts_with("MM\0*"sv) ||
           bytes.starts_with("II+\0"sv) || bytes.starts_with("MM\0+"sv);
}

std::string read_tiff(std::string_view bytes, Frame& frame) {
    keep_libtiff_quiet();
    Memory_stream stream{bytes};
    char const* const without_mapping = "rm";
    Memory_watch const memory;
    Tiff_pointer const image(
        TIFFClientOpenExt(
            "memory", without_mapping, &stream, &Memory_stream::read, &Memory_stream::write,
            &Memory_stream::seek, &Memory_stream::close, &Memory_stream::size, nullptr, nullptr,
            bounded_options().get()),
        &TIFFClose);
    if (image == nullptr) {
        memory.throw_if_refused();
        return damaged_image;
    }
    return read_picture(image.get(), frame);
}

struct Tiff_file::Handle {
    Tiff_pointer image;
};

Tiff_file::Tiff_file(std::filesystem::path const& file)
    : file_(file), handle_(std::make_unique<Handle>(Handle{Tiff_pointer(nullptr, &TIFFClose)})) {
    keep_libtiff_quiet();
    if (!reopen()) {
        throw File_failure(file, damaged_image);
    }
}

Tiff_file::~Tiff_file() = default;

bool Tiff_file::reopen() {
    regular_files::Input input = open_input(file_, Input_role::frame);
    Memory_watch const memory;
    handle_->image.reset(
        TIFFFdOpenExt(input.descriptor.get(), file_.c_str(), "r", bounded_options().get()));
    if (handle_->image != nullptr) {
        input.descriptor.release();
    } else {
        memory.throw_if_refused();
    }
    return handle_->image != nullptr;
}

Tiff_file::Pages Tiff_file::pages() {
    if (handle_->image == nullptr && !reopen()) {
        return {0, false};
    }
    errors = 0;
    Memory_watch const memory;
    auto const count = static_cast<std::size_t>(TIFFNumberOfDirectories(handle_->image.get()));
    if (errors != 0) {
        memory.throw_if_refused();
    }
    return {count, errors == 0};
}

bool Tiff_file::find(std::size_t page) {
    if (handle_->image == nullptr && !reopen()) {
        return false;
    }
    TIFF* const image = handle_->image.get();
    Memory_watch const memory;
    // The next picture is found at once, any other by the list from its start.
    bool const is_current = TIFFCurrentDirectory(image) == page;
    bool const is_next = std::size_t{TIFFCurrentDirectory(image)} + 1 == page;
    bool const found =
        is_current || (is_next ? TIFFReadDirectory(image) != 0
                               : TIFFSetDirectory(image, static_cast<tdir_t>(page)) != 0);
    if (!found) {
        // libtiff is left between two pictures, and would give one for another.
        handle_->image.reset();
        memory.throw_if_refused();
    }
    return found;
}

std::string Tiff_file::read(std::size_t page, Frame& frame) {
    return find(page) ? read_picture(handle_->image.get(), frame) : damaged_image;
}

} // namespace polarize_tool
