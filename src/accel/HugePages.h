// Large mesh arrays are read in an order the address does not predict (the walk and the flips
// jump across the whole mesh when vertices arrive shuffled), so with 4 KB pages nearly every
// access also misses the TLB. Asking the kernel for 2 MB pages on those arrays removes most of
// those misses. It is advice only: contents and results are the same with or without it.
// On virtual machines whose host takes free guest memory back, huge pages can cost several times
// more to make than small ones (the guest's small free fragments are still backed); a helper
// that sees that while populating withdraws the advice for what is left (adviseSmallPages).
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

/// The 2 MB-aligned part [begin, end) of the byte range [address, address + bytes); empty
/// (begin == end) when the range holds no whole aligned 2 MB page.
struct HugePageSpan {
    std::uintptr_t begin;
    std::uintptr_t end;
};
HugePageSpan hugePageInterior(std::uintptr_t address, std::size_t bytes);

/// Advises transparent huge pages for the aligned interior of [data, data + bytes) when it
/// spans at least `kMinHugePages` pages, before the pages are first touched. A no-op where the
/// system has no such advice; failures are ignored (the pages stay small).
void adviseHugePages(const void* data, std::size_t bytes);

/// Withdraws that advice for the aligned interior of [data, data + bytes): pages made there from
/// now on are small. Pages already made stay as they are. Failures are ignored.
void adviseSmallPages(const void* data, std::size_t bytes);

constexpr std::size_t kHugePageBytes = std::size_t(2) << 20;
/// Below this many whole pages the TLB reach of small pages is enough.
constexpr std::size_t kMinHugePages = 2;

/// Asks the kernel to map writable, zeroed pages for the whole pages inside [data, data + bytes)
/// now rather than at first touch; the contents of pages already mapped are left alone. On some
/// virtual machines a first touch costs milliseconds per megabyte, so a helper thread that
/// populates ahead takes that off the thread that fills the memory. A no-op where the system has
/// no such call; failures are ignored (the pages are then made at first touch as usual).
void populatePages(const void* data, std::size_t bytes);

/// Populating one 2 MB chunk of huge pages for longer than this (1 ms, under 2 GB/s; memory the
/// guest already holds populates at over 20 GB/s) marks memory the host makes afresh. Tests set
/// it (zero: every chunk counts as slow).
std::chrono::nanoseconds slowPopulateChunkTime();
void setSlowPopulateChunkTime(std::chrono::nanoseconds time);
