#include "accel/HugePages.h"

#include <atomic>

#include "platform/Platform.h"

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
    const HugePageSpan span = hugePageInterior(reinterpret_cast<std::uintptr_t>(data), bytes);
    if (span.end - span.begin < kMinHugePages * kHugePageBytes) return;
    (void)platform::advisePages(reinterpret_cast<void*>(span.begin),
                                span.end - span.begin,
                                platform::PageAdvice::HugePages);
}

void adviseSmallPages(const void* data, std::size_t bytes) {
    const HugePageSpan span = hugePageInterior(reinterpret_cast<std::uintptr_t>(data), bytes);
    if (span.end <= span.begin) return;
    (void)platform::advisePages(reinterpret_cast<void*>(span.begin),
                                span.end - span.begin,
                                platform::PageAdvice::SmallPages);
}

void populatePages(const void* data, std::size_t bytes) {
    constexpr std::uintptr_t kPage = 4096;
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(data);
    if (bytes > UINTPTR_MAX - address || address > UINTPTR_MAX - kPage) return;
    const std::uintptr_t begin = (address + kPage - 1) & ~(kPage - 1);
    const std::uintptr_t end = (address + bytes) & ~(kPage - 1);
    if (end <= begin) return;
    (void)platform::advisePages(
        reinterpret_cast<void*>(begin), end - begin, platform::PageAdvice::PopulateWrite);
}

namespace {
std::atomic<std::int64_t> slowChunkNanoseconds{1000000};
}  // namespace

std::chrono::nanoseconds slowPopulateChunkTime() {
    return std::chrono::nanoseconds(slowChunkNanoseconds.load(std::memory_order_relaxed));
}

void setSlowPopulateChunkTime(std::chrono::nanoseconds time) {
    slowChunkNanoseconds.store(time.count(), std::memory_order_relaxed);
}
