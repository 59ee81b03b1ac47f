// The allocation budget: the replaceable allocation functions of the test executables that use
// it, counting the budget down while one is set. Every form that pairs with the deletes below is
// replaced, so no block from another allocator reaches std::free (nor one of these another one).
#include <atomic>
#include <cstdlib>
#include <new>

#include "support/TestSupport.h"

namespace {
std::atomic<long> gBudget{-1};  // allocations left; negative: unlimited

void* allocate(std::size_t size, std::size_t align = 0) {
    for (long left = gBudget.load(); left >= 0;) {
        if (left == 0) throw std::bad_alloc();
        if (gBudget.compare_exchange_weak(left, left - 1)) break;
    }
    void* p = nullptr;
    if (align > sizeof(void*) ? posix_memalign(&p, align, size + 1) != 0
                              : !(p = std::malloc(size + 1))) {
        throw std::bad_alloc();
    }
    return p;
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
void* operator new(std::size_t n, std::align_val_t a) {
    return allocate(n, std::size_t(a));
}
void* operator new[](std::size_t n, std::align_val_t a) {
    return allocate(n, std::size_t(a));
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
void operator delete(void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
