#pragma once

#include "comparison/cases.hpp"
#include "support/loaded_library.hpp"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What a measurement works on.
struct Workload {
    Case const& of;
    std::vector<Polarization_computation_arguments> frames;
    Calibration_matrices matrices;
};

/// A contender, ready to run.
struct Runner {
    enum class Kind { library, plain_loop, copy, other, python };

    std::string name;
    Kind kind;

    /// Processes one frame once, for the comparison of results.
    std::function<void(
        Polarization_computation_arguments const& frame, Calibration_matrices const& matrices)>
        process;

    /// Seconds per call.
    std::function<double(Workload const&)> measure;

    /// It measures everything in its own way and is slow; a few rounds show enough.
    bool is_slow() const { return kind == Kind::python; }

    bool takes_part_in(Field field) const;
};

/// Every contender, the library first. NumPy is left out, with a line on standard error, where
/// Python has none.
std::vector<Runner> make_runners(
    std::vector<std::pair<std::string, std::shared_ptr<Loaded_library>>> const& libraries,
    std::string const& python, std::string const& numpy_script);
