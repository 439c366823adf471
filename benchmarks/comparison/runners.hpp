#pragma once

#include "comparison/cases.hpp"
#include "comparison/libraries.hpp"

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

std::vector<Runner> make_library_runners(Libraries const& libraries);

/// Every other contender. NumPy is left out, with a line on standard error, where Python has none.
std::vector<Runner> make_other_runners(std::string const& python, std::string const& numpy_script);
