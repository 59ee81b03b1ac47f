// Cache prefetch that the compiler keeps.
#pragma once

/// Starts loading the cache line holding `address`. GCC 12 compiled the insertion scouts'
/// __builtin_prefetch calls to nothing (their object file held none of them); a volatile asm
/// statement stays as written, and it reads and writes nothing the compiler tracks.
inline void prefetchLine(const void* address) {
#if defined(__x86_64__) || defined(__i386__)
    asm volatile("prefetcht0 %0" : : "m"(*static_cast<const char*>(address)));
#else
    __builtin_prefetch(address);
#endif
}

/// Starts fetching the line holding `address` for writing (exclusive), so that a later store
/// finds it owned and does not wait in the store buffer for another core to give it up.
inline void prefetchLineForWrite(const void* address) {
#if defined(__x86_64__) || defined(__i386__)
    asm volatile("prefetchw %0" : : "m"(*static_cast<const char*>(address)));
#else
    __builtin_prefetch(address, 1);
#endif
}
