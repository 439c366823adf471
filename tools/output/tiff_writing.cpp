#include "output/tiff_writing.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <tiffio.h>

namespace polarize_tool {
namespace {

using polarization::Element_type;

/// The file as libtiff writes it, but for the samples: those pass by here, and only their place is
/// noted.
class Head_stream {
public:
    explicit Head_stream(Array_view const& array) : samples_{array.bytes()} {}

    /// libtiff would print what it complains of.
    TIFF* open();
    std::vector<std::uint8_t> const& head() const { return head_; }

private:
    static Head_stream& of(thandle_t handle) { return *static_cast<Head_stream*>(handle); }
    static tmsize_t read(thandle_t handle, void* target, tmsize_t count);
    static tmsize_t write(thandle_t handle, void* bytes, tmsize_t count) noexcept;
    static toff_t seek(thandle_t handle, toff_t offset, int from);
    static int close(thandle_t) { return 0; }
    static toff_t size(thandle_t handle) { return of(handle).end_; }
    static int pass_over(TIFF*, void*, char const*, char const*, va_list) { return 1; }

    std::span<std::uint8_t const> samples_;
    std::vector<std::uint8_t> head_;
    std::size_t at_ = 0;
    std::size_t end_ = 0;
};

TIFF* Head_stream::open() {
    std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> const options(
        TIFFOpenOptionsAlloc(), &TIFFOpenOptionsFree);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), pass_over, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), pass_over, nullptr);
    return TIFFClientOpenExt(
        "memory", "wl", this, &Head_stream::read, &Head_stream::write, &Head_stream::seek,
        &Head_stream::close, &Head_stream::size, nullptr, nullptr, options.get());
}

tmsize_t Head_stream::read(thandle_t handle, void* target, tmsize_t count) {
    Head_stream& stream = of(handle);
    std::size_t const start = std::min(stream.at_, stream.head_.size());
    std::size_t const done = std::min(static_cast<std::size_t>(count), stream.head_.size() - start);
    std::copy_n(stream.head_.data() + start, done, static_cast<std::uint8_t*>(target));
    stream.at_ += done;
    return static_cast<tmsize_t>(done);
}

tmsize_t Head_stream::write(thandle_t handle, void* bytes, tmsize_t count) noexcept try {
    Head_stream& stream = of(handle);
    auto const* const first = static_cast<std::uint8_t const*>(bytes);
    std::size_t const end = stream.at_ + static_cast<std::size_t>(count);
    if (first != stream.samples_.data()) {
        stream.head_.resize(std::max(stream.head_.size(), end));
        std::copy_n(first, count, stream.head_.data() + stream.at_);
    }
    stream.at_ = end;
    stream.end_ = std::max(stream.end_, end);
    return count;
} catch (std::bad_alloc const&) {
    return -1; // libtiff knows no exceptions
}

toff_t Head_stream::seek(thandle_t handle, toff_t offset, int from) {
    Head_stream& stream = of(handle);
    std::size_t const base = from == SEEK_CUR ? stream.at_ : from == SEEK_END ? stream.end_ : 0;
    stream.at_ = base + offset; // offsets back wrap around, as libtiff means them
    return stream.at_;
}

bool set_fields(TIFF* file, Array_view const& array) {
    constexpr std::array<unsigned, 4> bits = {16, 32, 32, 8};
    constexpr std::array<unsigned, 4> formats = {
        SAMPLEFORMAT_UINT, SAMPLEFORMAT_INT, SAMPLEFORMAT_IEEEFP, SAMPLEFORMAT_UINT};
    auto const kind = static_cast<std::size_t>(array.kind());
    auto const height = static_cast<std::uint32_t>(array.height());
    std::vector<std::uint16_t> const unspecified(array.channels() - 1, EXTRASAMPLE_UNSPECIFIED);
    return TIFFSetField(file, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(array.width())) &&
           TIFFSetField(file, TIFFTAG_IMAGELENGTH, height) &&
           TIFFSetField(file, TIFFTAG_ROWSPERSTRIP, height) &&
           TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, bits[kind]) &&
           TIFFSetField(file, TIFFTAG_SAMPLEFORMAT, formats[kind]) &&
           TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, static_cast<unsigned>(array.channels())) &&
           TIFFSetField(file, TIFFTAG_COMPRESSION, COMPRESSION_NONE) &&
           TIFFSetField(file, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK) &&
           TIFFSetField(file, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
           (unspecified.empty() ||
            TIFFSetField(
                file, TIFFTAG_EXTRASAMPLES, static_cast<unsigned>(unspecified.size()),
                unspecified.data()));
}

} // namespace

// The fields are written before the samples, whose place is filled in afterwards: in the usual
// order they would stand behind them.
std::vector<std::uint8_t> tiff_head(Array_view const& array) {
    constexpr std::size_t largest_head = 512;
    if (array.bytes().size() > std::numeric_limits<std::uint32_t>::max() - largest_head) {
        throw std::runtime_error("the plane is too large for a TIFF file; use --format npy");
    }
    Head_stream stream(array);
    std::unique_ptr<TIFF, decltype(&TIFFClose)> const file(stream.open(), &TIFFClose);
    auto const size = static_cast<tmsize_t>(array.bytes().size());
    auto* const samples = const_cast<std::uint8_t*>(array.bytes().data());
    bool const is_written = file && set_fields(file.get(), array) &&
                            TIFFDeferStrileArrayWriting(file.get()) &&
                            TIFFWriteCheck(file.get(), 0, "tiff_head") &&
                            TIFFWriteDirectory(file.get()) && TIFFSetDirectory(file.get(), 0) &&
                            TIFFWriteRawStrip(file.get(), 0, samples, size) == size &&
                            TIFFForceStrileArrayWriting(file.get());
    if (!is_written) {
        throw std::bad_alloc(); // in memory nothing else can fail
    }
    return stream.head();
}

} // namespace polarize_tool
