#pragma once

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <filesystem>
#include <string>
#include <vector>

bool numpy_is_there(std::string const& python);

/// Runs the NumPy script in processes of its own, which measure themselves.
class Numpy_process {
public:
    Numpy_process(std::string python, std::string script);
    Numpy_process(Numpy_process const&) = delete;
    Numpy_process& operator=(Numpy_process const&) = delete;
    ~Numpy_process();

    /// Fills the frame's planes.
    void process(Polarization_computation_arguments const& frame) const;

    /// The median of a few frames.
    double seconds_per_frame(Polarization_computation_arguments const& frame) const;

private:
    /// @return the milliseconds that it printed
    std::vector<double> run(
        Polarization_computation_arguments const& frame, std::size_t frames,
        std::vector<std::string> const& more) const;

    std::string python_, script_;
    std::filesystem::path folder_;
};
