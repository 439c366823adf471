#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

/// Owner of at most one heap object, shared by a count of clients. Part of the library's exported
/// object: the order of the fields is fixed.
///
/// Its destructor destroys an object that is still there, whatever the count says, and does not
/// take the lock: it runs when the library is unloaded or the process exits, with no other thread
/// inside.
template <typename T>
struct unique_ptr_reference_counted {
    std::unique_ptr<T> object;
    std::int32_t count = 0; ///< initialisations not yet matched by a termination
    std::mutex lock;        ///< held for every change of the two fields above
};
