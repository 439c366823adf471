/// @file
/// Several threads that run the transform on a shared raw frame and bind and release the logging
/// library all the while.

#pragma once

#include "support/scene.hpp"

#include <cstddef>

namespace reduced {

inline constexpr std::size_t thread_count{4};

/// Every thread runs the scene `calls_per_thread` times on planes of its own.
/// @return whether every call returned 0 and gave the planes of a call alone
bool agree_in_all_threads(support::Scene const& scene, std::size_t calls_per_thread);

} // namespace reduced
