#include "output/bulk_writing.hpp"

#include "terminal/failure.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <sys/uio.h>
#include <utility>
#include <vector>

namespace polarize_tool {
namespace {

// Leaves out the first `count` bytes.
void pass_over(std::span<iovec>& pieces, std::size_t count) {
    while (!pieces.empty() && count >= pieces.front().iov_len) {
        count -= pieces.front().iov_len;
        pieces = pieces.subspan(1);
    }
    if (count > 0) {
        pieces.front().iov_base = static_cast<char*>(pieces.front().iov_base) + count;
        pieces.front().iov_len -= count;
    }
}

} // namespace

void fail_to_write(std::filesystem::path const& file, int error) {
    std::string const problem = std::string("cannot be written: ") + std::strerror(error);
    if (error == ENOSPC || error == EDQUOT || error == EROFS) {
        throw Output_exhausted(file, problem + "; choose a place with room with -o");
    }
    throw File_failure(file, problem);
}

Bulk_file::Bulk_file(Descriptor descriptor, std::filesystem::path name)
    : descriptor_{std::move(descriptor)}, name_{std::move(name)} {}

void Bulk_file::write(std::uint64_t offset, std::span<Bytes const> parts) {
    constexpr std::size_t most_pieces = 1024; // of one call, IOV_MAX
    std::vector<iovec> vector;
    vector.reserve(parts.size());
    for (Bytes const part : parts) {
        vector.push_back({const_cast<std::uint8_t*>(part.data()), part.size()});
    }
    std::span<iovec> pieces(vector);
    pass_over(pieces, 0);
    while (!pieces.empty()) {
        int const count = static_cast<int>(std::min(pieces.size(), most_pieces));
        ssize_t const written =
            pwritev(descriptor_.get(), pieces.data(), count, static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            fail_to_write(name_, written < 0 ? errno : EIO);
        }
        pass_over(pieces, static_cast<std::size_t>(written));
        offset += static_cast<std::uint64_t>(written);
    }
}

void Bulk_file::close() {
    if (int const error = descriptor_.close()) {
        fail_to_write(name_, error);
    }
}

} // namespace polarize_tool
