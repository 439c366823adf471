/// @file
/// Memory between two inaccessible pages. A buffer laid flush against one of them makes the first
/// access beyond that edge a fault, reads included.

#pragma once

#include <cstddef>

namespace support {

/// The edge of the guarded memory that a buffer touches.
enum class Edge { start, end };

inline constexpr Edge both_edges[]{Edge::end, Edge::start};

class Guarded_pages {
public:
    enum class Access {
        /// The guarded addresses can only be read; writes go through `writable`, a second mapping
        /// of the same memory. No protection is switched between calls, which would cost more than
        /// most calls do.
        read_only,
        read_write
    };

    /// @throws std::system_error if the memory cannot be mapped
    Guarded_pages(std::size_t capacity_in_bytes, Access access);
    ~Guarded_pages();
    Guarded_pages(Guarded_pages const&) = delete;
    Guarded_pages& operator=(Guarded_pages const&) = delete;

    /// Where a buffer of `bytes` lies. `bytes` is at most the capacity.
    std::byte* guarded(std::size_t bytes, Edge edge) const {
        return guarded_ + offset(bytes, edge);
    }

    /// The same memory for preparing its contents.
    std::byte* writable(std::size_t bytes, Edge edge) const {
        return writable_ + offset(bytes, edge);
    }

    /// The first byte of the accessible memory, one behind the inaccessible page.
    std::byte* first() const { return guarded_; }

    /// One past the last byte of the accessible memory.
    std::byte* last() const { return guarded_ + size_; }

private:
    std::size_t offset(std::size_t bytes, Edge edge) const {
        return edge == Edge::start ? 0 : size_ - bytes;
    }

    std::size_t page_;
    std::size_t size_;
    std::byte* guarded_{};
    std::byte* writable_{};
};

} // namespace support
