#include "veldrane_mrv/polarization/calibration_file.hpp"

#include "veldrane_mrv/polarization/regular_files.hpp"

#include <cerrno>
#include <span>
#include <system_error>
#include <unistd.h>

namespace veldrane_mrv::polarization {
namespace {

// A calibration of a thousand frames takes about 100 KB.
constexpr std::size_t largest_file = std::size_t{64} << 20;

std::string message(
    std::filesystem::path const& file, std::size_t line, std::string const& key,
    std::string const& problem, std::string const& remedy) {
    return (file.empty() ? "an empty name" : file.string()) +
           (line == 0 ? "" : ", line " + std::to_string(line)) + (key.empty() ? "" : ", " + key) +
           ": " + problem + "; " + remedy;
}

[[noreturn]] void refuse_file(
    std::filesystem::path const& file, std::string const& action, int error,
    std::string const& remedy) {
    throw File_error(file, 0, "", action + ": " + std::generic_category().message(error), remedy);
}

// Beside the final file, so that renaming is one step. Removed unless it has been renamed.
class Temporary_file {
public:
    explicit Temporary_file(std::filesystem::path const& final_file)
        : name_{regular_files::temporary_name(final_file)}, descriptor_{regular_files::create(
                                                                name_)},
          error_{descriptor_.is_open() ? 0 : errno}, there_{error_ == 0} {}
    Temporary_file(Temporary_file const&) = delete;
    Temporary_file& operator=(Temporary_file const&) = delete;
    ~Temporary_file() {
        if (there_) {
            ::unlink(name_.c_str());
        }
    }

    // 0, or the error's number.
    int write_and_rename(
        std::string const& text, std::filesystem::path const& final_file, Existing_files existing) {
        if (error_ != 0) {
            return error_;
        }
        if (int const error =
                regular_files::write_all(descriptor_, std::as_bytes(std::span{text}))) {
            return error;
        }
        if (::fsync(descriptor_.get()) != 0) {
            return errno;
        }
        if (int const error = descriptor_.close()) {
            return error;
        }
        int const error = regular_files::rename(name_, final_file, existing);
        there_ = error != 0;
        return error;
    }

private:
    std::filesystem::path name_;
    regular_files::Descriptor descriptor_;
    int error_;
    bool there_;
};

void refuse_obstacle(std::filesystem::path const& file, Existing_files existing) {
    auto const obstacle = regular_files::obstacle_at(
        file, existing, "to replace it, save with overwrite=True (in C++ Existing_files::replace)");
    if (obstacle) {
        throw File_error(file, 0, "", obstacle->problem, obstacle->remedy);
    }
}

std::string read_file(std::filesystem::path const& file) {
    std::string const remedy = "give a calibration file that can be read";
    regular_files::Input const input = regular_files::open_to_read(file);
    if (!input.problem.empty()) {
        throw File_error(file, 0, "", "cannot be read: " + input.problem, remedy);
    }
    std::string text;
    if (int const error = regular_files::read_all(input.descriptor, largest_file, text)) {
        refuse_file(file, "cannot be read", error, remedy);
    }
    if (text.size() > largest_file) {
        throw File_error(file, 0, "", "this is too large for a calibration", remedy);
    }
    return text;
}

} // namespace

File_error::File_error(
    std::filesystem::path const& file, std::size_t line, std::string const& key,
    std::string const& problem, std::string const& remedy)
    : std::runtime_error{message(file, line, key, problem, remedy)}, file_{file}, line_{line},
      key_{key}, remedy_{remedy} {}

void save(
    Calibration const& calibration, std::filesystem::path const& file, Existing_files existing) {
    std::string const text = calibration_to_json(calibration);
    refuse_obstacle(file, existing);
    regular_files::remove_leftovers(file.parent_path());
    Temporary_file temporary{file};
    if (int const error = temporary.write_and_rename(text, file, existing)) {
        refuse_obstacle(file, existing); // somebody else's file may have come in between
        refuse_file(file, "cannot be written", error, "give a place that can be written to");
    }
}

Calibration load_calibration(std::filesystem::path const& file) {
    return calibration_from_json(read_file(file), file);
}

} // namespace veldrane_mrv::polarization
