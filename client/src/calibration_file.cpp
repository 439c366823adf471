#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace veldrane_mrv::polarization {
namespace {

// A calibration of a thousand frames takes about 100 KB.
constexpr std::size_t largest_file = std::size_t{64} << 20;

std::string message(
    std::filesystem::path const& file, std::size_t line, std::string const& key,
    std::string const& problem, std::string const& remedy) {
    return file.string() + (line == 0 ? "" : ", line " + std::to_string(line)) +
           (key.empty() ? "" : ", " + key) + ": " + problem + "; " + remedy;
}

[[noreturn]] void refuse_file(
    std::filesystem::path const& file, std::string const& action, int error,
    std::string const& remedy) {
    throw File_error(file, 0, "", action + ": " + std::generic_category().message(error), remedy);
}

class Descriptor {
public:
    explicit Descriptor(int number) : number_{number} {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    int get() const { return number_; }
    int close() {
        int const number = number_;
        number_ = -1;
        return ::close(number);
    }

private:
    int number_;
};

// 0, or the error's number.
int write_all(int descriptor, std::string_view text) {
    while (!text.empty()) {
        ssize_t const written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return errno;
        }
        text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return 0;
}

// Beside the final file, so that renaming is one step. Removed unless it has been renamed.
class Temporary_file {
public:
    explicit Temporary_file(std::filesystem::path const& final_file)
        : name_{unused_name(final_file)},
          descriptor_{::open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)},
          error_{descriptor_.get() < 0 ? errno : 0}, there_{error_ == 0} {}
    Temporary_file(Temporary_file const&) = delete;
    Temporary_file& operator=(Temporary_file const&) = delete;
    ~Temporary_file() {
        if (there_) {
            ::unlink(name_.c_str());
        }
    }

    // 0, or the error's number.
    int write_and_rename(std::string_view text, std::filesystem::path const& final_file) {
        if (error_ != 0) {
            return error_;
        }
        if (int const error = write_all(descriptor_.get(), text)) {
            return error;
        }
        if (::fsync(descriptor_.get()) != 0 || descriptor_.close() != 0 ||
            ::rename(name_.c_str(), final_file.c_str()) != 0) {
            return errno;
        }
        there_ = false;
        return 0;
    }

private:
    static std::filesystem::path unused_name(std::filesystem::path const& final_file) {
        static std::atomic<unsigned> count{0};
        return final_file.parent_path() / (".calibration-" + std::to_string(::getpid()) + "-" +
                                           std::to_string(count++) + ".tmp");
    }

    std::filesystem::path name_;
    Descriptor descriptor_;
    int error_;
    bool there_;
};

std::string read_file(std::filesystem::path const& file) {
    std::string const remedy = "give a calibration file that can be read";
    Descriptor const descriptor{::open(file.c_str(), O_RDONLY | O_CLOEXEC)};
    if (descriptor.get() < 0) {
        refuse_file(file, "cannot open", errno, remedy);
    }
    std::string text;
    std::string piece(65536, '\0');
    for (;;) {
        ssize_t const count = ::read(descriptor.get(), piece.data(), piece.size());
        if (count < 0 && errno != EINTR) {
            refuse_file(file, "cannot read", errno, remedy);
        }
        if (count == 0) {
            return text;
        }
        text.append(piece, 0, count < 0 ? 0 : static_cast<std::size_t>(count));
        if (text.size() > largest_file) {
            throw File_error(file, 0, "", "this is too large for a calibration", remedy);
        }
    }
}

} // namespace

File_error::File_error(
    std::filesystem::path const& file, std::size_t line, std::string const& key,
    std::string const& problem, std::string const& remedy)
    : std::runtime_error{message(file, line, key, problem, remedy)}, file_{file}, line_{line},
      key_{key}, remedy_{remedy} {}

void save(Calibration const& calibration, std::filesystem::path const& file) {
    std::string const text = calibration_to_json(calibration);
    Temporary_file temporary{file};
    if (int const error = temporary.write_and_rename(text, file)) {
        refuse_file(file, "cannot write", error, "give a place that can be written to");
    }
}

Calibration load_calibration(std::filesystem::path const& file) {
    return calibration_from_json(read_file(file), file);
}

} // namespace veldrane_mrv::polarization
