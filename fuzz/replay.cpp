/// @file
/// Runs a fuzz target on every file of a folder, without a fuzzer: what it once found stays found.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> files_in(std::filesystem::path const& folder) {
    std::vector<std::filesystem::path> files;
    for (auto const& entry : std::filesystem::directory_iterator(folder)) {
        files.push_back(entry.path());
    }
    std::ranges::sort(files);
    return files;
}

} // namespace

int main(int argument_count, char** arguments) {
    if (argument_count != 2) {
        std::cerr << "usage: " << arguments[0] << " FOLDER\n";
        return 2;
    }
    std::size_t count = 0;
    for (std::filesystem::path const& file : files_in(arguments[1])) {
        // Flushed, so that the file is known if it ends the process.
        std::cout << file.filename().string() << std::endl;
        std::ifstream stream(file, std::ios::binary);
        std::vector<char> const bytes(std::istreambuf_iterator<char>(stream), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
        ++count;
    }
    std::cout << count << " inputs replayed\n";
    return count != 0 ? 0 : 1;
}
