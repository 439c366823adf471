#include "output/stack_format.hpp"

#include <array>

namespace polarize_tool {
namespace {

// A page of memory: frames that are whole pages, as those of most sensors, can be mapped and
// written without being copied.
constexpr std::size_t page = 4096;

void append(std::vector<std::uint8_t>& bytes, std::uint64_t value, unsigned byte_count) {
    for (unsigned byte = 0; byte < byte_count; ++byte) {
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * byte)));
    }
}

enum class Field_type : std::uint8_t { short_type = 3, long_type = 4, long8_type = 16 };

constexpr unsigned field_bytes = 20;

using polarization::Element_type;

constexpr unsigned bytes_of(Element_type kind) {
    return kind == Element_type::uint8 ? 1 : kind == Element_type::uint16 ? 2 : 4;
}

constexpr unsigned sample_format(Element_type kind) {
    return kind == Element_type::float32 ? 3 : kind == Element_type::int32 ? 2 : 1;
}

// Up to four values of two bytes, or one longer, stand in the field itself.
void append_field(
    std::vector<std::uint8_t>& bytes, std::uint16_t tag, Field_type type, std::uint64_t value,
    std::size_t count = 1) {
    append(bytes, tag, 2);
    append(bytes, static_cast<std::uint64_t>(type), 2);
    append(bytes, count, 8);
    for (std::size_t index = 1; index < count; ++index) {
        value |= (value & 0xFFFFU) << (16 * index);
    }
    append(bytes, value, 8);
}

} // namespace

Stack_format::Stack_format(
    File_format format, polarization::Element_type kind, polarization::Size const& size,
    std::size_t channels, std::size_t count)
    : format_{format}, kind_{kind}, size_{size}, channels_{channels}, count_{count},
      frame_bytes_{std::uint64_t{size.width} * size.height * channels * bytes_of(kind)},
      head_size_{format == File_format::raw ? 0 : page} {}

std::vector<std::uint8_t> Stack_format::head() const {
    if (format_ == File_format::npy) {
        std::array<std::size_t, 4> const shape = {count_, size_.height, size_.width, channels_};
        return npy_head(kind_, std::span(shape).first(channels_ > 1 ? 4 : 3), page);
    }
    std::vector<std::uint8_t> bytes;
    if (format_ == File_format::tiff) {
        append(bytes, 0x4949, 2);
        append(bytes, 43, 2); // BigTIFF, with offsets of
        append(bytes, 8, 2);  // so many bytes
        append(bytes, 0, 2);
        append(bytes, tail_offset(), 8);
    }
    return bytes;
}

std::uint64_t Stack_format::tail_offset() const {
    std::uint64_t const end = offset_of(count_);
    return format_ == File_format::tiff ? (end + 7) / 8 * 8 : end;
}

std::uint64_t Stack_format::directory_bytes() const {
    return 8 + field_bytes * (channels_ > 1 ? 12U : 11U) + 8;
}

std::uint64_t Stack_format::file_bytes() const {
    return tail_offset() + (format_ == File_format::tiff ? count_ * directory_bytes() : 0);
}

// By hand: libtiff writes page behind page through one handle, each with its samples, where here
// several threads write frames in any order. The directories lie together, so that a reader finds
// the pages of a long recording in a few reads of the disk.
std::vector<std::uint8_t> Stack_format::tail() const {
    std::vector<std::uint8_t> bytes;
    if (format_ == File_format::tiff) {
        bytes.reserve(count_ * directory_bytes());
        for (std::size_t frame = 0; frame < count_; ++frame) {
            append_directory(bytes, frame);
        }
    }
    return bytes;
}

// The fields of a plane's own TIFF file, in the form of BigTIFF: one strip a page.
void Stack_format::append_directory(std::vector<std::uint8_t>& bytes, std::size_t frame) const {
    using enum Field_type;
    append(bytes, channels_ > 1 ? 12 : 11, 8);
    append_field(bytes, 256, long_type, size_.width);
    append_field(bytes, 257, long_type, size_.height);
    append_field(bytes, 258, short_type, 8 * bytes_of(kind_), channels_);
    append_field(bytes, 259, short_type, 1);
    append_field(bytes, 262, short_type, 1);
    append_field(bytes, 273, long8_type, offset_of(frame));
    append_field(bytes, 277, short_type, channels_);
    append_field(bytes, 278, long_type, size_.height);
    append_field(bytes, 279, long8_type, frame_bytes_);
    append_field(bytes, 284, short_type, 1);
    if (channels_ > 1) {
        append_field(bytes, 338, short_type, 0, channels_ - 1);
    }
    append_field(bytes, 339, short_type, sample_format(kind_), channels_);
    bool const is_last = frame + 1 == count_;
    append(bytes, is_last ? 0 : tail_offset() + (frame + 1) * directory_bytes(), 8);
}

} // namespace polarize_tool
