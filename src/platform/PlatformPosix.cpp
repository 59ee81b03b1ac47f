#include "platform/Platform.h"

#if !defined(_WIN32)

#if defined(__linux__)
#include <sched.h>
#include <sys/mman.h>
#endif

namespace platform {

bool advisePages(void* begin, std::size_t bytes, PageAdvice advice) {
#if defined(__linux__)
    int flag = -1;
    switch (advice) {
        case PageAdvice::HugePages:
#if defined(MADV_HUGEPAGE)
            flag = MADV_HUGEPAGE;
#endif
            break;
        case PageAdvice::SmallPages:
#if defined(MADV_NOHUGEPAGE)
            flag = MADV_NOHUGEPAGE;
#endif
            break;
        case PageAdvice::PopulateWrite:
#if defined(MADV_POPULATE_WRITE)
            flag = MADV_POPULATE_WRITE;
#else
            flag = 23;  // Linux 5.14; older kernels answer EINVAL
#endif
            break;
    }
    return flag >= 0 && madvise(begin, bytes, flag) == 0;
#else
    (void)begin;
    (void)bytes;
    (void)advice;
    return false;
#endif
}

unsigned usableProcessors() {
#if defined(__linux__)
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof(set), &set) == 0) return unsigned(CPU_COUNT(&set));
#endif
    return 0;
}

}  // namespace platform

#endif
