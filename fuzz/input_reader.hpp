/// @file
/// Numbers drawn from the bytes of a fuzzer's input.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace fuzz {

/// Behind the end of the input every number is 0.
class Input_reader {
public:
    explicit Input_reader(std::span<std::uint8_t const> bytes) : bytes_{bytes} {}

    template <typename Number>
    Number next() {
        Number number{};
        std::size_t const count = bytes_.size() < sizeof(Number) ? bytes_.size() : sizeof(Number);
        if (count != 0) {
            std::memcpy(&number, bytes_.data(), count);
        }
        bytes_ = bytes_.subspan(count);
        return number;
    }

    /// A number below `limit`, which is at most 256.
    unsigned below(unsigned limit) { return next<std::uint8_t>() % limit; }

    std::span<std::uint8_t const> rest() const { return bytes_; }

private:
    std::span<std::uint8_t const> bytes_;
};

} // namespace fuzz
