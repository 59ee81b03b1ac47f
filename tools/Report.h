// What rytri tells its user: warnings about the input, the explanation of a failure with advice
// that fits its cause, and the summary of a run.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "Options.h"
#include "RySurface.h"
#include "RySurfaceProducts.h"
#include "Site.h"
#include "io/OutputFile.h"

namespace rytri {

/// Where a constraint line came from, e.g. "boundary at b.txt:3" or "edge 7".
std::string describeLine(const Site& site, std::size_t line);

/// The remarks of the reader and of the surface layer (merged heights, lines that enclose
/// nothing, repeated rings, lines crossed out, hole points outside the hull).
void printWarnings(const Site& site, const ry::Surface& surface, const Options& o);

/// Explains a failed surface on stderr; returns the exit code (1, or 2 for input errors).
int reportFailure(const Site& site,
                  const ry::Surface& surface,
                  const Options& o,
                  const std::string& label);

/// Figures of a finished run for the summary.
struct RunFigures {
    std::string label;
    std::size_t pointsRead = 0;
    double readMs = 0, cleanMs = 0, triangulateMs = 0, finishMs = 0, writeMs = 0, totalMs = 0;
    double siteArea = -1, outerArea = 0, holeArea = 0;  ///< the demo's polygons (siteArea >= 0)
    long peakKiB = -1;
    std::vector<std::string> written;
    // What was made from the surface (--max-edge, --contours, --volume-datum).
    double productsMs = 0;
    std::size_t trimmed = 0;
    std::size_t contourLevels = 0, contourLines = 0;
    bool hasVolumes = false;
    ry::Volumes volumes;
};

/// The summary of a successful run, to `out`.
void printSummary(std::FILE* out,
                  const ry::Surface& surface,
                  const Options& o,
                  const RunFigures& figures);

/// The figures of the summary as a JSON object.
void writeReport(const ry::Surface& surface,
                 const Options& o,
                 const RunFigures& figures,
                 OutputFile& out);

/// "N name(s)".
std::string counted(std::size_t n, const char* one, const char* many);

}  // namespace rytri
