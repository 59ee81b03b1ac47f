#include "Progress.h"

#include <cstdio>

#include "io/Platform.h"

namespace rytri {

namespace {

const char* const kPhaseNames[] = {
    "merging points", "inserting points", "inserting constraint lines", "labelling triangles"};

constexpr double kQuietMs = 1000.0;  // runs shorter than this show no progress on a terminal

}  // namespace

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

Progress::Progress(bool forced, bool quiet)
    : forced(forced),
      terminal(stderrIsTerminal()),
      quiet(quiet),
      start(Clock::now()),
      phaseStart(start) {}

bool Progress::report(void* context,
                      ry::SurfacePhase phase,
                      std::int64_t done,
                      std::int64_t total) {
    static_cast<Progress*>(context)->update(int(phase), done, total);
    return true;
}

void Progress::update(int next, std::int64_t done, std::int64_t total) {
    if (next != phase) {
        finish();
        phase = next;
        phaseStart = Clock::now();
        shownPercent = -1;
    }
    const bool show = !quiet && (forced || (terminal && millisecondsSince(start) > kQuietMs));
    if (!show) return;
    const int percent = total > 0 ? int(100 * done / total) : 100;
    if (percent == shownPercent) return;
    shownPercent = percent;
    if (terminal) {
        // One line per phase, rewritten in place.
        std::fprintf(stderr, "\rrytri: %s %3d%%", kPhaseNames[phase], percent);
        lineOpen = true;
    } else if (percent == 100) {
        std::fprintf(stderr, "rytri: %s 100%%\n", kPhaseNames[phase]);
    }
    std::fflush(stderr);
}

void Progress::finish() {
    if (phase < 0) return;
    ms[phase] += millisecondsSince(phaseStart);
    if (lineOpen) {
        std::fprintf(stderr, "\rrytri: %s 100%%\n", kPhaseNames[phase]);
        lineOpen = false;
    }
    phase = -1;
}

}  // namespace rytri
