// TIFF files, of one picture or many, in strips or tiles. Other readers would turn and invert
// samples where the file says so.
#include "source_kind.hpp"

#include "veldrane_mrv/polarization/memory_watch.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <tiffio.h>
#include <utility>
#include <vector>

namespace veldrane_mrv::polarization::recordings {
namespace {

constexpr std::array<std::string_view, 2> endings = {".tif", ".tiff"};

bool begins_like_tiff(std::string_view bytes) {
    using namespace std::string_view_literals;
    return bytes.starts_with("II*\0"sv) || bytes.starts_with("MM\0*"sv) ||
           bytes.starts_with("II+\0"sv) || bytes.starts_with("MM\0+"sv);
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
    return compression_problem(field<std::uint16_t>(image, TIFFTAG_COMPRESSION));
}

bool read_rows(TIFF* image, unsigned sample_bits, Frame& frame) {
    std::vector<std::uint8_t> bytes(sample_bits == 8 ? frame.width : 0);
    for (std::size_t row = 0; row < frame.height; ++row) {
        std::uint16_t* const samples = frame.samples.data() + row * frame.width;
        void* const target = sample_bits == 8 ? static_cast<void*>(bytes.data()) : samples;
        if (TIFFReadScanline(image, target, static_cast<std::uint32_t>(row)) < 0) {
            return false;
        }
        std::copy(bytes.begin(), bytes.end(), samples);
    }
    return true;
}

struct Tile {
    std::size_t width;
    std::size_t height;
};

// The last tiles of a row and of a column reach beyond the picture.
template <class Stored>
bool read_tiles(TIFF* image, Tile const& tile, Frame& frame) {
    std::vector<Stored> stored(tile.width * tile.height);
    for (std::size_t row = 0; row < frame.height; row += tile.height) {
        for (std::size_t column = 0; column < frame.width; column += tile.width) {
            if (TIFFReadTile(
                    image, stored.data(), static_cast<std::uint32_t>(column),
                    static_cast<std::uint32_t>(row), 0, 0) < 0) {
                return false;
            }
            std::size_t const rows = std::min(tile.height, frame.height - row);
            std::size_t const columns = std::min(tile.width, frame.width - column);
            for (std::size_t line = 0; line < rows; ++line) {
                std::copy_n(
                    stored.data() + line * tile.width, columns,
                    frame.samples.data() + (row + line) * frame.width + column);
            }
        }
    }
    return true;
}

/// Whether a file of this size can hold so many bytes of samples: a few bytes that promise a huge
/// picture are no reason to take memory for it. The factors are what the formats allow at most,
/// rounded up.
bool can_hold(TIFF* image, std::size_t bytes) {
    std::uint64_t const file_bytes = TIFFGetSizeProc(image)(TIFFClientdata(image));
    std::uint64_t ratio = std::uint64_t{1} << 17; // a block of one value in Zstandard
    switch (field<std::uint16_t>(image, TIFFTAG_COMPRESSION)) {
    case COMPRESSION_NONE:
        ratio = 1;
        break;
    case COMPRESSION_PACKBITS:
        ratio = 64;
        break;
    case COMPRESSION_LZW:
    case COMPRESSION_DEFLATE:
    case COMPRESSION_ADOBE_DEFLATE:
        ratio = 2048;
        break;
    default:
        break;
    }
    return bytes / ratio <= file_bytes;
}

std::string read_picture(TIFF* image, Frame& frame, unsigned& sample_bits) {
    if (std::string problem = layout_problem(image); !problem.empty()) {
        return problem;
    }
    sample_bits = field<std::uint16_t>(image, TIFFTAG_BITSPERSAMPLE);
    frame.width = field<std::uint32_t>(image, TIFFTAG_IMAGEWIDTH);
    frame.height = field<std::uint32_t>(image, TIFFTAG_IMAGELENGTH);
    if (std::string problem = size_problem(frame.width, frame.height); !problem.empty()) {
        return problem;
    }
    bool const is_tiled = TIFFIsTiled(image) != 0;
    Tile const tile{
        is_tiled ? field<std::uint32_t>(image, TIFFTAG_TILEWIDTH) : 1,
        is_tiled ? field<std::uint32_t>(image, TIFFTAG_TILELENGTH) : 1};
    std::size_t const pixels = frame.width * frame.height;
    if (!size_problem(tile.width, tile.height).empty() ||
        !can_hold(image, std::max(pixels, tile.width * tile.height) * (sample_bits / 8))) {
        return damaged_image;
    }
    frame.samples.resize(pixels);
    Memory_watch const memory;
    bool const is_read = !is_tiled          ? read_rows(image, sample_bits, frame)
                         : sample_bits == 8 ? read_tiles<std::uint8_t>(image, tile, frame)
                                            : read_tiles<std::uint16_t>(image, tile, frame);
    if (!is_read) {
        memory.throw_if_refused();
        return damaged_image;
    }
    return {};
}

using Tiff_pointer = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

// libtiff prints its complaints unless told otherwise; the caller's line says all that a user can
// act on. Whether there was one tells a broken list of pictures from one that ends. Told for each
// file: the application may have handlers of its own.
int count_error(TIFF*, void* count, char const*, char const*, va_list) {
    ++*static_cast<unsigned*>(count);
    return 1; // no other handler is asked
}

int pass_over(TIFF*, void*, char const*, char const*, va_list) {
    return 1;
}

/// What libtiff reads, and its place in it.
class Stream {
public:
    virtual ~Stream() = default;

    /// @param errors counts what libtiff complains of, as long as the file is open
    /// @throws std::bad_alloc
    Tiff_pointer open(char const* name, unsigned& errors);

private:
    /// @return fewer bytes at the end, or where the disk fails
    virtual std::size_t read_at(
        std::uint64_t offset, void* target, std::size_t count) const noexcept = 0;
    virtual std::uint64_t size() const noexcept = 0;

    static Stream& of(thandle_t handle) { return *static_cast<Stream*>(handle); }
    static tmsize_t read(thandle_t handle, void* target, tmsize_t count);
    static tmsize_t write(thandle_t, void*, tmsize_t) { return -1; }
    static toff_t seek(thandle_t handle, toff_t offset, int from);
    static int close(thandle_t) { return 0; }
    static toff_t size_of(thandle_t handle) { return of(handle).size(); }

    std::uint64_t at_ = 0;
};

tmsize_t Stream::read(thandle_t handle, void* target, tmsize_t count) {
    Stream& stream = of(handle);
    std::size_t const done = stream.read_at(stream.at_, target, static_cast<std::size_t>(count));
    stream.at_ += done;
    return static_cast<tmsize_t>(done);
}

toff_t Stream::seek(thandle_t handle, toff_t offset, int from) {
    Stream& stream = of(handle);
    std::uint64_t const base = from == SEEK_CUR ? stream.at_ : from == SEEK_END ? stream.size() : 0;
    // Offsets back wrap around, as libtiff means them.
    stream.at_ = base + offset;
    return stream.at_;
}

Tiff_pointer Stream::open(char const* name, unsigned& errors) {
    constexpr tmsize_t room_for_other_things = 1 << 20;
    // A mapped file that becomes shorter would end the program by a signal.
    char const* const without_mapping = "rm";
    std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> const options(
        TIFFOpenOptionsAlloc(), &TIFFOpenOptionsFree);
    // A few bytes can name strips by the hundred million, for whose places libtiff makes room
    // before anybody sees the size of the picture. The largest frame's samples in one strip have to
    // fit.
    TIFFOpenOptionsSetMaxSingleMemAlloc(
        options.get(), tmsize_t{2 * largest_frame} + room_for_other_things);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), count_error, &errors);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), pass_over, nullptr);
    at_ = 0;
    Memory_watch const memory;
    Tiff_pointer image(
        TIFFClientOpenExt(
            name, without_mapping, this, &Stream::read, &Stream::write, &Stream::seek,
            &Stream::close, &Stream::size_of, nullptr, nullptr, options.get()),
        &TIFFClose);
    if (image == nullptr) {
        memory.throw_if_refused();
    }
    return image;
}

class Memory_stream : public Stream {
public:
    explicit Memory_stream(std::string_view bytes) : bytes_{bytes} {}

private:
    std::size_t read_at(
        std::uint64_t offset, void* target, std::size_t count) const noexcept override {
        std::size_t const start = std::min<std::uint64_t>(offset, bytes_.size());
        std::size_t const done = std::min(count, bytes_.size() - start);
        if (done != 0) {
            std::memcpy(target, bytes_.data() + start, done);
        }
        return done;
    }
    std::uint64_t size() const noexcept override { return bytes_.size(); }

    std::string_view bytes_;
};

class File_stream : public Stream {
public:
    explicit File_stream(Opened_file const& file) : file_{file} {}

    /// libtiff has one answer for a file that ends early and for a disk that fails.
    /// @throws File_failure once, if the system refused bytes
    void throw_if_refused() {
        if (int const error = std::exchange(error_, 0); error != 0) {
            throw File_failure(
                file_.name(), std::string("cannot be read: ") + std::strerror(error));
        }
    }

private:
    std::size_t read_at(
        std::uint64_t offset, void* target, std::size_t count) const noexcept override {
        auto const [done, error] = file_.read_into(offset, static_cast<char*>(target), count);
        error_ = error != 0 ? error : error_;
        return done;
    }
    std::uint64_t size() const noexcept override { return file_.size(); }

    Opened_file const& file_;
    mutable int error_ = 0;
};

std::string decode_tiff(std::string_view bytes, Frame& frame, unsigned& sample_bits) {
    Memory_stream stream{bytes};
    unsigned errors = 0;
    Tiff_pointer const image = stream.open("memory", errors);
    return image == nullptr ? damaged_image : read_picture(image.get(), frame, sample_bits);
}

/// The only picture of a file is read whole and then decoded; of several each is decoded at once,
/// from an open file, so that finding the next does not mean a walk through all before it.
class Tiff : public Frame_source {
public:
    explicit Tiff(Opened_file file) : file_{std::move(file)} {
        image_ = stream_.open(file_.name().c_str(), errors_);
        if (image_ == nullptr) {
            stream_.throw_if_refused();
            throw File_failure(file_.name(), damaged_image);
        }
        count_pictures();
    }

    std::string name() const override { return file_.name().string(); }
    std::optional<std::size_t> count() const override { return count_; }
    Frame_place place(std::size_t number) const override { return {file_.name(), number, count_}; }
    std::vector<std::string> failures() const override { return failures_; }

private:
    void count_pictures();
    bool find(std::size_t number);
    void fetch(std::size_t number, Fetched_frame& target) override;

    Opened_file file_;
    File_stream stream_{file_};
    unsigned errors_ = 0;
    Tiff_pointer image_{nullptr, &TIFFClose};
    std::size_t count_ = 1;
    std::vector<std::string> failures_;
    std::shared_ptr<Frame_decoder const> decoder_ = picture_decoder(decode_tiff);
};

void Tiff::count_pictures() {
    errors_ = 0;
    Memory_watch const memory;
    auto const count = static_cast<std::size_t>(TIFFNumberOfDirectories(image_.get()));
    if (errors_ != 0) {
        memory.throw_if_refused();
        stream_.throw_if_refused();
    }
    count_ = std::max<std::size_t>(count, 1);
    if (errors_ != 0 && count > 0) {
        failures_.push_back(File_failure(
                                file_.name(), "damaged or cut short behind picture " +
                                                  std::to_string(count) +
                                                  "; copy or record it again")
                                .what());
    }
}

bool Tiff::find(std::size_t number) {
    if (image_ == nullptr) {
        image_ = stream_.open(file_.name().c_str(), errors_);
    }
    if (image_ == nullptr) {
        return false;
    }
    TIFF* const image = image_.get();
    Memory_watch const memory;
    // The next picture is found at once, any other by the list from its start.
    bool const is_current = TIFFCurrentDirectory(image) == number;
    bool const is_next = std::size_t{TIFFCurrentDirectory(image)} + 1 == number;
    bool const found =
        is_current || (is_next ? TIFFReadDirectory(image) != 0
                               : TIFFSetDirectory(image, static_cast<tdir_t>(number)) != 0);
    if (!found) {
        // libtiff is left between two pictures, and would give one for another.
        image_.reset();
        memory.throw_if_refused();
    }
    return found;
}

void Tiff::fetch(std::size_t number, Fetched_frame& target) {
    if (count_ == 1) {
        file_.read(0, static_cast<std::size_t>(file_.size()), target.bytes);
        target.decoder = decoder_;
        return;
    }
    std::string const problem =
        find(number) ? read_picture(image_.get(), target.frame, target.sample_bits) : damaged_image;
    if (!problem.empty()) {
        stream_.throw_if_refused();
        throw File_failure(place(number).name(), problem);
    }
}

std::unique_ptr<Frame_source> open_tiff(Opened_file file) {
    return std::make_unique<Tiff>(std::move(file));
}

} // namespace

extern Source_kind const tiff;
constinit Source_kind const tiff{endings, false, begins_like_tiff, open_tiff};

} // namespace veldrane_mrv::polarization::recordings
