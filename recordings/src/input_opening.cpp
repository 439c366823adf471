#include "veldrane_mrv/polarization/input_opening.hpp"

#include <cstring>

namespace veldrane_mrv::polarization {

regular_files::Input open_input(std::filesystem::path const& file, Input_role role) {
    regular_files::Input input = regular_files::open_to_read(file);
    if (input.problem.empty()) {
        return input;
    }
    bool const is_frame = role == Input_role::frame;
    std::string problem = "cannot be read: " + input.problem;
    if (input.is_folder()) {
        problem += is_frame ? "; name the frames in it" : "; name a file";
    } else if (input.is_irregular()) {
        problem += is_frame ? "; name image files" : "; save it as one first";
    }
    throw File_failure(file, problem);
}

std::string read_table(std::filesystem::path const& file) {
    constexpr std::size_t largest_table = std::size_t{64} << 20;
    regular_files::Input const input = open_input(file, Input_role::table);
    std::string text;
    if (int const error = regular_files::read_all(input.descriptor, largest_table, text)) {
        throw File_failure(file, std::string("cannot be read: ") + std::strerror(error));
    }
    if (text.size() > largest_table) {
        throw File_failure(file, "is too large for a table; name another file");
    }
    return text;
}

} // namespace veldrane_mrv::polarization
