/// @file
/// Replaces operator new and delete of the whole scenario process: counts what the module
/// allocates and has not freed, and makes a chosen allocation fail.

#pragma once

namespace lifecycle {

/// While one is alive, the allocations of this thread count. Deallocations count at any time.
class Counted_scope {
public:
    Counted_scope();
    ~Counted_scope();
    Counted_scope(Counted_scope const&) = delete;
    Counted_scope& operator=(Counted_scope const&) = delete;
};

/// Counted allocations that have not been freed.
int live_allocations();

/// Of the counted allocations that follow, the `nth` (from 1) throws std::bad_alloc, and no other.
void let_allocation_fail(int nth);

} // namespace lifecycle
