#include "output/stack_record.hpp"

#include "output/staged_files.hpp"
#include "terminal/failure.hpp"

#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <limits>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <utility>

namespace polarize_tool {
namespace {

using Json = nlohmann::ordered_json;
namespace regular_files = veldrane_mrv::polarization::regular_files;

// Only the outermost brace stands at the beginning of a line.
constexpr std::string_view end_of_description = "\n}\n";

std::size_t description_size(std::string const& text) {
    std::size_t const end = text.find(end_of_description);
    return end == std::string::npos ? 0 : end + end_of_description.size();
}

regular_files::Descriptor open_alone(std::filesystem::path const& file) {
    refuse_existing(file, Existing_files::replace); // only regular files
    regular_files::Descriptor descriptor(
        ::open(file.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!descriptor.is_open()) {
        fail_to_write(file, errno);
    }
    // A file system without locks cannot tell.
    if (flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        throw File_failure(
            file, "another run is at work on this stack; wait for it, or choose another folder "
                  "with -o");
    }
    return descriptor;
}

} // namespace

nlohmann::ordered_json parse_description(
    std::filesystem::path const& file, std::string const& text) {
    Json json = Json::parse(text.substr(0, description_size(text)), nullptr, false);
    if (!json.is_object() || !json.contains("planes") || !json["planes"].is_array() ||
        json["planes"].empty()) {
        throw File_failure(file, "does not tell of a stack; give --overwrite to begin anew");
    }
    return json;
}

void Stack_record::create(
    std::filesystem::path const& file, Json const& description, std::vector<bool> const& done) {
    std::string text = description.dump(2) + "\n";
    for (std::size_t number = 0; number < done.size(); ++number) {
        if (done[number]) {
            text += std::to_string(number) + "\n";
        }
    }
    Staged_files files;
    files.add(file, text);
    files.publish();
}

void Stack_record::require_idle(std::filesystem::path const& file) {
    open_alone(file);
}

Stack_record::Stack_record(std::filesystem::path const& file) : file_(open_alone(file), file) {
    std::string text;
    constexpr std::size_t no_limit = std::numeric_limits<std::size_t>::max();
    if (int const error = regular_files::read_all(file_.descriptor(), no_limit, text)) {
        throw File_failure(file, "cannot be read: " + std::generic_category().message(error));
    }
    description_ = parse_description(file, text);
    std::size_t place = description_size(text);
    for (std::size_t end = 0; (end = text.find('\n', place)) != std::string::npos;
         place = end + 1) {
        std::size_t number = 0;
        char const* const last = text.data() + end;
        if (std::from_chars(text.data() + place, last, number).ptr != last) {
            throw File_failure(
                file, "has a line that is no number of a frame; give --overwrite to begin anew");
        }
        numbers_.push_back(number);
    }
    size_ = place; // a torn line is written over
}

std::vector<bool> Stack_record::done(std::size_t count) const {
    std::vector<bool> done(count);
    for (std::size_t const number : numbers_) {
        if (number < count) {
            done[number] = true;
        }
    }
    return done;
}

void Stack_record::add(std::size_t number) {
    std::string const line = std::to_string(number) + "\n";
    Bulk_file::Bytes const bytes(reinterpret_cast<std::uint8_t const*>(line.data()), line.size());
    file_.write(size_, std::array<Bulk_file::Bytes, 1>{bytes});
    size_ += line.size();
}

} // namespace polarize_tool
