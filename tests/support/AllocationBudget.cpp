// The allocation budget: the test executables' replaceable allocation functions count it down
// while it is set. The nothrow forms serve std::stable_sort's buffer; every delete that pairs
// with these news is replaced too (the sanitizers check); over-aligned forms stay the runtime's.
#include <atomic>
#include <cstdlib>
#include <new>

#include "support/TestSupport.h"

std::atomic<long> rytest::allocationBudget{-1};

namespace {

void* allocate(std::size_t size) {
    for (long left = rytest::allocationBudget.load(); left >= 0;) {
        if (left == 0) throw std::bad_alloc();
        if (rytest::allocationBudget.compare_exchange_weak(left, left - 1)) break;
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

// clang-format off
void* operator new(std::size_t n) { return allocate(n); }
void* operator new[](std::size_t n) { return allocate(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return allocateOrNull(n); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return allocateOrNull(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
// clang-format on
