/// @file
/// From a raw frame to planes, in three ways, each checked before it touches memory.
///
/// Fast: `transform`, one call of the processor. Every plane is as the processor writes it: the
/// matrices reach only the columns right of the vector blocks and the last rows, and
/// `normalized_stokes` is packed, so that only frames narrower than 32 columns or of two rows have
/// every pixel at its place.
/// Calibrated: `Calibrated_transform`, every pixel through the matrix of its position, every plane
/// at pixel positions.
/// Signed: `Signed_transform`, S1 and S2 with their signs, in either mode.
///
/// `Frame_transform` chooses between them. All of them check first what `check_call` does; a
/// violation is an `Argument_error`, and nothing has been written then.
///
/// Floating-point results follow the rounding mode in force. The functions may run in any number of
/// threads on separate planes; an object of one of the classes serves one thread at a time.
#pragma once

#include "veldrane_mrv/polarization/calibrated_transform.hpp"
#include "veldrane_mrv/polarization/fast_transform.hpp"
#include "veldrane_mrv/polarization/frame_transform.hpp"
#include "veldrane_mrv/polarization/guarantees.hpp"
#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/signed_transform.hpp"
