// Progress of a run on stderr, and the time each phase took.
#pragma once

#include <chrono>
#include <cstdint>

#include "RySurface.h"

namespace rytri {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start);

/// Receives the surface layer's progress reports: records when each phase started and, when
/// shown, prints one line per phase with its percentage on stderr (updated in place on a
/// terminal). Shown when forced, or on a terminal once the run has taken a second.
class Progress {
public:
    Progress(bool forced, bool quiet);
    /// The callback for SurfaceOptions::progress; `context` is the Progress.
    static bool report(void* context,
                       ry::SurfacePhase phase,
                       std::int64_t done,
                       std::int64_t total);
    /// Ends the current phase (and its line).
    void finish();
    /// Milliseconds spent in a phase (0 when it did not run).
    double phaseMs(ry::SurfacePhase phase) const { return ms[int(phase)]; }

private:
    void update(int phase, std::int64_t done, std::int64_t total);
    void endLine();

    bool forced, terminal, quiet;
    Clock::time_point start, phaseStart;
    int phase = -1;
    int shownPercent = -1;
    bool lineOpen = false;
    double ms[4] = {0.0, 0.0, 0.0, 0.0};
};

}  // namespace rytri
