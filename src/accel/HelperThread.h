// Large triangulations hand work that does not depend on the mesh (the nearest-vertex queries of
// the shuffled insertion order) to one helper thread that runs ahead of the insertions. The
// results are the same with and without it, down to the triangle slots and the C runtime's rand
// sequence: the helper never calls rand and never touches the mesh.
#pragma once

#include <cstddef>

/// True when a call on `points` points should use a helper thread: at least the threshold below,
/// and a machine with more than one hardware thread (unless a test chose the threshold).
bool useHelperThread(std::size_t points);

/// Inputs of at least this many points use a helper thread. The default is 32768, or never when
/// the environment variable RYTRI_THREADS is "1" at the first call. Tests set it (0 for always,
/// a huge value for never) to compare both ways.
std::size_t helperThreadMinPoints();
void setHelperThreadMinPoints(std::size_t points);

/// One step of waiting for another thread: a pause hint (where the processor has one) for the
/// first few hundred steps, then giving up the core. `steps` counts the calls of one wait.
void waitStep(int& steps);
