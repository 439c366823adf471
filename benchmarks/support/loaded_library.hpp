#pragma once

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <memory>
#include <string>

/// A build of the processor, loaded for itself alone: several of one name stand side by side.
class Loaded_library {
public:
    using Transform = decltype(qn_polarization_processor_transform_vector_avx2);

    /// @throws std::runtime_error that names the file and the remedy
    explicit Loaded_library(std::string const& path);

    Transform& transform() const { return *transform_; }

    /// The line that its build left in it, or the path if there is none.
    std::string const& identification() const { return identification_; }

private:
    struct Close {
        void operator()(void* library) const;
    };

    std::unique_ptr<void, Close> library_;
    Transform* transform_;
    std::string identification_;
};
