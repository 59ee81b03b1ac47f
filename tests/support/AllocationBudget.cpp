// The allocation budget: the replaceable allocation functions of the test executables that use
// it, counting the budget down while one is set. The nothrow forms serve std::stable_sort's
// buffer, and every delete that pairs with these news is replaced too, so no block moves between
// allocators (the sanitizers check). Over-aligned forms stay the runtime's, pairs among themselves.
#include <atomic>
#include <cstdlib>
#include <new>

#include "support/TestSupport.h"

namespace {
std::atomic<long> gBudget{-1};  // allocations left; negative: unlimited

void* allocate(std::size_t size) {
    for (long left = gBudget.load(); left >= 0;) {
        if (left == 0) throw std::bad_alloc();
        if (gBudget.compare_exchange_weak(left, left - 1)) break;
    }
    if (void* p = std::malloc(size + 1)) return p;
    throw std::bad_alloc();
}

void* allocateOrNull(std::size_t size) noexcept {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
}  // namespace

rytest::AllocationBudget::AllocationBudget(long budget) {
    gBudget = budget;
}
rytest::AllocationBudget::~AllocationBudget() {
    gBudget = -1;
}

void* operator new(std::size_t n) {
    return allocate(n);
}
void* operator new[](std::size_t n) {
    return allocate(n);
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
    return allocateOrNull(n);
}
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept {
    return allocateOrNull(n);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
