/// @file
/// A program with the fault that its argument names: the checker that watches it has to end it with
/// a failure. Unwatched, each fault goes by and the program succeeds.

#include <array>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <thread>

namespace {

/// Volatile wherever a compiler that sees the fault could leave it out or warn of it.
std::size_t volatile count{16};
int* volatile last_block{nullptr};

void heap_over_read() {
    auto const values = std::make_unique<int volatile[]>(count);
    std::printf("%d\n", values[count]);
}

void integer_overflow() {
    int volatile largest = INT_MAX;
    largest = largest + 1;
}

void uninitialised_branch() {
    std::unique_ptr<int volatile[]> const values(new int volatile[count]);
    if (values[1] == 42) {
        std::puts("42");
    }
}

/// Each address replaces the one before; the last may remain in a register too.
void leak() {
    for (std::size_t block = 0; block < count; ++block) {
        last_block = new int[count];
    }
}

/// Both write often: a checker may miss two writes that fall into the same moment.
void race() {
    int volatile shared = 0;
    auto const write = [&shared] {
        for (int value = 0; value < 1000; ++value) {
            shared = value;
        }
    };
    std::thread other(write);
    write();
    other.join();
}

struct Fault {
    std::string_view name;
    void (*commit)();
};

constexpr std::array<Fault, 5> faults{
    {{"heap_over_read", heap_over_read},
     {"integer_overflow", integer_overflow},
     {"uninitialised_branch", uninitialised_branch},
     {"leak", leak},
     {"race", race}}};

} // namespace

int main(int argument_count, char** arguments) {
    for (Fault const& fault : faults) {
        if (argument_count == 2 && fault.name == arguments[1]) {
            fault.commit();
            std::puts("nothing stopped it");
            return EXIT_SUCCESS;
        }
    }
    // A success where a failure is expected, so that a name without a fault is noticed.
    std::fprintf(stderr, "canary: no such fault\n");
    return EXIT_SUCCESS;
}
