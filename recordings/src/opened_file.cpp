#include "source_kind.hpp"

#include "veldrane_mrv/polarization/calibration_mark.hpp"
#include "veldrane_mrv/polarization/input_opening.hpp"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace veldrane_mrv::polarization::recordings {

Opened_file::Opened_file(std::filesystem::path const& file, std::optional<Raw_layout> const& layout)
    : Opened_file(file, open_input(file, Input_role::frame), layout) {}

Opened_file::Opened_file(
    std::filesystem::path const& file, regular_files::Input input,
    std::optional<Raw_layout> const& layout)
    : name_{file}, input_{std::move(input)}, layout_{layout} {
    read(0, calibration_mark_reach, start_);
}

Opened_file::Read_bytes Opened_file::read_into(
    std::uint64_t offset, char* target, std::size_t count) const noexcept {
    std::size_t done = 0;
    while (done < count) {
        ssize_t const part = pread(
            input_.descriptor.get(), target + done, count - done,
            static_cast<off_t>(offset + done));
        if (part == 0) {
            break;
        }
        if (part < 0 && errno != EINTR) {
            return {done, errno};
        }
        done += part > 0 ? static_cast<std::size_t>(part) : 0;
    }
    return {done, 0};
}

void Opened_file::read(std::uint64_t offset, std::size_t count, std::string& bytes) const {
    bytes.resize(count);
    Read_bytes const read = read_into(offset, bytes.data(), count);
    if (read.error != 0) {
        throw File_failure(name_, std::string("cannot be read: ") + std::strerror(read.error));
    }
    bytes.resize(read.count);
}

} // namespace veldrane_mrv::polarization::recordings
