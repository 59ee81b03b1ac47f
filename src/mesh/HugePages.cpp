#include "mesh/HugePages.h"

#if defined(__linux__)
#include <sys/mman.h>
#endif

HugePageSpan hugePageInterior(std::uintptr_t address, std::size_t bytes) {
    constexpr std::uintptr_t mask = kHugePageBytes - 1;
    // Round inward; a range that wraps past the end of the address space holds nothing usable.
    if (bytes > UINTPTR_MAX - address) return {address, address};
    const std::uintptr_t last = address + bytes;
    if (address > UINTPTR_MAX - mask) return {address, address};
    const std::uintptr_t begin = (address + mask) & ~mask;
    const std::uintptr_t end = last & ~mask;
    if (end <= begin) return {address, address};
    return {begin, end};
}

void adviseHugePages(const void* data, std::size_t bytes) {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    const HugePageSpan span = hugePageInterior(reinterpret_cast<std::uintptr_t>(data), bytes);
    if (span.end - span.begin < kMinHugePages * kHugePageBytes) return;
    (void)madvise(reinterpret_cast<void*>(span.begin), span.end - span.begin, MADV_HUGEPAGE);
#else
    (void)data;
    (void)bytes;
#endif
}
