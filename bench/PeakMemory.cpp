#include "PeakMemory.h"

#include <cstring>
#include <fstream>
#include <string>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace rytest {

namespace {

/// A "Name:   1234 kB" line of /proc/self/status, in bytes.
long long statusField(const char* name) {
    std::ifstream in("/proc/self/status");
    std::string line;
    const std::size_t length = std::strlen(name);
    while (std::getline(in, line)) {
        if (line.compare(0, length, name) == 0 && line.size() > length && line[length] == ':') {
            return std::stoll(line.substr(length + 1)) * 1024;
        }
    }
    return -1;
}

}  // namespace

bool resetPeakMemory() {
    // Writing 5 to clear_refs resets the peak resident size to the current one (Linux >= 4.0).
    std::ofstream out("/proc/self/clear_refs");
    if (!out) return false;
    out << "5";
    out.flush();
    return bool(out);
}

long long peakMemoryBytes() {
    return statusField("VmHWM");
}

long long currentMemoryBytes() {
    return statusField("VmRSS");
}

void usePlainAllocatorThresholds() {
#if defined(__GLIBC__)
    // Setting the thresholds explicitly also turns off glibc's dynamic raising of them.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    mallopt(M_TRIM_THRESHOLD, 128 * 1024);
#endif
}

void releaseFreedMemory() {
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
}

}  // namespace rytest
