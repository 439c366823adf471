/// @file
/// Entry of the tests with the camera. Frames come at their times: while the machine stands still
/// they are lost, and truthfully counted so, which no test of exact counts can foresee. A test that
/// fails while the machine stood still runs once more, in a process of its own; one that fails on a
/// machine that goes on, or time and again, has failed.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds between_looks(2);
// Of frames at 100 a second, with room for what a scheduler with two processors does to a thread.
constexpr milliseconds standstill(30);
constexpr int most_attempts = 5;
constexpr char const* attempt_variable = "VELDRANE_TEST_ATTEMPT";

/// How late a thread wakes that asks for nothing but to be woken.
class Standstill_watch {
public:
    Standstill_watch() {
        thread_ = std::jthread([this](std::stop_token const& stop) {
            while (!stop.stop_requested()) {
                std::this_thread::sleep_for(between_looks);
                longest_ = longest_so_far();
                last_look_ = steady_clock::now();
            }
        });
    }

    void begin() { longest_ = steady_clock::duration::zero(); }

    /// Since `begin`. The thread that watches may be late itself.
    steady_clock::duration longest_so_far() const {
        return std::max(longest_.load(), steady_clock::now() - last_look_.load() - between_looks);
    }

private:
    std::atomic<steady_clock::duration> longest_ = steady_clock::duration::zero();
    std::atomic<steady_clock::time_point> last_look_ = steady_clock::now();
    std::jthread thread_;
};

/// Which tests have failed while the machine stood still.
class Failures : public testing::EmptyTestEventListener {
public:
    void OnTestStart(testing::TestInfo const& /*test*/) override { watch_.begin(); }

    void OnTestEnd(testing::TestInfo const& test) override {
        if (test.result()->Passed() || test.result()->Skipped()) {
            return;
        }
        auto const longest = watch_.longest_so_far();
        longest_ = std::max(longest_, longest);
        is_excused_ = is_excused_ && longest > standstill;
        tests_ +=
            std::string(tests_.empty() ? "" : ":") + test.test_suite_name() + "." + test.name();
    }

    bool are_excused() const { return is_excused_ && !tests_.empty(); }
    std::string const& tests() const { return tests_; }
    long milliseconds_at_most() const {
        return static_cast<long>(std::chrono::duration_cast<milliseconds>(longest_).count());
    }

private:
    Standstill_watch watch_;
    std::string tests_; // as a filter
    steady_clock::duration longest_{};
    bool is_excused_ = true;
};

// In a new process: what a failed test leaves behind in this one is no part of the next attempt.
void start_anew(int attempt, std::vector<std::string> words, std::string const& tests) {
    setenv(attempt_variable, std::to_string(attempt).c_str(), 1);
    words.push_back("--gtest_filter=" + tests);
    std::vector<char*> command;
    command.reserve(words.size() + 1);
    for (std::string& word : words) {
        command.push_back(word.data());
    }
    command.push_back(nullptr);
    execv("/proc/self/exe", command.data());
    std::perror("cannot start once more");
}

} // namespace

int main(int count, char** words) {
    std::vector<std::string> const line(words, words + count);
    testing::InitGoogleTest(&count, words);
    if (testing::FLAGS_gtest_list_tests) {
        return RUN_ALL_TESTS();
    }
    auto* const failures = new Failures; // GoogleTest deletes it
    testing::UnitTest::GetInstance()->listeners().Append(failures);
    int const result = RUN_ALL_TESTS();
    char const* const variable = std::getenv(attempt_variable);
    int const attempt = variable == nullptr ? 1 : std::atoi(variable);
    if (result != 0 && failures->are_excused() && attempt < most_attempts) {
        std::printf(
            "the machine stood still for %ld ms: attempt %d of %d\n",
            failures->milliseconds_at_most(), attempt + 1, most_attempts);
        std::fflush(stdout);
        start_anew(attempt + 1, line, failures->tests());
    }
    return result;
}
