#include "module/logger.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

constinit unique_ptr_reference_counted<Mrv_log_object> logger;

static_assert(
    sizeof(logger.object) == 8 && sizeof(logger.count) == 4, "`logger` is read by others");

int qn_polarization_processor_vector_avx2_module_initialize() {
    std::lock_guard const hold(logger.lock);
    // A record in every degree of success counts: a failed binding is not tried again.
    if (logger.count <= 0 && logger.object == nullptr) {
        logger.object = std::make_unique<Mrv_log_object>();
    }
    ++logger.count;
    return 0;
}

int qn_polarization_processor_vector_avx2_module_terminate() {
    std::lock_guard const hold(logger.lock);
    if (logger.count == 0) {
        return 0;
    }
    --logger.count;
    if (logger.count <= 0) {
        // The field is null before the logging library is called, and the call is made under the
        // lock.
        auto const record = std::move(logger.object);
    }
    return 0;
}
