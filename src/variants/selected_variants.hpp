#pragma once

namespace variants {

/// Whether the templates with these arguments, flags or an index list and flags, are instantiated:
/// all are. A library of few variants is built with a header of this name in front of this one in
/// the search path.
template <typename... Parameter>
inline constexpr bool is_selected{true};

} // namespace variants
