// rytri's command line.
#pragma once

#include <string>
#include <vector>

#include "RySurface.h"
#include "io/ExchangeWriters.h"
#include "io/SiteReaders.h"

namespace rytri {

constexpr int kExitOk = 0;
constexpr int kExitStatus = 1;
constexpr int kExitUsage = 2;

enum class Keep { kDefault, kAll, kInside };

struct LineFile {
    ry::Role role;
    std::string path;
};

struct Options {
    std::string input;
    std::string edgesFile;
    std::vector<LineFile> lineFiles;  ///< --boundary, --hole, --breaklines in the order given
    ReadOptions read;
    std::vector<std::string> outputs;
    std::string svg;
    std::string outDir = ".";
    bool demo = false;
    Keep keep = Keep::kDefault;
    bool dedupe = true;
    int plane = 0;
    double tolerance = 0.0;
    double cdtTolerance = -1.0;  ///< -1: not given (band 0)
    ry::Duplicates duplicates = ry::Duplicates::kFirst;
    bool spatialSort = true;
    bool splitCrossing = true;
    bool stats = false;
    bool quiet = false;
    int progress = -1;  ///< -1 when stderr is a terminal, 1 --progress
    long long svgLimit = 200000;
    double contourInterval = 0.0;  ///< 0: no contours
    double contourBase = 0.0;
    bool hasDatum = false;
    double datum = 0.0;
    double maxEdge = -1.0;  ///< < 0: no hull trimming
    std::string report;
    Units units = Units::kMeter;
};

/// Returns -1 when the run should go on, else the exit code (help, version, usage errors).
int parseOptions(int argc, char** argv, Options& o);

void printError(const std::string& message);
/// Prints the message and a hint to --help; returns kExitUsage.
int usageError(const std::string& message);

}  // namespace rytri
