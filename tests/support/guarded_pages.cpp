#include "support/guarded_pages.hpp"

#include <cerrno>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace support {
namespace {

[[noreturn]] void throw_last_error(char const* what) {
    throw std::system_error{errno, std::generic_category(), what};
}

std::byte* map(void* address, std::size_t bytes, int protection, int flags, int file) {
    void* const mapped = mmap(address, bytes, protection, flags, file, 0);
    if (mapped == MAP_FAILED) {
        throw_last_error("guarded pages: mmap");
    }
    return static_cast<std::byte*>(mapped);
}

} // namespace

Guarded_pages::Guarded_pages(std::size_t capacity_in_bytes, Access access)
    : page_{static_cast<std::size_t>(sysconf(_SC_PAGESIZE))}, size_{
                                                                  (capacity_in_bytes + page_ - 1) /
                                                                  page_ * page_} {
    int const file = memfd_create("guarded_pages", MFD_CLOEXEC);
    if (file < 0 || ftruncate(file, static_cast<off_t>(size_)) != 0) {
        throw_last_error("guarded pages: memfd_create");
    }
    int const all = PROT_READ | PROT_WRITE;
    int const protection = access == Access::read_only ? PROT_READ : all;
    guarded_ = page_ + map(nullptr, size_ + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1);
    map(guarded_, size_, protection, MAP_SHARED | MAP_FIXED, file);
    writable_ = access == Access::read_only ? map(nullptr, size_, all, MAP_SHARED, file) : guarded_;
    close(file);
}

Guarded_pages::~Guarded_pages() {
    if (writable_ != guarded_) {
        munmap(writable_, size_);
    }
    munmap(guarded_ - page_, size_ + 2 * page_);
}

} // namespace support
