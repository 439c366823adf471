// One interface for every kind of source: what is known before reading, frames in order and by
// number, and what pictures of rarer kinds get.
#include "veldrane_mrv/polarization/frame_list.hpp"

#include "test_files.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"

#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <numeric>
#include <png.h>
#include <sys/resource.h>
#include <tiffio.h>
#include <zlib.h>

namespace {

using namespace veldrane_mrv::polarization;
using Samples = std::vector<std::uint16_t>;

Samples counted(std::size_t count, std::uint16_t first = 1) {
    Samples samples(count);
    std::iota(samples.begin(), samples.end(), first);
    return samples;
}

std::string refusal(std::filesystem::path const& file) {
    try {
        read_frame(file);
    } catch (File_failure const& failure) {
        return failure.what();
    }
    return "not refused";
}

class Frame_sources : public testing::Test {
protected:
    test_files::Folder folder_;
    std::filesystem::path file_ = folder_ / "frame";
};

using Png_file = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

void write_png(
    std::filesystem::path const& file, std::size_t width, int depth, int colour, int interlace,
    std::vector<std::uint8_t> bytes) {
    Png_file const stream(std::fopen(file.c_str(), "wb"), &std::fclose);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    std::size_t const row_bytes = bytes.size() / 3;
    png_init_io(png, stream.get());
    png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_IHDR(
        png, info, static_cast<png_uint_32>(width), 3, depth, colour, interlace,
        PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (colour == PNG_COLOR_TYPE_PALETTE) {
        std::vector<png_color> const palette(256);
        png_set_PLTE(png, info, palette.data(), 256);
    }
    std::vector<png_bytep> rows = {
        bytes.data(), bytes.data() + row_bytes, bytes.data() + 2 * row_bytes};
    png_set_rows(png, info, rows.data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    png_destroy_write_struct(&png, &info);
}

struct Tiff_fields {
    std::uint32_t width;
    std::uint32_t height;
    std::uint16_t bits;
    std::uint16_t samples_per_pixel;
    std::uint16_t format;
};

std::unique_ptr<TIFF, decltype(&TIFFClose)> new_tiff(
    std::filesystem::path const& file, Tiff_fields const& fields) {
    std::unique_ptr<TIFF, decltype(&TIFFClose)> tiff(TIFFOpen(file.c_str(), "w"), &TIFFClose);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, fields.width);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, fields.height);
    TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, int{fields.bits});
    TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, int{fields.samples_per_pixel});
    TIFFSetField(tiff.get(), TIFFTAG_SAMPLEFORMAT, int{fields.format});
    TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(
        tiff.get(), TIFFTAG_PHOTOMETRIC,
        fields.samples_per_pixel == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(tiff.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
    return tiff;
}

// 40 x 37 pixels in tiles of 16 x 32: the last of a row and of a column are cut.
template <class Sample>
Samples write_tiled(std::filesystem::path const& file) {
    constexpr std::size_t width = 40;
    constexpr std::size_t height = 37;
    Samples samples = counted(width * height);
    for (std::uint16_t& sample : samples) {
        sample = static_cast<Sample>(sample);
    }
    auto const tiff = new_tiff(file, {width, height, 8 * sizeof(Sample), 1, SAMPLEFORMAT_UINT});
    TIFFSetField(tiff.get(), TIFFTAG_TILEWIDTH, 16);
    TIFFSetField(tiff.get(), TIFFTAG_TILELENGTH, 32);
    for (std::size_t row = 0; row < height; row += 32) {
        for (std::size_t column = 0; column < width; column += 16) {
            std::vector<Sample> tile(16 * 32);
            for (std::size_t place = 0; place < tile.size(); ++place) {
                std::size_t const y = row + place / 16;
                std::size_t const x = column + place % 16;
                tile[place] =
                    y < height && x < width ? static_cast<Sample>(samples[y * width + x]) : 0;
            }
            EXPECT_GT(
                TIFFWriteTile(
                    tiff.get(), tile.data(), static_cast<std::uint32_t>(column),
                    static_cast<std::uint32_t>(row), 0, 0),
                0);
        }
    }
    return samples;
}

TEST_F(Frame_sources, a_tiff_in_tiles_is_read) {
    Samples const narrow = write_tiled<std::uint8_t>(file_);
    EXPECT_EQ(read_frame(file_).samples, narrow);
    Samples const wide = write_tiled<std::uint16_t>(file_);
    EXPECT_EQ(read_frame(file_).samples, wide);
}

TEST_F(Frame_sources, an_interlaced_png_is_read) {
    std::vector<std::uint8_t> bytes(3 * 30);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    write_png(file_, 30, 8, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_ADAM7, bytes);
    EXPECT_EQ(read_frame(file_).samples, Samples(bytes.begin(), bytes.end()));
    write_png(file_, 15, 16, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_ADAM7, bytes);
    EXPECT_EQ(read_frame(file_).samples[44], 89U << 8 | 90U);
}

TEST_F(Frame_sources, pictures_that_are_no_frames_get_one_clear_line) {
    std::string const colour = "a colour image; a raw frame has one grey sample per pixel";
    std::string const kind = "samples are not unsigned numbers of 8 or 16 bits";
    auto const expect = [this](std::string const& words) {
        std::string const line = refusal(file_);
        EXPECT_NE(line.find(words), std::string::npos) << line;
    };
    std::vector<std::uint8_t> const bytes(3 * 32 * 4);
    write_png(file_, 128, 8, PNG_COLOR_TYPE_PALETTE, PNG_INTERLACE_NONE, bytes);
    expect(colour);
    write_png(file_, 64, 8, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_INTERLACE_NONE, bytes);
    expect(colour);
    write_png(file_, 128 * 8, 1, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, bytes);
    expect(kind);
    auto const tiff_of = [&](Tiff_fields const& fields) {
        auto const tiff = new_tiff(file_, fields);
        std::vector<std::uint8_t> row(fields.width * fields.bits / 8);
        for (std::uint16_t plane = 0; plane < fields.samples_per_pixel; ++plane) {
            for (std::uint32_t line = 0; line < fields.height; ++line) {
                TIFFWriteScanline(tiff.get(), row.data(), line, plane);
            }
        }
    };
    tiff_of({16, 16, 8, 3, SAMPLEFORMAT_UINT});
    expect(colour);
    tiff_of({16, 16, 32, 1, SAMPLEFORMAT_IEEEFP});
    expect(kind);
    tiff_of({16, 16, 1, 1, SAMPLEFORMAT_UINT});
    expect(kind);
}

long most_megabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

// Whole but for the size that they promise: 900 million pixels in some hundred bytes.
TEST_F(Frame_sources, a_size_that_no_such_file_can_hold_takes_no_memory) {
    long const before = most_megabytes();
    write_png(
        file_, 16, 8, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, std::vector<std::uint8_t>(3 * 16));
    std::vector<std::uint8_t> png = test_files::read(file_);
    for (std::size_t const place : {16U, 20U}) {
        png[place + 2] = 0x75;
        png[place + 3] = 0x30;
    }
    std::uint32_t const check =
        static_cast<std::uint32_t>(crc32(crc32(0, nullptr, 0), png.data() + 12, 17));
    for (std::size_t byte = 0; byte < 4; ++byte) {
        png[29 + byte] = static_cast<std::uint8_t>(check >> (24 - 8 * byte));
    }
    test_files::write(file_, png);
    EXPECT_NE(refusal(file_).find("damaged or cut short"), std::string::npos);
    {
        auto const tiff = new_tiff(file_, {30000, 30000, 8, 1, SAMPLEFORMAT_UINT});
        TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, 30000);
        std::vector<std::uint8_t> row(30000);
        TIFFWriteScanline(tiff.get(), row.data(), 0, 0);
    }
    EXPECT_NE(refusal(file_).find("damaged or cut short"), std::string::npos);
    long const taken = most_megabytes() - before;
    std::cout << taken << " MB taken\n";
    EXPECT_LT(taken, 100);
}

std::string big_endian(std::size_t number) {
    std::string bytes;
    for (int const shift : {24, 16, 8, 0}) {
        bytes += static_cast<char>((number >> shift) & 0xFFU);
    }
    return bytes;
}

// Each unpacks to almost the 8 MB that libpng lets a chunk have.
TEST_F(Frame_sources, texts_in_a_png_take_no_memory) {
    long const before = most_megabytes();
    write_png(
        file_, 16, 8, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, std::vector<std::uint8_t>(3 * 16));
    std::vector<std::uint8_t> png = test_files::read(file_);
    std::string chunk = "zTXtword";
    chunk += std::string(2, '\0'); // the word's end, the kind of compression
    uLongf length = compressBound(7'900'000);
    std::vector<Bytef> packed(length);
    std::vector<Bytef> const text(7'900'000, 'a');
    ASSERT_EQ(compress(packed.data(), &length, text.data(), text.size()), Z_OK);
    chunk.append(reinterpret_cast<char const*>(packed.data()), length);
    std::uint32_t const check = static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<Bytef const*>(chunk.data()), static_cast<uInt>(chunk.size())));
    std::string const whole = big_endian(chunk.size() - 4) + chunk + big_endian(check);
    for (int count = 0; count < 30; ++count) {
        png.insert(png.begin() + 33, whole.begin(), whole.end());
    }
    test_files::write(file_, png);
    EXPECT_EQ(read_frame(file_).samples.size(), 3U * 16);
    long const taken = most_megabytes() - before;
    std::cout << taken << " MB taken\n";
    EXPECT_LT(taken, 100);
}

TEST_F(Frame_sources, a_png_of_more_than_a_million_columns_is_read) {
    constexpr std::size_t width = 1'000'002;
    write_png(
        file_, width, 8, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
        std::vector<std::uint8_t>(3 * width, 7));
    EXPECT_EQ(read_frame(file_).samples, Samples(3 * width, 7));
}

TEST_F(Frame_sources, a_comment_may_follow_the_letters_of_a_pgm) {
    std::string const pgm = "P5#made by hand\n2 1\n255\n\x05\x06";
    test_files::write(file_, pgm);
    EXPECT_EQ(read_frame(file_).samples, (Samples{5, 6}));
}

void write_pictures(std::filesystem::path const& file, std::size_t count) {
    std::unique_ptr<TIFF, decltype(&TIFFClose)> const tiff(TIFFOpen(file.c_str(), "w"), &TIFFClose);
    for (std::size_t picture = 0; picture < count; ++picture) {
        Samples const row(512, static_cast<std::uint16_t>(picture + 1));
        TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, 512);
        TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, 64);
        TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 16);
        TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        for (std::uint32_t line = 0; line < 64; ++line) {
            Samples written = row;
            TIFFWriteScanline(tiff.get(), written.data(), line, 0);
        }
        TIFFWriteDirectory(tiff.get());
    }
}

// Were it mapped, the process would end by a signal.
TEST_F(Frame_sources, a_file_that_becomes_shorter_fails_its_frames) {
    write_pictures(file_, 4);
    std::unique_ptr<Frame_source> const source = open_frames(file_);
    ASSERT_EQ(source->count(), 4U);
    Frame_slot slot;
    source->read(1, slot);
    EXPECT_EQ(slot.frame().samples, Samples(64 * 512, 2));
    std::filesystem::resize_file(file_, 5000);
    EXPECT_THROW(source->read(2, slot), File_failure);
}

unsigned calls_of_the_application = 0;

TEST_F(Frame_sources, an_application_keeps_its_own_handler_of_libtiff) {
    write_pictures(file_, 3);
    auto const own = [](char const*, char const*, va_list) { ++calls_of_the_application; };
    TIFFErrorHandler const before = TIFFSetErrorHandler(own);
    std::filesystem::resize_file(file_, std::filesystem::file_size(file_) - 100);
    std::unique_ptr<Frame_source> const source = open_frames(file_);
    EXPECT_EQ(source->failures().size(), 1U);
    EXPECT_EQ(TIFFSetErrorHandler(before), static_cast<TIFFErrorHandler>(own));
    EXPECT_EQ(calls_of_the_application, 0U);
}

TEST_F(Frame_sources, bare_samples_tell_their_shape_and_may_lack_the_last_padding) {
    Raw_layout const layout = make_raw_layout("Mono16", 3, 2, 5, 10);
    std::string bytes(5 + 2 * 20 - 4, 'x');
    Samples const second = {1, 2, 3, 4, 5, 6};
    std::memcpy(bytes.data() + 25, second.data(), 6);
    std::memcpy(bytes.data() + 35, second.data() + 3, 6);
    test_files::write(file_, bytes);
    auto const source = open_frames(file_, layout);
    EXPECT_EQ(source->name(), file_.string());
    EXPECT_EQ(source->count(), 2U);
    ASSERT_TRUE(source->shape());
    EXPECT_EQ(source->shape()->width, 3U);
    EXPECT_EQ(source->shape()->height, 2U);
    Frame_slot slot;
    source->read(1, slot);
    EXPECT_EQ(slot.frame().samples, second);
    EXPECT_EQ(slot.place().name(), file_.string() + ", frame 1");
    EXPECT_FALSE(source->read_next(slot));
    EXPECT_THROW(source->read(2, slot), Argument_error);
    bytes.pop_back();
    test_files::write(file_, bytes);
    EXPECT_THROW(open_frames(file_, layout), File_failure);
}

TEST_F(Frame_sources, a_list_goes_on_behind_a_frame_that_cannot_be_read) {
    test_files::write(folder_ / "a1.pgm", "P5 2 1 255 \1\2");
    test_files::write(folder_ / "a2.png", "no picture");
    test_files::write(folder_ / "a10.pgm", "P5 1 1 999 \1\2");
    test_files::write(folder_ / "notes.txt", "no frame");
    Found_frames const found = find_frames({folder_.path().string()}, std::nullopt);
    Frame_list list(found, std::nullopt);
    EXPECT_EQ(list.count(), 3U);
    EXPECT_FALSE(list.shape());
    Frame_slot slot;
    EXPECT_THROW(slot.frame(), std::logic_error);
    ASSERT_TRUE(list.read_next(slot));
    EXPECT_EQ(slot.frame().samples, (Samples{1, 2}));
    EXPECT_EQ(slot.sample_bits(), 8U);
    ASSERT_TRUE(list.read_next(slot));
    EXPECT_THROW(slot.frame(), File_failure);
    EXPECT_THROW(slot.frame(), File_failure);
    ASSERT_TRUE(list.read_next(slot));
    EXPECT_EQ(slot.frame().samples, (Samples{258}));
    EXPECT_EQ(slot.sample_bits(), 16U);
    EXPECT_EQ(slot.place().stem(), "a10");
    EXPECT_FALSE(list.read_next(slot));
}

TEST_F(Frame_sources, what_is_called_between_files_can_end_the_search) {
    struct Stop {};
    int calls = 0;
    EXPECT_THROW(
        find_frames(
            {"a.png", "b.png", "c.png"}, std::nullopt, {},
            [&calls] {
                if (++calls == 2) {
                    throw Stop{};
                }
            }),
        Stop);
    EXPECT_EQ(calls, 2);
}

} // namespace
