#include "output/stack_record.hpp"

#include "output/staged_files.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"

#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <limits>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

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

Bulk_file::Bytes bytes_of(std::string const& text) {
    return {reinterpret_cast<std::uint8_t const*>(text.data()), text.size()};
}

// The run that had it open before may have removed it, or yet another made a new one.
bool bears(regular_files::Descriptor const& descriptor, std::filesystem::path const& file) {
    struct stat open = {};
    struct stat named = {};
    return fstat(descriptor.get(), &open) == 0 && lstat(file.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

regular_files::Descriptor open_alone(std::filesystem::path const& file) {
    constexpr int how = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    for (;;) {
        throw_if_interrupted();
        refuse_existing(file, Existing_files::replace); // only regular files
        regular_files::Descriptor descriptor(::open(file.c_str(), how, 0666));
        if (!descriptor.is_open()) {
            fail_to_write(file, errno);
        }
        // A file system without locks cannot tell.
        if (flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            throw File_failure(
                file, "another run is at work on this stack; wait for it, or choose another "
                      "folder with -o");
        }
        if (bears(descriptor, file)) {
            return descriptor;
        }
    }
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

Stack_record::Stack_record(std::filesystem::path const& file)
    : name_{file}, file_(open_alone(file), file) {
    constexpr std::size_t no_limit = std::numeric_limits<std::size_t>::max();
    if (int const error = regular_files::read_all(file_.descriptor(), no_limit, text_)) {
        throw File_failure(file, "cannot be read: " + std::generic_category().message(error));
    }
    // Of a run that was killed before its first frame, or made just now.
    if (description_size(text_) == 0) {
        text_.clear();
    }
}

Json Stack_record::description() const {
    return parse_description(name_, text_);
}

std::vector<bool> Stack_record::done(std::size_t count) {
    std::vector<bool> done(count);
    std::size_t place = description_size(text_);
    for (std::size_t end = 0; (end = text_.find('\n', place)) != std::string::npos;
         place = end + 1) {
        std::size_t number = 0;
        char const* const last = text_.data() + end;
        auto const [behind, error] = std::from_chars(text_.data() + place, last, number);
        if (error != std::errc() || behind != last || number >= count) {
            throw File_failure(
                name_, "has a line that is no number of a frame; give --overwrite to begin anew");
        }
        done[number] = true;
    }
    size_ = place; // a torn line is written over
    return done;
}

void Stack_record::clear() {
    text_.clear();
    if (ftruncate(file_.descriptor().get(), 0) != 0) {
        fail_to_write(name_, errno);
    }
}

// The description comes last, and its own last bytes make it one: a run that is killed meanwhile
// leaves none.
void Stack_record::begin(Json const& description, std::vector<bool> const& done) {
    clear();
    std::string const text = description.dump(2) + "\n";
    size_ = text.size();
    std::string lines;
    for (std::size_t number = 0; number < done.size(); ++number) {
        if (done[number]) {
            lines += std::to_string(number) + "\n";
        }
    }
    append(lines);
    file_.write(0, std::array<Bulk_file::Bytes, 1>{bytes_of(text)});
}

void Stack_record::append(std::string const& text) {
    file_.write(size_, std::array<Bulk_file::Bytes, 1>{bytes_of(text)});
    size_ += text.size();
}

void Stack_record::add(std::size_t number) {
    append(std::to_string(number) + "\n");
}

void Stack_record::remove() const {
    unlink(name_.c_str());
}

} // namespace polarize_tool
