#include "veldrane_mrv/polarization/pixel_format.hpp"

#include "pixel_layouts.hpp"

#include "pixels/unpacking.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/geometry.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <algorithm>
#include <limits>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

using namespace pixel_layouts;

struct Description {
    std::string_view name;
    unsigned bit_depth;
    unsigned stored_bits;
    // Null where samples are copied as they are.
    packed::Unpack* unpack_vectors;
    packed::Pack* pack_vectors;
};

constexpr std::array<Description, all_pixel_formats.size()> descriptions = {
    {{"Mono8", 8, 8, packed::unpack_mono8, packed::pack_mono8},
     {"Mono10", 10, 16, nullptr, nullptr},
     {"Mono12", 12, 16, nullptr, nullptr},
     {"Mono14", 14, 16, nullptr, nullptr},
     {"Mono16", 16, 16, nullptr, nullptr},
     {"Mono10p", 10, 10, packed::unpack_mono10p, packed::pack_mono10p},
     {"Mono12p", 12, 12, packed::unpack_mono12p, packed::pack_mono12p},
     {"Mono10Packed", 10, 12, packed::unpack_mono10_packed, packed::pack_mono10_packed},
     {"Mono12Packed", 12, 12, packed::unpack_mono12_packed, packed::pack_mono12_packed}}};

Description const& describe(Pixel_format format) {
    return descriptions.at(static_cast<std::size_t>(format));
}

// What whole vectors leave, or all of it, goes the plain way.
void unpack_checked(Pixel_format format, std::byte const* row, std::span<std::uint16_t> samples) {
    Description const& about = describe(format);
    std::size_t done = 0;
    if (about.unpack_vectors != nullptr && processor_features().avx2) {
        done = about.unpack_vectors(row, samples.size(), samples.data());
    }
    unpack_plainly(format, row + done * about.stored_bits / 8, samples.subspan(done));
}

void pack_checked(Pixel_format format, std::span<std::uint16_t const> samples, std::byte* row) {
    Description const& about = describe(format);
    std::size_t done = 0;
    if (about.pack_vectors != nullptr && processor_features().avx2) {
        done = about.pack_vectors(samples.data(), samples.size(), row);
    }
    pack_plainly(format, samples.subspan(done), row + done * about.stored_bits / 8);
}

std::size_t product(char const* argument, std::size_t left, std::size_t right) {
    if (right != 0 && left > std::numeric_limits<std::size_t>::max() / right) {
        throw Argument_error(argument, std::to_string(left), "give a size that fits in memory");
    }
    return left * right;
}

std::size_t checked_stride(Pixel_format format, std::size_t width, std::size_t stride) {
    std::size_t const row_bytes = bytes_per_row(format, width);
    if (stride != 0 && stride < row_bytes) {
        throw Argument_error(
            "stride", std::to_string(stride),
            "give 0 for rows without a gap, or at least the " + std::to_string(row_bytes) +
                " bytes of a row of " + std::to_string(width) + " samples in " +
                std::string(name_of(format)));
    }
    return stride == 0 ? row_bytes : stride;
}

void check_row_bytes(Pixel_format format, std::size_t width, std::size_t bytes) {
    std::size_t const needed = bytes_per_row(format, width);
    if (bytes < needed) {
        throw Argument_error(
            "row", std::to_string(bytes) + " bytes",
            "give the " + std::to_string(needed) + " bytes that " + std::to_string(width) +
                " samples take in " + std::string(name_of(format)));
    }
}

// The number of rows in `samples`.
std::size_t check_frame(
    Pixel_format format, std::size_t bytes, std::size_t width, std::size_t samples,
    std::size_t stride) {
    if (width == 0 || samples % width != 0) {
        throw Argument_error(
            "width", std::to_string(width),
            "give a width of which the " + std::to_string(samples) + " samples are a multiple");
    }
    std::size_t const height = samples / width;
    std::size_t const needed = bytes_per_frame(format, height, width, stride);
    if (bytes < needed) {
        throw Argument_error(
            "frame", std::to_string(bytes) + " bytes",
            "give the " + std::to_string(needed) + " bytes that " + to_string(Size{width, height}) +
                " samples take in " + std::string(name_of(format)));
    }
    return height;
}

void check_samples(Pixel_format format, std::span<std::uint16_t const> samples) {
    unsigned const limit = (1U << bit_depth_of(format)) - 1;
    // The bits of all samples together are quick to find and tell whether to look closer.
    std::uint16_t bits = 0;
    for (std::uint16_t const sample : samples) {
        bits |= sample;
    }
    if (bits > limit) {
        throw Argument_error(
            "samples", std::to_string(*std::max_element(samples.begin(), samples.end())),
            "give samples of at most " + std::to_string(limit) + ", the largest that " +
                std::string(name_of(format)) + " holds");
    }
}

} // namespace

std::string_view name_of(Pixel_format format) {
    return describe(format).name;
}

Pixel_format parse_pixel_format(std::string_view name) {
    auto const found = std::find_if(
        descriptions.begin(), descriptions.end(),
        [name](Description const& description) { return description.name == name; });
    if (found != descriptions.end()) {
        return all_pixel_formats.at(static_cast<std::size_t>(found - descriptions.begin()));
    }
    std::string accepted;
    for (Description const& description : descriptions) {
        accepted += (accepted.empty() ? "" : ", ") + std::string(description.name);
    }
    throw Argument_error("pixel format", std::string(name), "give one of " + accepted);
}

unsigned bit_depth_of(Pixel_format format) {
    return describe(format).bit_depth;
}

unsigned stored_bits_of(Pixel_format format) {
    return describe(format).stored_bits;
}

std::size_t bytes_per_row(Pixel_format format, std::size_t width) {
    return product("width", width, stored_bits_of(format)) / 8 +
           (width * stored_bits_of(format) % 8 != 0 ? 1 : 0);
}

std::size_t bytes_per_frame(
    Pixel_format format, std::size_t height, std::size_t width, std::size_t stride) {
    std::size_t const step = checked_stride(format, width, stride);
    if (height == 0) {
        return 0;
    }
    // The last row's gap is no part of the frame, so the sum stays below the product.
    return product("height", height, step) - step + bytes_per_row(format, width);
}

void unpack_row(
    Pixel_format format, std::span<std::byte const> row, std::span<std::uint16_t> samples,
    std::size_t first) {
    if (samples.empty()) {
        return;
    }
    check_row_bytes(format, first + samples.size(), row.size());
    // Groups begin at whole bytes in every format; what is wanted may begin within one.
    std::size_t const bytes_per_group = samples_per_group * stored_bits_of(format) / 8;
    std::byte const* group = row.data() + first / samples_per_group * bytes_per_group;
    std::size_t const before = first % samples_per_group;
    if (before != 0) {
        std::array<std::uint16_t, samples_per_group> started;
        std::size_t const end = std::min(before + samples.size(), samples_per_group);
        unpack_checked(format, group, std::span{started}.first(end));
        std::copy(started.begin() + before, started.begin() + end, samples.begin());
        samples = samples.subspan(end - before);
        group += bytes_per_group;
    }
    unpack_checked(format, group, samples);
}

void unpack_frame(
    Pixel_format format, std::span<std::byte const> frame, std::size_t width,
    std::span<std::uint16_t> samples, std::size_t stride) {
    std::size_t const height = check_frame(format, frame.size(), width, samples.size(), stride);
    std::size_t const step = checked_stride(format, width, stride);
    for (std::size_t row = 0; row < height; ++row) {
        unpack_checked(format, frame.data() + row * step, samples.subspan(row * width, width));
    }
}

void pack_row(
    Pixel_format format, std::span<std::uint16_t const> samples, std::span<std::byte> row) {
    check_row_bytes(format, samples.size(), row.size());
    check_samples(format, samples);
    pack_checked(format, samples, row.data());
}

void pack_frame(
    Pixel_format format, std::span<std::uint16_t const> samples, std::size_t width,
    std::span<std::byte> frame, std::size_t stride) {
    std::size_t const height = check_frame(format, frame.size(), width, samples.size(), stride);
    std::size_t const step = checked_stride(format, width, stride);
    check_samples(format, samples);
    for (std::size_t row = 0; row < height; ++row) {
        pack_checked(format, samples.subspan(row * width, width), frame.data() + row * step);
    }
}

} // namespace veldrane_mrv::polarization
