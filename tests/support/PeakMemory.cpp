#include "support/PeakMemory.h"

#include <cstdint>
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

std::string mappingFlags(const void* address) {
    const std::uintptr_t a = reinterpret_cast<std::uintptr_t>(address);
    std::ifstream in("/proc/self/smaps");
    std::string line;
    bool inside = false;
    while (std::getline(in, line)) {
        // A mapping starts with "begin-end perms ..." in hex; its fields follow, VmFlags last.
        const std::size_t dash = line.find('-');
        const std::size_t space = line.find(' ');
        if (dash != std::string::npos && space != std::string::npos && dash < space &&
            line.find(':') > space) {
            const std::uintptr_t begin = std::stoull(line.substr(0, dash), nullptr, 16);
            const std::uintptr_t end =
                std::stoull(line.substr(dash + 1, space - dash - 1), nullptr, 16);
            inside = begin <= a && a < end;
        } else if (inside && line.compare(0, 8, "VmFlags:") == 0) {
            return line.substr(8) + " ";
        }
    }
    return "";
}

}  // namespace rytest
