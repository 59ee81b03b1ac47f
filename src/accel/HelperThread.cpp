#include "accel/HelperThread.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <thread>

#include "platform/Platform.h"

namespace {

constexpr std::size_t kDefaultMinPoints = std::size_t(1) << 15;
constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

std::size_t initialMinPoints() {
    const char* setting = std::getenv("RYTRI_THREADS");
    if (setting && std::strcmp(setting, "1") == 0) return kNever;
    return kDefaultMinPoints;
}

std::atomic<std::size_t>& minPoints() {
    static std::atomic<std::size_t> value{initialMinPoints()};
    return value;
}

/// Set once a test has chosen the threshold: the helper then runs even on one hardware thread,
/// so that both ways are compared everywhere.
std::atomic<bool> chosen{false};

/// Cores this process may run on (its affinity mask where the system has one).
unsigned usableCores() {
    const unsigned usable = platform::usableProcessors();
    return usable != 0 ? usable : std::thread::hardware_concurrency();
}

}  // namespace

std::size_t helperThreadMinPoints() {
    return minPoints().load(std::memory_order_relaxed);
}

void setHelperThreadMinPoints(std::size_t points) {
    minPoints().store(points, std::memory_order_relaxed);
    chosen.store(true, std::memory_order_relaxed);
}

bool useHelperThread(std::size_t points) {
    if (points < helperThreadMinPoints()) return false;
    if (chosen.load(std::memory_order_relaxed)) return true;
    static const bool parallel = usableCores() > 1;
    return parallel;
}

void waitStep(int& steps) {
    constexpr int kSpinsBeforeYield = 256;
    if (++steps < kSpinsBeforeYield) {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
    } else {
        std::this_thread::yield();
    }
}
