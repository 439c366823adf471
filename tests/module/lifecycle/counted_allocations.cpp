#include "counted_allocations.hpp"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace lifecycle {
namespace {

// Stands before every block, as wide as the alignment that operator new owes.
struct alignas(__STDCPP_DEFAULT_NEW_ALIGNMENT__) Block_header {
    bool counted;
};

thread_local bool counting = false;
std::atomic<int> live{0};
std::atomic<int> until_failure{0};

void* allocate(std::size_t size) {
    if (counting && until_failure.load() > 0 && until_failure.fetch_sub(1) == 1) {
        return nullptr;
    }
    auto* const header = static_cast<Block_header*>(std::malloc(sizeof(Block_header) + size));
    if (header == nullptr) {
        return nullptr;
    }
    header->counted = counting;
    if (counting) {
        ++live;
    }
    return header + 1;
}

void deallocate(void* block) {
    if (block == nullptr) {
        return;
    }
    auto* const header = static_cast<Block_header*>(block) - 1;
    if (header->counted) {
        --live;
    }
    std::free(header);
}

} // namespace

Counted_scope::Counted_scope() {
    counting = true;
}

Counted_scope::~Counted_scope() {
    counting = false;
}

int live_allocations() {
    return live;
}

void let_allocation_fail(int nth) {
    until_failure = nth;
}

} // namespace lifecycle

void* operator new(std::size_t size) {
    if (void* const block = lifecycle::allocate(size)) {
        return block;
    }
    throw std::bad_alloc();
}

// The sanitizers define each of these on its own, so every form that leads to a block from above is
// replaced, not only those that the language forwards.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    return lifecycle::allocate(size);
}

void operator delete(void* block) noexcept {
    lifecycle::deallocate(block);
}

void operator delete(void* block, std::size_t) noexcept {
    lifecycle::deallocate(block);
}

void operator delete(void* block, std::nothrow_t const&) noexcept {
    lifecycle::deallocate(block);
}
