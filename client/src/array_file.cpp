#include "array_file.hpp"

#define XXH_INLINE_ALL // no library to link
#include <xxhash.h>

#include <array>
#include <bit>
#include <cstdio>
#include <memory>
#include <new>

namespace veldrane_mrv::polarization {

static_assert(std::endian::native == std::endian::little, "numbers are written as they lie");

std::string array_header(Calibration_model model, Size const& size) {
    constexpr std::size_t alignment = 64;
    constexpr std::size_t prefix = 10;
    std::string text = "{'descr': '<f4', 'fortran_order': False, 'shape': (" +
                       std::to_string(maps_of(model).size()) + ", " + std::to_string(size.height) +
                       ", " + std::to_string(size.width) + "), }";
    std::size_t const whole = (prefix + text.size() + 1 + alignment - 1) / alignment * alignment;
    text.resize(whole - prefix - 1, ' ');
    text += '\n';
    std::string header = "\x93NUMPY";
    header +=
        {'\1', '\0', static_cast<char>(text.size() & 255), static_cast<char>(text.size() >> 8)};
    return header + text;
}

std::vector<std::span<std::byte const>> array_numbers(
    Calibration_model model, Calibration_maps const& maps) {
    std::vector<std::span<std::byte const>> parts;
    for (Map_description const& map : maps_of(model)) {
        parts.push_back(std::as_bytes(std::span{maps.*map.numbers}));
    }
    return parts;
}

std::string array_hash(Calibration_model model, Calibration_maps const& maps) {
    std::unique_ptr<XXH3_state_t, XXH_errorcode (*)(XXH3_state_t*)> const state{
        XXH3_createState(), &XXH3_freeState};
    if (!state) {
        throw std::bad_alloc{};
    }
    std::string const header = array_header(model, maps.region.size());
    XXH3_64bits_reset(state.get());
    XXH3_64bits_update(state.get(), header.data(), header.size());
    for (std::span<std::byte const> const part : array_numbers(model, maps)) {
        XXH3_64bits_update(state.get(), part.data(), part.size());
    }
    std::array<char, 17> text{};
    std::snprintf(
        text.data(), text.size(), "%016llx",
        static_cast<unsigned long long>(XXH3_64bits_digest(state.get())));
    return text.data();
}

std::string array_name(std::string const& stem, std::string const& hash) {
    return stem + ".maps-" + hash + ".npy";
}

} // namespace veldrane_mrv::polarization
