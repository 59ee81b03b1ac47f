// The allocation budget: the replaceable global operator new and delete forms of the test
// executables, counting down a budget when one is set. Every form that pairs with the deletes
// below is replaced, so no pointer from another allocator reaches std::free (the nothrow form
// serves std::stable_sort's buffer).
#include "support/AllocationBudget.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>

#if defined(_WIN32)
#include <malloc.h>
#endif

namespace {

// Over-aligned blocks: Windows has no posix_memalign, and its aligned blocks need their own free.
#if defined(_WIN32)
void* alignedMalloc(std::size_t size, std::size_t align) {
    return _aligned_malloc(size, align);
}
void alignedFree(void* p) {
    _aligned_free(p);
}
#else
void* alignedMalloc(std::size_t size, std::size_t align) {
    void* p = nullptr;
    return posix_memalign(&p, align, size) == 0 ? p : nullptr;
}
void alignedFree(void* p) {
    std::free(p);
}
#endif

/// Allocations still allowed; negative means unlimited.
std::atomic<long> gAllocationBudget{-1};

bool allocationAllowed() {
    long left = gAllocationBudget.load(std::memory_order_relaxed);
    while (left >= 0) {
        if (left == 0) return false;
        if (gAllocationBudget.compare_exchange_weak(left, left - 1)) return true;
    }
    return true;
}

void* allocate(std::size_t size) {
    if (!allocationAllowed()) throw std::bad_alloc();
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}

void* allocateAligned(std::size_t size, std::align_val_t align) {
    if (!allocationAllowed()) throw std::bad_alloc();
    const std::size_t a = std::max(std::size_t(align), sizeof(void*));
    if (void* p = alignedMalloc(size ? size : 1, a)) return p;
    throw std::bad_alloc();
}

}  // namespace

namespace rytest {

AllocationBudget::AllocationBudget(long budget) {
    gAllocationBudget = budget;
}

AllocationBudget::~AllocationBudget() {
    gAllocationBudget = -1;
}

}  // namespace rytest

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new(std::size_t size, std::align_val_t align) {
    return allocateAligned(size, align);
}
void* operator new[](std::size_t size, std::align_val_t align) {
    return allocateAligned(size, align);
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
void operator delete(void* p, std::align_val_t) noexcept {
    alignedFree(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
    alignedFree(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    alignedFree(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
    alignedFree(p);
}
