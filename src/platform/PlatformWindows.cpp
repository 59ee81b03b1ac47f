#include "platform/Platform.h"

#if defined(_WIN32)

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

namespace platform {

// Windows has no advice of either kind for memory already reserved: large pages must be asked
// for when the memory is allocated (and need a privilege hosts rarely hold), and committed pages
// are made zeroed at first touch. The advice is only ever a speed hint, so it is declined.
bool advisePages(void* begin, std::size_t bytes, PageAdvice advice) {
    (void)begin;
    (void)bytes;
    (void)advice;
    return false;
}

unsigned usableProcessors() {
    DWORD_PTR process = 0;
    DWORD_PTR system = 0;
    if (!GetProcessAffinityMask(GetCurrentProcess(), &process, &system)) return 0;
    unsigned count = 0;
    for (; process != 0; process &= process - 1) ++count;
    return count;
}

}  // namespace platform

#endif
