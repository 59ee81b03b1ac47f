// The allocation budget: the replaceable allocation functions of the test executables that use
// it, counting down the budget when one is set. Every form that pairs with the deletes below is
// replaced, so no pointer from another allocator reaches std::free.
#include <atomic>
#include <cstdlib>
#include <new>

#include "support/TestSupport.h"

namespace rytest {

namespace {
std::atomic<long> gBudget{-1};  // allocations left; negative: unlimited
}  // namespace

AllocationBudget::AllocationBudget(long budget) {
    gBudget = budget;
}
AllocationBudget::~AllocationBudget() {
    gBudget = -1;
}

}  // namespace rytest

namespace {
void* allocate(std::size_t size, std::size_t align = 0) {
    long left = rytest::gBudget.load();
    while (left >= 0) {
        if (left == 0) throw std::bad_alloc();
        if (rytest::gBudget.compare_exchange_weak(left, left - 1)) break;
    }
    void* p = nullptr;
    if (align > sizeof(void*)) {
        if (posix_memalign(&p, align, size ? size : 1) != 0) p = nullptr;
    } else {
        p = std::malloc(size ? size : 1);
    }
    if (!p) throw std::bad_alloc();
    return p;
}
}  // namespace

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
    try {
        return allocate(n);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](std::size_t n, const std::nothrow_t& t) noexcept {
    return operator new(n, t);
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
