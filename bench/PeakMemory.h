// Resident-memory probes for the benchmarks (Linux /proc; elsewhere they report -1
// or nothing).
#pragma once

namespace rytest {

/// Resets the peak resident size (VmHWM) to the current one; false when unsupported.
bool resetPeakMemory();
/// Peak resident size in bytes since the last reset (VmHWM), or -1.
long long peakMemoryBytes();
/// Current resident size in bytes (VmRSS), or -1.
long long currentMemoryBytes();
/// Makes peak growth measurable: with glibc, every block above 128 KiB gets its own mapping and
/// freed memory goes back to the system, so a call's peak growth does not depend on what earlier
/// calls left in the heap. Call once at start-up; a no-op elsewhere.
void usePlainAllocatorThresholds();
/// Returns free heap memory to the system (glibc), so the next measurement starts clean.
void releaseFreedMemory();

}  // namespace rytest
