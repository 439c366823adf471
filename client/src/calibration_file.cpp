#include "veldrane_mrv/polarization/calibration_file.hpp"

#include "array_file.hpp"
#include "calibration_text.hpp"

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
    int write(std::span<std::span<std::byte const> const> parts) {
        for (auto const part : parts) {
            if (error_ == 0) {
                error_ = regular_files::write_all(descriptor_, part);
            }
        }
        if (error_ == 0 && ::fsync(descriptor_.get()) != 0) {
            error_ = errno;
        }
        return error_ != 0 ? error_ : descriptor_.close();
    }

    // 0, or the error's number.
    int rename(std::filesystem::path const& final_file, Existing_files existing) {
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

[[noreturn]] void refuse_place(std::filesystem::path const& file, int error) {
    refuse_file(file, "cannot be written", error, "give a place that can be written to");
}

regular_files::Input opened(std::filesystem::path const& file, std::string const& remedy) {
    regular_files::Input input = regular_files::open_to_read(file);
    if (!input.problem.empty()) {
        throw File_error(file, 0, "", "cannot be read: " + input.problem, remedy);
    }
    return input;
}

std::string read_file(std::filesystem::path const& file) {
    std::string const remedy = "give a calibration file that can be read";
    regular_files::Input const input = opened(file, remedy);
    std::string text;
    if (int const error = regular_files::read_all(input.descriptor, largest_file, text)) {
        refuse_file(file, "cannot be read", error, remedy);
    }
    if (text.size() > largest_file) {
        throw File_error(file, 0, "", "this is too large for a calibration", remedy);
    }
    return text;
}

Calibration with_maps(Calibration_text const& text, std::filesystem::path const& file) {
    std::filesystem::path const array = file.parent_path() / text.maps->array_file;
    std::string const remedy = "put the array file of " + file.filename().string() + " beside it";
    regular_files::Input const input = opened(array, remedy);
    Calibration_model const model = text.calibration.model;
    auto const maps = std::make_shared<Calibration_maps>(text.maps->maps);
    Size const size = maps->region.size();
    std::string const header = array_header(model, size);
    auto const planes = maps_of(model);
    std::size_t const expected =
        header.size() + planes.size() * size.width * size.height * sizeof(float);
    if (auto const bytes = static_cast<std::size_t>(input.status.st_size); bytes != expected) {
        throw File_error(
            array, 0, "",
            "the file has " + std::to_string(bytes) + " bytes, not the " +
                std::to_string(expected) + " of " + std::to_string(planes.size()) + " maps of " +
                to_string(size),
            damaged);
    }
    auto const read = [&](std::span<std::byte> bytes) {
        if (int const error = regular_files::read_exactly(input.descriptor, bytes)) {
            refuse_file(array, "cannot be read", error, damaged);
        }
    };
    std::string beginning(header.size(), '\0');
    read(std::as_writable_bytes(std::span{beginning}));
    if (beginning != header) {
        throw File_error(
            array, 0, "",
            "its header is not that of " + std::to_string(planes.size()) + " maps of " +
                to_string(size) + " in little-endian float32",
            damaged);
    }
    for (Map_description const& plane : planes) {
        auto& numbers = (*maps).*plane.numbers;
        numbers.resize(size.width * size.height);
        read(std::as_writable_bytes(std::span{numbers}));
    }
    return complete(text, maps, array);
}

Calibration from_text(std::string const& text, std::filesystem::path const& file) {
    Calibration_text const parsed = parse_calibration(text, file);
    return parsed.maps ? with_maps(parsed, file) : parsed.calibration;
}

} // namespace

File_error::File_error(
    std::filesystem::path const& file, std::size_t line, std::string const& key,
    std::string const& problem, std::string const& remedy)
    : std::runtime_error{message(file, line, key, problem, remedy)}, file_{file}, line_{line},
      key_{key}, remedy_{remedy} {}

std::vector<std::span<std::byte const>> Calibration_files::array_parts() const {
    if (!maps) {
        return {};
    }
    auto parts = array_numbers(model, *maps);
    parts.insert(parts.begin(), std::as_bytes(std::span{array_header}));
    return parts;
}

Calibration_files files_of(Calibration const& calibration, std::filesystem::path const& file) {
    std::string const stem = file.stem().string();
    Calibration_files files{
        calibration_to_json(calibration, stem), {}, {}, calibration.maps, calibration.model};
    if (files.maps) {
        std::string const hash = array_hash(files.model, *files.maps);
        files.array_file = file.parent_path() / array_name(stem, hash);
        files.array_header = array_header(files.model, files.maps->region.size());
    }
    return files;
}

std::string hash_of_maps(Calibration const& calibration) {
    return calibration.maps
               ? std::string{hash_start} + array_hash(calibration.model, *calibration.maps)
               : std::string{};
}

std::optional<std::filesystem::path> array_file_of(std::filesystem::path const& file) {
    try {
        auto const maps = parse_calibration(read_file(file), file).maps;
        if (maps && maps->array_file == array_name(file.stem().string(), maps->hash)) {
            return file.parent_path() / maps->array_file;
        }
    } catch (File_error const&) {
        // Whatever is there, it has no array file that `save` wrote for it.
    }
    return std::nullopt;
}

void save(
    Calibration const& calibration, std::filesystem::path const& file, Existing_files existing) {
    Calibration_files const files = files_of(calibration, file);
    refuse_obstacle(file, existing);
    regular_files::remove_leftovers(file.parent_path());
    std::optional<Temporary_file> array;
    if (files.maps) {
        refuse_obstacle(files.array_file, Existing_files::replace);
        array.emplace(files.array_file);
        if (int const error = array->write(files.array_parts())) {
            refuse_place(files.array_file, error);
        }
    }
    Temporary_file text{file};
    if (int const error = text.write(std::array{std::as_bytes(std::span{files.json})})) {
        refuse_place(file, error);
    }
    auto const old_array = array_file_of(file);
    std::error_code ignored;
    // One of this name has the same numbers, or is damaged.
    bool const is_new = !std::filesystem::exists(files.array_file, ignored);
    if (array) {
        if (int const error = array->rename(files.array_file, Existing_files::replace)) {
            refuse_place(files.array_file, error);
        }
    }
    if (int const error = text.rename(file, existing)) {
        if (array && is_new) {
            ::unlink(files.array_file.c_str());
        }
        refuse_obstacle(file, existing); // somebody else's file may have come in between
        refuse_place(file, error);
    }
    if (old_array && *old_array != files.array_file) {
        ::unlink(old_array->c_str());
    }
}

Calibration load_calibration(std::filesystem::path const& file) {
    std::string const text = read_file(file);
    try {
        return from_text(text, file);
    } catch (File_error const&) {
        // The pair may have been replaced between the two.
        std::string const now = read_file(file);
        if (now == text) {
            throw;
        }
        return from_text(now, file);
    }
}

} // namespace veldrane_mrv::polarization
