// PNG files. libpng is asked for the samples as they are stored: no gamma, no palette, no
// stretching of few bits.
#include "source_kind.hpp"

#include "veldrane_mrv/polarization/memory_watch.hpp"

#include <array>
#include <csetjmp>
#include <cstring>
#include <png.h>

namespace veldrane_mrv::polarization::recordings {
namespace {

constexpr std::array<std::string_view, 1> endings = {".png"};

bool begins_like_png(std::string_view start) {
    return start.starts_with("\x89PNG\r\n\x1a\n");
}

void copy_bytes(png_structp png, png_bytep target, std::size_t count) {
    auto& bytes = *static_cast<std::string_view*>(png_get_io_ptr(png));
    if (count > bytes.size()) {
        png_error(png, "end of file");
    }
    std::memcpy(target, bytes.data(), count);
    bytes.remove_prefix(count);
}

// libpng prints its complaints unless told otherwise; the caller's line says all that a user can
// act on.
[[noreturn]] void jump_back(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}

void keep_quiet(png_structp, png_const_charp) {}

struct Reader {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, jump_back, keep_quiet);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);

    explicit Reader(std::string_view& bytes) {
        if (info != nullptr) {
            png_set_read_fn(png, &bytes, copy_bytes);
            // libpng's own limit is a million rows or columns.
            png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
            // Texts and profiles would be unpacked and kept, megabytes of a few bytes.
            png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
        }
    }
    Reader(Reader const&) = delete;
    Reader& operator=(Reader const&) = delete;
    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
};

// Where libpng jumps back to there may be no object with a destructor, hence the two functions.
bool read_header(png_structp png, png_infop info) {
    if (setjmp(png_jmpbuf(png)) != 0) {
        return false;
    }
    png_read_info(png, info);
    return true;
}

bool read_rows(png_structp png, png_bytep rows, std::size_t row_bytes, std::size_t height) {
    if (setjmp(png_jmpbuf(png)) != 0) {
        return false;
    }
    png_set_swap(png); // of 8-bit samples nothing
    int const passes = png_set_interlace_handling(png);
    for (int pass = 0; pass < passes; ++pass) {
        for (std::size_t row = 0; row < height; ++row) {
            png_read_row(png, rows + row * row_bytes, nullptr);
        }
    }
    png_read_end(png, nullptr);
    return true;
}

// Deflate makes at most 1032 bytes of one: a few bytes that promise a huge picture are no reason
// to take memory for it.
bool can_hold(std::size_t file_bytes, std::size_t picture_bytes) {
    constexpr std::size_t largest_ratio = 1032;
    return picture_bytes / largest_ratio <= file_bytes;
}

std::string decode_png(std::string_view bytes, Frame& frame, unsigned& sample_bits) {
    std::size_t const file_bytes = bytes.size();
    Memory_watch const memory;
    Reader const reader(bytes);
    if (reader.info == nullptr || !read_header(reader.png, reader.info)) {
        memory.throw_if_refused();
        return damaged_image;
    }
    sample_bits = png_get_bit_depth(reader.png, reader.info);
    if (sample_bits < 8) {
        return samples_of_other_kind;
    }
    if (png_get_color_type(reader.png, reader.info) != PNG_COLOR_TYPE_GRAY) {
        return colour_image;
    }
    frame.width = png_get_image_width(reader.png, reader.info);
    frame.height = png_get_image_height(reader.png, reader.info);
    std::size_t const row_bytes = frame.width * sample_bits / 8;
    if (!can_hold(file_bytes, row_bytes * frame.height)) {
        return damaged_image;
    }
    if (std::string problem = size_problem(frame.width, frame.height); !problem.empty()) {
        return problem;
    }
    std::size_t const pixels = frame.width * frame.height;
    frame.samples.resize(pixels);
    // Narrow samples are put into the second half of the memory and widened from there: sample i
    // goes to bytes 2 i and 2 i + 1, behind which all narrow ones to come lie.
    auto* const all = reinterpret_cast<std::uint8_t*>(frame.samples.data());
    std::uint8_t* const rows = all + (sample_bits == 8 ? pixels : 0);
    if (!read_rows(reader.png, rows, row_bytes, frame.height)) {
        memory.throw_if_refused();
        return damaged_image;
    }
    for (std::size_t pixel = 0; sample_bits == 8 && pixel < pixels; ++pixel) {
        frame.samples[pixel] = rows[pixel];
    }
    return {};
}

std::unique_ptr<Frame_source> open_png(Opened_file file) {
    return one_picture(std::move(file), decode_png);
}

} // namespace

extern Source_kind const png;
constinit Source_kind const png{endings, false, begins_like_png, open_png};

} // namespace veldrane_mrv::polarization::recordings
