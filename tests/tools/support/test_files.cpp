#include "test_files.hpp"

#include "output/array_writing.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

namespace test_files {

namespace fs = std::filesystem;

Folder::Folder() {
    std::string name = (fs::temp_directory_path() / "polarize-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    path_ = name;
}

Folder::~Folder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void write(fs::path const& file, std::span<std::uint8_t const> bytes) {
    std::ofstream stream(file, std::ios::binary);
    stream.write(
        reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void write(fs::path const& file, std::string const& text) {
    std::ofstream(file, std::ios::binary) << text;
}

std::vector<std::uint8_t> read(fs::path const& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot open " + file.string());
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<std::string> names_in(fs::path const& folder) {
    std::vector<std::string> names;
    for (auto const& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::uint8_t> encoded(
    cv::Mat const& image, std::string const& ending, std::vector<int> const& parameters) {
    std::vector<std::uint8_t> bytes;
    if (!cv::imencode(ending, image, bytes, parameters)) {
        throw std::runtime_error("cannot encode " + ending);
    }
    return bytes;
}

namespace {

std::vector<std::uint8_t> whole_tiff(polarize_tool::Array_view const& array) {
    auto const encoded = polarize_tool::encode(array, polarize_tool::File_format::tiff);
    std::vector<std::uint8_t> bytes = encoded.head;
    bytes.insert(bytes.end(), array.bytes().begin(), array.bytes().end());
    return bytes;
}

} // namespace

std::vector<std::uint8_t> tool_tiff(
    std::span<std::uint16_t const> samples, std::size_t width, std::size_t height,
    std::size_t channels) {
    return whole_tiff({samples, width, height, channels});
}

std::vector<std::uint8_t> tool_tiff(
    std::span<float const> samples, std::size_t width, std::size_t height, std::size_t channels) {
    return whole_tiff({samples, width, height, channels});
}

cv::Mat pattern(int width, int height, int type) {
    cv::Mat image(height, width, type);
    for (int row = 0; row < height; ++row) {
        for (int column = 0; column < width; ++column) {
            int const value = 7919 * row + 104729 * column + row * column;
            if (type == CV_8UC1) {
                image.at<std::uint8_t>(row, column) = static_cast<std::uint8_t>(value);
            } else {
                image.at<std::uint16_t>(row, column) = static_cast<std::uint16_t>(value);
            }
        }
    }
    return image;
}

Tiff read_tiff(fs::path const& file) {
    std::vector<std::uint8_t> const bytes = read(file);
    auto const number = [&bytes](std::size_t at, std::size_t size) {
        std::uint32_t value = 0;
        std::memcpy(&value, &bytes.at(at), std::min(size, bytes.size() - at));
        return std::size_t{value};
    };
    std::map<std::size_t, std::size_t> values;
    std::size_t const directory = number(4, 4);
    for (std::size_t entry = 0; entry < number(directory, 2); ++entry) {
        std::size_t const at = directory + 2 + 12 * entry;
        std::size_t const size = number(at + 2, 2) == 3 ? 2 : 4;
        // More than four bytes of values lie elsewhere; the samples of a pixel are all alike.
        bool const is_elsewhere = number(at + 4, 4) * size > 4;
        values[number(at, 2)] = number(is_elsewhere ? number(at + 8, 4) : at + 8, size);
    }
    bool const is_float = values.at(339) == 3;
    std::size_t const sample_bytes = values.at(258) / 8;
    if (sample_bytes > (is_float ? sizeof(float) : sizeof(std::uint16_t))) {
        throw std::runtime_error("samples of " + file.string() + " have too many bytes");
    }
    Tiff tiff{values.at(256), values.at(257), values.at(277), {}};
    std::size_t const count = tiff.width * tiff.height * tiff.channels;
    if (values.at(279) != count * sample_bytes || values.at(273) + values.at(279) > bytes.size()) {
        throw std::runtime_error("strip of " + file.string() + " does not fit");
    }
    for (std::size_t index = 0; index < count; ++index) {
        std::uint8_t const* const place = &bytes[values.at(273) + index * sample_bytes];
        if (is_float) {
            float value = 0;
            std::memcpy(&value, place, sizeof value);
            tiff.samples.push_back(static_cast<double>(value));
        } else {
            std::uint16_t value = 0; // of 8 bits the lower half, in little-endian order
            std::memcpy(&value, place, sample_bytes);
            tiff.samples.push_back(value);
        }
    }
    return tiff;
}

} // namespace test_files
