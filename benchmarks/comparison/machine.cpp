#include "comparison/machine.hpp"

#include <ctime>
#include <fstream>
#include <sched.h>
#include <thread>

namespace {

std::string first_line(std::string const& file) {
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    return line;
}

/// The value of the first line of /proc/cpuinfo that starts with the word.
std::string processor_says(std::string const& word) {
    std::ifstream stream("/proc/cpuinfo");
    std::string line;
    while (std::getline(stream, line)) {
        std::size_t const colon = line.find(": ");
        if (line.starts_with(word) && colon != std::string::npos) {
            return line.substr(colon + 2);
        }
    }
    return "unknown";
}

std::string now() {
    std::time_t const time = std::time(nullptr);
    char text[32];
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M UTC", std::gmtime(&time));
    return text;
}

} // namespace

int stay_on_one_processor() {
    int const processor = sched_getcpu();
    if (processor < 0) {
        return -1;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<std::size_t>(processor), &one);
    return sched_setaffinity(0, sizeof(one), &one) == 0 ? processor : -1;
}

Facts facts_of_machine_and_build() {
    std::string const governor =
        first_line("/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor");
    std::string const load = first_line("/proc/loadavg");
    return {
        {"processor", processor_says("model name") + ", family " + processor_says("cpu family") +
                          ", model " + processor_says("model\t")},
        {"cores", std::to_string(std::thread::hardware_concurrency()) + ", one used"},
        {"governor", governor.empty() ? "unknown" : governor},
        {"huge pages", first_line("/sys/kernel/mm/transparent_hugepage/enabled")},
        {"load before", load.substr(0, load.find(' '))},
        {"compiler", BENCHMARK_COMPILER},
        {"flags", BENCHMARK_FLAGS},
        {"date", now()},
    };
}
