// The few operating-system calls the library makes, each with a POSIX and a Windows side
// (PlatformPosix.cpp, PlatformWindows.cpp; each compiles to nothing on the other system). All of
// them are hints or queries: a side that has no such call answers "unsupported", and the results
// of a triangulation never depend on the answer.
#pragma once

#include <cstddef>

namespace platform {

enum class PageAdvice {
    /// Back the range with huge pages from now on.
    HugePages,
    /// Withdraw that advice: pages made from now on are small.
    SmallPages,
    /// Map writable zeroed pages for the range now instead of at first touch, leaving the
    /// contents of pages already mapped alone.
    PopulateWrite,
};

/// Gives the kernel `advice` for the page-aligned range [begin, begin + bytes). False when the
/// system has no such advice or refused it; nothing observable changes either way.
bool advisePages(void* begin, std::size_t bytes, PageAdvice advice);

/// Processors this process may run on (its affinity mask), or 0 when unknown.
unsigned usableProcessors();

}  // namespace platform
